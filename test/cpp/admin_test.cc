// Per-server administration, key listing and SORT.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

#include "keyloom.h"
#include "support/test_cluster.h"

using keyloom::test::mut;
using keyloom::test::TestCluster;

namespace {

void set_many(kl_client *c, const std::string &stem, int n) {
  for (int i = 0; i < n; ++i) {
    std::string k = stem + std::to_string(i);
    ASSERT_EQ(kl_set(c, mut(k), k.size(), mut("v"), 1, 0), KL_SUCCESS);
  }
}

void free_codes(kl_return_t **codes) { kl_free_php_reply_p(reinterpret_cast<char **>(codes)); }

}  // namespace

TEST(Admin, DbsizeSumsAndFlushallEmpties) {
  TestCluster cluster(3);
  set_many(cluster.client(), "k", 30);
  unsigned size = 0;
  kl_return_t *codes = nullptr;
  ASSERT_EQ(kl_dbsize(cluster.client(), &size, nullptr, &codes), KL_SUCCESS);
  EXPECT_EQ(size, 30u);
  ASSERT_NE(codes, nullptr);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(codes[i], KL_SUCCESS);
  free_codes(&codes);
  EXPECT_EQ(kl_dbsize(cluster.client(), nullptr, nullptr, nullptr), KL_INVALID_PARAMETER);

  ASSERT_EQ(kl_flushall(cluster.client(), "", nullptr), KL_SUCCESS);
  ASSERT_EQ(kl_dbsize(cluster.client(), &size, "default", nullptr), KL_SUCCESS);
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(kl_flushall(cluster.client(), "nosuchgroup", nullptr), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_flushall(cluster.client(), "_NL_", nullptr), KL_SUCCESS);  // no such group: every group
}

TEST(Admin, FlushdbOnlyTheNamedGroup) {
  TestCluster cluster(2, 2);
  set_many(cluster.client(), "f", 5);
  ASSERT_EQ(kl_flushdb(cluster.client(), "g0", nullptr), KL_SUCCESS);
  EXPECT_EQ(cluster.dbsize(0), 0);
  EXPECT_EQ(cluster.dbsize(1), 5);
}

TEST(Admin, KeysMergesOverServersWithScan) {
  TestCluster cluster(4);
  set_many(cluster.client(), "user:", 25);
  set_many(cluster.client(), "other:", 5);
  char **keys = nullptr;
  size_t count = 0, *lens = nullptr;
  kl_return_t *codes = nullptr;
  ASSERT_EQ(kl_keys(cluster.client(), mut("user:*"), 6, &keys, &count, &lens, nullptr, &codes), KL_SUCCESS);
  ASSERT_EQ(count, 25u);
  std::set<std::string> got;
  for (size_t i = 0; i < count; ++i) got.insert(std::string(keys[i], lens[i]));
  EXPECT_EQ(got.size(), 25u);
  EXPECT_TRUE(got.count("user:7"));
  for (int i = 0; i < 4; ++i) EXPECT_EQ(codes[i], KL_SUCCESS);
  kl_free_php_reply_pp(&keys, static_cast<unsigned>(count));
  kl_free_php_reply_p(reinterpret_cast<char **>(&lens));
  free_codes(&codes);

  ASSERT_EQ(kl_keys(cluster.client(), mut("nothing*"), 8, &keys, &count, nullptr, nullptr, nullptr), KL_SUCCESS);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(keys, nullptr);
  EXPECT_EQ(kl_keys(cluster.client(), nullptr, 0, &keys, &count, nullptr, nullptr, nullptr), KL_INVALID_PARAMETER);
}

