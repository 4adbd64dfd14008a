// Client lifecycle, configuration, result codes and reply release.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "keyloom.h"
#include "support/test_cluster.h"

using keyloom::test::mut;
using keyloom::test::TestCluster;

namespace {

// A memory manager that counts what it hands out and takes back.
int live_blocks = 0;
void *counting_malloc(size_t n) { ++live_blocks; return std::malloc(n); }
void *counting_calloc(size_t c, size_t n) { ++live_blocks; return std::calloc(c, n); }
void *counting_realloc(void *p, size_t n) { return std::realloc(p, n); }
void counting_free(void *p) { if (p) --live_blocks; std::free(p); }

}  // namespace

TEST(Client, CreateAndDestroy) {
  kl_client *c = kl_client_create(KL_HASH_MD5, KL_DISTRIBUTION_CONSISTENT_KETAMA, nullptr, KL_FLAG_NONE);
  ASSERT_NE(c, nullptr);
  kl_client_destroy(c);
  kl_client_destroy(nullptr);  // ignored
}

TEST(Client, NullClientIsInvalid) {
  char *value = nullptr;
  size_t len = 0;
  EXPECT_EQ(kl_set(nullptr, mut("k"), 1, mut("v"), 1, 0), KL_INVALID_CLIENT);
  EXPECT_EQ(kl_get_whole(nullptr, mut("k"), 1, &value, &len, nullptr, 0), KL_INVALID_CLIENT);
  EXPECT_EQ(kl_server_add(nullptr, mut("127.0.0.1"), 6379, nullptr), KL_INVALID_CLIENT);
  EXPECT_EQ(kl_flushall(nullptr, nullptr, nullptr), KL_INVALID_CLIENT);
  EXPECT_EQ(kl_quit(nullptr), KL_INVALID_CLIENT);
  EXPECT_EQ(kl_dirty(nullptr, mut("k"), 1, 0, nullptr), KL_INVALID_CLIENT);
  EXPECT_EQ(kl_group_client(nullptr), nullptr);
}

TEST(Client, NoServerAttached) {
  kl_client *c = kl_client_create(KL_HASH_DEFAULT, KL_DISTRIBUTION_MODULA, nullptr, KL_FLAG_NONE);
  char *value = nullptr;
  size_t len = 0;
  unsigned size = 0;
  EXPECT_EQ(kl_set(c, mut("k"), 1, mut("v"), 1, 0), KL_NO_SERVER_ATTACHED);
  EXPECT_EQ(kl_get_whole(c, mut("k"), 1, &value, &len, nullptr, 0), KL_NO_SERVER_ATTACHED);
  EXPECT_EQ(kl_dbsize(c, &size, nullptr, nullptr), KL_NO_SERVER_ATTACHED);
  EXPECT_EQ(kl_select(c, 1, nullptr), KL_NO_SERVER_ATTACHED);
  kl_client_destroy(c);
}

TEST(Client, ServerAddChecksItsArguments) {
  kl_client *c = kl_client_create(KL_HASH_DEFAULT, KL_DISTRIBUTION_MODULA, nullptr, KL_FLAG_NONE);
  EXPECT_EQ(kl_server_add(c, nullptr, 6379, nullptr), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_server_add(c, mut("127.0.0.1"), 0, nullptr), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_server_add(c, mut("127.0.0.1"), 70000, nullptr), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_server_add(c, mut("127.0.0.1"), 6379, nullptr), KL_SUCCESS);
  EXPECT_EQ(kl_server_add(c, mut("127.0.0.1"), 6379, mut("")), KL_ALREADY_EXISTS);  // "" is "default"
  EXPECT_EQ(kl_server_add(c, mut("127.0.0.1"), 6379, mut("other")), KL_SUCCESS);
  kl_client_destroy(c);
}

TEST(Client, Settings) {
  kl_client *c = kl_client_create(KL_HASH_DEFAULT, KL_DISTRIBUTION_MODULA, nullptr, KL_FLAG_NONE);
  EXPECT_EQ(kl_set_client_version(c, CLIENT_VERSION_1), KL_SUCCESS);
  EXPECT_EQ(kl_set_client_version(c, static_cast<kl_client_version>(9)), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_client_connection_timeout(c, 0), KL_SUCCESS);
  EXPECT_EQ(kl_client_reconnect_attempt_timeout(c, 10), KL_SUCCESS);
  EXPECT_EQ(kl_enable_syslog(c, KL_LEVEL_ERROR | KL_LEVEL_EVENT), KL_SUCCESS);
  EXPECT_EQ(kl_disable_log(c), KL_SUCCESS);
  kl_client_destroy(c);
}

