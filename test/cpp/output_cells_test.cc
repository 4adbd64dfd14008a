// Every family follows one rule for output cells: each cell given is cleared
// before anything is sent, so a call that fails or finds nothing leaves no
// value of an earlier call behind.
#include <gtest/gtest.h>

#include <string>

#include "keyloom.h"
#include "support/test_cluster.h"

using keyloom::test::mut;
using keyloom::test::TestCluster;

namespace {

char stale_text[] = "stale";

TEST(OutputCells, StringsKeysAndAdministrationClearTheirCellsFirst) {
  TestCluster cluster(1);
  kl_client *c = cluster.client();

  char *value = stale_text;
  size_t len = 99;
  EXPECT_EQ(kl_get_whole(c, mut("missing"), 7, &value, &len, nullptr, 0), KL_NOTFOUND);
  EXPECT_EQ(value, nullptr);
  EXPECT_EQ(len, 0u);

  int ttl = 42;
  EXPECT_EQ(kl_get_ttl(c, mut("missing"), 7, &ttl), KL_NOTFOUND);
  EXPECT_EQ(ttl, 0);

  char *type = stale_text;
  ASSERT_EQ(kl_set(c, mut("s"), 1, mut("v"), 1, 0), KL_SUCCESS);
  int counter = 42;
  EXPECT_EQ(kl_incr(c, mut("s"), 1, &counter, 0), KL_SERVER_ERROR);  // not a number
  EXPECT_EQ(counter, 0);

  int deleted = 42;
  EXPECT_EQ(kl_mdel(c, nullptr, 0, nullptr, &deleted), KL_INVALID_PARAMETER);
  EXPECT_EQ(deleted, 0);

  kl_client *empty = kl_client_create(KL_HASH_DEFAULT, KL_DISTRIBUTION_MODULA, nullptr, KL_FLAG_NONE);
  EXPECT_EQ(kl_type(empty, mut("s"), 1, &type), KL_NO_SERVER_ATTACHED);
  EXPECT_EQ(type, nullptr);
  unsigned int size = 42;
  EXPECT_NE(kl_dbsize(empty, &size, nullptr, nullptr), KL_SUCCESS);
  EXPECT_EQ(size, 0u);
  kl_client_destroy(empty);

  EXPECT_EQ(kl_type(c, mut("s"), 1, &type), KL_SUCCESS);
  EXPECT_EQ(std::string(type), "string");
  kl_free_php_reply_p(&type);
}

}  // namespace

namespace {

// The collection families refuse exactly the TTLs the server would refuse.
TEST(CollectionTtls, AreRefusedOnlyWhereTheServerWouldRefuseThem) {
  TestCluster cluster(1);
  kl_client *c = cluster.client();
  EXPECT_EQ(kl_lpush(c, mut("l"), 1, mut("v"), 1, 5'000'000'000'000'000ULL), KL_SUCCESS);
  char *ttl = nullptr;
  size_t ttl_len = 0;
  ASSERT_EQ(kl_get_ttl_decimal(c, mut("l"), 1, &ttl, &ttl_len), KL_SUCCESS);
  EXPECT_GT(std::stoll(std::string(ttl, ttl_len)), 4'000'000'000'000'000LL);
  kl_free_php_reply_p(&ttl);
  int narrow = 0;
  EXPECT_EQ(kl_get_ttl(c, mut("l"), 1, &narrow), KL_WRONG_REPLY);  // no int holds it
  EXPECT_EQ(kl_lpush(c, mut("l"), 1, mut("v"), 1, 10'000'000'000'000'000ULL), KL_INVALID_PARAMETER);
}

}  // namespace
