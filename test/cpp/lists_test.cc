// List commands against a real server.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "keyloom.h"
#include "support/reply_arrays.h"
#include "support/test_cluster.h"

using namespace keyloom::test;

namespace {

class Lists : public ::testing::Test {
 protected:
  kl_client *c() { return cluster.client(); }
  std::vector<std::string> range(const std::string &key, int start = 0, int stop = -1) {
    char **values = nullptr;
    size_t count = 0, *lens = nullptr;
    kl_return_t r = kl_lrange_whole(c(), mut(key), key.size(), start, stop, &values, &count, &lens,
                                    nullptr, 0);
    if (r != KL_SUCCESS) return {kl_strerror(r)};
    return take_strings(values, count, lens);
  }
  void push(const std::vector<std::string> &items, const std::string &key = "list") {
    for (const auto &v : items)
      ASSERT_EQ(kl_rpush(c(), mut(key), key.size(), mut(v), v.size(), 0), KL_SUCCESS);
  }
  TestCluster cluster;
};

std::vector<std::string> strs(std::initializer_list<const char *> items) {
  return {items.begin(), items.end()};
}

}  // namespace

TEST_F(Lists, PushesKeepOrderAndBytes) {
  std::string binary("x\0y", 3);
  push({"b", binary});
  ASSERT_EQ(kl_lpush(c(), lit("list"), 4, lit("a"), 1, 0), KL_SUCCESS);
  EXPECT_EQ(range("list"), (std::vector<std::string>{"a", "b", binary}));
  unsigned len = 0;
  ASSERT_EQ(kl_llen(c(), lit("list"), 4, &len), KL_SUCCESS);
  EXPECT_EQ(len, 3u);
  ASSERT_EQ(kl_rpush(c(), lit("list"), 4, nullptr, 0, 0), KL_SUCCESS);
  EXPECT_EQ(range("list", -1), strs({""}));
}

TEST_F(Lists, MissingListIsNotFoundOrEmpty) {
  EXPECT_EQ(range("nothing"), strs({kl_strerror(KL_NOTFOUND)}));
  unsigned len = 7;
  ASSERT_EQ(kl_llen(c(), lit("nothing"), 7, &len), KL_SUCCESS);
  EXPECT_EQ(len, 0u);
  char *value = nullptr;
  size_t vlen = 0;
  EXPECT_EQ(kl_lpop_whole(c(), lit("nothing"), 7, &value, &vlen, nullptr, 0), KL_NOTFOUND);
  EXPECT_EQ(kl_rpop_whole(c(), lit("nothing"), 7, &value, &vlen, nullptr, 0), KL_NOTFOUND);
  EXPECT_EQ(value, nullptr);
}

TEST_F(Lists, IndexSetTrimRemovePop) {
  push({"a", "b", "a", "c", "a"});
  char *value = nullptr;
  size_t len = 0;
  ASSERT_EQ(kl_lindex_whole(c(), lit("list"), 4, -2, &value, &len, nullptr, 0), KL_SUCCESS);
  EXPECT_EQ(take_value(value, len), "c");
  EXPECT_EQ(kl_lindex_whole(c(), lit("list"), 4, 9, &value, &len, nullptr, 0), KL_NOTFOUND);

  ASSERT_EQ(kl_lset(c(), lit("list"), 4, 1, lit("B"), 1, 0), KL_SUCCESS);
  EXPECT_EQ(kl_lset(c(), lit("list"), 4, 10, lit("B"), 1, 0), KL_NOTFOUND);
  EXPECT_EQ(kl_lset(c(), lit("nolist"), 6, 0, lit("B"), 1, 0), KL_NOTFOUND);

  unsigned removed = 0;
  ASSERT_EQ(kl_lrem(c(), lit("list"), 4, 2, lit("a"), 1, &removed), KL_SUCCESS);
  EXPECT_EQ(removed, 2u);
  EXPECT_EQ(range("list"), strs({"B", "c", "a"}));

  ASSERT_EQ(kl_ltrim(c(), lit("list"), 4, 0, 1), KL_SUCCESS);
  EXPECT_EQ(range("list"), strs({"B", "c"}));

  ASSERT_EQ(kl_lpop_whole(c(), lit("list"), 4, &value, &len, nullptr, 0), KL_SUCCESS);
  EXPECT_EQ(take_value(value, len), "B");
  ASSERT_EQ(kl_rpop_whole(c(), lit("list"), 4, &value, &len, lit("list"), 4), KL_SUCCESS);
  EXPECT_EQ(take_value(value, len), "c");
  EXPECT_EQ(cluster.dbsize(0), 0);
}

