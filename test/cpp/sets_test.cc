// Set commands, with and without member values, against real servers.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "keyloom.h"
#include "support/reply_arrays.h"
#include "support/test_cluster.h"

using namespace keyloom::test;

namespace {

using Strings = std::vector<std::string>;

class Sets : public ::testing::Test {
 protected:
  explicit Sets(size_t servers = 1) : cluster(servers) {}
  kl_client *c() { return cluster.client(); }
  kl_return_t add(const std::string &key, const std::string &member, size_t ttl = 0) {
    return kl_sadd(c(), mut(key), key.size(), mut(member), member.size(), ttl);
  }
  kl_return_t addval(const std::string &key, const std::string &member, const std::string &value,
                     size_t ttl = 0) {
    return kl_saddval(c(), mut(key), key.size(), mut(member), member.size(), mut(value),
                      value.size(), ttl);
  }
  std::string val(const std::string &key, const std::string &member) {
    char *value = nullptr;
    size_t len = 0;
    kl_return_t r = kl_sval_whole(c(), mut(key), key.size(), mut(member), member.size(), &value,
                                  &len, nullptr, 0);
    std::string got = value || len == SIZE_MAX ? take_value(value, len) : "";
    return r == KL_SUCCESS ? got : failed(r) + got;
  }
  std::string from_ip(const std::string &key, const std::string &ip) {
    char *value = nullptr;
    size_t len = 0;
    kl_return_t r = kl_svalfromip(c(), key.c_str(), key.size(), ip.c_str(), ip.size(), &value, &len);
    if (r != KL_SUCCESS) return failed(r);
    return take_value(value, len);
  }
  // Members sorted, each followed by "=value" when values are asked for.
  Strings members(const std::string &key, setFlags flags = SET_DEFAULT) {
    char **names = nullptr, **values = nullptr;
    size_t count = 0, *lens = nullptr, *vlens = nullptr;
    kl_return_t r = kl_smembers_whole(c(), key.c_str(), key.size(), &names, &count, &lens, nullptr,
                                      0, flags, &values, &vlens);
    if (r != KL_SUCCESS) return {kl_strerror(r)};
    Strings out = take_strings(names, count, lens);
    if (flags & SET_WITH_VALUES) {
      Strings vals = take_strings(values, count, vlens);
      for (size_t i = 0; i < count; ++i) out[i].append("=").append(vals[i]);
    }
    std::sort(out.begin(), out.end());
    return out;
  }
  TestCluster cluster;
};

class SetsOnTwoServers : public Sets {
 protected:
  SetsOnTwoServers() : Sets(2) {}
};

}  // namespace

TEST_F(Sets, AddRemoveCountMember) {
  ASSERT_EQ(add("s", "a"), KL_SUCCESS);
  ASSERT_EQ(add("s", "b"), KL_SUCCESS);
  ASSERT_EQ(add("s", "a"), KL_SUCCESS);
  unsigned n = 0;
  ASSERT_EQ(kl_scard(c(), lit("s"), 1, &n), KL_SUCCESS);
  EXPECT_EQ(n, 2u);
  EXPECT_EQ(kl_sismember(c(), lit("s"), 1, lit("a"), 1), KL_SUCCESS);
  EXPECT_EQ(kl_sismember(c(), lit("s"), 1, lit("z"), 1), KL_NOTFOUND);
  EXPECT_EQ(members("s"), (Strings{"a", "b"}));
  EXPECT_EQ(kl_srem(c(), lit("s"), 1, lit("a"), 1), KL_SUCCESS);
  EXPECT_EQ(kl_srem(c(), lit("s"), 1, lit("a"), 1), KL_NOTFOUND);
  EXPECT_EQ(members("missing"), Strings{kl_strerror(KL_NOTFOUND)});
  ASSERT_EQ(kl_scard(c(), lit("missing"), 7, &n), KL_SUCCESS);
  EXPECT_EQ(n, 0u);
}

