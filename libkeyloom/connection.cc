#include "connection.h"

#include <cstdlib>
#include <cstring>

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

void disconnect_server(Server *server) {
  if (server->ctx) {
    redisFree(server->ctx);
    server->ctx = nullptr;
  }
  server->loaded_scripts.clear();
}

void mark_down(kl_client *client, Server *server, const char *why) {
  disconnect_server(server);
  server->down = true;
  server->down_until = Clock::now() + std::chrono::milliseconds(client->reconnect_timeout_ms);
  log_event(client, KL_LEVEL_WARNING, "server %s marked down: %s", server->name.c_str(), why);
}

bool connect_server(kl_client *client, Server *server) {
  if (server->ctx) return true;
  if (server->down && Clock::now() < server->down_until) return false;

  timeval tv = to_timeval(client->connect_timeout_ms);
  redisContext *ctx = redisConnectWithTimeout(server->host.c_str(), static_cast<int>(server->port), tv);
  if (!ctx || ctx->err) {
    log_event(client, KL_LEVEL_ERROR, "connect to %s failed: %s", server->name.c_str(),
              ctx ? ctx->errstr : "out of memory");
    if (ctx) redisFree(ctx);
    mark_down(client, server, "connect failed");
    return false;
  }
  redisSetTimeout(ctx, tv);
  server->ctx = ctx;

  // Replayed state. An error reply (wrong password, no SELECT on this server)
  // leaves the connection usable; only a lost connection counts as down.
  if (client->has_password) {
    Reply r = command(ctx, {"AUTH", client->password});
    if (!r) return mark_down(client, server, "AUTH got no reply"), false;
    if (r->type == REDIS_REPLY_ERROR)
      log_event(client, KL_LEVEL_ERROR, "AUTH refused by %s", server->name.c_str());
  }
  if (client->db != 0) {
    std::string db = std::to_string(client->db);
    Reply r = command(ctx, {"SELECT", db});
    if (!r) return mark_down(client, server, "SELECT got no reply"), false;
    if (r->type == REDIS_REPLY_ERROR)
      log_event(client, KL_LEVEL_ERROR, "SELECT refused by %s", server->name.c_str());
  }
  if (client->version == CLIENT_VERSION_AUTO && server->version_major == 0) {
    Reply r = command(ctx, {"INFO", "server"});
    if (!r) return mark_down(client, server, "INFO got no reply"), false;
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
