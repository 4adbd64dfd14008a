// Why the last call failed: the first failure it met, with its server, kept
// until the next call starts.
#include <gtest/gtest.h>

#include <string>

#include "keyloom.h"
#include "support/test_cluster.h"

using keyloom::test::mut;
using keyloom::test::TestCluster;

namespace {

TEST(Failures, ARefusedConnectionNamesTheServerAndTheCause) {
  kl_client *c = kl_client_create(KL_HASH_DEFAULT, KL_DISTRIBUTION_MODULA, nullptr, KL_FLAG_NONE);
  kl_client_connection_timeout(c, 500);
  kl_server_add(c, mut("127.0.0.1"), 1, nullptr);
  EXPECT_EQ(kl_last_failure_kind(c), KL_FAILURE_NONE);
  EXPECT_EQ(kl_last_failure_text(c), nullptr);
  EXPECT_EQ(kl_set(c, mut("k"), 1, mut("v"), 1, 0), KL_SERVER_DOWN);
  EXPECT_EQ(kl_last_failure_kind(c), KL_FAILURE_CONNECTION);
  EXPECT_STREQ(kl_last_failure_server(c), "127.0.0.1:1");
  EXPECT_STREQ(kl_last_failure_text(c), "connect ECONNREFUSED");
  kl_client_destroy(c);
}

TEST(Failures, AnErrorReplyIsTheServersOwnWordsAndASuccessClearsIt) {
  TestCluster cluster(1);
  kl_client *c = cluster.client();
  ASSERT_EQ(kl_set(c, mut("s"), 1, mut("v"), 1, 0), KL_SUCCESS);
  EXPECT_EQ(kl_lpush(c, mut("s"), 1, mut("x"), 1, 0), KL_SERVER_ERROR);
  EXPECT_EQ(kl_last_failure_kind(c), KL_FAILURE_SERVER_REPLY);
  EXPECT_EQ(std::string(kl_last_failure_text(c)).rfind("WRONGTYPE", 0), 0u);
  EXPECT_EQ(std::string(kl_last_failure_server(c)), "127.0.0.1:" + std::to_string(cluster.server(0).port()));
  EXPECT_EQ(kl_set(c, mut("s"), 1, mut("w"), 1, 0), KL_SUCCESS);
  EXPECT_EQ(kl_last_failure_kind(c), KL_FAILURE_NONE);
}

}  // namespace
