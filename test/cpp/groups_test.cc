// Two groups of two servers: writes reach both, a lost server makes writes
// dirty and reads fail over, and kl_dirty repairs the keys afterwards.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "keyloom.h"
#include "support/test_cluster.h"

using keyloom::test::mut;
using keyloom::test::TestCluster;

namespace {

constexpr int kKeys = 24;

std::string key(int i) { return std::string("gk") + std::to_string(i); }

std::string read(kl_client *c, const std::string &k, kl_return_t *code) {
  char *value = nullptr;
  size_t len = 0;
  *code = kl_get_whole(c, mut(k), k.size(), &value, &len, nullptr, 0);
  if (*code != KL_SUCCESS) return {};
  std::string out(value, len);
  kl_free_php_reply_p(&value);
  return out;
}

void wait_reconnect() { std::this_thread::sleep_for(std::chrono::milliseconds(400)); }

}  // namespace

TEST(Groups, WritesReachEveryGroup) {
  TestCluster cluster(4, 2);  // g0: servers 0 and 2, g1: servers 1 and 3
  for (int i = 0; i < kKeys; ++i)
    ASSERT_EQ(kl_set(cluster.client(), mut(key(i)), key(i).size(), mut("v"), 1, 0), KL_SUCCESS);
  EXPECT_EQ(cluster.dbsize(0) + cluster.dbsize(2), kKeys);
  EXPECT_EQ(cluster.dbsize(1) + cluster.dbsize(3), kKeys);
  EXPECT_GT(cluster.dbsize(0), 0);
  EXPECT_GT(cluster.dbsize(2), 0);
}

TEST(Groups, LostServerDirtyWritesFailOverReadsAndRepair) {
  TestCluster cluster(4, 2);
  kl_client *c = cluster.client();
  for (int i = 0; i < kKeys; ++i)
    ASSERT_EQ(kl_set(c, mut(key(i)), key(i).size(), mut("old"), 3, 0), KL_SUCCESS);
  cluster.server(0).kill();

  int dirty = 0;
  for (int i = 0; i < kKeys; ++i) {
    kl_return_t r = kl_set(c, mut(key(i)), key(i).size(), mut("new"), 3, 300);
    EXPECT_EQ(kl_get_result(r), KL_SUCCESS) << i;
    dirty += kl_is_dirty(r);
  }
  EXPECT_GT(dirty, 0);
  EXPECT_LT(dirty, kKeys);
  for (int i = 0; i < kKeys; ++i) {
    kl_return_t code;
    EXPECT_EQ(read(c, key(i), &code), "new") << i;  // from g1 where g0 is down
    EXPECT_EQ(code, KL_SUCCESS);
  }

  cluster.server(0).restart();  // back, empty
  wait_reconnect();
  int stale = 0;
  for (int i = 0; i < kKeys; ++i) {
    kl_return_t code;
    read(c, key(i), &code);
    stale += code == KL_NOTFOUND;  // its group answers first again
  }
  EXPECT_EQ(stale, dirty);

  int repaired_total = 0;
  for (int i = 0; i < kKeys; ++i) {
    int groups = -1;
    ASSERT_EQ(kl_dirty(c, mut(key(i)), key(i).size(), static_cast<int>(KL_DURABLE_TTL_BIT), &groups), KL_SUCCESS);
    repaired_total += groups;
  }
  EXPECT_EQ(repaired_total, dirty);
  for (int i = 0; i < kKeys; ++i) {
    kl_return_t code;
    EXPECT_EQ(read(c, key(i), &code), "new") << i;
    int ttl = 0;
    ASSERT_EQ(kl_get_ttl(c, mut(key(i)), key(i).size(), &ttl), KL_SUCCESS);
    EXPECT_GT(ttl, 200);  // the source's TTL came along
  }
  int groups = -1;
  EXPECT_EQ(kl_dirty(c, mut("never-written"), 13, 0, &groups), KL_NOTFOUND);
  EXPECT_EQ(groups, 0);
}

TEST(Groups, DirtyWithCommitDeletesWhereTheSourceHasNone) {
  TestCluster cluster(2, 2);
  kl_client *c = cluster.client();
  ASSERT_TRUE(cluster.direct(1, {"SET", "orphan", "x"}));  // only in g1
  int groups = -1;
  ASSERT_EQ(kl_dirty(c, mut("orphan"), 6, static_cast<int>(KL_COMMIT_BIT), &groups), KL_SUCCESS);
  EXPECT_EQ(groups, 1);
  EXPECT_EQ(cluster.dbsize(1), 0);
  // Without COMMIT the copy goes the other way, with the given TTL.
  ASSERT_TRUE(cluster.direct(1, {"SET", "orphan", "x"}));
  ASSERT_EQ(kl_dirty(c, mut("orphan"), 6, 50, &groups), KL_SUCCESS);
  EXPECT_EQ(groups, 1);
  int ttl = 0;
  ASSERT_EQ(kl_get_ttl(c, mut("orphan"), 6, &ttl), KL_SUCCESS);
  EXPECT_GT(ttl, 40);
}

