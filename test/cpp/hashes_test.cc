// Hash commands against real servers.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "keyloom.h"
#include "support/reply_arrays.h"
#include "support/test_cluster.h"

using namespace keyloom::test;

namespace {

using Strings = std::vector<std::string>;

class Hashes : public ::testing::Test {
 protected:
  explicit Hashes(size_t servers = 1) : cluster(servers) {}
  kl_client *c() { return cluster.client(); }
  kl_return_t set(const std::string &key, const std::string &field, const std::string &value,
                  size_t ttl = 0) {
    return kl_hset(c(), mut(key), key.size(), mut(field), field.size(), mut(value), value.size(), ttl);
  }
  std::string get(const std::string &key, const std::string &field) {
    char *value = nullptr;
    size_t len = 0;
    kl_return_t r = kl_hget(c(), mut(key), key.size(), mut(field), field.size(), &value, &len);
    return r == KL_SUCCESS ? take_value(value, len) : failed(r);
  }
  TestCluster cluster;
};

class HashesOnTwoServers : public Hashes {
 protected:
  HashesOnTwoServers() : Hashes(2) {}
};

}  // namespace

TEST_F(Hashes, SetGetExistsDelete) {
  std::string binary("v\0w", 3);
  ASSERT_EQ(set("h", "f", binary), KL_SUCCESS);
  ASSERT_EQ(set("h", "f", "again"), KL_SUCCESS);
  EXPECT_EQ(get("h", "f"), "again");
  EXPECT_EQ(get("h", "nope"), "<not found>");
  char *value = nullptr;
  size_t len = 0;
  ASSERT_EQ(kl_hget_whole(c(), lit("h"), 1, lit("f"), 1, &value, &len, lit("h"), 1), KL_SUCCESS);
  EXPECT_EQ(take_value(value, len), "again");
  EXPECT_EQ(kl_hsetnx(c(), lit("h"), 1, lit("f"), 1, lit("x"), 1, 0), KL_ALREADY_EXISTS);
  EXPECT_EQ(kl_hsetnx(c(), lit("h"), 1, lit("g"), 1, binary.data(), 3, 0), KL_SUCCESS);
  EXPECT_EQ(get("h", "g"), binary);
  EXPECT_EQ(kl_hexists(c(), lit("h"), 1, lit("g"), 1), KL_SUCCESS);
  EXPECT_EQ(kl_hexists(c(), lit("h"), 1, lit("z"), 1), KL_NOTFOUND);
  int n = 0;
  ASSERT_EQ(kl_hlen(c(), lit("h"), 1, &n), KL_SUCCESS);
  EXPECT_EQ(n, 2);
  EXPECT_EQ(kl_hdel(c(), lit("h"), 1, lit("g"), 1), KL_SUCCESS);
  EXPECT_EQ(kl_hdel(c(), lit("h"), 1, lit("g"), 1), KL_NOTFOUND);
  ASSERT_EQ(kl_hincrby(c(), lit("h"), 1, lit("n"), 1, 5, &n, 0), KL_SUCCESS);
  ASSERT_EQ(kl_hincrby(c(), lit("h"), 1, lit("n"), 1, -7, &n, 0), KL_SUCCESS);
  EXPECT_EQ(n, -2);
  EXPECT_EQ(kl_hincrby(c(), lit("h"), 1, lit("f"), 1, 1, &n, 0), KL_SERVER_ERROR);  // not a number
}

TEST_F(Hashes, ManyFieldsAtOnce) {
  Strings fields = {"a", "b", "c"}, values = {"1", "", "3"};
  CArgs f(fields), v(values);
  ASSERT_EQ(kl_hmset(c(), lit("h"), 1, f.ptrs.data(), 3, f.lens.data(), v.ptrs.data(), v.lens.data(), 0),
            KL_SUCCESS);
  Strings ask = {"c", "missing", "a", "b"};
  CArgs q(ask);
  char **got = nullptr;
  size_t count = 0, *lens = nullptr;
  ASSERT_EQ(kl_hmget(c(), lit("h"), 1, q.ptrs.data(), 4, q.lens.data(), &got, &count, &lens), KL_SUCCESS);
  EXPECT_EQ(take_strings(got, count, lens), (Strings{"3", kNil, "1", ""}));
  ASSERT_EQ(kl_hmget_whole(c(), lit("none"), 4, q.ptrs.data(), 2, q.lens.data(), &got, &count, &lens,
                           nullptr, 0),
            KL_SUCCESS);
  EXPECT_EQ(take_strings(got, count, lens), (Strings{kNil, kNil}));

  char **names = nullptr, **vals = nullptr;
  size_t *name_lens = nullptr, *val_lens = nullptr;
  ASSERT_EQ(kl_hgetall(c(), lit("h"), 1, &count, &names, &name_lens, &vals, &val_lens), KL_SUCCESS);
  EXPECT_EQ(count, 3u);
  Strings pairs;
  Strings n = take_strings(names, count, name_lens), w = take_strings(vals, count, val_lens);
  for (size_t i = 0; i < n.size(); ++i) pairs.push_back(std::string(n[i]).append("=").append(w[i]));
  std::sort(pairs.begin(), pairs.end());
  EXPECT_EQ(pairs, (Strings{"a=1", "b=", "c=3"}));
  EXPECT_EQ(kl_hgetall(c(), lit("none"), 4, &count, &names, &name_lens, &vals, &val_lens), KL_NOTFOUND);
  EXPECT_EQ(count, 0u);

  int deleted = 0;
  ASSERT_EQ(kl_hmdel(c(), lit("h"), 1, q.ptrs.data(), 4, q.lens.data(), &deleted), KL_SUCCESS);
  EXPECT_EQ(deleted, 3);
  EXPECT_EQ(cluster.dbsize(0), 0);
}

