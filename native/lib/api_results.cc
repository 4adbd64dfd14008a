// Result codes, their texts, and the read repair of dirty keys.
#include <cstring>

#include "command_kit.h"
#include "exchange.h"
#include "internal.h"

using namespace keyloom;

namespace {

struct CodeText {
  const char *clean;
  const char *dirty;
};

#define KL_TEXT(text) {text, text " (dirty: the groups now differ for this key)"}
const CodeText code_texts[] = {
    KL_TEXT("success"),
    KL_TEXT("error"),
    KL_TEXT("a mutex operation failed"),
    KL_TEXT("out of memory"),
    KL_TEXT("connection failure"),
    KL_TEXT("invalid client"),
    KL_TEXT("invalid command"),
    KL_TEXT("the server answered with an error"),
    KL_TEXT("server down"),
    KL_TEXT("unknown reply"),
    KL_TEXT("reply of the wrong type"),
    KL_TEXT("time to live already set"),
    KL_TEXT("already exists"),
    KL_TEXT("not found"),
    KL_TEXT("no server attached"),
    KL_TEXT("invalid parameter"),
    KL_TEXT("partial result: some servers failed"),
    KL_TEXT("no such set"),
    KL_TEXT("the member has no value"),
    KL_TEXT("no network contains the address"),
    KL_TEXT("every group's server is down"),
};
#undef KL_TEXT

}  // namespace

kl_return_t kl_get_result(kl_return_t result) {
  return static_cast<kl_return_t>(static_cast<unsigned>(result) & ~static_cast<unsigned>(KL_DIRTY));
}

uint8_t kl_is_dirty(kl_return_t result) { return (static_cast<unsigned>(result) & KL_DIRTY) ? 1 : 0; }

uint8_t kl_check_result(kl_return_t result, kl_return_t expected) {
  return kl_get_result(result) == expected ? 1 : 0;
}

char const *kl_strerror(kl_return_t result) {
  unsigned code = static_cast<unsigned>(kl_get_result(result));
  if (code >= sizeof code_texts / sizeof code_texts[0]) return "unknown result code";
  return kl_is_dirty(result) ? code_texts[code].dirty : code_texts[code].clean;
}

kl_return_t kl_dirty(kl_client *client, char *key, size_t key_len, int ttl, int *groups) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(key);
  CallScope lock(client);
  if (!lock.ok()) return KL_PTHREAD_OP_FAILURE;
  if (client->groups.empty()) return KL_NO_SERVER_ATTACHED;
  if (groups) *groups = 0;

  const unsigned flags = static_cast<unsigned>(ttl);
  const bool durable = flags & KL_DURABLE_TTL_BIT;
  const bool commit = flags & KL_COMMIT_BIT;
  const long long seconds = flags & ~(KL_DURABLE_TTL_BIT | KL_COMMIT_BIT);

  // The key and its companion keys (a collection's member values and
  // weights) are one unit: probed, compared, copied and deleted together.
  Key k(client, key, key_len);
  Route route = route_of(key, key_len);
  const std::vector<std::string> names = names_with_companions(k);
  const size_t n = client->groups.size();
  std::vector<Command> probe = dump_commands(names);
  std::vector<Batch> batches(n);
  for (size_t g = 0; g < n; ++g) {
    batches[g].server = server_for(*client->groups[g], route);
    batches[g].cmds = probe.data();
    batches[g].count = probe.size();
  }
  exchange(client, batches.data(), n);

  // DUMP of names[i] in group g: a string, or nil where there is no such key.
  auto dump_of = [&](size_t g, size_t i) { return batches[g].replies[2 * i].get(); };
  auto holds = [&](size_t g) { return !batches[g].failed && dump_holds_key(dump_of(g, 0)); };
  // The source: the first group holding the key; with COMMIT, the first group
  // that answered, whatever it holds.
  size_t source = n;
  bool any_answered = false;
  for (size_t g = 0; g < n; ++g) {
    if (batches[g].failed) continue;
    if (commit && !any_answered) source = g;
    any_answered = true;
    if (!commit && holds(g)) {
      source = g;
      break;
    }
  }
  if (!any_answered) return down_code(client);
  if (source == n) return KL_NOTFOUND;

  const bool delete_elsewhere = !holds(source);  // only with COMMIT
  long long keep_ms = 0;
  long long src_pttl = 0;
  if (!delete_elsewhere && reply_integer(batches[source].replies[1].get(), &src_pttl) &&
      durable && src_pttl > 0)
    keep_ms = src_pttl;
  else if (seconds > 0)
    keep_ms = seconds * 1000;

  // What every other group is made to hold: the source's keys (its TTL on
  // all of them) and none of the ones it lacks.
  std::vector<Command> fix;
  std::vector<int> fix_reply_types;
  if (delete_elsewhere) {
    fix.emplace_back("DEL");
    for (const std::string &name : names) fix.back().arg(name);
    fix_reply_types.push_back(REDIS_REPLY_INTEGER);
  } else {
    fix.resize(names.size());
    for (size_t i = 0; i < names.size(); ++i)
      fix_reply_types.push_back(restore_or_delete(fix[i], names[i], dump_of(source, i), keep_ms, true));
  }
  auto agrees_with_source = [&](size_t g) {
    for (size_t i = 0; i < names.size(); ++i) {
      const redisReply *mine = dump_of(g, i), *theirs = dump_of(source, i);
      if (dump_holds_key(mine) != (!delete_elsewhere && dump_holds_key(theirs))) return false;
      if (dump_holds_key(mine) && (mine->len != theirs->len || std::memcmp(mine->str, theirs->str, mine->len) != 0))
        return false;
    }
    return true;
  };
  std::vector<Batch> repairs;
  for (size_t g = 0; g < n; ++g) {
    if (g == source || batches[g].failed || agrees_with_source(g)) continue;
    repairs.emplace_back();
    repairs.back().server = batches[g].server;
    repairs.back().cmds = fix.data();
    repairs.back().count = fix.size();
  }
  exchange(client, repairs.data(), repairs.size());

  int repaired = 0;
  bool still_dirty = false;
  kl_return_t result = KL_SUCCESS;
  for (auto &b : repairs) {
    if (b.failed) {
      still_dirty = true;
      continue;
    }
    kl_return_t code = KL_SUCCESS;
    for (size_t i = 0; i < fix.size() && code == KL_SUCCESS; ++i)
      code = expect_type(b.replies[i].get(), fix_reply_types[i]);
    if (code == KL_SUCCESS) ++repaired;
    else result = code;
  }
  for (auto &b : batches) still_dirty = still_dirty || b.failed;
  if (groups) *groups = repaired;
  return still_dirty ? static_cast<kl_return_t>(result | KL_DIRTY) : result;
}
