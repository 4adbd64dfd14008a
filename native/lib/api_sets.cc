// Set commands. A member may carry a value, kept in the hash
// <key>::keyloom:svals beside the set and removed with the member.
#include <algorithm>
#include <deque>
#include <set>

#include "cidr.h"
#include "command_kit.h"
#include "collection_scripts.h"
#include "reply_cells.h"
#include "set_scripts.h"

using namespace keyloom;

namespace {

// The SMEMBERS of every key (each routed on its own, or all by `route`),
// merged into `members` in byte order. A wrong-type key fails the call.
kl_return_t union_of(kl_client *client, char **keys, size_t count, size_t *key_lens, char *route,
                     size_t route_len, int policy, std::set<std::string> &members) {
  std::deque<Key> prefixed;
  std::vector<Route> routes;
  std::vector<Command> cmds;
  for (size_t i = 0; i < count; ++i) {
    prefixed.emplace_back(client, keys[i], key_lens[i]);
    routes.push_back(route_of(keys[i], key_lens[i], route, route_len));
    cmds.emplace_back("SMEMBERS");
    cmds.back().arg(prefixed.back().view());
  }
  kl_return_t refused = KL_SUCCESS;
  kl_return_t r = run_multi(client, Access::read, routes, cmds, policy,
                            [&](size_t, redisReply *reply) {
                              if (!reply) return;
                              if (kl_return_t e = expect_type(reply, REDIS_REPLY_ARRAY)) {
                                if (!refused) refused = e;
                                return;
                              }
                              for (const redisReply *m : elements_of(reply))
                                if (m->type == REDIS_REPLY_STRING) members.emplace(m->str, m->len);
                            });
  if (r != KL_SUCCESS && r != KL_PARTIAL_RESULT) return r;
  return refused ? refused : r;
}

bool policy_ok(int policy) { return policy == KL_NULL_ON_FAIL || policy == KL_BEST_EFFORT_ON_FAIL; }

}  // namespace

namespace {

// SADD through add_with_values: a new set never inherits values left behind
// by a deleted one. value null: the member's value is left as it is.
kl_return_t add_member(kl_client *client, char *key, size_t key_len, char *member,
                       size_t member_len, const char *value, size_t value_len, size_t ttl) {
  Key k(client, key, key_len);
  std::string values = companion(k, kSetValuesSuffix);
  Command cmd = script_command(add_with_values, {k.view(), values}, [&](Command &c) {
    c.arg_int(static_cast<long long>(ttl)).arg("SADD").arg(value ? "1" : "0");
    c.arg(member, member_len);
    if (value) c.arg(value, value_len);
  });
  return write_one(client, route_of(key, key_len), std::move(cmd), reply_done);
}

}  // namespace

kl_return_t kl_sadd(kl_client *client, char *key, size_t key_len, char *member, size_t member_len,
                    size_t ttl) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(given(key) && given(member) && ttl_ok(ttl));
  return add_member(client, key, key_len, member, member_len, nullptr, 0, ttl);
}

kl_return_t kl_saddval(kl_client *client, char *key, size_t key_len, char *member,
                       size_t member_len, char *value, size_t value_len, size_t ttl) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(given(key) && given(member) && optional_bytes(value, value_len) && ttl_ok(ttl));
  return add_member(client, key, key_len, member, member_len, or_empty(value), value_len, ttl);
}

kl_return_t kl_srem(kl_client *client, char *key, size_t key_len, char *member,
                    size_t member_len) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(given(key) && given(member));
  Key k(client, key, key_len);
  std::string values = companion(k, kSetValuesSuffix);
  Command cmd = script_command(remove_with_values, {k.view(), values},
                               [&](Command &c) { c.arg("SREM").arg(member, member_len); });
  return write_one(client, route_of(key, key_len), std::move(cmd),
                   [](const redisReply *r, bool) { return reply_flag(r, KL_NOTFOUND); });
}

kl_return_t kl_spop_whole(kl_client *client, char *key, size_t key_len, char **member,
                          size_t *member_len, char *route, size_t route_len) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(member, member_len);
  KL_REQUIRE(given(key) && given(member));
  Key k(client, key, key_len);
  std::string values = companion(k, kSetValuesSuffix);
  Route where = route_of(key, key_len, route, route_len);
  // SPOP picks at random in each group, so the groups would drop different
  // members: pick one member where reads go, then remove exactly that one
  // everywhere. Another client may take it in between: then pick again.
  kl_return_t r = KL_NOTFOUND;
  for (int attempt = 0; attempt < 3 && r == KL_NOTFOUND; ++attempt) {
    std::string picked;
    r = read_one(client, where, Command("SRANDMEMBER").arg(k.view()), [&](const redisReply *m, bool) {
      if (kl_return_t e = put_reply_string(client, m, nullptr, nullptr)) return e;
      if (m->type != REDIS_REPLY_STRING) return KL_WRONG_REPLY;
      picked.assign(m->str, m->len);
      return KL_SUCCESS;
    });
    if (r != KL_SUCCESS) return r;
    Command cmd = script_command(remove_with_values, {k.view(), values},
                                 [&](Command &c) { c.arg("SREM").arg(picked); });
    r = write_one(client, where, std::move(cmd), [&](const redisReply *removed, bool fill) {
      if (kl_return_t e = reply_flag(removed, KL_NOTFOUND)) return e;
      return fill ? put_bytes(client, picked.data(), picked.size(), member, member_len) : KL_SUCCESS;
    });
  }
  return r;
}