TEST_F(Sets, ValuesTravelWithTheirMembers) {
  ASSERT_EQ(addval("s", "a", "alpha"), KL_SUCCESS);
  ASSERT_EQ(add("s", "b"), KL_SUCCESS);
  ASSERT_EQ(addval("s", "c", ""), KL_SUCCESS);
  EXPECT_EQ(val("s", "a"), "alpha");
  EXPECT_EQ(val("s", "b"), failed(KL_SET_EMPTY_VALUE) + kNil);
  EXPECT_EQ(val("s", "z"), failed(KL_NOTFOUND));
  EXPECT_EQ(kl_sismemberval(c(), lit("s"), 1, lit("a"), 1), KL_SUCCESS);
  EXPECT_EQ(kl_sismemberval(c(), lit("s"), 1, lit("b"), 1), KL_SET_EMPTY_VALUE);
  EXPECT_EQ(kl_sismemberval(c(), lit("s"), 1, lit("c"), 1), KL_SET_EMPTY_VALUE);
  EXPECT_EQ(kl_sismemberval(c(), lit("s"), 1, lit("z"), 1), KL_NOTFOUND);
  EXPECT_EQ(kl_sismemberval(c(), lit("none"), 4, lit("a"), 1), KL_NO_SET_KEY);
  EXPECT_EQ(members("s", SET_WITH_VALUES), (Strings{"a=alpha", "b=<nil>", "c=<nil>"}));

  ASSERT_EQ(addval("s", "a", "again"), KL_SUCCESS);
  EXPECT_EQ(val("s", "a"), "again");
  ASSERT_EQ(kl_srem(c(), lit("s"), 1, lit("a"), 1), KL_SUCCESS);
  ASSERT_EQ(add("s", "a"), KL_SUCCESS);
  EXPECT_EQ(kl_sismemberval(c(), lit("s"), 1, lit("a"), 1), KL_SET_EMPTY_VALUE);
}

TEST_F(Sets, ValuesOfADeletedSetDoNotComeBack) {
  ASSERT_EQ(addval("s", "a", "old"), KL_SUCCESS);
  cluster.direct(0, {"DEL", "s"});
  ASSERT_EQ(add("s", "a"), KL_SUCCESS);
  EXPECT_EQ(kl_sismemberval(c(), lit("s"), 1, lit("a"), 1), KL_SET_EMPTY_VALUE);
  ASSERT_EQ(addval("s", "b", "new"), KL_SUCCESS);
  EXPECT_EQ(members("s", SET_WITH_VALUES), (Strings{"a=<nil>", "b=new"}));
}

TEST_F(Sets, PopTakesTheValueAlong) {
  ASSERT_EQ(addval("s", "only", "v"), KL_SUCCESS);
  char *member = nullptr;
  size_t len = 0;
  ASSERT_EQ(kl_spop_whole(c(), lit("s"), 1, &member, &len, nullptr, 0), KL_SUCCESS);
  EXPECT_EQ(take_value(member, len), "only");
  EXPECT_EQ(kl_spop_whole(c(), lit("s"), 1, &member, &len, nullptr, 0), KL_NOTFOUND);
  EXPECT_EQ(cluster.dbsize(0), 0);
}

TEST_F(Sets, ValueFromIpPicksTheMostSpecificNetwork) {
  ASSERT_EQ(addval("nets", "10.0.0.0/8", "wide"), KL_SUCCESS);
  ASSERT_EQ(addval("nets", "10.1.0.0/16", "narrow"), KL_SUCCESS);
  ASSERT_EQ(addval("nets", "10.1.2.3", "host"), KL_SUCCESS);
  ASSERT_EQ(addval("nets", "2001:db8::/32", "v6"), KL_SUCCESS);
  ASSERT_EQ(addval("nets", "2001:db8:1::/48", "v6 narrow"), KL_SUCCESS);
  ASSERT_EQ(addval("nets", "not a network", "junk"), KL_SUCCESS);
  ASSERT_EQ(add("nets", "192.168.0.0/16"), KL_SUCCESS);
  EXPECT_EQ(from_ip("nets", "10.9.9.9"), "wide");
  EXPECT_EQ(from_ip("nets", "10.1.9.9"), "narrow");
  EXPECT_EQ(from_ip("nets", "10.1.2.3"), "host");
  EXPECT_EQ(from_ip("nets", "::ffff:10.1.2.3"), "host");
  EXPECT_EQ(from_ip("nets", "2001:db8:2::1"), "v6");
  EXPECT_EQ(from_ip("nets", "2001:db8:1::1"), "v6 narrow");
  EXPECT_EQ(from_ip("nets", "11.0.0.1"), failed(KL_NO_SUBNET));
  EXPECT_EQ(from_ip("nets", "192.168.1.1"), failed(KL_SET_EMPTY_VALUE));
  EXPECT_EQ(from_ip("none", "10.0.0.1"), failed(KL_NO_SET_KEY));
  for (const char *bad : {"", "10.0.0", "10.0.0.0/8", "::g", "10.0.0.1 "})
    EXPECT_EQ(from_ip("nets", bad), failed(KL_INVALID_PARAMETER)) << bad;
}

