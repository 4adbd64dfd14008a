// Sorted-set commands, with and without member values, against a real server.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "keyloom.h"
#include "support/reply_arrays.h"
#include "support/test_cluster.h"

using namespace keyloom::test;

namespace {

using Strings = std::vector<std::string>;

// What a range read gave: members, and (when asked) scores and values.
struct Range {
  kl_return_t result = KL_ERROR;
  Strings members;
  std::vector<double> scores;
  Strings values;
};

class SortedSets : public ::testing::Test {
 protected:
  kl_client *c() { return cluster.client(); }
  kl_return_t add(const std::string &member, double score, const std::string &key = "z",
                  size_t ttl = 0) {
    return kl_zadd(c(), mut(key), key.size(), score, mut(member), member.size(), ttl);
  }
  kl_return_t addval(const std::string &member, double score, const std::string &value,
                     const std::string &key = "z", size_t ttl = 0) {
    return kl_zaddval(c(), mut(key), key.size(), score, mut(member), member.size(), mut(value),
                      value.size(), ttl);
  }
  // Ranks when by_score is false (bounds cut to int), scores otherwise.
  Range range(double low, double high, zSetFlags flags, bool by_score = false,
              const std::string &key = "z") {
    Range out;
    char **names = nullptr, **values = nullptr;
    size_t count = 0, *lens = nullptr, *vlens = nullptr;
    double *scores = nullptr;
    out.result = by_score ? kl_zrangebyscore(c(), mut(key), key.size(), low, high, &names, &count,
                                             &lens, flags, &scores, &values, &vlens)
                          : kl_zrange_whole(c(), mut(key), key.size(), static_cast<int>(low),
                                            static_cast<int>(high), &names, &count, &lens, nullptr,
                                            0, flags, &scores, &values, &vlens);
    if (out.result != KL_SUCCESS) {
      EXPECT_EQ(names, nullptr);
      return out;
    }
    out.members = take_strings(names, count, lens);
    if (flags & ZSET_WITH_SCORES) out.scores = take_doubles(scores, count);
    if (flags & ZSET_WITH_VALUES) out.values = take_strings(values, count, vlens);
    return out;
  }
  void fill() {
    for (int i = 1; i <= 5; ++i) ASSERT_EQ(addval(numbered("m", i), i, numbered("v", i)), KL_SUCCESS);
  }
  TestCluster cluster;
};

}  // namespace

TEST_F(SortedSets, RangesByRankWithEveryFlag) {
  fill();
  EXPECT_EQ(range(0, -1, ZSET_DEFAULT).members, (Strings{"m1", "m2", "m3", "m4", "m5"}));
  Range r = range(1, 2, ZSET_WITH_SCORES | ZSET_WITH_VALUES);
  EXPECT_EQ(r.members, (Strings{"m2", "m3"}));
  EXPECT_EQ(r.scores, (std::vector<double>{2, 3}));
  EXPECT_EQ(r.values, (Strings{"v2", "v3"}));
  EXPECT_EQ(range(0, 1, ZSET_REVERSE).members, (Strings{"m5", "m4"}));
  EXPECT_EQ(range(1, 3, ZSET_WITH_LIMIT).members, (Strings{"m2", "m3", "m4"}));
  EXPECT_EQ(range(-2, 5, ZSET_WITH_LIMIT).members, (Strings{"m4", "m5"}));
  EXPECT_EQ(range(0, 2, ZSET_WITH_LIMIT | ZSET_REVERSE | ZSET_WITH_VALUES).values, (Strings{"v5", "v4"}));
  EXPECT_EQ(range(0, 0, ZSET_WITH_LIMIT).result, KL_INVALID_PARAMETER);
  EXPECT_EQ(range(7, 9, ZSET_DEFAULT).result, KL_NOTFOUND);
  EXPECT_EQ(range(0, -1, ZSET_DEFAULT, false, "missing").result, KL_NOTFOUND);
}

