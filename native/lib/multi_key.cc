// Many keys' commands, one per item: items grouped by server, one pipelined
// batch per server, fail-over per item for reads, every group for writes.
#include <algorithm>
#include <vector>

#include "exchange.h"

namespace keyloom {

// The code of a call over many items, from what each item got: success, or
// KL_PARTIAL_RESULT when some items got no answer and the policy is
// KL_BEST_EFFORT_ON_FAIL, with KL_DIRTY when a write missed a group; else
// (nothing answered, or KL_NULL_ON_FAIL and something missing) the code of
// servers being down.
kl_return_t multi_outcome(const kl_client *client, Access access, int policy,
                          const std::vector<unsigned char> &answered,
                          const std::vector<unsigned char> &missed) {
  const size_t count = answered.size();
  size_t failed = 0;
  bool dirty = false;
  for (size_t i = 0; i < count; ++i) {
    if (!answered[i]) ++failed;
    else if (missed[i] && access == Access::write) dirty = true;
  }
  if (failed > 0 && (policy != KL_BEST_EFFORT_ON_FAIL || failed == count))
    return down_code(client);
  kl_return_t result = failed ? KL_PARTIAL_RESULT : KL_SUCCESS;
  return dirty ? static_cast<kl_return_t>(result | KL_DIRTY) : result;
}


kl_return_t run_multi(kl_client *client, Access access, const std::vector<Route> &routes,
                      std::vector<Command> &cmds, int policy, const OnItemReply &on_reply) {
  KL_REQUIRE_CLIENT(client);
  CallScope lock(client);
  if (!lock.ok()) return KL_PTHREAD_OP_FAILURE;
  if (client->groups.empty()) return KL_NO_SERVER_ATTACHED;
  const size_t n = std::min(routes.size(), cmds.size());

  Replies chosen(n);
  std::vector<unsigned char> answered(n, 0), missed(n, 0);  // missed: a group failed
  std::vector<Batch> batches;
  std::vector<std::vector<size_t>> items;  // item index of each picked command

  // Queues the items still wanted in group g, one batch per server.
  auto queue_group = [&](const Group &group, bool only_unanswered) {
    size_t base = batches.size();
    batches.resize(base + group.servers.size());
    items.resize(base + group.servers.size());
    for (size_t s = 0; s < group.servers.size(); ++s) batches[base + s].server = group.servers[s].get();
    for (size_t i = 0; i < n; ++i) {
      if (only_unanswered && answered[i]) continue;
      size_t s = group.continuum.server_for(routes[i].data, routes[i].len);
      batches[base + s].picked.push_back(&cmds[i]);
      items[base + s].push_back(i);
    }
  };
  // Takes the replies of batches [from, end) for items not answered yet.
  auto collect = [&](size_t from) {
    for (size_t k = from; k < batches.size(); ++k) {
      for (size_t j = 0; j < items[k].size(); ++j) {
        size_t i = items[k][j];
        if (batches[k].failed) {
          missed[i] = 1;
        } else if (!answered[i]) {
          chosen[i] = std::move(batches[k].replies[j]);
          answered[i] = 1;
        }
      }
    }
  };

  if (access == Access::write) {
    for (auto &group : client->groups) queue_group(*group, false);
    exchange(client, batches.data(), batches.size());
    collect(0);
  } else {
    // Per item fail-over: each round asks the next group for what is missing.
    for (auto &group : client->groups) {
      size_t from = batches.size();
      queue_group(*group, true);
      exchange(client, batches.data() + from, batches.size() - from);
      collect(from);
      if (std::all_of(answered.begin(), answered.end(), [](unsigned char a) { return a != 0; }))
        break;
    }
  }

  kl_return_t result = multi_outcome(client, access, policy, answered, missed);
  if (kl_get_result(result) == KL_SUCCESS || kl_get_result(result) == KL_PARTIAL_RESULT)
    for (size_t i = 0; i < n; ++i) on_reply(i, chosen[i].get());
  return result;
}

}  // namespace keyloom