TEST_F(Sets, TtlCoversTheSetAndItsValues) {
  ASSERT_EQ(addval("s", "a", "v", 100), KL_SUCCESS);
  EXPECT_GT(cluster.direct(0, {"TTL", "s"})->integer, 90);
  EXPECT_GT(cluster.direct(0, {"TTL", "s::keyloom:svals"})->integer, 90);
  ASSERT_EQ(add("s", "b", 500), KL_SUCCESS);
  EXPECT_GT(cluster.direct(0, {"TTL", "s"})->integer, 400);
  EXPECT_GT(cluster.direct(0, {"TTL", "s::keyloom:svals"})->integer, 400);
}

TEST_F(Sets, DeleteAndTtlTakeTheValuesAlong) {
  ASSERT_EQ(addval("s", "a", "v"), KL_SUCCESS);
  ASSERT_EQ(kl_set_ttl(c(), mut("s"), 1, 300), KL_SUCCESS);
  EXPECT_GT(cluster.direct(0, {"TTL", "s::keyloom:svals"})->integer, 290);
  ASSERT_EQ(kl_set_ttl(c(), mut("s"), 1, 0), KL_SUCCESS);
  EXPECT_EQ(cluster.direct(0, {"TTL", "s::keyloom:svals"})->integer, -1);
  EXPECT_EQ(kl_set_ttl(c(), mut("none"), 4, 300), KL_NOTFOUND);

  ASSERT_EQ(kl_del(c(), mut("s"), 1), KL_SUCCESS);
  EXPECT_EQ(cluster.dbsize(0), 0);
  EXPECT_EQ(kl_del(c(), mut("s"), 1), KL_NOTFOUND);

  ASSERT_EQ(addval("s", "a", "v"), KL_SUCCESS);
  ASSERT_EQ(addval("t", "b", "w"), KL_SUCCESS);
  char *keys[] = {mut("s"), mut("t"), mut("none")};
  size_t lens[] = {1, 1, 4};
  int deleted = -1;
  ASSERT_EQ(kl_mdel(c(), keys, 3, lens, &deleted), KL_SUCCESS);
  EXPECT_EQ(deleted, 2);  // the keys named, not their values hashes
  EXPECT_EQ(cluster.dbsize(0), 0);
}

TEST_F(Sets, MoveTakesTheValuesAlong) {
  // Database 1 holds a values hash of a set that is gone there: the move
  // must replace it, not merge with it.
  auto in_db1 = [&](const std::string &lua, const std::string &key) {
    return cluster.direct(0, {"EVAL", "redis.call('SELECT', 1) " + lua, "1", key});
  };
  in_db1("return redis.call('HSET', KEYS[1], 'b', 'stale')", "m::keyloom:svals");
  ASSERT_EQ(addval("m", "a", "v", 500), KL_SUCCESS);
  ASSERT_EQ(add("m", "b"), KL_SUCCESS);
  ASSERT_EQ(kl_move(c(), mut("m"), 1, 1), KL_SUCCESS);
  EXPECT_EQ(cluster.dbsize(0), 0);
  EXPECT_GT(in_db1("return redis.call('PTTL', KEYS[1])", "m::keyloom:svals")->integer, 400000);
  ASSERT_EQ(kl_select(c(), 1, nullptr), KL_SUCCESS);
  EXPECT_EQ(val("m", "a"), "v");
  EXPECT_EQ(kl_sismemberval(c(), lit("m"), 1, lit("b"), 1), KL_SET_EMPTY_VALUE);  // not "stale"

  // Refused (the target holds the key) or nothing to move: nothing changes.
  ASSERT_EQ(kl_select(c(), 0, nullptr), KL_SUCCESS);
  ASSERT_EQ(addval("m", "c", "x"), KL_SUCCESS);
  EXPECT_EQ(kl_move(c(), mut("m"), 1, 1), KL_ALREADY_EXISTS);
  EXPECT_EQ(val("m", "c"), "x");
  EXPECT_EQ(kl_move(c(), mut("none"), 4, 1), KL_NOTFOUND);
}

