// Pipelined batches to several servers: every batch is sent before any reply
// is read, so N servers cost about one round trip. Callers hold the client
// lock.
#pragma once

#include <chrono>
#include <vector>

#include "client.h"
#include "internal.h"

namespace keyloom {

struct Batch {
  CallContext *call = nullptr;   // the call whose exchange it is (set by exchange())
  Server *server = nullptr;
  Command *cmds = nullptr;       // contiguous commands...
  size_t count = 0;
  std::vector<Command *> picked;  // ...or these, when not empty
  Replies replies;               // one per command after exchange()
  bool failed = false;           // down, lost, timed out: no replies
  bool too_large = false;        // failed: a reply passed the client's maximum reply size
  bool done = false;             // its round has run it (replies, or failed)
  bool in_flight = false;        // sent, its replies not all read yet
  std::vector<unsigned char> preloaded;  // SCRIPT LOAD sent before command i
  // When set, called with each reply as soon as it is read, before the next
  // one is read; it may release the reply (replies[i].reset()) so that large
  // batches never hold every reply at once. Not for scripted commands.
  void (*on_read)(void *context, Batch &batch, size_t i) = nullptr;
  void *on_read_context = nullptr;
  // Direct reading: when set, the connection's reader builds this batch's
  // replies with these functions (given on_read_context as its privdata)
  // instead of as redisReply objects, so replies[i] stays empty;
  // on_read_start(context, batch, i) runs before reply i is read.
  redisReplyObjectFunctions *reader_fn = nullptr;
  void (*on_read_start)(void *context, Batch &batch, size_t i) = nullptr;

  size_t size() const { return picked.empty() ? count : picked.size(); }
  Command &cmd(size_t i) { return picked.empty() ? cmds[i] : *picked[i]; }
};

// Runs every non-empty batch for the call in progress on this thread (the
// caller holds its CallScope). A failed server is marked down. A call of a
// pipeline's round steps aside until its round has run them.
void exchange(kl_client *client, Batch *batches, size_t n);

// What each command sent adds to its call's time budget, and each of its
// arguments besides (an MSET of 256 keys is more work than a GET).
constexpr std::chrono::microseconds kBudgetPerCommand{10};
constexpr std::chrono::microseconds kBudgetPerArgument{1};

// The steps of an exchange over one batch, within the deadline of the
// batch's call and noting its failures there (exchange_round.cc runs them
// for a round): queued (connecting as needed), sent, read (by the round),
// then settled (scripts the server lost run again, errors noted). Batches
// of several calls to one server share its write and its stream.
void exchange_queue(Batch &b);
void exchange_send(Batch &b);
void exchange_settle(Batch &b);

// How a batch fails, each noting why on its call.
// The call has no time left for the batch's server (not the server's fault).
void out_of_time(Batch &b);
// Its connection went while an earlier batch of the same round was on it.
void connection_gone(Batch &b);
// It could not be read whole: a reply too large, or no reply at all.
void read_failed(Batch &b);

// The code of a call whose reply passed the client's maximum reply size: the
// memory it would take is refused.
constexpr kl_return_t KL_REPLY_TOO_LARGE = KL_MEMORY_FAILURE;

// The code of a call over many items, from what each item got (answered[i]:
// some group answered item i; missed[i]: a group that should have did not).
kl_return_t multi_outcome(const kl_client *client, Access access, int policy,
                          const std::vector<unsigned char> &answered,
                          const std::vector<unsigned char> &missed);

// The code for "every server needed is down".
inline kl_return_t down_code(const kl_client *client) {
  return client->groups.size() > 1 ? KL_ALL_GROUP_SERVERS_DOWN : KL_SERVER_DOWN;
}

// The route's server in group g.
inline Server *server_for(const Group &g, Route route) {
  return g.servers[g.continuum.server_for(route.data, route.len)].get();
}

// The servers an administration command addresses: group null/"" = every
// group (and "_NL_" when no group has that name); a non-empty server
// "host:port" narrows it to that server. False when the group or server is
// unknown.
bool addressed_servers(const kl_client *client, const char *group, std::string_view server,
                       std::vector<Server *> *out);

// One code per addressed server into *results (when results is not null).
kl_return_t put_results(const kl_client *client, const std::vector<kl_return_t> &codes,
                        kl_return_t **results);
// KL_SUCCESS when every code is, the first failure when none is, else
// KL_PARTIAL_RESULT.
kl_return_t combine_codes(const std::vector<kl_return_t> &codes);

}  // namespace keyloom