TEST(Groups, DirtyRepairCarriesACollectionsValues) {
  TestCluster cluster(2, 2);  // g0: server 0 (answers first), g1: server 1
  kl_client *c = cluster.client();
  const std::string values = "s::keyloom:svals";
  ASSERT_EQ(kl_saddval(c, mut("s"), 1, mut("a"), 1, mut("v"), 1, 300), KL_SUCCESS);
  // g1 lost the set and its values, and holds a values hash the source lacks.
  ASSERT_TRUE(cluster.direct(1, {"DEL", "s", values}));
  ASSERT_TRUE(cluster.direct(1, {"HSET", "s::keyloom:zvals", "x", "stale"}));
  int groups = -1;
  ASSERT_EQ(kl_dirty(c, mut("s"), 1, static_cast<int>(KL_DURABLE_TTL_BIT), &groups), KL_SUCCESS);
  EXPECT_EQ(groups, 1);
  EXPECT_EQ(std::string(cluster.direct(1, {"HGET", values, "a"})->str), "v");
  EXPECT_GT(cluster.direct(1, {"TTL", values})->integer, 200);
  EXPECT_EQ(cluster.direct(1, {"EXISTS", "s::keyloom:zvals"})->integer, 0);

  // Only a value differs: that is a difference too.
  ASSERT_TRUE(cluster.direct(1, {"HSET", values, "a", "other"}));
  ASSERT_EQ(kl_dirty(c, mut("s"), 1, 0, &groups), KL_SUCCESS);
  EXPECT_EQ(groups, 1);
  EXPECT_EQ(std::string(cluster.direct(1, {"HGET", values, "a"})->str), "v");
  ASSERT_EQ(kl_dirty(c, mut("s"), 1, 0, &groups), KL_SUCCESS);
  EXPECT_EQ(groups, 0);  // the groups agree now

  // COMMIT from a group without the set deletes it and its values elsewhere.
  ASSERT_TRUE(cluster.direct(0, {"DEL", "s", values}));
  ASSERT_EQ(kl_dirty(c, mut("s"), 1, static_cast<int>(KL_COMMIT_BIT), &groups), KL_SUCCESS);
  EXPECT_EQ(groups, 1);
  EXPECT_EQ(cluster.dbsize(1), 0);
}

TEST(Groups, GroupsThatAnswerDifferentlyMakeTheWriteDirty) {
  TestCluster cluster(2, 2);
  kl_client *c = cluster.client();
  ASSERT_TRUE(cluster.direct(0, {"SET", "split", "old"}));  // only in the first group
  // The first group refuses (the key exists), the second takes the value: the
  // copies now differ, which the dirty bit says.
  kl_return_t r = kl_setnx(c, mut("split"), 5, mut("new"), 3, 0);
  EXPECT_EQ(kl_get_result(r), KL_ALREADY_EXISTS);
  EXPECT_TRUE(kl_is_dirty(r));
  // Both groups agree: clean.
  EXPECT_EQ(kl_set(c, mut("split"), 5, mut("same"), 4, 0), KL_SUCCESS);
  EXPECT_EQ(kl_setnx(c, mut("split"), 5, mut("x"), 1, 0), KL_ALREADY_EXISTS);
}

TEST(Groups, EveryGroupDown) {
  TestCluster cluster(2, 2);
  cluster.server(0).kill();
  cluster.server(1).kill();
  char *value = nullptr;
  size_t len = 0;
  EXPECT_EQ(kl_set(cluster.client(), mut("k"), 1, mut("v"), 1, 0), KL_ALL_GROUP_SERVERS_DOWN);
  EXPECT_EQ(kl_get_whole(cluster.client(), mut("k"), 1, &value, &len, nullptr, 0), KL_ALL_GROUP_SERVERS_DOWN);
  int groups = 0;
  EXPECT_EQ(kl_dirty(cluster.client(), mut("k"), 1, 0, &groups), KL_ALL_GROUP_SERVERS_DOWN);
}

TEST(Groups, MultiKeyWritesAreDirtyAndReadsFailOverPerItem) {
  TestCluster cluster(4, 2);
  kl_client *c = cluster.client();
  cluster.server(2).kill();
  std::vector<std::string> names;
  for (int i = 0; i < kKeys; ++i) names.push_back(key(i));
  std::vector<const char *> keys;
  std::vector<char *> values;
  std::vector<size_t> lens, value_lens;
  for (auto &n : names) {
    keys.push_back(n.c_str());
    values.push_back(mut(n));
    lens.push_back(n.size());
    value_lens.push_back(n.size());
  }
  kl_return_t r = kl_mset(c, keys.data(), keys.size(), lens.data(), values.data(), value_lens.data());
  EXPECT_EQ(kl_get_result(r), KL_SUCCESS);
  EXPECT_EQ(kl_is_dirty(r), 1);
  char **got = nullptr;
  size_t count = 0, *got_lens = nullptr;
  ASSERT_EQ(kl_mget_whole(c, values.data(), values.size(), lens.data(), &got, &count, &got_lens, nullptr, 0, KL_NULL_ON_FAIL), KL_SUCCESS);
  ASSERT_EQ(count, names.size());
  for (size_t i = 0; i < count; ++i) EXPECT_EQ(std::string(got[i], got_lens[i]), names[i]);
  kl_free_php_reply_pp(&got, static_cast<unsigned>(count));
  kl_free_php_reply_p(reinterpret_cast<char **>(&got_lens));
}
