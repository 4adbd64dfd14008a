// Sorted-set range reads: kl_zrange and kl_zrangebyscore with their routed
// twins. Flags pick the scores (ZSET_WITH_SCORES), the member values
// (ZSET_WITH_VALUES, read in the same round trip by a script) and the order
// (ZSET_REVERSE: ZREVRANGE / ZREVRANGEBYSCORE, the bounds keep their meaning).
// Score ranges go out as ZRANGE ... BYSCORE to servers that take the newer forms.
#include "command_kit.h"
#include "collection_scripts.h"
#include "reply_cells.h"

using namespace keyloom;

namespace {

struct RangeCells {
  char ***members;
  size_t *count;
  size_t **member_lens;
  double **scores;
  char ***values;
  size_t **value_lens;
};

// A range reply (members, or member/score pairs) and the aligned values (or
// null) into the cells. Nothing in range is KL_NOTFOUND.
kl_return_t put_range(const kl_client *client, const redisReply *range, const redisReply *values,
                      bool with_scores, bool fill, const RangeCells &out) {
  if (kl_return_t e = expect_type(range, REDIS_REPLY_ARRAY)) return e;
  // Member/score pairs, and one value per member: anything else would leave
  // the caller's arrays of unequal lengths.
  if (with_scores && range->elements % 2 != 0) return KL_WRONG_REPLY;
  auto names = elements_of(range, 0, with_scores ? 2 : 1);
  if (names.empty()) return KL_NOTFOUND;
  if (values && elements_of(values).size() != names.size()) return KL_WRONG_REPLY;
  std::vector<double> scores;
  if (with_scores) {
    for (const redisReply *s : elements_of(range, 1, 2)) {
      double d = 0;
      if (!reply_double(s, &d)) return KL_WRONG_REPLY;
      scores.push_back(d);
    }
  }
  if (!fill) return KL_SUCCESS;
  if (kl_return_t e = put_string_array(client, names.data(), names.size(), out.members, out.count,
                                       out.member_lens))
    return e;
  kl_return_t e = put_doubles(client, scores, out.scores);
  if (!e && values) {
    auto found = elements_of(values);
    e = put_string_array(client, found.data(), found.size(), out.values, nullptr, out.value_lens);
    if (e && out.scores) {
      mm_free(client, *out.scores);
      *out.scores = nullptr;
    }
  }
  if (e) {
    release_strings(client, out.members, names.size(), out.member_lens);
    *out.count = 0;
  }
  return e;
}

// Runs `name key bounds... [WITHSCORES]`, through read_with_values when the
// values are wanted.
kl_return_t read_range(kl_client *client, const char *key, size_t key_len, Route where,
                       std::string_view name, const AppendArgs &bounds, zSetFlags flags,
                       const RangeCells &out, const char *newer_name = nullptr) {
  clear_cells(out.members, out.count, out.member_lens, out.scores, out.values, out.value_lens);
  const bool with_scores = flags & ZSET_WITH_SCORES;
  const bool with_values = flags & ZSET_WITH_VALUES;
  KL_REQUIRE(given(key) && given(out.members) && given(out.count) &&
             (!with_scores || given(out.scores)) && (!with_values || given(out.values)));
  Key k(client, key, key_len);
  auto args = [&](Command &c) {
    bounds(c);
    if (with_scores) c.arg("WITHSCORES");
  };
  if (!with_values) {
    Command cmd(name);
    cmd.arg(k.view());
    args(cmd);
    Command newer;
    if (newer_name) {
      newer.arg(newer_name).arg(k.view());
      bounds(newer);
      newer.arg("BYSCORE");
      if (flags & ZSET_REVERSE) newer.arg("REV");
      if (with_scores) newer.arg("WITHSCORES");
      cmd.set_newer(&newer);
    }
    return read_one(client, where, std::move(cmd), [&](const redisReply *r, bool fill) {
      return put_range(client, r, nullptr, with_scores, fill, out);
    });
  }
  std::string values = companion(k, kZsetValuesSuffix);
  Command cmd = script_command(read_with_values, {k.view(), values}, [&](Command &c) {
    c.arg(with_scores ? "2" : "1").arg(name);
    args(c);
  });
  return read_one(client, where, std::move(cmd), [&](const redisReply *r, bool fill) {
    if (kl_return_t e = expect_type(r, REDIS_REPLY_ARRAY)) return e;
    auto parts = elements_of(r);
    if (parts.size() != 2) return KL_WRONG_REPLY;
    return put_range(client, parts[0], parts[1], with_scores, fill, out);
  });
}

kl_return_t range_by_rank(kl_client *client, char *key, size_t key_len, int start, int stop,
                          Route where, zSetFlags flags, const RangeCells &out) {
  KL_REQUIRE_CLIENT(client);
  long long first = start, last = stop;
  if (flags & ZSET_WITH_LIMIT) {
    // stop is a count of members from start; a range that would run past the
    // end (from a negative start) stops at the last member.
    KL_REQUIRE(stop > 0);
    last = first + stop - 1;
    if (first < 0 && last >= 0) last = -1;
  }
  return read_range(client, key, key_len, where, (flags & ZSET_REVERSE) ? "ZREVRANGE" : "ZRANGE",
                    [&](Command &c) { c.arg_int(first).arg_int(last); }, flags, out);
}

kl_return_t range_by_score(kl_client *client, char *key, size_t key_len, double min, double max,
                           Route where, zSetFlags flags, const RangeCells &out) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(score_ok(min) && score_ok(max));
  const bool reverse = flags & ZSET_REVERSE;
  return read_range(client, key, key_len, where, reverse ? "ZREVRANGEBYSCORE" : "ZRANGEBYSCORE",
                    [&](Command &c) {
                      if (reverse) c.arg_double(max).arg_double(min);
                      else c.arg_double(min).arg_double(max);
                    },
                    flags, out, "ZRANGE");
}

}  // namespace

kl_return_t kl_zrange(kl_client *client, char *key, size_t key_len, int start, int stop,
                      char ***members, size_t *count, size_t **member_lens, zSetFlags flags,
                      double **scores, char ***values, size_t **value_lens) {
  return range_by_rank(client, key, key_len, start, stop, route_of(key, key_len), flags,
                       {members, count, member_lens, scores, values, value_lens});
}

kl_return_t kl_zrange_whole(kl_client *client, char *key, size_t key_len, int start, int stop,
                            char ***members, size_t *count, size_t **member_lens, char *route,
                            size_t route_len, zSetFlags flags, double **scores, char ***values,
                            size_t **value_lens) {
  return range_by_rank(client, key, key_len, start, stop, route_of(key, key_len, route, route_len),
                       flags, {members, count, member_lens, scores, values, value_lens});
}

kl_return_t kl_zrangebyscore(kl_client *client, char *key, size_t key_len, double min,
                             double max, char ***members, size_t *count, size_t **member_lens,
                             zSetFlags flags, double **scores, char ***values,
                             size_t **value_lens) {
  return range_by_score(client, key, key_len, min, max, route_of(key, key_len), flags,
                        {members, count, member_lens, scores, values, value_lens});
}

kl_return_t kl_zrangebyscore_whole(kl_client *client, char *key, size_t key_len, double min,
                                   double max, char ***members, size_t *count,
                                   size_t **member_lens, char *route, size_t route_len,
                                   zSetFlags flags, double **scores, char ***values,
                                   size_t **value_lens) {
  return range_by_score(client, key, key_len, min, max, route_of(key, key_len, route, route_len),
                        flags, {members, count, member_lens, scores, values, value_lens});
}
