// One key's commands over the groups: a write goes to the key's server in
// every group (the dirty bit when some missed it), a read to the first group
// whose server answers.
#include <vector>

#include "exchange.h"

namespace keyloom {

kl_return_t run_write(kl_client *client, Route route, Command *cmds, size_t n,
                      const Interpret &interpret) {
  KL_REQUIRE_CLIENT(client);
  CallScope lock(client);
  if (!lock.ok()) return KL_PTHREAD_OP_FAILURE;
  if (client->groups.empty()) return KL_NO_SERVER_ATTACHED;

  // A few groups fit on the stack: no allocation per write.
  constexpr size_t kLocal = 4;
  const size_t groups = client->groups.size();
  Batch local[kLocal];
  std::vector<Batch> heap;
  Batch *batches = local;
  if (groups > kLocal) {
    heap.resize(groups);
    batches = heap.data();
  }
  for (size_t g = 0; g < groups; ++g) {
    batches[g].server = server_for(*client->groups[g], route);
    batches[g].cmds = cmds;
    batches[g].count = n;
  }
  exchange(client, batches, groups);

  bool answered = false, some_failed = false, too_large = false;
  kl_return_t result = KL_SUCCESS;
  for (size_t g = 0; g < groups; ++g) {
    Batch &b = batches[g];
    if (b.failed) {
      some_failed = true;
      too_large = too_large || b.too_large;
      continue;
    }
    kl_return_t code = interpret(b.replies, !answered);
    if (!answered) result = code;
    // A group that answered otherwise (an error reply, a key it did or did
    // not have) now holds another copy than the first: dirty as well.
    else if (code != result) some_failed = true;
    answered = true;
  }
  if (!answered) return too_large ? KL_REPLY_TOO_LARGE : down_code(client);
  return some_failed ? static_cast<kl_return_t>(result | KL_DIRTY) : result;
}

kl_return_t run_read(kl_client *client, Route route, Command *cmds, size_t n,
                     const Interpret &interpret) {
  KL_REQUIRE_CLIENT(client);
  CallScope lock(client);
  if (!lock.ok()) return KL_PTHREAD_OP_FAILURE;
  if (client->groups.empty()) return KL_NO_SERVER_ATTACHED;

  Batch b;
  b.cmds = cmds;
  b.count = n;
  for (auto &group : client->groups) {
    b.server = server_for(*group, route);
    exchange(client, &b, 1);
    if (!b.failed) return interpret(b.replies, true);
    // Another group holds the same value: failing over would not make it smaller.
    if (b.too_large) return KL_REPLY_TOO_LARGE;
  }
  return down_code(client);
}
}  // namespace keyloom