TEST_F(SortedSets, RangesByScore) {
  fill();
  Range r = range(2, 4, ZSET_WITH_SCORES, true);
  EXPECT_EQ(r.members, (Strings{"m2", "m3", "m4"}));
  EXPECT_EQ(r.scores, (std::vector<double>{2, 3, 4}));
  EXPECT_EQ(range(2, 4, ZSET_REVERSE | ZSET_WITH_VALUES, true).values, (Strings{"v4", "v3", "v2"}));
  EXPECT_EQ(range(-INFINITY, INFINITY, ZSET_DEFAULT, true).members.size(), 5u);
  EXPECT_EQ(range(10, 20, ZSET_DEFAULT, true).result, KL_NOTFOUND);
  EXPECT_EQ(range(NAN, 1, ZSET_DEFAULT, true).result, KL_INVALID_PARAMETER);
}

TEST_F(SortedSets, ScoresValuesRanksAndCounts) {
  fill();
  ASSERT_EQ(add("plain", 2.5), KL_SUCCESS);
  double score = 0;
  char *value = nullptr;
  size_t len = 0;
  ASSERT_EQ(kl_zscore(c(), lit("z"), 1, lit("m3"), 2, &score, &value, &len), KL_SUCCESS);
  EXPECT_EQ(score, 3);
  EXPECT_EQ(take_value(value, len), "v3");
  ASSERT_EQ(kl_zscore(c(), lit("z"), 1, lit("plain"), 5, &score, &value, &len), KL_SUCCESS);
  EXPECT_EQ(score, 2.5);
  EXPECT_EQ(take_value(value, len), kNil);
  EXPECT_EQ(kl_zscore(c(), lit("z"), 1, lit("nope"), 4, &score, &value, &len), KL_NOTFOUND);
  ASSERT_EQ(kl_zscore(c(), lit("z"), 1, lit("m1"), 2, &score, nullptr, nullptr), KL_SUCCESS);

  unsigned rank = 99;
  ASSERT_EQ(kl_zrank(c(), lit("z"), 1, lit("m3"), 2, &rank, ZSET_DEFAULT, nullptr, nullptr), KL_SUCCESS);
  EXPECT_EQ(rank, 3u);  // m1 m2 plain m3
  ASSERT_EQ(kl_zrank(c(), lit("z"), 1, lit("m3"), 2, &rank, ZSET_REVERSE | ZSET_WITH_VALUES, &value, &len),
            KL_SUCCESS);
  EXPECT_EQ(rank, 2u);
  EXPECT_EQ(take_value(value, len), "v3");
  EXPECT_EQ(kl_zrank(c(), lit("z"), 1, lit("nope"), 4, &rank, ZSET_DEFAULT, nullptr, nullptr), KL_NOTFOUND);

  unsigned n = 0;
  ASSERT_EQ(kl_zcard(c(), lit("z"), 1, &n), KL_SUCCESS);
  EXPECT_EQ(n, 6u);
  ASSERT_EQ(kl_zcount(c(), lit("z"), 1, 2, 3, &n), KL_SUCCESS);
  EXPECT_EQ(n, 3u);
  ASSERT_EQ(kl_zincrby(c(), lit("z"), 1, lit("m1"), 2, 0.5, &score, 0), KL_SUCCESS);
  EXPECT_EQ(score, 1.5);
}

TEST_F(SortedSets, MultiAddAndRemoveKeepValuesInStep) {
  Strings names = {"a", "b", "c"};
  Strings vals = {"va", "", "vc"};
  CArgs members(names), values(vals);
  double scores[] = {1, 2, 3};
  ASSERT_EQ(kl_zmaddval(c(), lit("z"), 1, scores, members.ptrs.data(), 3, members.lens.data(),
                        values.ptrs.data(), values.lens.data(), 0),
            KL_SUCCESS);
  EXPECT_EQ(range(0, -1, ZSET_WITH_VALUES).values, (Strings{"va", kNil, "vc"}));
  double more[] = {4, 5};
  Strings extra = {"d", "a"};
  CArgs extra_args(extra);
  ASSERT_EQ(kl_zmadd(c(), lit("z"), 1, more, extra_args.ptrs.data(), 2, extra_args.lens.data(), 0),
            KL_SUCCESS);
  Range r = range(0, -1, ZSET_WITH_VALUES | ZSET_WITH_SCORES);
  EXPECT_EQ(r.members, (Strings{"b", "c", "d", "a"}));
  EXPECT_EQ(r.values, (Strings{kNil, "vc", kNil, "va"}));  // zadd keeps a's value

  int removed = 0;
  Strings gone = {"a", "x", "c"};
  CArgs gone_args(gone);
  ASSERT_EQ(kl_zmrem(c(), lit("z"), 1, gone_args.ptrs.data(), 3, gone_args.lens.data(), &removed), KL_SUCCESS);
  EXPECT_EQ(removed, 2);
  EXPECT_EQ(kl_zrem(c(), lit("z"), 1, lit("b"), 1), KL_SUCCESS);
  EXPECT_EQ(kl_zrem(c(), lit("z"), 1, lit("b"), 1), KL_NOTFOUND);
  ASSERT_EQ(add("a", 9), KL_SUCCESS);
  EXPECT_EQ(range(0, -1, ZSET_WITH_VALUES).values, (Strings{kNil, kNil}));
}

