// Counters and TTLs past 32 bits: the decimal forms carry the server's 64-bit
// values exactly (a counter near 2^63 with a TTL included), and the int forms
// refuse a value their cell cannot hold instead of cutting it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "keyloom.h"
#include "support/test_cluster.h"

using keyloom::test::mut;
using keyloom::test::TestCluster;

namespace {

// kl_incrby_decimal's answer as a string (empty on failure).
std::string incr(kl_client *c, const std::string &key, const std::string &by, size_t ttl, kl_return_t *code) {
  char *value = nullptr;
  size_t len = 0;
  *code = kl_incrby_decimal(c, mut(key), key.size(), by.c_str(), by.size(), &value, &len, ttl);
  std::string out = value ? std::string(value, len) : std::string();
  kl_free_php_reply_p(&value);
  return out;
}

TEST(WideNumbers, CountersPast32BitsAreCarriedExactly) {
  TestCluster cluster(1);
  kl_client *c = cluster.client();
  kl_return_t r;
  EXPECT_EQ(incr(c, "n", "4294967295", 0, &r), "4294967295");
  EXPECT_EQ(r, KL_SUCCESS);
  EXPECT_EQ(incr(c, "n", "-4294967296", 0, &r), "-1");
  // Created with a TTL through the server-side script: no floating point on the way.
  EXPECT_EQ(incr(c, "big", "9223372036854775000", 100, &r), "9223372036854775000");
  EXPECT_EQ(incr(c, "big", "7", 100, &r), "9223372036854775007");
  int ttl = 0;
  EXPECT_EQ(kl_get_ttl(c, mut("big"), 3, &ttl), KL_SUCCESS);
  EXPECT_GT(ttl, 0);
  EXPECT_EQ(incr(c, "big", "800", 0, &r), "9223372036854775807");
  // Past the top: the server's own refusal.
  EXPECT_EQ(incr(c, "big", "1", 0, &r), "");
  EXPECT_EQ(r, KL_SERVER_ERROR);
}

TEST(WideNumbers, AnIncrementThatIsNoWholeNumberIsRefusedBeforeAnythingIsSent) {
  TestCluster cluster(1);
  kl_client *c = cluster.client();
  kl_return_t r;
  for (const char *by : {"", "abc", "1.5", "9223372036854775808", "+1", " 1", "1 "}) {
    EXPECT_EQ(incr(c, "n", by, 0, &r), "") << by;
    EXPECT_EQ(r, KL_INVALID_PARAMETER) << by;
  }
  EXPECT_EQ(cluster.dbsize(0), 0);
}

TEST(WideNumbers, TheIntFormsRefuseWhatTheirCellCannotHold) {
  TestCluster cluster(1);
  kl_client *c = cluster.client();
  ASSERT_EQ(kl_set(c, mut("n"), 1, mut("2147483647"), 10, 0), KL_SUCCESS);
  int value = 12345;
  EXPECT_EQ(kl_incr(c, mut("n"), 1, &value, 0), KL_WRONG_REPLY);
  EXPECT_EQ(value, 0);  // cleared, never a cut value
  auto stored = cluster.direct(0, {"GET", "n"});
  EXPECT_EQ(std::string(stored->str, stored->len), "2147483648");
  // Through the TTL script too.
  ASSERT_EQ(kl_set(c, mut("m"), 1, mut("2147483647"), 10, 0), KL_SUCCESS);
  EXPECT_EQ(kl_incr(c, mut("m"), 1, &value, 50), KL_WRONG_REPLY);
}

TEST(WideNumbers, HashCountersAndTtlsPast32Bits) {
  TestCluster cluster(1);
  kl_client *c = cluster.client();
  char *value = nullptr;
  size_t len = 0;
  EXPECT_EQ(kl_hincrby_decimal(c, mut("h"), 1, mut("f"), 1, "8589934592", 10, &value, &len, 0), KL_SUCCESS);
  EXPECT_EQ(std::string(value, len), "8589934592");
  kl_free_php_reply_p(&value);
  EXPECT_EQ(kl_hincrby_decimal(c, mut("h"), 1, mut("f"), 1, "x", 1, &value, &len, 0), KL_INVALID_PARAMETER);

  ASSERT_EQ(kl_set(c, mut("long"), 4, mut("v"), 1, 0), KL_SUCCESS);
  cluster.direct(0, {"EXPIRE", "long", "3000000000"});
  EXPECT_EQ(kl_get_ttl_decimal(c, mut("long"), 4, &value, &len), KL_SUCCESS);
  EXPECT_GE(std::atoll(value), 2999999000LL);
  kl_free_php_reply_p(&value);
  int ttl = 0;
  EXPECT_EQ(kl_get_ttl(c, mut("long"), 4, &ttl), KL_WRONG_REPLY);
  EXPECT_EQ(kl_get_ttl_decimal(c, mut("missing"), 7, &value, &len), KL_NOTFOUND);
  EXPECT_EQ(value, nullptr);
}

}  // namespace