TEST(Client, VersionAndErrors) {
  EXPECT_STREQ(kl_get_version(), "1.0.0");
  EXPECT_STREQ(kl_strerror(KL_SUCCESS), "success");
  EXPECT_STREQ(kl_strerror(KL_NOTFOUND), "not found");
  EXPECT_STREQ(kl_strerror(static_cast<kl_return_t>(77)), "unknown result code");
  std::string dirty = kl_strerror(static_cast<kl_return_t>(KL_SUCCESS | KL_DIRTY));
  EXPECT_NE(dirty.find("success"), std::string::npos);
  EXPECT_NE(dirty.find("dirty"), std::string::npos);
  for (int code = 0; code <= KL_ALL_GROUP_SERVERS_DOWN; ++code)
    EXPECT_STRNE(kl_strerror(static_cast<kl_return_t>(code)), "unknown result code") << code;
}

TEST(Client, ResultBits) {
  auto dirty_ok = static_cast<kl_return_t>(KL_SUCCESS | KL_DIRTY);
  EXPECT_EQ(kl_get_result(dirty_ok), KL_SUCCESS);
  EXPECT_EQ(kl_is_dirty(dirty_ok), 1);
  EXPECT_EQ(kl_is_dirty(KL_NOTFOUND), 0);
  EXPECT_EQ(kl_check_result(dirty_ok, KL_SUCCESS), 1);
  EXPECT_EQ(kl_check_result(KL_NOTFOUND, KL_SUCCESS), 0);
}

TEST(Client, ReleaseIsHarmlessTwice) {
  char *one = static_cast<char *>(std::malloc(4));
  EXPECT_EQ(kl_free_php_reply_p(&one), KL_SUCCESS);
  EXPECT_EQ(one, nullptr);
  EXPECT_EQ(kl_free_php_reply_p(&one), KL_SUCCESS);
  EXPECT_EQ(kl_free_php_reply_p(nullptr), KL_INVALID_PARAMETER);
  char **many = static_cast<char **>(std::calloc(2, sizeof(char *)));
  many[0] = static_cast<char *>(std::malloc(1));
  EXPECT_EQ(kl_free_php_reply_pp(&many, 2), KL_SUCCESS);
  EXPECT_EQ(many, nullptr);
  EXPECT_EQ(kl_free_php_reply_pp(&many, 2), KL_SUCCESS);
  EXPECT_EQ(kl_free_php_reply_pp(nullptr, 2), KL_INVALID_PARAMETER);
}

TEST(Client, RepliesUseTheCallersMemoryManager) {
  TestCluster cluster(1);
  kl_mm_t mm{counting_malloc, counting_calloc, counting_realloc, counting_free};
  kl_client *c = kl_client_create(KL_HASH_DEFAULT, KL_DISTRIBUTION_MODULA, &mm, KL_FLAG_NONE);
  ASSERT_EQ(kl_server_add(c, mut("127.0.0.1"), cluster.server(0).port(), nullptr), KL_SUCCESS);
  live_blocks = 0;
  ASSERT_EQ(kl_set(c, mut("mm"), 2, mut("value"), 5, 0), KL_SUCCESS);
  char *value = nullptr;
  size_t len = 0;
  ASSERT_EQ(kl_get_whole(c, mut("mm"), 2, &value, &len, nullptr, 0), KL_SUCCESS);
  EXPECT_EQ(live_blocks, 1);
  EXPECT_EQ(std::string(value, len), "value");
  kl_free_php_reply_p(&value);
  EXPECT_EQ(live_blocks, 0);

  char *keys[] = {mut("mm"), mut("none")};
  size_t lens[] = {2, 4};
  char **values = nullptr;
  size_t *value_lens = nullptr;
  size_t count = 0;
  ASSERT_EQ(kl_mget_whole(c, keys, 2, lens, &values, &count, &value_lens, nullptr, 0, KL_NULL_ON_FAIL), KL_SUCCESS);
  EXPECT_EQ(live_blocks, 3);  // array, one value, lengths
  kl_free_php_reply_pp(&values, static_cast<unsigned>(count));
  kl_free_php_reply_p(reinterpret_cast<char **>(&value_lens));
  EXPECT_EQ(live_blocks, 0);
  kl_client_destroy(c);
}