TEST_F(SortedSets, RemoveRangesDropTheirValues) {
  fill();
  unsigned removed = 0;
  ASSERT_EQ(kl_zremrangebyscore(c(), lit("z"), 1, 2, 3, &removed), KL_SUCCESS);
  EXPECT_EQ(removed, 2u);
  ASSERT_EQ(kl_zremrangebyrank(c(), lit("z"), 1, 0, 0, &removed), KL_SUCCESS);
  EXPECT_EQ(removed, 1u);
  EXPECT_EQ(range(0, -1, ZSET_DEFAULT).members, (Strings{"m4", "m5"}));
  EXPECT_EQ(cluster.direct(0, {"HLEN", "z::keyloom:zvals"})->integer, 2);
}

TEST_F(SortedSets, KeepOnlyTheHighestOrLowest) {
  fill();
  ASSERT_EQ(kl_zaddmaxinc(c(), lit("z"), 1, 3, 100), KL_SUCCESS);
  EXPECT_EQ(range(0, -1, ZSET_DEFAULT).members, (Strings{"m3", "m4", "m5"}));
  EXPECT_GT(cluster.direct(0, {"TTL", "z"})->integer, 90);
  ASSERT_EQ(kl_zaddmaxinc(c(), lit("z"), 1, -2, 0), KL_SUCCESS);
  EXPECT_EQ(range(0, -1, ZSET_WITH_VALUES).values, (Strings{"v3", "v4"}));
  EXPECT_EQ(cluster.direct(0, {"HLEN", "z::keyloom:zvals"})->integer, 2);
  ASSERT_EQ(kl_zaddmaxinc(c(), lit("z"), 1, 10, 0), KL_SUCCESS);
  EXPECT_EQ(range(0, -1, ZSET_DEFAULT).members.size(), 2u);
  EXPECT_EQ(kl_zaddmaxinc(c(), lit("z"), 1, 0, 0), KL_INVALID_PARAMETER);
}

TEST_F(SortedSets, AddValueMaxOnlyRaises) {
  ASSERT_EQ(kl_zaddvalmax(c(), lit("z"), 1, lit("m"), 1, lit("first"), 5, 10, 0), KL_SUCCESS);
  EXPECT_EQ(kl_zaddvalmax(c(), lit("z"), 1, lit("m"), 1, lit("lower"), 5, 5, 0), KL_ALREADY_EXISTS);
  EXPECT_EQ(kl_zaddvalmax(c(), lit("z"), 1, lit("m"), 1, lit("same"), 4, 10, 0), KL_ALREADY_EXISTS);
  Range r = range(0, -1, ZSET_WITH_SCORES | ZSET_WITH_VALUES);
  EXPECT_EQ(r.scores, std::vector<double>{10});
  EXPECT_EQ(r.values, Strings{"first"});
  ASSERT_EQ(kl_zaddvalmax(c(), lit("z"), 1, lit("m"), 1, lit("higher"), 6, 11.5, 100), KL_SUCCESS);
  r = range(0, -1, ZSET_WITH_SCORES | ZSET_WITH_VALUES);
  EXPECT_EQ(r.scores, std::vector<double>{11.5});
  EXPECT_EQ(r.values, Strings{"higher"});
  EXPECT_GT(cluster.direct(0, {"TTL", "z::keyloom:zvals"})->integer, 90);
}

