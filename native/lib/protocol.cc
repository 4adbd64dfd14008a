extern "C" {  // sds.h has no C++ guard of its own
#include <hiredis/sds.h>
}

#include "protocol.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <vector>

#include "connection.h"
#include "transport.h"

namespace keyloom {

namespace {

bool script_loaded(const Server *s, const Script *script) {
  return std::find(s->loaded_scripts.begin(), s->loaded_scripts.end(), script) !=
         s->loaded_scripts.end();
}

// Decimal digits of v.
size_t digits(size_t v) {
  size_t n = 1;
  while (v >= 10) {
    v /= 10;
    ++n;
  }
  return n;
}

char *put_decimal(char *p, size_t v, size_t n) {
  for (size_t k = n; k > 0; --k) {
    p[k - 1] = static_cast<char>('0' + v % 10);
    v /= 10;
  }
  return p + n;
}

// Queues one command in the protocol's form straight into the connection's
// output buffer: the same bytes as redisAppendCommandArgv, without its
// formatted intermediate copy and its printf-style formatting.
bool append_argv(redisContext *ctx, int argc, const char **argv, const size_t *lens) {
  const size_t count = static_cast<size_t>(argc);
  size_t total = 1 + digits(count) + 2;
  for (size_t i = 0; i < count; ++i) total += 1 + digits(lens[i]) + 2 + lens[i] + 2;
  if (total > static_cast<size_t>(INT_MAX))
    return redisAppendCommandArgv(ctx, argc, argv, lens) == REDIS_OK;
  sds buf = sdsMakeRoomFor(ctx->obuf, total);
  if (!buf) return false;
  ctx->obuf = buf;
  char *p = buf + sdslen(buf);
  *p++ = '*';
  p = put_decimal(p, count, digits(count));
  *p++ = '\r';
  *p++ = '\n';
  for (size_t i = 0; i < count; ++i) {
    *p++ = '$';
    p = put_decimal(p, lens[i], digits(lens[i]));
    *p++ = '\r';
    *p++ = '\n';
    if (lens[i]) std::memcpy(p, argv[i], lens[i]);
    p += lens[i];
    *p++ = '\r';
    *p++ = '\n';
  }
  sdsIncrLen(buf, static_cast<int>(total));
  return true;
}

}  // namespace

bool is_noscript(const redisReply *r) {
  return r && r->type == REDIS_REPLY_ERROR && std::strncmp(r->str, "NOSCRIPT", 8) == 0;
}


bool append(const kl_client *client, Batch &b) {
  redisContext *ctx = b.server->ctx;
  for (size_t i = 0; i < b.size(); ++i) {
    Command &c = b.cmd(i);
    if (Command *newer = c.newer(); newer && accepts_v2_forms(client, b.server)) {
      if (!append_argv(ctx, newer->argc(), newer->argv(), newer->argvlen())) return false;
      continue;
    }
    const Script *script = c.script();
    if (script && !script_loaded(b.server, script)) {
      // Loaded ahead in the same pipeline, so commands after it can rely on it.
      if (b.preloaded.empty()) b.preloaded.assign(b.size(), 0);
      b.preloaded[i] = 1;
      const char *argv[3] = {"SCRIPT", "LOAD", script->source};
      size_t lens[3] = {6, 4, std::strlen(script->source)};
      if (!append_argv(ctx, 3, argv, lens)) return false;
      b.server->loaded_scripts.push_back(script);
    }
    if (!append_argv(ctx, c.argc(), c.argv(), c.argvlen())) return false;
  }
  return true;
}

bool read_next(CallContext &call, Server *server, void **reply) {
  return read_reply(server->ctx, &server->budget, reply,
                    [&call, server] { return arm_timeout(call, server) && receive_more(server); });
}

bool read_next(CallContext &call, Server *server, Reply *out) {
  void *r = nullptr;
  if (!read_next(call, server, &r)) return false;
  out->reset(static_cast<redisReply *>(r));
  return true;
}

// A server without the script (flushed since we loaded it): run it as EVAL.
bool round_trip(CallContext &call, Server *server, int argc, const char **argv, const size_t *lens,
                Reply *out) {
  out->reset();
  return append_argv(server->ctx, argc, argv, lens) && send_queued(server) && read_next(call, server, out);
}

bool retry_as_eval(Batch &b, size_t i) {
  Command &c = b.cmd(i);
  int at = c.script_index();
  std::vector<const char *> argv(c.argv(), c.argv() + c.argc());
  std::vector<size_t> lens(c.argvlen(), c.argvlen() + c.argc());
  argv[at] = "EVAL";
  lens[at] = 4;
  argv[at + 1] = c.script()->source;
  lens[at + 1] = std::strlen(c.script()->source);
  return round_trip(*b.call, b.server, c.argc(), argv.data(), lens.data(), &b.replies[i]);
}

}  // namespace keyloom