TEST(Admin, KeysOnceOverGroupsAndWithoutPrefix) {
  TestCluster cluster(2, 2);
  ASSERT_EQ(kl_set_database_key(cluster.client(), 0, "p:", 2), KL_SUCCESS);
  set_many(cluster.client(), "k", 4);
  char **keys = nullptr;
  size_t count = 0;
  ASSERT_EQ(kl_keys(cluster.client(), mut("*"), 1, &keys, &count, nullptr, nullptr, nullptr), KL_SUCCESS);
  ASSERT_EQ(count, 4u);
  std::set<std::string> got(keys, keys + count);
  EXPECT_EQ(got, (std::set<std::string>{"k0", "k1", "k2", "k3"}));
  kl_free_php_reply_pp(&keys, static_cast<unsigned>(count));
}

TEST(Admin, ListingsLeaveOutTheLibrarysOwnKeys) {
  TestCluster cluster(1);
  kl_client *c = cluster.client();
  ASSERT_EQ(kl_set_database_key(c, 0, "p:", 2), KL_SUCCESS);
  // "s" is stored as p:s beside its values hash p:s::keyloom:svals.
  ASSERT_EQ(kl_saddval(c, mut("s"), 1, mut("a"), 1, mut("v"), 1, 0), KL_SUCCESS);
  ASSERT_EQ(cluster.dbsize(0), 2);
  char **keys = nullptr;
  size_t count = 0;
  ASSERT_EQ(kl_keys(c, mut("*"), 1, &keys, &count, nullptr, nullptr, nullptr), KL_SUCCESS);
  ASSERT_EQ(count, 1u);
  EXPECT_STREQ(keys[0], "s");
  kl_free_php_reply_pp(&keys, static_cast<unsigned>(count));
  // Each call draws up to 16 times: it misses "s" with odds of 2^-16.
  for (int i = 0; i < 5; ++i) {
    char *key = nullptr;
    size_t len = 0;
    ASSERT_EQ(kl_randomkey(c, &key, &len), KL_SUCCESS);
    EXPECT_EQ(std::string(key, len), "s") << i;
    kl_free_php_reply_p(&key);
  }
  // Another database's key only: nothing counts.
  ASSERT_EQ(kl_flushall(c, nullptr, nullptr), KL_SUCCESS);
  ASSERT_TRUE(cluster.direct(0, {"SET", "q:other", "x"}));
  char *key = nullptr;
  size_t len = 0;
  EXPECT_EQ(kl_randomkey(c, &key, &len), KL_NOTFOUND);
}

TEST(Admin, InfoLastsaveSave) {
  TestCluster cluster(2);
  char **infos = nullptr;
  kl_return_t *codes = nullptr;
  ASSERT_EQ(kl_info(cluster.client(), &infos, nullptr, &codes), KL_SUCCESS);
  ASSERT_NE(infos, nullptr);
  EXPECT_NE(std::string(infos[0]).find("redis_version"), std::string::npos);
  EXPECT_NE(std::string(infos[1]).find("redis_version"), std::string::npos);
  EXPECT_EQ(infos[2], nullptr);
  kl_free_php_reply_pp(&infos, 2);
  free_codes(&codes);

  EXPECT_EQ(kl_save(cluster.client(), nullptr, nullptr), KL_SUCCESS);
  unsigned *times = nullptr;
  size_t count = 0;
  ASSERT_EQ(kl_lastsave(cluster.client(), &times, &count, nullptr, nullptr), KL_SUCCESS);
  ASSERT_EQ(count, 2u);
  EXPECT_GT(times[0], 1600000000u);
  kl_free_php_reply_p(reinterpret_cast<char **>(&times));
  EXPECT_EQ(kl_lastsave(cluster.client(), nullptr, &count, nullptr, nullptr), KL_INVALID_PARAMETER);
}

