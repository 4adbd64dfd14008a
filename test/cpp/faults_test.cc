// Connection faults: time-outs, a stopped server, reconnects after the
// reconnect time-out, AUTH and SELECT replayed on reconnect.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "keyloom.h"
#include "support/test_cluster.h"

using keyloom::test::Clock;
using keyloom::test::ms_since;
using keyloom::test::mut;
using keyloom::test::RedisServer;
using keyloom::test::TestCluster;

namespace {


kl_client *client_for(unsigned port, unsigned timeout_ms, unsigned reconnect_ms) {
  kl_client *c = kl_client_create(KL_HASH_DEFAULT, KL_DISTRIBUTION_MODULA, nullptr, KL_FLAG_NONE);
  kl_client_connection_timeout(c, timeout_ms);
  kl_client_reconnect_attempt_timeout(c, reconnect_ms);
  kl_server_add(c, mut("127.0.0.1"), port, nullptr);
  return c;
}

// A write after the server was restarted: the first attempt may be the one
// that notices the lost connection.
kl_return_t set_after_restart(kl_client *c) {
  kl_return_t r = kl_set(c, mut("k"), 1, mut("v2"), 2, 0);
  if (r == KL_SERVER_DOWN) {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    r = kl_set(c, mut("k"), 1, mut("v2"), 2, 0);
  }
  return r;
}

}  // namespace

TEST(Faults, NobodyListening) {
  kl_client *c = client_for(keyloom::test::free_port(), 300, 1000);
  auto start = Clock::now();
  EXPECT_EQ(kl_set(c, mut("k"), 1, mut("v"), 1, 0), KL_SERVER_DOWN);
  EXPECT_LT(ms_since(start), 5000);
  kl_client_destroy(c);
}

TEST(Faults, ConnectTimeOutToAnUnreachableAddress) {
  kl_client *c = kl_client_create(KL_HASH_DEFAULT, KL_DISTRIBUTION_MODULA, nullptr, KL_FLAG_NONE);
  kl_client_connection_timeout(c, 300);
  // A non-routable address: either no route at once or the connect time-out.
  kl_server_add(c, mut("10.255.255.1"), 6379, nullptr);
  auto start = Clock::now();
  EXPECT_EQ(kl_exists(c, mut("k"), 1), KL_SERVER_DOWN);
  EXPECT_LT(ms_since(start), 5000);
  kl_client_destroy(c);
}

TEST(Faults, StoppedServerFailsWithinTheTimeOut) {
  RedisServer server;
  kl_client *c = client_for(server.port(), 300, 100);
  ASSERT_EQ(kl_set(c, mut("k"), 1, mut("v"), 1, 0), KL_SUCCESS);
  server.pause();
  auto start = Clock::now();
  char *value = nullptr;
  size_t len = 0;
  EXPECT_EQ(kl_get_whole(c, mut("k"), 1, &value, &len, nullptr, 0), KL_SERVER_DOWN);
  EXPECT_LT(ms_since(start), 5000);  // connect + reply time-out, never a hang
  // A fresh connection to the stopped server times out too.
  std::this_thread::sleep_for(std::chrono::milliseconds(150));
  start = Clock::now();
  EXPECT_EQ(kl_set(c, mut("k"), 1, mut("v"), 1, 0), KL_SERVER_DOWN);
  EXPECT_LT(ms_since(start), 5000);
  server.resume();
  std::this_thread::sleep_for(std::chrono::milliseconds(150));
  EXPECT_EQ(kl_exists(c, mut("k"), 1), KL_SUCCESS);
  kl_client_destroy(c);
}

TEST(Faults, DownServerIsRetriedOnlyAfterTheReconnectTimeOut) {
  RedisServer server;
  kl_client *c = client_for(server.port(), 500, 3000);
  ASSERT_EQ(kl_set(c, mut("k"), 1, mut("v"), 1, 0), KL_SUCCESS);
  server.kill();
  EXPECT_EQ(kl_exists(c, mut("k"), 1), KL_SERVER_DOWN);  // marked down now
  server.restart();
  EXPECT_EQ(kl_set(c, mut("k"), 1, mut("v"), 1, 0), KL_SERVER_DOWN);  // not retried yet
  std::this_thread::sleep_for(std::chrono::milliseconds(3200));
  EXPECT_EQ(kl_set(c, mut("k"), 1, mut("v"), 1, 0), KL_SUCCESS);
  kl_client_destroy(c);
}

