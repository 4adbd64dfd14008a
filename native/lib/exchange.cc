// Pipelined batches to several servers (exchange.h).
#include <cstring>
#include <string>

#include "connection.h"
#include "failures.h"
#include "exchange.h"
#include "log.h"
#include "protocol.h"

namespace keyloom {

namespace {

void fail(kl_client *client, Batch &b, const char *why) {
  b.failed = true;
  b.replies.clear();
  drop_failed(client, b.server, why);
}

// The call has no time left for this server: it is not its fault, so it is
// not marked down, but whatever was queued on the connection must go.
void out_of_time(kl_client *client, Batch &b) {
  b.failed = true;
  b.replies.clear();
  log_event(client, KL_LEVEL_WARNING, "no time left for %s in this call", b.server->name.c_str());
  note_failure(client, b.server, KL_FAILURE_CONNECTION, "no time left in this call");
  disconnect_server(b.server);
}

}  // namespace

void exchange(kl_client *client, Batch *batches, size_t n) {
  for (size_t k = 0; k < n; ++k) {
    Batch &b = batches[k];
    b.failed = b.too_large = false;
    b.replies.clear();
    if (b.size() == 0) continue;
    if (input_pending(b.server)) {
      // Replies nobody asked for (a server that answered twice) or a close
      // while idle: later replies would be matched to the wrong requests.
      log_event(client, KL_LEVEL_WARNING, "%s sent what was not asked for; reconnecting",
                b.server->name.c_str());
      disconnect_server(b.server);
    }
    if (!connect_server(client, b.server)) {
      b.failed = true;
      continue;
    }
    if (!append(client, b)) fail(client, b, "could not queue commands");
  }
  for (size_t k = 0; k < n; ++k) {
    Batch &b = batches[k];
    if (b.size() == 0 || b.failed) continue;
    if (!arm_timeout(client, b.server)) {
      out_of_time(client, b);
      continue;
    }
    int done = 0;
    while (!done) {
      if (redisBufferWrite(b.server->ctx, &done) != REDIS_OK) {
        note_failure(client, b.server, KL_FAILURE_CONNECTION, describe_io_failure("write", b.server->ctx));
        fail(client, b, "write failed");
        break;
      }
    }
  }
  for (size_t k = 0; k < n; ++k) {
    Batch &b = batches[k];
    if (b.size() == 0 || b.failed) continue;
    if (!arm_timeout(client, b.server)) {
      out_of_time(client, b);
      continue;
    }
    b.replies.resize(b.size());
    bool ok = true;
    redisReader *reader = b.server->ctx->reader;
    redisReplyObjectFunctions *saved_fn = reader->fn;
    void *saved_privdata = reader->privdata;
    if (b.reader_fn) {
      reader->fn = b.reader_fn;
      reader->privdata = b.on_read_context;
    }
    for (size_t i = 0; ok && i < b.size(); ++i) {
      if (!b.preloaded.empty() && b.preloaded[i]) {
        Reply load;
        ok = read_next(client, b.server, &load);
        if (!ok) break;
      }
      if (b.on_read_start) b.on_read_start(b.on_read_context, b, i);
      if (b.reader_fn) {
        void *r = nullptr;
        ok = read_next(client, b.server, &r);
      } else {
        ok = read_next(client, b.server, &b.replies[i]);
      }
      if (ok && b.on_read) b.on_read(b.on_read_context, b, i);
    }
    if (b.reader_fn) {
      // A reply cut short is the direct functions' object: the default
      // functions must never be asked to free it.
      reader->reply = nullptr;
      reader->fn = saved_fn;
      reader->privdata = saved_privdata;
    }
    for (size_t i = 0; ok && i < b.size(); ++i)
      if (is_noscript(b.replies[i].get()) && b.cmd(i).script()) ok = retry_as_eval(b, i);
    if (!ok && b.server->budget.exceeded) {
      // The server is up and answering: only this connection, whose stream
      // now holds the rest of the refused reply, goes.
      log_event(client, KL_LEVEL_ERROR, "a reply from %s passes the maximum reply size of %zu bytes",
                b.server->name.c_str(), client->max_reply_bytes);
      note_failure(client, b.server, KL_FAILURE_CONNECTION,
                   "reply larger than the maximum of " + std::to_string(client->max_reply_bytes) + " bytes");
      b.failed = b.too_large = true;
      b.replies.clear();
      disconnect_server(b.server);
    } else if (!ok) {
      log_event(client, KL_LEVEL_ERROR, "no reply from %s: %s", b.server->name.c_str(),
                b.server->ctx ? b.server->ctx->errstr : "");
      note_failure(client, b.server, KL_FAILURE_CONNECTION, describe_read_failure(b.server));
      fail(client, b, "read failed");
    } else {
      // The server's own words, for the caller who gets a KL_SERVER_ERROR.
      for (const Reply &r : b.replies)
        if (r && r->type == REDIS_REPLY_ERROR) {
          note_failure(client, b.server, KL_FAILURE_SERVER_REPLY, std::string_view(r->str, r->len));
          break;
        }
    }
  }
}

}  // namespace keyloom