TEST(Admin, ConfigGetAndSetOnOneServer) {
  TestCluster cluster(2);
  std::string second = "127.0.0.1:" + std::to_string(cluster.server(1).port());
  ASSERT_EQ(kl_config_set(cluster.client(), "maxmemory-samples", 17, "7", 1, second.c_str(), second.size(), nullptr, nullptr), KL_SUCCESS);
  char **values = nullptr;
  size_t count = 0, *lens = nullptr;
  ASSERT_EQ(kl_config_get(cluster.client(), "maxmemory-samples", 17, second.c_str(), second.size(), &values, &count, &lens, nullptr, nullptr), KL_SUCCESS);
  ASSERT_EQ(count, 2u);
  EXPECT_STREQ(values[0], "maxmemory-samples");
  EXPECT_STREQ(values[1], "7");
  kl_free_php_reply_pp(&values, 2);
  kl_free_php_reply_p(reinterpret_cast<char **>(&lens));
  auto first = cluster.direct(0, {"CONFIG", "GET", "maxmemory-samples"});
  ASSERT_TRUE(first);
  EXPECT_STRNE(first->element[1]->str, "7");
  EXPECT_EQ(kl_config_set(cluster.client(), "no-such-parameter", 17, "1", 1, nullptr, 0, nullptr, nullptr), KL_SERVER_ERROR);
  EXPECT_EQ(kl_config_get(cluster.client(), "x", 1, "1.2.3.4:5", 9, &values, &count, nullptr, nullptr, nullptr), KL_INVALID_PARAMETER);
}

TEST(Admin, BgsaveAndShutdown) {
  TestCluster cluster(2);
  EXPECT_EQ(kl_bgsave(cluster.client(), nullptr, nullptr), KL_SUCCESS);
  kl_return_t *codes = nullptr;
  ASSERT_EQ(kl_shutdown(cluster.client(), nullptr, &codes), KL_SUCCESS);
  EXPECT_EQ(codes[0], KL_SUCCESS);
  free_codes(&codes);
  EXPECT_FALSE(keyloom::test::answers_ping(cluster.server(0).port()));
  EXPECT_EQ(kl_exists(cluster.client(), mut("k"), 1), KL_SERVER_DOWN);
}

TEST(Admin, Sort) {
  TestCluster cluster(1);
  kl_client *c = cluster.client();
  for (const char *v : {"3", "1", "2"}) ASSERT_EQ(kl_rpush(c, mut("list"), 4, mut(v), 1, 0), KL_SUCCESS);
  char **values = nullptr;
  size_t count = 0, *lens = nullptr;
  char empty[] = "";
  ASSERT_EQ(kl_sort_whole(c, &values, &count, &lens, mut("list"), 4, nullptr, 0, 0, empty, 0, 0,
                          empty, empty, empty, empty, empty, empty), KL_SUCCESS);
  ASSERT_EQ(count, 3u);
  EXPECT_STREQ(values[0], "1");
  EXPECT_STREQ(values[2], "3");
  kl_free_php_reply_pp(&values, 3);
  kl_free_php_reply_p(reinterpret_cast<char **>(&lens));

  // DESC, LIMIT 1 count 5, GET through a pattern.
  for (const char *v : {"1", "2", "3"}) {
    std::string k = std::string("w_") + v, val = std::string("name") + v;
    ASSERT_EQ(kl_set(c, mut(k), k.size(), mut(val), val.size(), 0), KL_SUCCESS);
  }
  ASSERT_EQ(kl_sort_whole(c, &values, &count, nullptr, mut("list"), 4, nullptr, 0, 1, empty, 5, 1,
                          mut("w_*"), empty, empty, empty, empty, empty), KL_SUCCESS);
  ASSERT_EQ(count, 2u);
  EXPECT_STREQ(values[0], "name2");
  EXPECT_STREQ(values[1], "name1");
  kl_free_php_reply_pp(&values, 2);

  ASSERT_EQ(kl_sort_whole(c, nullptr, &count, nullptr, mut("list"), 4, nullptr, 0, 0, empty, 0, 0,
                          empty, empty, empty, empty, mut("alpha"), mut("sorted")), KL_SUCCESS);
  EXPECT_EQ(count, 3u);
  EXPECT_EQ(kl_exists(c, mut("sorted"), 6), KL_SUCCESS);
}