TEST_F(Hashes, TtlIsSetWithTheWrite) {
  ASSERT_EQ(set("h", "f", "v", 100), KL_SUCCESS);
  EXPECT_GT(cluster.direct(0, {"TTL", "h"})->integer, 90);
  int n = 0;
  ASSERT_EQ(kl_hincrby(c(), lit("i"), 1, lit("f"), 1, 1, &n, 200), KL_SUCCESS);
  EXPECT_GT(cluster.direct(0, {"TTL", "i"})->integer, 190);
  ASSERT_EQ(kl_hsetnx(c(), lit("j"), 1, lit("f"), 1, lit("v"), 1, 300), KL_SUCCESS);
  EXPECT_GT(cluster.direct(0, {"TTL", "j"})->integer, 290);
  char *field = lit("f"), *value = lit("v");
  size_t one = 1;
  ASSERT_EQ(kl_hmset(c(), lit("k"), 1, &field, 1, &one, &value, &one, 400), KL_SUCCESS);
  EXPECT_GT(cluster.direct(0, {"TTL", "k"})->integer, 390);
}

TEST_F(Hashes, ManyFieldsWithTtlGoInSlices) {
  Strings fields, values;
  for (int i = 0; i < 2500; ++i) {
    fields.push_back(numbered("f", i));
    values.push_back(numbered("v", i));
  }
  CArgs f(fields), v(values);
  ASSERT_EQ(kl_hmset(c(), lit("big"), 3, f.ptrs.data(), fields.size(), f.lens.data(), v.ptrs.data(),
                     v.lens.data(), 60),
            KL_SUCCESS);
  int n = 0;
  ASSERT_EQ(kl_hlen(c(), lit("big"), 3, &n), KL_SUCCESS);
  EXPECT_EQ(n, 2500);
  EXPECT_EQ(get("big", "f2499"), "v2499");
  EXPECT_GT(cluster.direct(0, {"TTL", "big"})->integer, 50);
}

TEST_F(Hashes, WrongTypeIsServerError) {
  cluster.direct(0, {"SET", "str", "x"});
  char *value = nullptr, **values = nullptr, **names = nullptr;
  size_t count = 0, *lens = nullptr, *name_lens = nullptr;
  int n = 0;
  char *field = lit("f");
  size_t one = 1;
  EXPECT_EQ(set("str", "f", "v", 100), KL_SERVER_ERROR);
  EXPECT_EQ(cluster.direct(0, {"TTL", "str"})->integer, -1);
  EXPECT_EQ(get("str", "f"), failed(KL_SERVER_ERROR));
  EXPECT_EQ(kl_hsetnx(c(), lit("str"), 3, lit("f"), 1, lit("v"), 1, 0), KL_SERVER_ERROR);
  EXPECT_EQ(kl_hmset(c(), lit("str"), 3, &field, 1, &one, &field, &one, 0), KL_SERVER_ERROR);
  EXPECT_EQ(kl_hmget(c(), lit("str"), 3, &field, 1, &one, &values, &count, &lens), KL_SERVER_ERROR);
  EXPECT_EQ(kl_hincrby(c(), lit("str"), 3, lit("f"), 1, 1, &n, 0), KL_SERVER_ERROR);
  EXPECT_EQ(kl_hexists(c(), lit("str"), 3, lit("f"), 1), KL_SERVER_ERROR);
  EXPECT_EQ(kl_hdel(c(), lit("str"), 3, lit("f"), 1), KL_SERVER_ERROR);
  EXPECT_EQ(kl_hlen(c(), lit("str"), 3, &n), KL_SERVER_ERROR);
  EXPECT_EQ(kl_hgetall(c(), lit("str"), 3, &count, &names, &name_lens, &values, &lens), KL_SERVER_ERROR);
  char *keys[] = {lit("str")};
  size_t key_len = 3;
  EXPECT_EQ(kl_mhmget(c(), keys, 1, &key_len, &field, 1, &one, &values, &count, &lens), KL_SERVER_ERROR);
  EXPECT_EQ(value, nullptr);
}

