// Sorted-set writes and single-member reads. A member may carry a value, kept
// in the hash <key>::keyloom:zvals beside the sorted set and removed with it.
#include <cstdlib>

#include "command_kit.h"
#include "collection_scripts.h"
#include "reply_cells.h"
#include "zset_scripts.h"

using namespace keyloom;

namespace {

struct Zset {
  Key key;
  std::string values;
  Zset(const kl_client *client, const char *k, size_t len)
      : key(client, k, len), values(companion(key, kZsetValuesSuffix)) {}
};

bool scores_ok(const double *scores, size_t count) {
  if (!scores) return false;
  for (size_t i = 0; i < count; ++i)
    if (!score_ok(scores[i])) return false;
  return true;
}

// Removes the members in a rank or score range, with their values.
kl_return_t remove_range(kl_client *client, char *key, size_t key_len, std::string_view range,
                         const AppendArgs &bounds, size_t ttl, unsigned int *removed) {
  Zset z(client, key, key_len);
  Command cmd = script_command(remove_range_with_values, {z.key.view(), z.values}, [&](Command &c) {
    c.arg_int(static_cast<long long>(ttl)).arg(range);
    bounds(c);
  });
  return write_one(client, route_of(key, key_len), std::move(cmd),
                   [&](const redisReply *r, bool fill) { return reply_count(r, fill, removed); });
}

// ZADD through add_with_values: a new sorted set never inherits values left
// behind by a deleted one. values null: existing values are left as they are.
kl_return_t add_members(kl_client *client, char *key, size_t key_len, double *scores,
                        char **members, size_t count, size_t *member_lens, char **values,
                        size_t *value_lens, size_t ttl) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(given(key) && entries_given(members, member_lens, count) &&
             scores_ok(scores, count) && ttl_ok(ttl));
  if (values)
    for (size_t i = 0; i < count; ++i) KL_REQUIRE(optional_bytes(values[i], value_lens[i]));
  Zset z(client, key, key_len);
  Command cmd = script_command(add_with_values, {z.key.view(), z.values}, [&](Command &c) {
    c.arg_int(static_cast<long long>(ttl)).arg("ZADD").arg(values ? "1" : "0");
    for (size_t i = 0; i < count; ++i) {
      c.arg_double(scores[i]).arg(members[i], member_lens[i]);
      if (values) c.arg(or_empty(values[i]), value_lens[i]);
    }
  });
  return write_one(client, route_of(key, key_len), std::move(cmd), reply_done);
}

}  // namespace

kl_return_t kl_zadd(kl_client *client, char *key, size_t key_len, double score, char *member,
                    size_t member_len, size_t ttl) {
  return kl_zmadd(client, key, key_len, &score, member ? &member : nullptr, 1, &member_len, ttl);
}

kl_return_t kl_zmadd(kl_client *client, char *key, size_t key_len, double *scores,
                     char **members, size_t count, size_t *member_lens, size_t ttl) {
  return add_members(client, key, key_len, scores, members, count, member_lens, nullptr, nullptr,
                     ttl);
}

kl_return_t kl_zaddval(kl_client *client, char *key, size_t key_len, double score, char *member,
                       size_t member_len, char *value, size_t value_len, size_t ttl) {
  return kl_zmaddval(client, key, key_len, &score, member ? &member : nullptr, 1, &member_len,
                     &value, &value_len, ttl);
}

kl_return_t kl_zmaddval(kl_client *client, char *key, size_t key_len, double *scores,
                        char **members, size_t count, size_t *member_lens, char **values,
                        size_t *value_lens, size_t ttl) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(given(values) && given(value_lens));
  return add_members(client, key, key_len, scores, members, count, member_lens, values, value_lens,
                     ttl);
}

kl_return_t kl_zrem(kl_client *client, char *key, size_t key_len, char *member,
                    size_t member_len) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(given(member));
  int removed = 0;
  kl_return_t r = kl_zmrem(client, key, key_len, &member, 1, &member_len, &removed);
  return (kl_get_result(r) == KL_SUCCESS && removed == 0) ? KL_NOTFOUND : r;
}