TEST_F(Lists, TtlIsSetWithThePushAndNotOnARefusedWrite) {
  ASSERT_EQ(kl_rpush(c(), lit("ttl"), 3, lit("v"), 1, 100), KL_SUCCESS);
  EXPECT_GT(cluster.direct(0, {"TTL", "ttl"})->integer, 90);
  ASSERT_EQ(kl_lset(c(), lit("ttl"), 3, 0, lit("w"), 1, 500), KL_SUCCESS);
  EXPECT_GT(cluster.direct(0, {"TTL", "ttl"})->integer, 400);

  cluster.direct(0, {"SET", "str", "x"});
  EXPECT_EQ(kl_lpush(c(), lit("str"), 3, lit("v"), 1, 100), KL_SERVER_ERROR);
  EXPECT_EQ(cluster.direct(0, {"TTL", "str"})->integer, -1);
}

TEST_F(Lists, WrongTypeIsServerError) {
  cluster.direct(0, {"SET", "str", "x"});
  char *value = nullptr;
  size_t len = 0;
  unsigned n = 0;
  EXPECT_EQ(kl_rpush(c(), lit("str"), 3, lit("v"), 1, 0), KL_SERVER_ERROR);
  EXPECT_EQ(kl_llen(c(), lit("str"), 3, &n), KL_SERVER_ERROR);
  EXPECT_EQ(range("str"), strs({kl_strerror(KL_SERVER_ERROR)}));
  EXPECT_EQ(kl_lindex_whole(c(), lit("str"), 3, 0, &value, &len, nullptr, 0), KL_SERVER_ERROR);
  EXPECT_EQ(kl_lpop_whole(c(), lit("str"), 3, &value, &len, nullptr, 0), KL_SERVER_ERROR);
  EXPECT_EQ(kl_ltrim(c(), lit("str"), 3, 0, 1), KL_SERVER_ERROR);
  EXPECT_EQ(kl_lrem(c(), lit("str"), 3, 0, lit("x"), 1, &n), KL_SERVER_ERROR);
}

TEST_F(Lists, InvalidArgumentsSendNothing) {
  char *value = nullptr;
  char **values = nullptr;
  size_t len = 0, *lens = nullptr;
  unsigned n = 0;
  EXPECT_EQ(kl_rpush(nullptr, lit("k"), 1, lit("v"), 1, 0), KL_INVALID_CLIENT);
  EXPECT_EQ(kl_lpop_whole(nullptr, lit("k"), 1, &value, &len, nullptr, 0), KL_INVALID_CLIENT);
  EXPECT_EQ(kl_rpush(c(), nullptr, 1, lit("v"), 1, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_lpush(c(), lit("k"), 1, nullptr, 1, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_llen(c(), lit("k"), 1, nullptr), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_lrange_whole(c(), lit("k"), 1, 0, -1, nullptr, &len, &lens, nullptr, 0),
            KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_lrange_whole(c(), lit("k"), 1, 0, -1, &values, nullptr, &lens, nullptr, 0),
            KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_lindex_whole(c(), lit("k"), 1, 0, nullptr, &len, nullptr, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_lset(c(), nullptr, 1, 0, lit("v"), 1, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_lrem(c(), lit("k"), 1, 0, nullptr, 3, &n), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_ltrim(c(), nullptr, 1, 0, 1), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_rpop_whole(c(), lit("k"), 1, nullptr, &len, nullptr, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_rpush(c(), lit("k"), 1, lit("v"), 1, SIZE_MAX), KL_INVALID_PARAMETER);
  EXPECT_EQ(cluster.dbsize(0), 0);
}