TEST(Faults, ReconnectReplaysAuthAndSelect) {
  RedisServer server({"--requirepass", "s3cret"});
  kl_client *c = client_for(server.port(), 1000, 100);
  EXPECT_EQ(kl_set(c, mut("k"), 1, mut("v"), 1, 0), KL_SERVER_ERROR);  // NOAUTH
  EXPECT_EQ(kl_auth(c, mut("wrong"), 5), KL_SERVER_ERROR);
  ASSERT_EQ(kl_auth(c, mut("s3cret"), 6), KL_SUCCESS);
  ASSERT_EQ(kl_select(c, 2, nullptr), KL_SUCCESS);
  ASSERT_EQ(kl_set(c, mut("k"), 1, mut("v"), 1, 0), KL_SUCCESS);

  server.restart();  // drops the connection; empty again
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  kl_return_t r = set_after_restart(c);
  ASSERT_EQ(r, KL_SUCCESS);

  // A second client sees the key in database 2 only.
  kl_client *other = client_for(server.port(), 1000, 100);
  ASSERT_EQ(kl_auth(other, mut("s3cret"), 6), KL_SUCCESS);
  EXPECT_EQ(kl_exists(other, mut("k"), 1), KL_NOTFOUND);
  ASSERT_EQ(kl_select(other, 2, nullptr), KL_SUCCESS);
  EXPECT_EQ(kl_exists(other, mut("k"), 1), KL_SUCCESS);
  kl_client_destroy(other);
  kl_client_destroy(c);
}

TEST(Faults, OneCallWaitsAtMostTwiceTheTimeOutOverEveryGroup) {
  // Three groups of one server each, all stopped: a write visits all three and
  // a read fails over from one to the next, yet neither call may wait more
  // than the connect time-out plus the reply time-out in all (one time-out per
  // server would be three).
  RedisServer first, second, third;
  kl_client *c = client_for(first.port(), 300, 100);
  kl_server_add(c, mut("127.0.0.1"), second.port(), mut("second"));
  kl_server_add(c, mut("127.0.0.1"), third.port(), mut("third"));
  ASSERT_EQ(kl_set(c, mut("k"), 1, mut("v"), 1, 0), KL_SUCCESS);
  for (RedisServer *s : {&first, &second, &third}) s->pause();
  auto start = Clock::now();
  kl_return_t write = kl_set(c, mut("k"), 1, mut("w"), 1, 0);
  const long long write_ms = ms_since(start);
  EXPECT_EQ(write, KL_ALL_GROUP_SERVERS_DOWN);
  EXPECT_LT(write_ms, 2 * 300 + 150);
  EXPECT_GE(write_ms, 250);  // it did wait for the first server's reply

  std::this_thread::sleep_for(std::chrono::milliseconds(150));  // past the reconnect time-out
  start = Clock::now();
  EXPECT_EQ(kl_exists(c, mut("k"), 1), KL_ALL_GROUP_SERVERS_DOWN);
  EXPECT_LT(ms_since(start), 2 * 300 + 150);
  for (RedisServer *s : {&first, &second, &third}) s->resume();
  std::this_thread::sleep_for(std::chrono::milliseconds(150));
  EXPECT_EQ(kl_exists(c, mut("k"), 1), KL_SUCCESS);
  kl_client_destroy(c);
}

TEST(Faults, AclUserIsAuthenticatedAndReplayedOnReconnect) {
  RedisServer server({"--user", "default", "off", "--user", "app", "on", ">app-pw", "~*", "&*", "+@all"});
  kl_client *c = client_for(server.port(), 1000, 100);
  EXPECT_EQ(kl_auth(c, mut("app-pw"), 6), KL_SERVER_ERROR);  // the default user's
  const std::string user_and_password("app\0app-pw", 10);
  ASSERT_EQ(kl_auth(c, mut(user_and_password), user_and_password.size()), KL_SUCCESS);
  ASSERT_EQ(kl_set(c, mut("k"), 1, mut("v"), 1, 0), KL_SUCCESS);
  server.restart();
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  kl_return_t r = set_after_restart(c);
  EXPECT_EQ(r, KL_SUCCESS);
  kl_client_destroy(c);
}