TEST_F(SortedSets, AddDisplacingEvictsNeighbours) {
  fill();  // m1..m5 at 1..5
  char *evicted = nullptr;
  ASSERT_EQ(kl_zadddis(c(), lit("z"), 1, 3.2, lit("new"), 3, 1.3, &evicted, 0), KL_SUCCESS);
  ASSERT_NE(evicted, nullptr);
  EXPECT_STREQ(evicted, "m2");  // 2, 3 and 4 lie within 1.3 of 3.2; 2 comes first
  kl_free_php_reply_p(&evicted);
  EXPECT_EQ(range(0, -1, ZSET_DEFAULT).members, (Strings{"m1", "new", "m5"}));
  EXPECT_EQ(cluster.direct(0, {"HLEN", "z::keyloom:zvals"})->integer, 2);
  ASSERT_EQ(kl_zadddis(c(), lit("z"), 1, 10, lit("far"), 3, 1, &evicted, 0), KL_SUCCESS);
  EXPECT_EQ(evicted, nullptr);
  ASSERT_EQ(kl_zadddis(c(), lit("z"), 1, 10.5, lit("far"), 3, 1, &evicted, 0), KL_SUCCESS);
  EXPECT_EQ(evicted, nullptr);  // the member itself is moved, not evicted
  EXPECT_EQ(kl_zadddis(c(), lit("z"), 1, 1, lit("x"), 1, -1, &evicted, 0), KL_INVALID_PARAMETER);
}

TEST_F(SortedSets, TtlAndWrongType) {
  ASSERT_EQ(addval("m", 1, "v", "t", 100), KL_SUCCESS);
  EXPECT_GT(cluster.direct(0, {"TTL", "t"})->integer, 90);
  EXPECT_GT(cluster.direct(0, {"TTL", "t::keyloom:zvals"})->integer, 90);
  ASSERT_EQ(add("n", 2, "t", 500), KL_SUCCESS);
  EXPECT_GT(cluster.direct(0, {"TTL", "t"})->integer, 400);
  double score = 0;
  ASSERT_EQ(kl_zincrby(c(), lit("u"), 1, lit("m"), 1, 2, &score, 100), KL_SUCCESS);
  EXPECT_GT(cluster.direct(0, {"TTL", "u"})->integer, 90);

  cluster.direct(0, {"SET", "str", "x"});
  char *value = nullptr, *evicted = nullptr;
  size_t len = 0;
  unsigned n = 0;
  int removed = 0;
  char *member = lit("m");
  size_t member_len = 1;
  EXPECT_EQ(add("m", 1, "str", 100), KL_SERVER_ERROR);
  EXPECT_EQ(cluster.direct(0, {"TTL", "str"})->integer, -1);
  EXPECT_EQ(addval("m", 1, "v", "str"), KL_SERVER_ERROR);
  EXPECT_EQ(kl_zrem(c(), lit("str"), 3, lit("m"), 1), KL_SERVER_ERROR);
  EXPECT_EQ(kl_zmrem(c(), lit("str"), 3, &member, 1, &member_len, &removed), KL_SERVER_ERROR);
  EXPECT_EQ(range(0, -1, ZSET_DEFAULT, false, "str").result, KL_SERVER_ERROR);
  EXPECT_EQ(range(0, -1, ZSET_WITH_VALUES, true, "str").result, KL_SERVER_ERROR);
  EXPECT_EQ(kl_zscore(c(), lit("str"), 3, lit("m"), 1, &score, &value, &len), KL_SERVER_ERROR);
  EXPECT_EQ(kl_zrank(c(), lit("str"), 3, lit("m"), 1, &n, 0, nullptr, nullptr), KL_SERVER_ERROR);
  EXPECT_EQ(kl_zcard(c(), lit("str"), 3, &n), KL_SERVER_ERROR);
  EXPECT_EQ(kl_zcount(c(), lit("str"), 3, 0, 1, &n), KL_SERVER_ERROR);
  EXPECT_EQ(kl_zincrby(c(), lit("str"), 3, lit("m"), 1, 1, &score, 0), KL_SERVER_ERROR);
  EXPECT_EQ(kl_zremrangebyscore(c(), lit("str"), 3, 0, 1, &n), KL_SERVER_ERROR);
  EXPECT_EQ(kl_zremrangebyrank(c(), lit("str"), 3, 0, 1, &n), KL_SERVER_ERROR);
  EXPECT_EQ(kl_zaddmaxinc(c(), lit("str"), 3, 1, 0), KL_SERVER_ERROR);
  EXPECT_EQ(kl_zaddvalmax(c(), lit("str"), 3, lit("m"), 1, lit("v"), 1, 1, 0), KL_SERVER_ERROR);
  EXPECT_EQ(kl_zadddis(c(), lit("str"), 3, 1, lit("m"), 1, 1, &evicted, 0), KL_SERVER_ERROR);
  EXPECT_EQ(cluster.direct(0, {"TYPE", "str"})->str, std::string("string"));
}