kl_return_t kl_zmrem(kl_client *client, char *key, size_t key_len, char **members, size_t count,
                     size_t *member_lens, int *removed) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(removed);
  KL_REQUIRE(given(key) && entries_given(members, member_lens, count));
  Zset z(client, key, key_len);
  Command cmd = script_command(remove_with_values, {z.key.view(), z.values}, [&](Command &c) {
    c.arg("ZREM");
    for (size_t i = 0; i < count; ++i) c.arg(members[i], member_lens[i]);
  });
  return write_one(client, route_of(key, key_len), std::move(cmd),
                   [&](const redisReply *r, bool fill) { return reply_count(r, fill, removed); });
}

kl_return_t kl_zremrangebyscore(kl_client *client, char *key, size_t key_len, double min,
                                double max, unsigned int *removed) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(removed);
  KL_REQUIRE(given(key) && score_ok(min) && score_ok(max));
  return remove_range(client, key, key_len, "ZRANGEBYSCORE",
                      [&](Command &c) { c.arg_double(min).arg_double(max); }, 0, removed);
}

kl_return_t kl_zremrangebyrank(kl_client *client, char *key, size_t key_len, int start, int stop,
                               unsigned int *removed) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(removed);
  KL_REQUIRE(given(key));
  return remove_range(client, key, key_len, "ZRANGE",
                      [&](Command &c) { c.arg_int(start).arg_int(stop); }, 0, removed);
}

kl_return_t kl_zaddmaxinc(kl_client *client, char *key, size_t key_len, int n, size_t ttl) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(given(key) && n != 0 && ttl_ok(ttl));
  // Ranks ascend with the score: keeping the n highest drops ranks 0..-(n+1),
  // keeping the |n| lowest drops ranks |n|..-1.
  long long keep = std::llabs(static_cast<long long>(n));
  long long first = n > 0 ? 0 : keep;
  long long last = n > 0 ? -(keep + 1) : -1;
  return remove_range(client, key, key_len, "ZRANGE",
                      [&](Command &c) { c.arg_int(first).arg_int(last); }, ttl, nullptr);
}

kl_return_t kl_zaddvalmax(kl_client *client, char *key, size_t key_len, char *member,
                          size_t member_len, char *value, size_t value_len, double score,
                          size_t ttl) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(given(key) && given(member) && optional_bytes(value, value_len) && score_ok(score) &&
             ttl_ok(ttl));
  Zset z(client, key, key_len);
  Command cmd = script_command(zadd_value_max, {z.key.view(), z.values}, [&](Command &c) {
    c.arg_double(score).arg(member, member_len).arg(or_empty(value), value_len);
    c.arg_int(static_cast<long long>(ttl));
  });
  return write_one(client, route_of(key, key_len), std::move(cmd),
                   [](const redisReply *r, bool) { return reply_flag(r, KL_ALREADY_EXISTS); });
}

kl_return_t kl_zadddis(kl_client *client, char *key, size_t key_len, double score, char *member,
                       size_t member_len, double distance, char **evicted, size_t ttl) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(evicted);
  KL_REQUIRE(given(key) && given(member) && score_ok(score) && score_ok(distance) &&
             distance >= 0 && ttl_ok(ttl));
  Zset z(client, key, key_len);
  Command cmd = script_command(zadd_displacing, {z.key.view(), z.values}, [&](Command &c) {
    c.arg_double(score).arg(member, member_len);
    c.arg_double(score - distance).arg_double(score + distance);
    c.arg_int(static_cast<long long>(ttl));
  });
  return write_one(client, route_of(key, key_len), std::move(cmd), [&](const redisReply *r, bool fill) {
    if (r && r->type == REDIS_REPLY_NIL) return KL_SUCCESS;
    return reply_value(client, r, fill, evicted, nullptr);
  });
}