TEST_F(Sets, WrongTypeIsServerError) {
  cluster.direct(0, {"SET", "str", "x"});
  unsigned n = 0;
  char *value = nullptr;
  size_t len = 0;
  EXPECT_EQ(add("str", "a", 100), KL_SERVER_ERROR);
  EXPECT_EQ(cluster.direct(0, {"TTL", "str"})->integer, -1);
  EXPECT_EQ(addval("str", "a", "v"), KL_SERVER_ERROR);
  EXPECT_EQ(kl_srem(c(), lit("str"), 3, lit("a"), 1), KL_SERVER_ERROR);
  EXPECT_EQ(kl_scard(c(), lit("str"), 3, &n), KL_SERVER_ERROR);
  EXPECT_EQ(kl_sismember(c(), lit("str"), 3, lit("a"), 1), KL_SERVER_ERROR);
  EXPECT_EQ(kl_sismemberval(c(), lit("str"), 3, lit("a"), 1), KL_SERVER_ERROR);
  EXPECT_EQ(kl_sval_whole(c(), lit("str"), 3, lit("a"), 1, &value, &len, nullptr, 0), KL_SERVER_ERROR);
  EXPECT_EQ(kl_spop_whole(c(), lit("str"), 3, &value, &len, nullptr, 0), KL_SERVER_ERROR);
  EXPECT_EQ(from_ip("str", "10.0.0.1"), failed(KL_SERVER_ERROR));
  EXPECT_EQ(members("str"), Strings{kl_strerror(KL_SERVER_ERROR)});
  EXPECT_EQ(members("str", SET_WITH_VALUES), Strings{kl_strerror(KL_SERVER_ERROR)});
  EXPECT_EQ(value, nullptr);
}