kl_return_t kl_sval_whole(kl_client *client, char *key, size_t key_len, char *member,
                          size_t member_len, char **value, size_t *value_len, char *route,
                          size_t route_len) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(value, value_len);
  KL_REQUIRE(given(key) && given(member) && given(value));
  Key k(client, key, key_len);
  std::string values = companion(k, kSetValuesSuffix);
  std::vector<Command> cmds(2);
  cmds[0].arg("SISMEMBER").arg(k.view()).arg(member, member_len);
  cmds[1].arg("HGET").arg(values).arg(member, member_len);
  return run_read(client, route_of(key, key_len, route, route_len), cmds,
                  [&](Replies &replies, bool fill) {
                    if (kl_return_t r = reply_flag(replies[0].get(), KL_NOTFOUND)) return r;
                    const redisReply *v = replies[1].get();
                    if (v && v->type == REDIS_REPLY_NIL) {
                      if (fill) put_missing(value, value_len);
                      return KL_SET_EMPTY_VALUE;
                    }
                    return reply_value(client, v, fill, value, value_len);
                  });
}

kl_return_t kl_svalfromip(kl_client *client, char const *key, size_t key_len, char const *ip,
                          size_t ip_len, char **value, size_t *value_len) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(value, value_len);
  KL_REQUIRE(given(key) && given(ip) && given(value));
  auto address = cidr::parse_address(std::string_view(ip, ip_len));
  KL_REQUIRE(address.has_value());
  Key k(client, key, key_len);
  std::string values = companion(k, kSetValuesSuffix);
  Command cmd = script_command(read_with_values, {k.view(), values},
                               [&](Command &c) { c.arg("1").arg("SMEMBERS"); });
  return read_one(client, route_of(key, key_len), std::move(cmd), [&](const redisReply *r, bool fill) {
    if (kl_return_t e = expect_type(r, REDIS_REPLY_ARRAY)) return e;
    auto parts = elements_of(r);
    if (parts.size() != 2 || parts[0]->type != REDIS_REPLY_ARRAY) return KL_WRONG_REPLY;
    auto networks = elements_of(parts[0]);
    auto net_values = elements_of(parts[1]);
    if (networks.empty()) return KL_NO_SET_KEY;
    // The narrowest network holding the address; on a tie the smallest text,
    // so the answer does not depend on the set's iteration order.
    long best = -1;
    int best_bits = -1;
    for (size_t i = 0; i < networks.size(); ++i) {
      std::string_view text(networks[i]->str, networks[i]->len);
      auto net = cidr::parse_network(text);
      if (!net || !cidr::contains(*net, *address)) continue;
      int bits = cidr::specificity(*net, *address);
      if (bits > best_bits ||
          (bits == best_bits && text < std::string_view(networks[best]->str, networks[best]->len))) {
        best = static_cast<long>(i);
        best_bits = bits;
      }
    }
    if (best < 0) return KL_NO_SUBNET;
    const redisReply *v = static_cast<size_t>(best) < net_values.size() ? net_values[best] : nullptr;
    if (!v || v->type == REDIS_REPLY_NIL) {
      if (fill) put_missing(value, value_len);
      return KL_SET_EMPTY_VALUE;
    }
    return reply_value(client, v, fill, value, value_len);
  });
}

kl_return_t kl_scard(kl_client *client, char *key, size_t key_len, unsigned int *count) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(count);
  KL_REQUIRE(given(key) && given(count));
  Key k(client, key, key_len);
  return read_one(client, route_of(key, key_len), Command("SCARD").arg(k.view()),
                  [&](const redisReply *r, bool fill) { return reply_count(r, fill, count); });
}

kl_return_t kl_sismember(kl_client *client, char *key, size_t key_len, char *member,
                         size_t member_len) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(given(key) && given(member));
  Key k(client, key, key_len);
  Command cmd("SISMEMBER");
  cmd.arg(k.view()).arg(member, member_len);
  return read_one(client, route_of(key, key_len), std::move(cmd),
                  [](const redisReply *r, bool) { return reply_flag(r, KL_NOTFOUND); });
}

