// Administration commands on every server of a group (or of every group).
#include <cstring>
#include <functional>
#include <string_view>
#include <vector>

#include "exchange.h"

namespace keyloom {

bool addressed_servers(const kl_client *client, const char *group, std::string_view server,
                       std::vector<Server *> *out) {
  out->clear();
  bool every_group = !group || !*group;
  if (!every_group && std::strcmp(group, "_NL_") == 0) {
    every_group = std::none_of(client->groups.begin(), client->groups.end(),
                               [](const auto &g) { return g->name == "_NL_"; });
  }
  bool group_found = every_group;
  for (auto &g : client->groups) {
    if (!every_group && g->name != group) continue;
    group_found = true;
    for (auto &s : g->servers)
      if (server.empty() || s->name == server) out->push_back(s.get());
  }
  return group_found && !out->empty();
}

kl_return_t put_results(const kl_client *client, const std::vector<kl_return_t> &codes,
                        kl_return_t **results) {
  if (!results) return KL_SUCCESS;
  auto *array = static_cast<kl_return_t *>(mm_calloc(client, codes.size(), sizeof(kl_return_t)));
  if (!array) return KL_MEMORY_FAILURE;
  std::copy(codes.begin(), codes.end(), array);
  *results = array;
  return KL_SUCCESS;
}

kl_return_t combine_codes(const std::vector<kl_return_t> &codes) {
  size_t ok = 0;
  kl_return_t first_failure = KL_SUCCESS;
  for (auto c : codes) {
    if (c == KL_SUCCESS) ++ok;
    else if (first_failure == KL_SUCCESS) first_failure = c;
  }
  if (ok == codes.size()) return KL_SUCCESS;
  return ok == 0 ? first_failure : KL_PARTIAL_RESULT;
}

kl_return_t run_each_server(kl_client *client, const char *group, std::string_view server,
                            Command &cmd, kl_return_t **results,
                            const std::function<kl_return_t(size_t server_index,
                                                            redisReply *reply)> &on_reply) {
  KL_REQUIRE_CLIENT(client);
  CallScope lock(client);
  if (!lock.ok()) return KL_PTHREAD_OP_FAILURE;
  if (client->groups.empty()) return KL_NO_SERVER_ATTACHED;
  std::vector<Server *> servers;
  if (!addressed_servers(client, group, server, &servers)) return KL_INVALID_PARAMETER;

  std::vector<Batch> batches(servers.size());
  for (size_t k = 0; k < servers.size(); ++k) {
    batches[k].server = servers[k];
    batches[k].cmds = &cmd;
    batches[k].count = 1;
  }
  exchange(client, batches.data(), batches.size());
  std::vector<kl_return_t> codes(servers.size());
  for (size_t k = 0; k < servers.size(); ++k) {
    if (batches[k].failed) {
      on_reply(k, nullptr);
      codes[k] = KL_SERVER_DOWN;
    } else {
      codes[k] = on_reply(k, batches[k].replies[0].get());
    }
  }
  kl_return_t stored = put_results(client, codes, results);
  if (stored != KL_SUCCESS) return stored;
  return combine_codes(codes);
}

}  // namespace keyloom