TEST_F(Sets, InvalidArgumentsSendNothing) {
  char *value = nullptr, **names = nullptr;
  size_t len = 0, *lens = nullptr;
  unsigned n = 0;
  char *keys[] = {lit("a")};
  size_t key_lens[] = {1};
  EXPECT_EQ(kl_sadd(nullptr, lit("k"), 1, lit("m"), 1, 0), KL_INVALID_CLIENT);
  EXPECT_EQ(kl_sunion_whole(nullptr, keys, 1, key_lens, &names, &len, &lens, nullptr, 0, KL_NULL_ON_FAIL),
            KL_INVALID_CLIENT);
  EXPECT_EQ(kl_sadd(c(), nullptr, 1, lit("m"), 1, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_sadd(c(), lit("k"), 1, nullptr, 0, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_saddval(c(), lit("k"), 1, lit("m"), 1, nullptr, 3, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_srem(c(), lit("k"), 1, nullptr, 1), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_spop_whole(c(), lit("k"), 1, nullptr, &len, nullptr, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_sval_whole(c(), lit("k"), 1, lit("m"), 1, nullptr, &len, nullptr, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_svalfromip(c(), "k", 1, nullptr, 3, &value, &len), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_svalfromip(c(), "k", 1, "10.0.0.1", 8, nullptr, &len), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_scard(c(), lit("k"), 1, nullptr), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_sismember(c(), nullptr, 1, lit("m"), 1), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_sismemberval(c(), lit("k"), 1, nullptr, 1), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_sunion_whole(c(), nullptr, 1, key_lens, &names, &len, &lens, nullptr, 0, KL_NULL_ON_FAIL),
            KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_sunion_whole(c(), keys, 0, key_lens, &names, &len, &lens, nullptr, 0, KL_NULL_ON_FAIL),
            KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_sunion_whole(c(), keys, 1, nullptr, &names, &len, &lens, nullptr, 0, KL_NULL_ON_FAIL),
            KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_sunion_whole(c(), keys, 1, key_lens, nullptr, &len, &lens, nullptr, 0, KL_NULL_ON_FAIL),
            KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_sunion_whole(c(), keys, 1, key_lens, &names, &len, &lens, nullptr, 0, 0),
            KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_sunionstore(c(), nullptr, 1, keys, 1, key_lens, KL_NULL_ON_FAIL, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_sunionstore(c(), lit("d"), 1, keys, 0, key_lens, KL_NULL_ON_FAIL, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_smembers_whole(c(), "k", 1, nullptr, &len, &lens, nullptr, 0, 0, nullptr, nullptr),
            KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_smembers_whole(c(), "k", 1, &names, &len, &lens, nullptr, 0, SET_WITH_VALUES, nullptr,
                              nullptr),
            KL_INVALID_PARAMETER);
  EXPECT_EQ(n, 0u);
  EXPECT_EQ(cluster.dbsize(0), 0);
}

TEST_F(SetsOnTwoServers, UnionMergesKeysFromBothServers) {
  // Which server a key lands on depends on the servers' (random) ports: add
  // keys until both servers hold some, so that the union really spans both.
  Strings keys;
  for (int i = 0; i < 64 && (i < 8 || cluster.dbsize(0) == 0 || cluster.dbsize(1) == 0); ++i) {
    keys.push_back(numbered("set", i));
    ASSERT_EQ(add(keys.back(), numbered("m", i % 3)), KL_SUCCESS);
    ASSERT_EQ(add(keys.back(), "shared"), KL_SUCCESS);
  }
  ASSERT_GT(cluster.dbsize(0), 0);  // the keys really are spread
  ASSERT_GT(cluster.dbsize(1), 0);
  keys.push_back("missing");
  CArgs args(keys);
  char **names = nullptr;
  size_t count = 0, *lens = nullptr;
  ASSERT_EQ(kl_sunion_whole(c(), args.ptrs.data(), keys.size(), args.lens.data(), &names, &count,
                            &lens, nullptr, 0, KL_NULL_ON_FAIL),
            KL_SUCCESS);
  EXPECT_EQ(take_strings(names, count, lens), (Strings{"m0", "m1", "m2", "shared"}));

  ASSERT_EQ(kl_sunionstore(c(), lit("dest"), 4, args.ptrs.data(), keys.size(), args.lens.data(),
                           KL_NULL_ON_FAIL, 100),
            KL_SUCCESS);
  EXPECT_EQ(members("dest"), (Strings{"m0", "m1", "m2", "shared"}));
  Strings none = {"missing", "missing2"};
  CArgs empty(none);
  EXPECT_EQ(kl_sunion_whole(c(), empty.ptrs.data(), 2, empty.lens.data(), &names, &count, &lens,
                            nullptr, 0, KL_BEST_EFFORT_ON_FAIL),
            KL_NOTFOUND);
  ASSERT_EQ(kl_sunionstore(c(), lit("dest"), 4, empty.ptrs.data(), 2, empty.lens.data(),
                           KL_NULL_ON_FAIL, 0),
            KL_SUCCESS);
  EXPECT_EQ(members("dest"), Strings{kl_strerror(KL_NOTFOUND)});
}

TEST_F(SetsOnTwoServers, RenameTakesTheValuesAlong) {
  const std::string values = "::keyloom:svals";
  auto server_of = [&](const std::string &key) {
    return cluster.direct(0, {"EXISTS", key})->integer == 1 ? 0 : 1;
  };
  auto anywhere = [&](const std::string &key) {
    return cluster.direct(0, {"EXISTS", key})->integer + cluster.direct(1, {"EXISTS", key})->integer;
  };
  // Pairs until both kinds were seen: on one server (one script) and across
  // the two (DUMP and RESTORE); which is which depends on the random ports.
  bool same_seen = false, across_seen = false;
  for (int i = 0; i < 64 && (i < 4 || !same_seen || !across_seen); ++i) {
    std::string from = numbered("from", i), to = numbered("to", i);
    ASSERT_EQ(addval(from, "a", "v", 500), KL_SUCCESS);
    ASSERT_EQ(addval(to, "old", "w"), KL_SUCCESS);  // a destination with values of its own
    (server_of(from) == server_of(to) ? same_seen : across_seen) = true;
    ASSERT_EQ(kl_rename(c(), mut(from), from.size(), mut(to), to.size()), KL_SUCCESS) << i;
    EXPECT_EQ(members(to, SET_WITH_VALUES), Strings{"a=v"}) << i;
    EXPECT_EQ(anywhere(from + values), 0) << i;
    EXPECT_GT(cluster.direct(server_of(to), {"TTL", to + values})->integer, 400) << i;

    // A source without values leaves none of the destination's behind.
    ASSERT_EQ(add(from, "b"), KL_SUCCESS);
    ASSERT_EQ(kl_rename(c(), mut(from), from.size(), mut(to), to.size()), KL_SUCCESS) << i;
    EXPECT_EQ(anywhere(to + values), 0) << i;
    EXPECT_EQ(kl_sismemberval(c(), mut(to), to.size(), lit("b"), 1), KL_SET_EMPTY_VALUE) << i;

    // RENAMENX onto an existing set moves nothing.
    ASSERT_EQ(addval(from, "c", "x"), KL_SUCCESS);
    EXPECT_EQ(kl_renamenx(c(), mut(from), from.size(), mut(to), to.size()), KL_ALREADY_EXISTS) << i;
    EXPECT_EQ(val(from, "c"), "x") << i;
    EXPECT_EQ(members(to), Strings{"b"}) << i;
  }
  EXPECT_TRUE(same_seen);
  EXPECT_TRUE(across_seen);
}

TEST_F(SetsOnTwoServers, UnionPolicyWhenAServerIsDown) {
  Strings keys;
  for (int i = 0; i < 8; ++i) {
    keys.push_back(numbered("set", i));
    ASSERT_EQ(add(keys.back(), keys.back()), KL_SUCCESS);
  }
  cluster.server(1).stop();
  CArgs args(keys);
  char **names = nullptr;
  size_t count = 0, *lens = nullptr;
  EXPECT_EQ(kl_sunion_whole(c(), args.ptrs.data(), keys.size(), args.lens.data(), &names, &count,
                            &lens, nullptr, 0, KL_NULL_ON_FAIL),
            KL_SERVER_DOWN);
  EXPECT_EQ(names, nullptr);
  ASSERT_EQ(kl_sunion_whole(c(), args.ptrs.data(), keys.size(), args.lens.data(), &names, &count,
                            &lens, nullptr, 0, KL_BEST_EFFORT_ON_FAIL),
            KL_PARTIAL_RESULT);
  Strings got = take_strings(names, count, lens);
  EXPECT_EQ(static_cast<long long>(got.size()), cluster.dbsize(0));
}

TEST_F(SetsOnTwoServers, RoutedUnionReadsOnlyTheRoutesServer) {
  // Enough keys that both servers hold some whatever ports the servers got
  // (with 8, all of them landed on one server now and then).
  Strings keys;
  for (int i = 1; i <= 64; ++i) keys.push_back(numbered("x", i));
  CArgs args(keys);
  for (const auto &k : keys)
    ASSERT_EQ(kl_sadd(c(), mut(k), k.size(), mut(k), k.size(), 0), KL_SUCCESS);
  ASSERT_GT(cluster.dbsize(0), 0);
  ASSERT_GT(cluster.dbsize(1), 0);
  char **names = nullptr;
  size_t count = 0, *lens = nullptr;
  ASSERT_EQ(kl_sunion_whole(c(), args.ptrs.data(), keys.size(), args.lens.data(), &names, &count,
                            &lens, lit("route"), 5, KL_NULL_ON_FAIL),
            KL_SUCCESS);
  Strings got = take_strings(names, count, lens);
  // Each set holds its own name: what came back is exactly the keys of one server.
  size_t server = cluster.direct(0, {"EXISTS", got[0]})->integer ? 0 : 1;
  EXPECT_EQ(static_cast<long long>(got.size()), cluster.dbsize(server));
  for (const auto &k : got) EXPECT_EQ(cluster.direct(server, {"EXISTS", k})->integer, 1) << k;
}

TEST(SetsInTwoGroups, PopRemovesTheSameMemberInEveryGroup) {
  TestCluster cluster(2, 2);
  for (const char *m : {"a", "b", "c", "d", "e", "f"})
    ASSERT_EQ(kl_saddval(cluster.client(), lit("s"), 1, lit(m), 1, lit("v"), 1, 0), KL_SUCCESS);
  for (int i = 0; i < 3; ++i) {
    char *member = nullptr;
    size_t len = 0;
    ASSERT_EQ(kl_spop_whole(cluster.client(), lit("s"), 1, &member, &len, nullptr, 0), KL_SUCCESS);
    kl_free_php_reply_p(&member);
  }
  auto sorted = [&](size_t server) {
    auto reply = cluster.direct(server, {"SORT", "s", "ALPHA"});
    Strings out;
    for (size_t i = 0; i < reply->elements; ++i) out.emplace_back(reply->element[i]->str);
    return out;
  };
  EXPECT_EQ(sorted(0).size(), 3u);
  EXPECT_EQ(sorted(0), sorted(1));
  EXPECT_EQ(cluster.direct(0, {"HLEN", "s::keyloom:svals"})->integer, 3);
  EXPECT_EQ(cluster.direct(1, {"HLEN", "s::keyloom:svals"})->integer, 3);
}