TEST(Client, GroupClientSharesServersNotConnections) {
  TestCluster cluster(2);
  ASSERT_EQ(kl_set(cluster.client(), mut("shared"), 6, mut("yes"), 3, 0), KL_SUCCESS);
  kl_client *copy = kl_group_client(cluster.client());
  ASSERT_NE(copy, nullptr);
  char *value = nullptr;
  size_t len = 0;
  EXPECT_EQ(kl_get_whole(copy, mut("shared"), 6, &value, &len, nullptr, 0), KL_SUCCESS);
  EXPECT_EQ(std::string(value, len), "yes");
  kl_free_php_reply_p(&value);
  kl_client_destroy(copy);
  // The original still works after the copy is gone.
  EXPECT_EQ(kl_exists(cluster.client(), mut("shared"), 6), KL_SUCCESS);
}

TEST(Client, QuitReopensOnDemand) {
  TestCluster cluster(1);
  ASSERT_EQ(kl_set(cluster.client(), mut("q"), 1, mut("1"), 1, 0), KL_SUCCESS);
  EXPECT_EQ(kl_quit(cluster.client()), KL_SUCCESS);
  EXPECT_EQ(kl_exists(cluster.client(), mut("q"), 1), KL_SUCCESS);
}

TEST(Client, SharedAndRecursiveFlags) {
  TestCluster shared(1, 1, KL_DISTRIBUTION_MODULA, KL_FLAG_SHARED);
  EXPECT_EQ(kl_set(shared.client(), mut("s"), 1, mut("1"), 1, 0), KL_SUCCESS);
  TestCluster recursive(1, 1, KL_DISTRIBUTION_MODULA, KL_FLAG_SHARED | KL_FLAG_RECURSIVE);
  EXPECT_EQ(kl_set(recursive.client(), mut("s"), 1, mut("1"), 1, 0), KL_SUCCESS);
}

TEST(Client, SelectSwitchesDatabases) {
  TestCluster cluster(2);
  ASSERT_EQ(kl_set(cluster.client(), mut("db"), 2, mut("zero"), 4, 0), KL_SUCCESS);
  kl_return_t *codes = nullptr;
  ASSERT_EQ(kl_select(cluster.client(), 3, &codes), KL_SUCCESS);
  ASSERT_NE(codes, nullptr);
  EXPECT_EQ(codes[0], KL_SUCCESS);
  EXPECT_EQ(codes[1], KL_SUCCESS);
  kl_free_php_reply_p(reinterpret_cast<char **>(&codes));
  EXPECT_EQ(kl_exists(cluster.client(), mut("db"), 2), KL_NOTFOUND);
  // Remembered across reconnects.
  kl_quit(cluster.client());
  ASSERT_EQ(kl_set(cluster.client(), mut("db"), 2, mut("three"), 5, 0), KL_SUCCESS);
  ASSERT_EQ(kl_select(cluster.client(), 0, nullptr), KL_SUCCESS);
  char *value = nullptr;
  size_t len = 0;
  ASSERT_EQ(kl_get_whole(cluster.client(), mut("db"), 2, &value, &len, nullptr, 0), KL_SUCCESS);
  EXPECT_EQ(std::string(value, len), "zero");
  kl_free_php_reply_p(&value);
  EXPECT_EQ(kl_select(cluster.client(), -1, nullptr), KL_INVALID_PARAMETER);
}

TEST(Client, DatabaseKeyPrefixes) {
  TestCluster cluster(1);
  kl_client *c = cluster.client();
  const char *prefix = "x";
  size_t prefix_len = 9;
  ASSERT_EQ(kl_database_key(c, 2, &prefix, &prefix_len), KL_SUCCESS);
  EXPECT_EQ(prefix, nullptr);
  EXPECT_EQ(prefix_len, 0u);
  ASSERT_EQ(kl_set_database_key(c, 2, "two:", 4), KL_SUCCESS);
  ASSERT_EQ(kl_database_key(c, 2, &prefix, &prefix_len), KL_SUCCESS);
  EXPECT_EQ(std::string(prefix, prefix_len), "two:");
  EXPECT_EQ(kl_database_key(c, 2, nullptr, &prefix_len), KL_INVALID_PARAMETER);

  // While database 2 is selected every key carries the prefix.
  ASSERT_EQ(kl_select(c, 2, nullptr), KL_SUCCESS);
  ASSERT_EQ(kl_set(c, mut("k"), 1, mut("v"), 1, 0), KL_SUCCESS);
  char *value = nullptr;
  size_t len = 0;
  ASSERT_EQ(kl_get_whole(c, mut("k"), 1, &value, &len, nullptr, 0), KL_SUCCESS);
  EXPECT_EQ(std::string(value, len), "v");
  kl_free_php_reply_p(&value);
  ASSERT_EQ(kl_set_database_key(c, 2, nullptr, 0), KL_SUCCESS);
  EXPECT_EQ(kl_exists(c, mut("k"), 1), KL_NOTFOUND);
  EXPECT_EQ(kl_exists(c, mut("two:k"), 5), KL_SUCCESS);
}