kl_return_t kl_zscore(kl_client *client, char *key, size_t key_len, char *member,
                      size_t member_len, double *score, char **value, size_t *value_len) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(score, value, value_len);
  KL_REQUIRE(given(key) && given(member) && given(score));
  Zset z(client, key, key_len);
  std::vector<Command> cmds(value ? 2 : 1);
  cmds[0].arg("ZSCORE").arg(z.key.view()).arg(member, member_len);
  if (value) cmds[1].arg("HGET").arg(z.values).arg(member, member_len);
  return run_read(client, route_of(key, key_len), cmds, [&](Replies &replies, bool fill) {
    const redisReply *s = replies[0].get();
    if (kl_return_t e = put_reply_string(client, s, nullptr, nullptr)) return e;
    double d = 0;
    if (!reply_double(s, &d)) return KL_WRONG_REPLY;
    if (fill) *score = d;
    if (!value) return KL_SUCCESS;
    const redisReply *v = replies[1].get();
    if (v && v->type == REDIS_REPLY_NIL) {
      if (fill) put_missing(value, value_len);
      return KL_SUCCESS;
    }
    return reply_value(client, v, fill, value, value_len);
  });
}

kl_return_t kl_zrank(kl_client *client, char *key, size_t key_len, char *member,
                     size_t member_len, unsigned int *rank, zSetFlags flags, char **value,
                     size_t *value_len) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(rank, value, value_len);
  const bool with_value = flags & ZSET_WITH_VALUES;
  KL_REQUIRE(given(key) && given(member) && given(rank) && (!with_value || given(value)));
  Zset z(client, key, key_len);
  std::vector<Command> cmds(with_value ? 2 : 1);
  cmds[0].arg((flags & ZSET_REVERSE) ? "ZREVRANK" : "ZRANK").arg(z.key.view()).arg(member, member_len);
  if (with_value) cmds[1].arg("HGET").arg(z.values).arg(member, member_len);
  return run_read(client, route_of(key, key_len), cmds, [&](Replies &replies, bool fill) {
    const redisReply *r = replies[0].get();
    if (r && r->type == REDIS_REPLY_NIL) return KL_NOTFOUND;
    if (kl_return_t e = reply_count(r, fill, rank)) return e;
    if (!with_value) return KL_SUCCESS;
    const redisReply *v = replies[1].get();
    if (v && v->type == REDIS_REPLY_NIL) {
      if (fill) put_missing(value, value_len);
      return KL_SUCCESS;
    }
    return reply_value(client, v, fill, value, value_len);
  });
}

kl_return_t kl_zcard(kl_client *client, char *key, size_t key_len, unsigned int *count) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(count);
  KL_REQUIRE(given(key) && given(count));
  Key k(client, key, key_len);
  return read_one(client, route_of(key, key_len), Command("ZCARD").arg(k.view()),
                  [&](const redisReply *r, bool fill) { return reply_count(r, fill, count); });
}

kl_return_t kl_zcount(kl_client *client, char *key, size_t key_len, double min, double max,
                      unsigned int *count) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(count);
  KL_REQUIRE(given(key) && given(count) && score_ok(min) && score_ok(max));
  Key k(client, key, key_len);
  Command cmd("ZCOUNT");
  cmd.arg(k.view()).arg_double(min).arg_double(max);
  return read_one(client, route_of(key, key_len), std::move(cmd),
                  [&](const redisReply *r, bool fill) { return reply_count(r, fill, count); });
}

kl_return_t kl_zincrby(kl_client *client, char *key, size_t key_len, char *member,
                       size_t member_len, double by, double *score, size_t ttl) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(given(key) && given(member) && score_ok(by) && ttl_ok(ttl));
  Zset z(client, key, key_len);
  return write_keyed(client, route_of(key, key_len), {z.key.view(), z.values}, "ZINCRBY", ttl,
                     [&](Command &c) { c.arg_double(by).arg(member, member_len); },
                     [&](const redisReply *r, bool fill) {
                       if (kl_return_t e = put_reply_string(client, r, nullptr, nullptr)) return e;
                       double d = 0;
                       if (!reply_double(r, &d)) return KL_WRONG_REPLY;
                       if (fill && score) *score = d;
                       return KL_SUCCESS;
                     });
}