kl_return_t kl_sismemberval(kl_client *client, char *key, size_t key_len, char *member,
                            size_t member_len) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(given(key) && given(member));
  Key k(client, key, key_len);
  std::string values = companion(k, kSetValuesSuffix);
  std::vector<Command> cmds(3);
  cmds[0].arg("EXISTS").arg(k.view());
  cmds[1].arg("SISMEMBER").arg(k.view()).arg(member, member_len);
  cmds[2].arg("HEXISTS").arg(values).arg(member, member_len);
  return run_read(client, route_of(key, key_len), cmds, [](Replies &replies, bool) {
    if (kl_return_t r = reply_flag(replies[0].get(), KL_NO_SET_KEY)) return r;
    if (kl_return_t r = reply_flag(replies[1].get(), KL_NOTFOUND)) return r;
    return reply_flag(replies[2].get(), KL_SET_EMPTY_VALUE);
  });
}

kl_return_t kl_sunion_whole(kl_client *client, char **keys, size_t count, size_t *key_lens,
                            char ***members, size_t *member_count, size_t **member_lens,
                            char *route, size_t route_len, int policy) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(members, member_count, member_lens);
  KL_REQUIRE(entries_given(keys, key_lens, count) && given(members) && given(member_count) &&
             policy_ok(policy));
  std::set<std::string> merged;
  kl_return_t r = union_of(client, keys, count, key_lens, route, route_len, policy, merged);
  if (r != KL_SUCCESS && r != KL_PARTIAL_RESULT) return r;
  if (merged.empty()) return r == KL_SUCCESS ? KL_NOTFOUND : r;
  std::vector<std::string_view> views(merged.begin(), merged.end());
  if (kl_return_t e = put_views(client, views, members, member_count, member_lens)) return e;
  return r;
}

kl_return_t kl_sunionstore(kl_client *client, char *dest, size_t dest_len, char **keys,
                           size_t count, size_t *key_lens, int policy, size_t ttl) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(given(dest) && entries_given(keys, key_lens, count) && policy_ok(policy) &&
             ttl_ok(ttl));
  std::set<std::string> merged;
  kl_return_t r = union_of(client, keys, count, key_lens, nullptr, 0, policy, merged);
  if (r != KL_SUCCESS && r != KL_PARTIAL_RESULT) return r;
  Key k(client, dest, dest_len);
  std::string values = companion(k, kSetValuesSuffix);
  Command cmd = script_command(replace_set, {k.view(), values}, [&](Command &c) {
    c.arg_int(static_cast<long long>(ttl));
    for (const std::string &m : merged) c.arg(m);
  });
  kl_return_t w = write_one(client, route_of(dest, dest_len), std::move(cmd), reply_done);
  if (kl_get_result(w) != KL_SUCCESS || r == KL_SUCCESS) return w;
  return static_cast<kl_return_t>(KL_PARTIAL_RESULT | (w & KL_DIRTY));
}

kl_return_t kl_smembers_whole(kl_client *client, char const *key, size_t key_len,
                              char ***members, size_t *count, size_t **member_lens,
                              char const *route, size_t route_len, setFlags flags,
                              char ***values, size_t **value_lens) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(members, count, member_lens, values, value_lens);
  const bool with_values = flags & SET_WITH_VALUES;
  KL_REQUIRE(given(key) && given(members) && given(count) && (!with_values || given(values)));
  Key k(client, key, key_len);
  Route where = route_of(key, key_len, route, route_len);
  if (!with_values) {
    return read_one(client, where, Command("SMEMBERS").arg(k.view()),
                    [&](const redisReply *r, bool fill) {
                      return reply_array(client, r, fill, members, count, member_lens);
                    });
  }
  std::string companion_key = companion(k, kSetValuesSuffix);
  Command cmd = script_command(read_with_values, {k.view(), companion_key},
                               [&](Command &c) { c.arg("1").arg("SMEMBERS"); });
  return read_one(client, where, std::move(cmd), [&](const redisReply *r, bool fill) {
    if (kl_return_t e = expect_type(r, REDIS_REPLY_ARRAY)) return e;
    auto parts = elements_of(r);
    if (parts.size() != 2) return KL_WRONG_REPLY;
    // The values are read by the members' indexes: one each, or the reply is not the script's.
    if (parts[0]->type == REDIS_REPLY_ARRAY && elements_of(parts[1]).size() != parts[0]->elements)
      return KL_WRONG_REPLY;
    if (kl_return_t e = reply_array(client, parts[0], fill, members, count, member_lens)) return e;
    if (!fill) return KL_SUCCESS;
    auto found = elements_of(parts[1]);
    if (kl_return_t e = put_string_array(client, found.data(), found.size(), values, nullptr, value_lens)) {
      release_strings(client, members, *count, member_lens);
      *count = 0;
      return e;
    }
    return KL_SUCCESS;
  });
}
