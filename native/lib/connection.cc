#include "connection.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "connector.h"
#include "failures.h"
#include "internal.h"
#include "log.h"
#include "protocol.h"
#include "resolve.h"
#include "tls.h"
#include "transport.h"

namespace keyloom {

namespace {

timeval to_timeval(unsigned ms) {
  timeval tv;
  tv.tv_sec = ms / 1000;
  tv.tv_usec = static_cast<suseconds_t>((ms % 1000) * 1000);
  return tv;
}

// Queues one command of the replayed state on a fresh connection.
bool queue_command(redisContext *ctx, std::initializer_list<std::string_view> args) {
  const char *argv[4];
  size_t lens[4];
  int argc = 0;
  for (auto a : args) {
    argv[argc] = a.data();
    lens[argc++] = a.size();
  }
  return redisAppendCommandArgv(ctx, argc, argv, lens) == REDIS_OK;
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

// Down, and not to be tried again before its reconnect time-out.
bool held_down(const Server *server) { return server->down && Clock::now() < server->down_until; }

}  // namespace

// A connection that broke while being set up (AUTH, SELECT or INFO unanswered).
void lost_at_connect(CallContext &call, Server *server, const char *step) {
  note_failure(call, server, KL_FAILURE_CONNECTION, describe_read_failure(server) + " (" + step + ")");
  drop_failed(call, server, step);
}

void disconnect_server(Server *server) {
  if (server->connector) finish_connector(server, nullptr);
  if (server->tls) {
    tls_close(server->tls);
    server->tls = nullptr;
  }
  if (server->ctx) {
    redisFree(server->ctx);
    server->ctx = nullptr;
  }
  server->io_timeout_ms = 0;
  server->loaded_scripts.clear();
}

void mark_down(CallContext &call, Server *server, const char *why) {
  kl_client *client = call.client;
  disconnect_server(server);
  server->down = true;
  server->down_until = Clock::now() + std::chrono::milliseconds(client->reconnect_timeout_ms);
  // Calls that skip it until then are told why.
  const CallFailure &f = call.failure;
  server->failure = (f.kind == KL_FAILURE_CONNECTION && f.server == server->name) ? f.text : why;
  log_event(client, KL_LEVEL_WARNING, "server %s marked down: %s", server->name.c_str(), why);
}

unsigned call_ms_left(const CallContext &call) {
  auto left = std::chrono::duration_cast<std::chrono::milliseconds>(call.deadline - Clock::now()).count();
  return left > 0 ? static_cast<unsigned>(left) : 0;
}

bool arm_timeout(CallContext &call, Server *server) {
  const unsigned ms = std::min(call.client->connect_timeout_ms, call_ms_left(call));
  if (ms == 0) return false;
  // Setting the socket's time-outs is two system calls: only when it changes.
  if (ms != server->io_timeout_ms) {
    redisSetTimeout(server->ctx, to_timeval(ms));
    server->io_timeout_ms = ms;
  }
  return true;
}

void drop_failed(CallContext &call, Server *server, const char *why) {
  kl_client *client = call.client;
  if (server->io_timeout_ms != 0 && server->io_timeout_ms < client->connect_timeout_ms) {
    // The call ran out of time while waiting: that says more about the
    // servers it visited before than about this one.
    log_event(client, KL_LEVEL_WARNING, "server %s dropped: %s (call out of time)",
              server->name.c_str(), why);
    disconnect_server(server);
    return;
  }
  mark_down(call, server, why);
}

std::pair<std::string_view, std::string_view> split_credentials(std::string_view secret) {
  const size_t nul = secret.find('\0');
  if (nul == std::string_view::npos) return {{}, secret};
  return {secret.substr(0, nul), secret.substr(nul + 1)};
}

bool connect_would_wait(const CallContext &call, const Server *server) {
  if (server->ctx) return false;
  if (held_down(server)) return false;
  return call_ms_left(call) > 0;
}

bool connect_server(CallContext &call, Server *server) {
  if (server->connector) return finish_connector(server, &call);
  return open_connection(call, server);
}

bool open_connection(CallContext &call, Server *server) {
  if (server->ctx) return true;
  kl_client *client = call.client;
  if (held_down(server)) {
    note_failure(call, server, KL_FAILURE_CONNECTION,
                 server->failure.empty() ? "marked down" : server->failure + " (marked down)");
    return false;
  }
  const unsigned left = call_ms_left(call);
  if (left == 0) {
    note_failure(call, server, KL_FAILURE_CONNECTION, "no time left in this call");
    return false;
  }

  const unsigned connect_ms = std::min(client->connect_timeout_ms, left);
  // The name is resolved within the connect time-out too: a resolver that
  // never answers must not hold the call.
  std::string address;
  std::string resolve_error;
  if (!resolve_within(server->host, connect_ms, &address, &resolve_error)) {
    log_event(client, KL_LEVEL_ERROR, "connect to %s failed: %s", server->name.c_str(), resolve_error.c_str());
    note_failure(call, server, KL_FAILURE_CONNECTION, resolve_error);
    if (connect_ms == client->connect_timeout_ms) mark_down(call, server, "name not resolved");
    return false;
  }
  const unsigned connect_left = std::min(connect_ms, call_ms_left(call));
  if (connect_left == 0) {
    note_failure(call, server, KL_FAILURE_CONNECTION, "no time left in this call");
    return false;
  }
  redisContext *ctx = redisConnectWithTimeout(address.c_str(), static_cast<int>(server->port),
                                              to_timeval(connect_left));
  if (!ctx || ctx->err) {
    const std::string cause = ctx ? describe_io_failure("connect", ctx) : "connect: out of memory";
    log_event(client, KL_LEVEL_ERROR, "connect to %s failed: %s", server->name.c_str(),
              ctx ? ctx->errstr : "out of memory");
    note_failure(call, server, KL_FAILURE_CONNECTION, cause);
    if (ctx) redisFree(ctx);
    if (connect_ms == client->connect_timeout_ms) mark_down(call, server, "connect failed");
    return false;
  }
  server->ctx = ctx;
  server->io_timeout_ms = 0;
  server->budget.limit = client->max_reply_bytes;
  attach_reply_budget(ctx->reader, &server->budget);
  if (!arm_timeout(call, server)) return drop_failed(call, server, "out of time"), false;
  if (client->tls) {
    std::string why;
    server->tls = tls_open(*client->tls, ctx->fd, server->host, &why);
    if (!server->tls) {
      log_event(client, KL_LEVEL_ERROR, "TLS with %s failed: %s", server->name.c_str(), why.c_str());
      note_failure(call, server, KL_FAILURE_CONNECTION, why);
      drop_failed(call, server, "TLS handshake failed");
      return false;
    }
  }

  // Replayed state, sent in one write, each reply read within what the call
  // has left (a server that accepts the connection and then stalls costs the
  // call's time, not three time-outs). An error reply (wrong password, no
  // SELECT on this server) leaves the connection usable; only a lost
  // connection counts as down.
  const char *steps[3];
  size_t step_count = 0;
  std::string db = std::to_string(client->db);
  bool queued = true;
  if (client->has_password) {
    auto [user, password] = split_credentials(client->password);
    queued &= user.data() ? queue_command(ctx, {"AUTH", user, password}) : queue_command(ctx, {"AUTH", password});
    steps[step_count++] = "AUTH";
  }
  if (client->db != 0) {
    queued &= queue_command(ctx, {"SELECT", db});
    steps[step_count++] = "SELECT";
  }
  const bool ask_version = client->version == CLIENT_VERSION_AUTO && server->version_major == 0;
  if (ask_version) {
    queued &= queue_command(ctx, {"INFO", "server"});
    steps[step_count++] = "INFO";
  }
  if (step_count > 0 && !(queued && send_queued(server))) return lost_at_connect(call, server, steps[0]), false;
  for (size_t i = 0; i < step_count; ++i) {
    Reply r;
    if (!read_next(call, server, &r)) return lost_at_connect(call, server, steps[i]), false;
    if (r->type == REDIS_REPLY_ERROR && std::strcmp(steps[i], "INFO") != 0)
      log_event(client, KL_LEVEL_ERROR, "%s refused by %s", steps[i], server->name.c_str());
    if (std::strcmp(steps[i], "INFO") == 0) read_version(server, r.get());
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
