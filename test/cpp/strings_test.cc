// String and key commands against a real server.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "keyloom.h"
#include "support/test_cluster.h"

using keyloom::test::mut;
using keyloom::test::TestCluster;

namespace {

class Strings : public ::testing::TestWithParam<size_t> {
 protected:
  Strings() : cluster(GetParam()) {}
  kl_client *c() { return cluster.client(); }
  std::string get(const std::string &key) {
    char *value = nullptr;
    size_t len = 0;
    kl_return_t r = kl_get_whole(c(), mut(key), key.size(), &value, &len, nullptr, 0);
    if (r != KL_SUCCESS) return std::string("<") + std::string(kl_strerror(r)) + ">";
    std::string out(value, len);
    kl_free_php_reply_p(&value);
    return out;
  }
  int ttl(const std::string &key) {
    int t = -99;
    kl_get_ttl(c(), mut(key), key.size(), &t);
    return t;
  }
  TestCluster cluster;
};

}  // namespace

TEST_P(Strings, SetGetBinarySafe) {
  std::string value("a\0b\r\n", 5);
  ASSERT_EQ(kl_set(c(), mut("bin"), 3, value.data(), value.size(), 0), KL_SUCCESS);
  EXPECT_EQ(get("bin"), value);
  EXPECT_EQ(get("missing"), "<not found>");
  ASSERT_EQ(kl_set(c(), mut("empty"), 5, nullptr, 0, 0), KL_SUCCESS);
  EXPECT_EQ(get("empty"), "");
}

TEST_P(Strings, LargeValuesComeBackWholeAndTerminated) {
  // Larger than the reader's first buffers, with bytes of every value.
  std::string value(3 * 1024 * 1024 + 7, '\0');
  for (size_t i = 0; i < value.size(); ++i) value[i] = static_cast<char>(i * 131 + i / 7);
  ASSERT_EQ(kl_set(c(), mut("large"), 5, value.data(), value.size(), 0), KL_SUCCESS);
  char *got = nullptr;
  size_t len = 0;
  ASSERT_EQ(kl_get_whole(c(), mut("large"), 5, &got, &len, nullptr, 0), KL_SUCCESS);
  ASSERT_EQ(len, value.size());
  EXPECT_EQ(got[len], '\0');
  EXPECT_EQ(std::string(got, len), value);
  kl_free_php_reply_p(&got);

  std::string next(value.rbegin(), value.rend());
  ASSERT_EQ(kl_getset_whole(c(), mut("large"), 5, next.data(), next.size(), &got, &len, nullptr, 0),
            KL_SUCCESS);
  ASSERT_EQ(len, value.size());
  EXPECT_EQ(got[len], '\0');
  EXPECT_EQ(std::string(got, len), value);
  kl_free_php_reply_p(&got);
  EXPECT_EQ(get("large"), next);
}

