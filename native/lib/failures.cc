#include "failures.h"

#include <cerrno>
#include <cstring>
#include <string>

namespace keyloom {

void note_failure(CallContext &call, const Server *server, int kind, std::string_view text) {
  CallFailure &f = call.failure;
  if (f.kind != KL_FAILURE_NONE) return;
  f.kind = kind;
  f.server.assign(server ? server->name : std::string());
  f.text.assign(text.data(), text.size());
}

std::string describe_io_failure(const char *call, const redisContext *ctx) {
  std::string out(call);
  out += ' ';
  if (ctx && ctx->err == REDIS_ERR_IO && errno != 0) {
    if (const char *name = strerrorname_np(errno)) return out + name;
  }
  if (ctx && ctx->errstr[0]) return out + ctx->errstr;
  return out + "failed";
}

std::string describe_read_failure(const Server *server) {
  const redisContext *ctx = server->ctx;
  if (!ctx) return "connection lost";
  if (ctx->err == REDIS_ERR_EOF) return "connection closed by the server";
  // ctx->err 0: the read was refused because the call's time was up.
  if (ctx->err == 0 || (ctx->err == REDIS_ERR_IO && (errno == EAGAIN || errno == EWOULDBLOCK)))
    return "no reply in " + std::to_string(server->io_timeout_ms) + " ms";
  if (ctx->err == REDIS_ERR_IO && errno != 0) {
    if (const char *name = strerrorname_np(errno)) return std::string("read ") + name;
  }
  return ctx->errstr[0] ? std::string(ctx->errstr) : std::string("read failed");
}

}  // namespace keyloom