TEST(Client, SharedClientFromSeveralThreads) {
  TestCluster cluster(2, 1, KL_DISTRIBUTION_CONSISTENT, KL_FLAG_SHARED);
  std::vector<std::thread> threads;
  std::vector<int> mismatches(4, 0);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 200; ++i) {
        std::string key = std::string("thr") + std::to_string(t) + ":" + std::to_string(i % 10);
        std::string value = std::to_string(i);
        if (kl_set(cluster.client(), mut(key), key.size(), mut(value), value.size(), 0) != KL_SUCCESS) {
          ++mismatches[t];
          continue;
        }
        char *got = nullptr;
        size_t len = 0;
        if (kl_get_whole(cluster.client(), mut(key), key.size(), &got, &len, nullptr, 0) != KL_SUCCESS ||
            std::string(got, len) != value)
          ++mismatches[t];
        kl_free_php_reply_p(&got);
      }
    });
  }
  for (auto &th : threads) th.join();
  for (int t = 0; t < 4; ++t) EXPECT_EQ(mismatches[t], 0) << t;
}

TEST(Client, VersionPicksTheCommandForms) {
  // A server without the deprecated commands: only the forms of Redis 6.2
  // reach GETSET's and ZRANGEBYSCORE's meaning there.
  TestCluster cluster(1, 1, KL_DISTRIBUTION_CONSISTENT, KL_FLAG_NONE,
                      {"--rename-command", "GETSET", "getset-hidden",
                       "--rename-command", "ZRANGEBYSCORE", "zrangebyscore-hidden",
                       "--rename-command", "ZREVRANGEBYSCORE", "zrevrangebyscore-hidden"});
  kl_client *c = cluster.client();
  ASSERT_EQ(kl_zadd(c, mut("z"), 1, 1.0, mut("a"), 1, 0), KL_SUCCESS);
  ASSERT_EQ(kl_zadd(c, mut("z"), 1, 2.0, mut("b"), 1, 0), KL_SUCCESS);
  auto getset = [&](const char *value) {
    char *old = nullptr;
    size_t old_len = 0;
    kl_return_t r = kl_getset_whole(c, mut("gs"), 2, mut(value), std::strlen(value), &old, &old_len,
                                    nullptr, 0);
    kl_free_php_reply_p(&old);
    return r;
  };
  auto members_by_score = [&](zSetFlags flags) {
    char **members = nullptr;
    size_t count = 0, *lens = nullptr;
    kl_return_t r = kl_zrangebyscore(c, mut("z"), 1, 0, 10, &members, &count, &lens, flags,
                                     nullptr, nullptr, nullptr);
    std::string joined;
    for (size_t i = 0; r == KL_SUCCESS && i < count; ++i) joined.append(members[i], lens[i]);
    kl_free_php_reply_pp(&members, count);
    kl_free_php_reply_p(reinterpret_cast<char **>(&lens));
    return r == KL_SUCCESS ? joined : "code " + std::to_string(r);
  };

  // AUTO (the default) read the server's version (7.x) and uses the new forms.
  EXPECT_EQ(getset("one"), KL_SUCCESS);
  EXPECT_EQ(members_by_score(ZSET_DEFAULT), "ab");
  EXPECT_EQ(members_by_score(ZSET_REVERSE), "ba");

  ASSERT_EQ(kl_set_client_version(c, CLIENT_VERSION_1), KL_SUCCESS);
  EXPECT_EQ(getset("two"), KL_SERVER_ERROR);  // GETSET itself: unknown here
  EXPECT_EQ(members_by_score(ZSET_DEFAULT), "code " + std::to_string(KL_SERVER_ERROR));

  ASSERT_EQ(kl_set_client_version(c, CLIENT_VERSION_2), KL_SUCCESS);
  EXPECT_EQ(getset("three"), KL_SUCCESS);
  EXPECT_EQ(members_by_score(ZSET_REVERSE), "ba");
  char *value = nullptr;
  size_t len = 0;
  ASSERT_EQ(kl_get_whole(c, mut("gs"), 2, &value, &len, nullptr, 0), KL_SUCCESS);
  EXPECT_EQ(std::string(value, len), "three");
  kl_free_php_reply_p(&value);
}