TEST_P(Strings, InvalidParametersSendNothing) {
  char *value = nullptr;
  size_t len = 0;
  EXPECT_EQ(kl_set(c(), nullptr, 1, mut("v"), 1, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_get_whole(c(), mut("k"), 1, nullptr, &len, nullptr, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_get_whole(c(), nullptr, 1, &value, &len, nullptr, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_mget_whole(c(), nullptr, 1, &len, nullptr, nullptr, nullptr, nullptr, 0, 1), KL_INVALID_PARAMETER);
  char *keys[] = {mut("a")};
  size_t lens[] = {1};
  char **values = nullptr;
  EXPECT_EQ(kl_mget_whole(c(), keys, 0, lens, &values, &len, nullptr, nullptr, 0, 1), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_mset(c(), nullptr, 1, lens, nullptr, lens), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_type(c(), mut("k"), 1, nullptr), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_get_ttl(c(), mut("k"), 1, nullptr), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_mdel(c(), keys, 1, nullptr, nullptr), KL_INVALID_PARAMETER);
  for (size_t i = 0; i < cluster.size(); ++i) EXPECT_EQ(cluster.dbsize(i), 0);
}

TEST_P(Strings, SetWithTtl) {
  ASSERT_EQ(kl_set(c(), mut("t"), 1, mut("v"), 1, 100), KL_SUCCESS);
  EXPECT_GT(ttl("t"), 90);
  ASSERT_EQ(kl_set(c(), mut("t"), 1, mut("v"), 1, 0), KL_SUCCESS);
  EXPECT_EQ(ttl("t"), -1);
}

TEST_P(Strings, SetBinaryTakesTheBuffer) {
  char *buffer = new char[4]{'x', 'y', 'z', 0};
  ASSERT_EQ(kl_set_binary(c(), mut("sb"), 2, buffer, 3, 0), KL_SUCCESS);
  EXPECT_EQ(get("sb"), "xyz");
  char *lost = new char[2]{'q', 0};
  EXPECT_EQ(kl_set_binary(c(), nullptr, 0, lost, 1, 0), KL_INVALID_PARAMETER);  // freed anyway
}

TEST_P(Strings, ConditionalSets) {
  EXPECT_EQ(kl_setifx(c(), mut("c"), 1, mut("1"), 1, 0), KL_NOTFOUND);
  EXPECT_EQ(kl_setnx(c(), mut("c"), 1, mut("1"), 1, 50), KL_SUCCESS);
  EXPECT_EQ(kl_setnx(c(), mut("c"), 1, mut("2"), 1, 0), KL_ALREADY_EXISTS);
  EXPECT_EQ(get("c"), "1");
  EXPECT_GT(ttl("c"), 0);
  EXPECT_EQ(kl_setifx(c(), mut("c"), 1, mut("3"), 1, 0), KL_SUCCESS);
  EXPECT_EQ(get("c"), "3");
}

TEST_P(Strings, AppendWithTtl) {
  ASSERT_EQ(kl_append(c(), mut("ap"), 2, mut("ab"), 2, 0), KL_SUCCESS);
  ASSERT_EQ(kl_append(c(), mut("ap"), 2, mut("cd"), 2, 60), KL_SUCCESS);
  EXPECT_EQ(get("ap"), "abcd");
  EXPECT_GT(ttl("ap"), 0);

  // A refused APPEND (the key holds a list) sets no TTL on it.
  ASSERT_EQ(kl_lpush(c(), mut("list"), 4, mut("x"), 1, 0), KL_SUCCESS);
  EXPECT_EQ(kl_append(c(), mut("list"), 4, mut("cd"), 2, 60), KL_SERVER_ERROR);
  EXPECT_EQ(ttl("list"), -1);
}

TEST_P(Strings, GetSet) {
  char *old = mut("sentinel");
  size_t old_len = 7;
  ASSERT_EQ(kl_getset_whole(c(), mut("gs"), 2, mut("one"), 3, &old, &old_len, nullptr, 0), KL_SUCCESS);
  EXPECT_EQ(old, nullptr);
  ASSERT_EQ(kl_getset_whole(c(), mut("gs"), 2, mut("two"), 3, &old, &old_len, nullptr, 0), KL_SUCCESS);
  EXPECT_EQ(std::string(old, old_len), "one");
  kl_free_php_reply_p(&old);
  EXPECT_EQ(get("gs"), "two");
}

TEST_P(Strings, MsetAndMgetKeepTheCallersOrder) {
  const size_t n = 40;
  std::vector<std::string> keys, values;
  std::vector<const char *> key_ptrs;
  std::vector<char *> value_ptrs;
  std::vector<size_t> key_lens, value_lens;
  for (size_t i = 0; i < n; ++i) {
    keys.push_back(std::string("mk") + std::to_string(i));
    values.push_back(std::string("value-") + std::to_string(i * 7));
  }
  for (size_t i = 0; i < n; ++i) {
    key_ptrs.push_back(keys[i].c_str());
    value_ptrs.push_back(mut(values[i]));
    key_lens.push_back(keys[i].size());
    value_lens.push_back(values[i].size());
  }
  ASSERT_EQ(kl_mset(c(), key_ptrs.data(), n, key_lens.data(), value_ptrs.data(), value_lens.data()), KL_SUCCESS);

  // Every other key missing in the read.
  std::vector<char *> read_keys;
  std::vector<size_t> read_lens;
  std::vector<std::string> missing;
  for (size_t i = 0; i < n; ++i) missing.push_back(std::string("absent") + std::to_string(i));
  for (size_t i = 0; i < n; ++i) {
    bool present = i % 2 == 0;
    read_keys.push_back(mut(present ? keys[i] : missing[i]));
    read_lens.push_back(present ? keys[i].size() : missing[i].size());
  }
  char **got = nullptr;
  size_t count = 0, *lens = nullptr;
  ASSERT_EQ(kl_mget_whole(c(), read_keys.data(), n, read_lens.data(), &got, &count, &lens, nullptr, 0, KL_NULL_ON_FAIL), KL_SUCCESS);
  ASSERT_EQ(count, n);
  for (size_t i = 0; i < n; ++i) {
    if (i % 2 == 0) {
      ASSERT_NE(got[i], nullptr);
      EXPECT_EQ(std::string(got[i], lens[i]), values[i]);
    } else {
      EXPECT_EQ(got[i], nullptr);
      EXPECT_EQ(lens[i], SIZE_MAX);
    }
  }
  kl_free_php_reply_pp(&got, static_cast<unsigned>(count));
  kl_free_php_reply_p(reinterpret_cast<char **>(&lens));
}

TEST_P(Strings, RoutingStringKeepsKeysTogether) {
  char route[] = "user:42";
  std::string a = "routed-a", b = "routed-b";
  ASSERT_EQ(kl_getset_whole(c(), mut(a), a.size(), mut("A"), 1, nullptr, nullptr, route, 7), KL_INVALID_PARAMETER);
  char *old = nullptr;
  size_t old_len = 0;
  ASSERT_EQ(kl_getset_whole(c(), mut(a), a.size(), mut("A"), 1, &old, &old_len, route, 7), KL_SUCCESS);
  ASSERT_EQ(kl_getset_whole(c(), mut(b), b.size(), mut("B"), 1, &old, &old_len, route, 7), KL_SUCCESS);
  // One MGET on the route's server finds both.
  char *keys[] = {mut(a), mut(b)};
  size_t key_lens[] = {a.size(), b.size()};
  char **got = nullptr;
  size_t count = 0;
  ASSERT_EQ(kl_mget_whole(c(), keys, 2, key_lens, &got, &count, nullptr, route, 7, KL_NULL_ON_FAIL), KL_SUCCESS);
  ASSERT_EQ(count, 2u);
  EXPECT_STREQ(got[0], "A");
  EXPECT_STREQ(got[1], "B");
  kl_free_php_reply_pp(&got, 2);
  size_t holding = 0;
  for (size_t i = 0; i < cluster.size(); ++i) holding += cluster.dbsize(i) == 2;
  EXPECT_EQ(holding, 1u);
}

TEST_P(Strings, MsetexSetsEachTtl) {
  const char *keys[] = {"ex1", "ex2"};
  size_t key_lens[] = {3, 3};
  const char *values[] = {"1", "2"};
  size_t value_lens[] = {1, 1};
  size_t ttls[] = {0, 300};
  ASSERT_EQ(kl_msetex(c(), keys, 2, key_lens, values, value_lens, ttls), KL_SUCCESS);
  EXPECT_EQ(ttl("ex1"), -1);
  EXPECT_GT(ttl("ex2"), 200);
  EXPECT_EQ(kl_msetex(c(), keys, 2, key_lens, values, value_lens, nullptr), KL_INVALID_PARAMETER);
}

TEST_P(Strings, CountersTtlOnlyWhenCreated) {
  int v = 0;
  ASSERT_EQ(kl_incr(c(), mut("n"), 1, &v, 100), KL_SUCCESS);
  EXPECT_EQ(v, 1);
  EXPECT_GT(ttl("n"), 90);
  ASSERT_EQ(kl_set_ttl(c(), mut("n"), 1, 1000), KL_SUCCESS);
  ASSERT_EQ(kl_incrby(c(), mut("n"), 1, 10, &v, 5), KL_SUCCESS);
  EXPECT_EQ(v, 11);
  EXPECT_GT(ttl("n"), 900);  // an existing counter keeps its TTL
  ASSERT_EQ(kl_decr(c(), mut("n"), 1, &v, 0), KL_SUCCESS);
  EXPECT_EQ(v, 10);
  ASSERT_EQ(kl_decrby(c(), mut("n"), 1, 4, &v, 0), KL_SUCCESS);
  EXPECT_EQ(v, 6);
  ASSERT_EQ(kl_decrby(c(), mut("fresh"), 5, 3, &v, 0), KL_SUCCESS);
  EXPECT_EQ(v, -3);
  EXPECT_EQ(ttl("fresh"), -1);
  ASSERT_EQ(kl_set(c(), mut("text"), 4, mut("abc"), 3, 0), KL_SUCCESS);
  EXPECT_EQ(kl_incr(c(), mut("text"), 4, &v, 0), KL_SERVER_ERROR);
}

TEST_P(Strings, ScriptSurvivesAFlushedScriptCache) {
  int v = 0;
  ASSERT_EQ(kl_incr(c(), mut("sc"), 2, &v, 100), KL_SUCCESS);
  for (size_t i = 0; i < cluster.size(); ++i) cluster.direct(i, {"SCRIPT", "FLUSH"});
  ASSERT_EQ(kl_del(c(), mut("sc"), 2), KL_SUCCESS);
  ASSERT_EQ(kl_incr(c(), mut("sc"), 2, &v, 100), KL_SUCCESS);  // NOSCRIPT, then EVAL
  EXPECT_EQ(v, 1);
  EXPECT_GT(ttl("sc"), 0);
}

TEST_P(Strings, ExistsDelMdel) {
  EXPECT_EQ(kl_exists(c(), mut("e"), 1), KL_NOTFOUND);
  EXPECT_EQ(kl_del(c(), mut("e"), 1), KL_NOTFOUND);
  ASSERT_EQ(kl_set(c(), mut("e"), 1, mut("1"), 1, 0), KL_SUCCESS);
  EXPECT_EQ(kl_exists(c(), mut("e"), 1), KL_SUCCESS);
  EXPECT_EQ(kl_del(c(), mut("e"), 1), KL_SUCCESS);
  std::vector<std::string> names;
  for (int i = 0; i < 10; ++i) names.push_back(std::string("del") + std::to_string(i));
  for (int i = 0; i < 6; ++i) ASSERT_EQ(kl_set(c(), mut(names[i]), names[i].size(), mut("x"), 1, 0), KL_SUCCESS);
  std::vector<char *> keys;
  std::vector<size_t> lens;
  for (auto &n : names) {
    keys.push_back(mut(n));
    lens.push_back(n.size());
  }
  int deleted = -1;
  ASSERT_EQ(kl_mdel(c(), keys.data(), keys.size(), lens.data(), &deleted), KL_SUCCESS);
  EXPECT_EQ(deleted, 6);
  for (size_t i = 0; i < cluster.size(); ++i) EXPECT_EQ(cluster.dbsize(i), 0);
}

TEST_P(Strings, Type) {
  char *type = nullptr;
  ASSERT_EQ(kl_type(c(), mut("none"), 4, &type), KL_SUCCESS);
  EXPECT_STREQ(type, "none");
  kl_free_php_reply_p(&type);
  ASSERT_EQ(kl_set(c(), mut("s"), 1, mut("x"), 1, 0), KL_SUCCESS);
  ASSERT_EQ(kl_type(c(), mut("s"), 1, &type), KL_SUCCESS);
  EXPECT_STREQ(type, "string");
  kl_free_php_reply_p(&type);
}

TEST_P(Strings, RenameKeepsValueAndTtl) {
  // Many pairs, so that over several servers some cross servers.
  for (int i = 0; i < 12; ++i) {
    std::string from = std::string("from") + std::to_string(i), to = std::string("to") + std::to_string(i);
    ASSERT_EQ(kl_set(c(), mut(from), from.size(), mut("val"), 3, 500), KL_SUCCESS);
    ASSERT_EQ(kl_rename(c(), mut(from), from.size(), mut(to), to.size()), KL_SUCCESS) << i;
    EXPECT_EQ(get(to), "val");
    EXPECT_GT(ttl(to), 400);
    EXPECT_EQ(kl_exists(c(), mut(from), from.size()), KL_NOTFOUND);
  }
  EXPECT_EQ(kl_rename(c(), mut("nokey"), 5, mut("other"), 5), KL_NOTFOUND);
}

TEST_P(Strings, RenameNx) {
  for (int i = 0; i < 8; ++i) {
    std::string a = std::string("nxa") + std::to_string(i), b = std::string("nxb") + std::to_string(i);
    ASSERT_EQ(kl_set(c(), mut(a), a.size(), mut("a"), 1, 0), KL_SUCCESS);
    ASSERT_EQ(kl_set(c(), mut(b), b.size(), mut("b"), 1, 0), KL_SUCCESS);
    EXPECT_EQ(kl_renamenx(c(), mut(a), a.size(), mut(b), b.size()), KL_ALREADY_EXISTS) << i;
    EXPECT_EQ(get(b), "b");
    ASSERT_EQ(kl_del(c(), mut(b), b.size()), KL_SUCCESS);
    EXPECT_EQ(kl_renamenx(c(), mut(a), a.size(), mut(b), b.size()), KL_SUCCESS);
    EXPECT_EQ(get(b), "a");
  }
}

TEST_P(Strings, Ttls) {
  EXPECT_EQ(kl_set_ttl(c(), mut("tt"), 2, 10), KL_NOTFOUND);
  EXPECT_EQ(kl_set_ttl(c(), mut("tt"), 2, 0), KL_NOTFOUND);
  int t = 0;
  EXPECT_EQ(kl_get_ttl(c(), mut("tt"), 2, &t), KL_NOTFOUND);
  ASSERT_EQ(kl_set(c(), mut("tt"), 2, mut("x"), 1, 0), KL_SUCCESS);
  EXPECT_EQ(kl_set_ttl(c(), mut("tt"), 2, 0), KL_SUCCESS);  // no TTL to remove is fine
  EXPECT_EQ(ttl("tt"), -1);
  ASSERT_EQ(kl_set_ttl(c(), mut("tt"), 2, 77), KL_SUCCESS);
  EXPECT_GT(ttl("tt"), 70);
  ASSERT_EQ(kl_set_ttl(c(), mut("tt"), 2, 0), KL_SUCCESS);
  EXPECT_EQ(ttl("tt"), -1);
}

TEST_P(Strings, MoveToAnotherDatabase) {
  EXPECT_EQ(kl_move(c(), mut("mv"), 2, 1), KL_NOTFOUND);
  ASSERT_EQ(kl_set(c(), mut("mv"), 2, mut("x"), 1, 0), KL_SUCCESS);
  ASSERT_EQ(kl_move(c(), mut("mv"), 2, 1), KL_SUCCESS);
  EXPECT_EQ(kl_exists(c(), mut("mv"), 2), KL_NOTFOUND);
  ASSERT_EQ(kl_set(c(), mut("mv"), 2, mut("y"), 1, 0), KL_SUCCESS);
  EXPECT_EQ(kl_move(c(), mut("mv"), 2, 1), KL_ALREADY_EXISTS);
  ASSERT_EQ(kl_select(c(), 1, nullptr), KL_SUCCESS);
  EXPECT_EQ(get("mv"), "x");
  EXPECT_EQ(kl_move(c(), mut("mv"), 2, -1), KL_INVALID_PARAMETER);
}

TEST_P(Strings, RandomKey) {
  char *key = nullptr;
  size_t len = 0;
  EXPECT_EQ(kl_randomkey(c(), &key, &len), KL_NOTFOUND);
  ASSERT_EQ(kl_set(c(), mut("only"), 4, mut("x"), 1, 0), KL_SUCCESS);
  ASSERT_EQ(kl_randomkey(c(), &key, &len), KL_SUCCESS);
  EXPECT_EQ(std::string(key, len), "only");
  kl_free_php_reply_p(&key);
}

INSTANTIATE_TEST_SUITE_P(OneAndFourServers, Strings, ::testing::Values(1, 4));