TEST_F(SortedSets, InvalidArgumentsSendNothing) {
  char **names = nullptr;
  char *value = nullptr;
  size_t count = 0, *lens = nullptr, len = 0;
  double score = 0, *scores = nullptr, nan_score = NAN;
  unsigned n = 0;
  char *member = lit("m");
  size_t member_len = 1;
  EXPECT_EQ(kl_zadd(nullptr, lit("z"), 1, 1, lit("m"), 1, 0), KL_INVALID_CLIENT);
  EXPECT_EQ(kl_zrange(nullptr, lit("z"), 1, 0, 1, &names, &count, &lens, 0, &scores, nullptr, nullptr),
            KL_INVALID_CLIENT);
  EXPECT_EQ(kl_zadd(c(), nullptr, 1, 1, lit("m"), 1, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_zadd(c(), lit("z"), 1, NAN, lit("m"), 1, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_zadd(c(), lit("z"), 1, 1, nullptr, 1, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_zmadd(c(), lit("z"), 1, &score, &member, 0, &member_len, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_zmadd(c(), lit("z"), 1, nullptr, &member, 1, &member_len, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_zmadd(c(), lit("z"), 1, &nan_score, &member, 1, &member_len, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_zmaddval(c(), lit("z"), 1, &score, &member, 1, &member_len, nullptr, &len, 0),
            KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_zaddval(c(), lit("z"), 1, 1, lit("m"), 1, nullptr, 4, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_zmrem(c(), lit("z"), 1, nullptr, 1, &member_len, nullptr), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_zrem(c(), lit("z"), 1, nullptr, 1), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_zrange(c(), lit("z"), 1, 0, 1, nullptr, &count, &lens, 0, nullptr, nullptr, nullptr),
            KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_zrange(c(), lit("z"), 1, 0, 1, &names, &count, &lens, ZSET_WITH_SCORES, nullptr,
                      nullptr, nullptr),
            KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_zrangebyscore(c(), lit("z"), 1, 0, 1, &names, &count, &lens, ZSET_WITH_VALUES,
                             nullptr, nullptr, nullptr),
            KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_zrangebyscore_whole(c(), nullptr, 1, 0, 1, &names, &count, &lens, nullptr, 0, 0,
                                   nullptr, nullptr, nullptr),
            KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_zscore(c(), lit("z"), 1, lit("m"), 1, nullptr, &value, &len), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_zrank(c(), lit("z"), 1, lit("m"), 1, nullptr, 0, nullptr, nullptr), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_zrank(c(), lit("z"), 1, lit("m"), 1, &n, ZSET_WITH_VALUES, nullptr, nullptr),
            KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_zcard(c(), lit("z"), 1, nullptr), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_zcount(c(), lit("z"), 1, NAN, 1, &n), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_zincrby(c(), lit("z"), 1, lit("m"), 1, NAN, &score, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_zremrangebyscore(c(), nullptr, 1, 0, 1, &n), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_zremrangebyrank(c(), nullptr, 1, 0, 1, &n), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_zaddvalmax(c(), lit("z"), 1, nullptr, 1, lit("v"), 1, 1, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_zadddis(c(), lit("z"), 1, 1, lit("m"), 1, NAN, nullptr, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(cluster.dbsize(0), 0);
}
