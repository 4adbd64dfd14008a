// Pipelined batches to several servers (exchange.h).
#include <cstring>
#include <string>

#include "connection.h"
#include "failures.h"
#include "exchange.h"
#include "exchange_round.h"
#include "log.h"
#include "pipeline.h"
#include "protocol.h"
#include "transport.h"

namespace keyloom {

namespace {

void fail(Batch &b, const char *why) {
  b.failed = true;
  b.replies.clear();
  drop_failed(*b.call, b.server, why);
}

}  // namespace

// The call has no time left for this server: it is not its fault, so it is
// not marked down, but whatever was queued on the connection must go.
void out_of_time(Batch &b) {
  kl_client *client = b.call->client;
  b.failed = true;
  b.replies.clear();
  log_event(client, KL_LEVEL_WARNING, "no time left for %s in this call", b.server->name.c_str());
  note_failure(*b.call, b.server, KL_FAILURE_CONNECTION, "no time left in this call");
  disconnect_server(b.server);
}

// A batch whose connection went while an earlier batch of the same round
// was on it (lost, timed out, dropped): its commands went with it.
void connection_gone(Batch &b) {
  b.failed = true;
  b.replies.clear();
  note_failure(*b.call, b.server, KL_FAILURE_CONNECTION,
               b.server->down ? std::string_view(b.server->failure) : std::string_view("connection lost"));
}

// The batch could not be read whole: a reply too large, or no reply at all.
void read_failed(Batch &b) {
  kl_client *client = b.call->client;
  if (b.server->budget.exceeded) {
    // The server is up and answering: only this connection, whose stream
    // now holds the rest of the refused reply, goes.
    log_event(client, KL_LEVEL_ERROR, "a reply from %s passes the maximum reply size of %zu bytes",
              b.server->name.c_str(), client->max_reply_bytes);
    note_failure(*b.call, b.server, KL_FAILURE_CONNECTION,
                 "reply larger than the maximum of " + std::to_string(client->max_reply_bytes) + " bytes");
    b.failed = b.too_large = true;
    b.replies.clear();
    disconnect_server(b.server);
    return;
  }
  log_event(client, KL_LEVEL_ERROR, "no reply from %s: %s", b.server->name.c_str(),
            b.server->ctx ? b.server->ctx->errstr : "");
  note_failure(*b.call, b.server, KL_FAILURE_CONNECTION, describe_read_failure(b.server));
  fail(b, "read failed");
}

void exchange_queue(Batch &b) {
  kl_client *client = b.call->client;
  if (b.size() == 0) return;
  if (!connect_server(*b.call, b.server)) {
    b.failed = true;
    return;
  }
  if (!append(client, b)) return fail(b, "could not queue commands");
  // The budget grows with the work: a healthy server answering a batch of
  // 300,000 commands is busy, not down.
  size_t arguments = 0;
  for (size_t i = 0; i < b.size(); ++i) arguments += static_cast<size_t>(b.cmd(i).argc());
  b.call->deadline += kBudgetPerCommand * b.size() + kBudgetPerArgument * arguments;
}

void exchange_send(Batch &b) {
  if (b.size() == 0 || b.failed) return;
  if (!b.server->ctx) return connection_gone(b);
  if (!arm_timeout(*b.call, b.server)) return out_of_time(b);
  if (!send_queued(b.server)) {
    note_failure(*b.call, b.server, KL_FAILURE_CONNECTION, describe_io_failure("write", b.server->ctx));
    return fail(b, "write failed");
  }
}

void exchange_settle(Batch &b) {
  if (b.size() == 0 || b.failed) return;
  bool ok = true;
  for (size_t i = 0; ok && i < b.size(); ++i) {
    if (is_noscript(b.replies[i].get()) && b.cmd(i).script()) {
      if (!b.server->ctx) return connection_gone(b);
      ok = retry_as_eval(b, i);
    }
  }
  if (!ok) return read_failed(b);
  // The server's own words, for the caller who gets a KL_SERVER_ERROR.
  for (const Reply &r : b.replies)
    if (r && r->type == REDIS_REPLY_ERROR) {
      note_failure(*b.call, b.server, KL_FAILURE_SERVER_REPLY, std::string_view(r->str, r->len));
      break;
    }
}

void exchange(kl_client *client, Batch *batches, size_t n) {
  CallSite &site = current_call_site();
  for (size_t k = 0; k < n; ++k) {
    batches[k].call = site.call;
    batches[k].done = batches[k].in_flight = false;
  }
  if (site.round_client == client) {
    // A call of a pipeline's round: the round sends these with every other call's.
    await_round(batches, n);
    return;
  }
  run_exchange(client, batches, n);
}

}  // namespace keyloom
