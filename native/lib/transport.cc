extern "C" {  // sds.h has no C++ guard of its own
#include <hiredis/sds.h>
}

#include "transport.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "tls.h"

namespace keyloom {

namespace {

// Records a failure on the context, where the error reports look, as hiredis
// records its own (a time-out is EAGAIN, as from a socket time-out).
bool failed(redisContext *ctx, long result, const std::string &why) {
  switch (result) {
    case kTlsTimedOut:
      ctx->err = REDIS_ERR_IO;
      errno = EAGAIN;
      std::snprintf(ctx->errstr, sizeof ctx->errstr, "%s", "Resource temporarily unavailable");
      break;
    case kTlsClosed:
      ctx->err = REDIS_ERR_EOF;
      std::snprintf(ctx->errstr, sizeof ctx->errstr, "%s", "Server closed the connection");
      break;
    default:
      ctx->err = REDIS_ERR_OTHER;
      errno = 0;
      std::snprintf(ctx->errstr, sizeof ctx->errstr, "%s", why.c_str());
  }
  return false;
}

constexpr size_t kReadChunk = 16 * 1024;  // what hiredis reads at a time

}  // namespace

bool send_queued(Server *server) {
  redisContext *ctx = server->ctx;
  if (!server->tls) {
    int done = 0;
    while (!done)
      if (redisBufferWrite(ctx, &done) != REDIS_OK) return false;
    return true;
  }
  std::string why;
  size_t sent = 0;
  const size_t total = sdslen(ctx->obuf);
  while (sent < total) {
    const long n = tls_write(server->tls, ctx->obuf + sent, total - sent, &why);
    if (n <= 0) {
      sdsrange(ctx->obuf, static_cast<ssize_t>(sent), -1);
      return failed(ctx, n, why);
    }
    sent += static_cast<size_t>(n);
  }
  sdsclear(ctx->obuf);
  return true;
}

bool receive_more(Server *server) {
  redisContext *ctx = server->ctx;
  if (!server->tls) return redisBufferRead(ctx) == REDIS_OK;
  char buf[kReadChunk];
  std::string why;
  const long n = tls_read(server->tls, buf, sizeof buf, &why);
  if (n <= 0) return failed(ctx, n, why);
  if (redisReaderFeed(ctx->reader, buf, static_cast<size_t>(n)) != REDIS_OK) {
    ctx->err = ctx->reader->err;
    std::snprintf(ctx->errstr, sizeof ctx->errstr, "%s", ctx->reader->errstr);
    return false;
  }
  return true;
}

bool input_pending(Server *server) {
  redisContext *ctx = server->ctx;
  if (!ctx) return false;
  if (ctx->reader && ctx->reader->len > ctx->reader->pos) return true;
  if (server->tls) {
    if (tls_has_buffered(server->tls)) return true;
    char byte;
    if (recv(ctx->fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT) < 0) return false;
    // Bytes on the socket may be only TLS's own records (session tickets
    // arrive after the handshake): read them to see whether data came.
    char buf[kReadChunk];
    std::string why;
    const long n = tls_read_ready(server->tls, buf, sizeof buf, &why);
    if (n > 0) redisReaderFeed(ctx->reader, buf, static_cast<size_t>(n));
    return n != 0;
  }
  char byte;
  return recv(ctx->fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT) >= 0;  // data, or closed
}

bool has_buffered_input(const Server *server) { return server->tls && tls_has_buffered(server->tls); }

void mark_timed_out(Server *server) { failed(server->ctx, kTlsTimedOut, std::string()); }

}  // namespace keyloom
