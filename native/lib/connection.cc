#include "connection.h"

#include <sys/socket.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "failures.h"
#include "internal.h"
#include "log.h"

namespace keyloom {

namespace {

timeval to_timeval(unsigned ms) {
  timeval tv;
  tv.tv_sec = ms / 1000;
  tv.tv_usec = static_cast<suseconds_t>((ms % 1000) * 1000);
  return tv;
}

Reply command(redisContext *ctx, std::initializer_list<std::string_view> args) {
  const char *argv[4];
  size_t lens[4];
  int argc = 0;
  for (auto a : args) {
    argv[argc] = a.data();
    lens[argc++] = a.size();
  }
  return Reply(static_cast<redisReply *>(redisCommandArgv(ctx, argc, argv, lens)));
}

// "redis_version:7.0.15" out of INFO server.
void read_version(Server *server, const redisReply *info) {
  if (!info || info->type != REDIS_REPLY_STRING) return;
  const char *at = std::strstr(info->str, "redis_version:");
  if (!at) return;
  at += std::strlen("redis_version:");
  char *end = nullptr;
  server->version_major = static_cast<int>(std::strtol(at, &end, 10));
  if (end && *end == '.') server->version_minor = static_cast<int>(std::strtol(end + 1, nullptr, 10));
}

}  // namespace

// A connection that broke while being set up (AUTH, SELECT or INFO unanswered).
void lost_at_connect(kl_client *client, Server *server, const char *step) {
  note_failure(client, server, KL_FAILURE_CONNECTION, describe_read_failure(server) + " (" + step + ")");
  drop_failed(client, server, step);
}

bool input_pending(const Server *server) {
  const redisContext *ctx = server->ctx;
  if (!ctx) return false;
  if (ctx->reader && ctx->reader->len > ctx->reader->pos) return true;
  char byte;
  return recv(ctx->fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT) >= 0;  // data, or closed
}

void disconnect_server(Server *server) {
  if (server->ctx) {
    redisFree(server->ctx);
    server->ctx = nullptr;
  }
  server->io_timeout_ms = 0;
  server->loaded_scripts.clear();
}

void mark_down(kl_client *client, Server *server, const char *why) {
  disconnect_server(server);
  server->down = true;
  server->down_until = Clock::now() + std::chrono::milliseconds(client->reconnect_timeout_ms);
  // Calls that skip it until then are told why.
  const CallFailure &f = client->last_failure;
  server->failure = (f.kind == KL_FAILURE_CONNECTION && f.server == server->name) ? f.text : why;
  log_event(client, KL_LEVEL_WARNING, "server %s marked down: %s", server->name.c_str(), why);
}

unsigned call_ms_left(const kl_client *client) {
  auto left =
      std::chrono::duration_cast<std::chrono::milliseconds>(client->deadline - Clock::now()).count();
  return left > 0 ? static_cast<unsigned>(left) : 0;
}

bool arm_timeout(kl_client *client, Server *server) {
  const unsigned ms = std::min(client->connect_timeout_ms, call_ms_left(client));
  if (ms == 0) return false;
  // Setting the socket's time-outs is two system calls: only when it changes.
  if (ms != server->io_timeout_ms) {
    redisSetTimeout(server->ctx, to_timeval(ms));
    server->io_timeout_ms = ms;
  }
  return true;
}

void drop_failed(kl_client *client, Server *server, const char *why) {
  if (server->io_timeout_ms != 0 && server->io_timeout_ms < client->connect_timeout_ms) {
    // The call ran out of time while waiting: that says more about the
    // servers it visited before than about this one.
    log_event(client, KL_LEVEL_WARNING, "server %s dropped: %s (call out of time)",
              server->name.c_str(), why);
    disconnect_server(server);
    return;
  }
  mark_down(client, server, why);
}

std::pair<std::string_view, std::string_view> split_credentials(std::string_view secret) {
  const size_t nul = secret.find('\0');
  if (nul == std::string_view::npos) return {{}, secret};
  return {secret.substr(0, nul), secret.substr(nul + 1)};
}

bool connect_server(kl_client *client, Server *server) {
  if (server->ctx) return true;
  if (server->down && Clock::now() < server->down_until) {
    note_failure(client, server, KL_FAILURE_CONNECTION,
                 server->failure.empty() ? "marked down" : server->failure + " (marked down)");
    return false;
  }
  const unsigned left = call_ms_left(client);
  if (left == 0) {
    note_failure(client, server, KL_FAILURE_CONNECTION, "no time left in this call");
    return false;
  }

  const unsigned connect_ms = std::min(client->connect_timeout_ms, left);
  redisContext *ctx = redisConnectWithTimeout(server->host.c_str(), static_cast<int>(server->port),
                                              to_timeval(connect_ms));
  if (!ctx || ctx->err) {
    const std::string cause = ctx ? describe_io_failure("connect", ctx) : "connect: out of memory";
    log_event(client, KL_LEVEL_ERROR, "connect to %s failed: %s", server->name.c_str(),
              ctx ? ctx->errstr : "out of memory");
    note_failure(client, server, KL_FAILURE_CONNECTION, cause);
    if (ctx) redisFree(ctx);
    if (connect_ms == client->connect_timeout_ms) mark_down(client, server, "connect failed");
    return false;
  }
  server->ctx = ctx;
  server->io_timeout_ms = 0;
  server->budget.limit = client->max_reply_bytes;
  attach_reply_budget(ctx->reader, &server->budget);
  if (!arm_timeout(client, server)) return drop_failed(client, server, "out of time"), false;

  // Replayed state. An error reply (wrong password, no SELECT on this server)
  // leaves the connection usable; only a lost connection counts as down.
  if (client->has_password) {
    auto [user, password] = split_credentials(client->password);
    Reply r = user.data() ? command(ctx, {"AUTH", user, password}) : command(ctx, {"AUTH", password});
    if (!r) return lost_at_connect(client, server, "AUTH"), false;
    if (r->type == REDIS_REPLY_ERROR)
      log_event(client, KL_LEVEL_ERROR, "AUTH refused by %s", server->name.c_str());
  }
  if (client->db != 0) {
    std::string db = std::to_string(client->db);
    Reply r = command(ctx, {"SELECT", db});
    if (!r) return lost_at_connect(client, server, "SELECT"), false;
    if (r->type == REDIS_REPLY_ERROR)
      log_event(client, KL_LEVEL_ERROR, "SELECT refused by %s", server->name.c_str());
  }
  if (client->version == CLIENT_VERSION_AUTO && server->version_major == 0) {
    Reply r = command(ctx, {"INFO", "server"});
    if (!r) return lost_at_connect(client, server, "INFO"), false;
    read_version(server, r.get());
  }
  if (server->down) log_event(client, KL_LEVEL_NOTICE, "server %s up again", server->name.c_str());
  server->down = false;
  log_event(client, KL_LEVEL_EVENT, "connected to %s", server->name.c_str());
  return true;
}

bool accepts_v2_forms(const kl_client *client, const Server *server) {
  switch (client->version) {
    case CLIENT_VERSION_1: return false;
    case CLIENT_VERSION_2: return true;
    default:
      return server->version_major > 6 || (server->version_major == 6 && server->version_minor >= 2);
  }
}

}  // namespace keyloom