TEST_F(Hashes, InvalidArgumentsSendNothing) {
  char *value = nullptr, **values = nullptr, **names = nullptr;
  size_t len = 0, count = 0, *lens = nullptr;
  int n = 0;
  char *field = lit("f");
  size_t one = 1;
  char *keys[] = {lit("k")};
  EXPECT_EQ(kl_hset(nullptr, lit("k"), 1, lit("f"), 1, lit("v"), 1, 0), KL_INVALID_CLIENT);
  EXPECT_EQ(kl_mhmget(nullptr, keys, 1, &one, &field, 1, &one, &values, &count, &lens), KL_INVALID_CLIENT);
  EXPECT_EQ(kl_hset(c(), nullptr, 1, lit("f"), 1, lit("v"), 1, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_hset(c(), lit("k"), 1, nullptr, 1, lit("v"), 1, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_hset(c(), lit("k"), 1, lit("f"), 1, nullptr, 1, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_hget(c(), lit("k"), 1, lit("f"), 1, nullptr, &len), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_hget_whole(c(), lit("k"), 1, nullptr, 1, &value, &len, nullptr, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_hsetnx(c(), nullptr, 1, lit("f"), 1, lit("v"), 1, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_hmset(c(), lit("k"), 1, &field, 0, &one, &field, &one, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_hmset(c(), lit("k"), 1, &field, 1, &one, nullptr, &one, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_hmget(c(), lit("k"), 1, nullptr, 1, &one, &values, &count, &lens), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_hmget(c(), lit("k"), 1, &field, 1, &one, nullptr, &count, &lens), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_hmget_whole(c(), lit("k"), 1, &field, 0, &one, &values, &count, &lens, nullptr, 0),
            KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_mhmget(c(), keys, 0, &one, &field, 1, &one, &values, &count, &lens), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_mhmget(c(), keys, 1, &one, nullptr, 1, &one, &values, &count, &lens), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_mhmget_whole(c(), keys, 1, &one, &field, 1, &one, nullptr, &count, &lens, nullptr, 0),
            KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_hincrby(c(), nullptr, 1, lit("f"), 1, 1, &n, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_hexists(c(), lit("k"), 1, nullptr, 1), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_hdel(c(), lit("k"), 1, nullptr, 1), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_hmdel(c(), lit("k"), 1, &field, 0, &one, &n), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_hlen(c(), lit("k"), 1, nullptr), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_hgetall(c(), lit("k"), 1, &count, nullptr, &lens, &values, &lens), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_hgetall(c(), lit("k"), 1, nullptr, &names, &lens, &values, &lens), KL_INVALID_PARAMETER);
  EXPECT_EQ(cluster.dbsize(0), 0);
}

TEST_F(HashesOnTwoServers, MultiKeyReadsKeepTheCallersOrder) {
  // Add keys until both servers hold some (placement depends on the ports).
  Strings keys;
  for (int i = 0; i < 64 && (i < 8 || cluster.dbsize(0) == 0 || cluster.dbsize(1) == 0); ++i) {
    keys.push_back(numbered("h", i));
    ASSERT_EQ(set(keys.back(), "a", numbered("a", i)), KL_SUCCESS);
    if (i % 2) {
      ASSERT_EQ(set(keys.back(), "b", numbered("b", i)), KL_SUCCESS);
    }
  }
  ASSERT_GT(cluster.dbsize(0), 0);
  ASSERT_GT(cluster.dbsize(1), 0);
  keys.push_back("missing");
  Strings fields = {"b", "a"};
  CArgs k(keys), f(fields);
  char **values = nullptr;
  size_t count = 0, *lens = nullptr;
  ASSERT_EQ(kl_mhmget(c(), k.ptrs.data(), keys.size(), k.lens.data(), f.ptrs.data(), 2, f.lens.data(),
                      &values, &count, &lens),
            KL_SUCCESS);
  Strings want;
  for (int i = 0; i + 1 < static_cast<int>(keys.size()); ++i) {
    want.push_back(i % 2 ? numbered("b", i) : kNil);
    want.push_back(numbered("a", i));
  }
  want.push_back(kNil);
  want.push_back(kNil);
  EXPECT_EQ(take_strings(values, count, lens), want);

  cluster.server(1).stop();
  EXPECT_EQ(kl_mhmget_whole(c(), k.ptrs.data(), keys.size(), k.lens.data(), f.ptrs.data(), 2,
                            f.lens.data(), &values, &count, &lens, nullptr, 0),
            KL_SERVER_DOWN);
  EXPECT_EQ(values, nullptr);
}
