// Result codes, their texts, and the read repair of dirty keys.
#include <cstring>

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

  Key k(client, key, key_len);
  Route route = route_of(key, key_len);
  const size_t n = client->groups.size();
  std::vector<Command> probe(2);
  probe[0].arg("DUMP").arg(k.view());
  probe[1].arg("PTTL").arg(k.view());
  std::vector<Batch> batches(n);
  for (size_t g = 0; g < n; ++g) {
    batches[g].server = server_for(*client->groups[g], route);
    batches[g].cmds = probe.data();
    batches[g].count = probe.size();
  }
  exchange(client, batches.data(), n);

  auto holds = [&](size_t g) {
    return !batches[g].failed && batches[g].replies[0]->type == REDIS_REPLY_STRING;
  };
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
  const redisReply *payload = batches[source].replies[0].get();
  long long keep_ms = 0;
  long long src_pttl = 0;
  if (!delete_elsewhere && reply_integer(batches[source].replies[1].get(), &src_pttl) &&
      durable && src_pttl > 0)
    keep_ms = src_pttl;
  else if (seconds > 0)
    keep_ms = seconds * 1000;

  std::vector<Command> fix(1);
  std::vector<Batch> repairs;
  for (size_t g = 0; g < n; ++g) {
    if (g == source || batches[g].failed) continue;
    const redisReply *dump = batches[g].replies[0].get();
    bool has = dump->type == REDIS_REPLY_STRING;
    if (delete_elsewhere ? !has
                         : (has && dump->len == payload->len &&
                            std::memcmp(dump->str, payload->str, payload->len) == 0))
      continue;  // already agrees with the source
    repairs.emplace_back();
    repairs.back().server = batches[g].server;
  }
  if (delete_elsewhere) {
    fix[0].arg("DEL").arg(k.view());
  } else {
    fix[0].arg("RESTORE").arg(k.view()).arg_int(keep_ms).arg(payload->str, payload->len).arg("REPLACE");
  }
  for (auto &b : repairs) {
    b.cmds = fix.data();
    b.count = 1;
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
    kl_return_t code = expect_type(b.replies[0].get(),
                                   delete_elsewhere ? REDIS_REPLY_INTEGER : REDIS_REPLY_STATUS);
    if (code == KL_SUCCESS) ++repaired;
    else result = code;
  }
  for (auto &b : batches) still_dirty = still_dirty || b.failed;
  if (groups) *groups = repaired;
  return still_dirty ? static_cast<kl_return_t>(result | KL_DIRTY) : result;
}
