// kl_command: any command as a RESP request, the reply handed back as RESP.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "keyloom.h"
#include "support/test_cluster.h"

using keyloom::test::mut;
using keyloom::test::TestCluster;

namespace {

std::string request(const std::vector<std::string> &words) {
  std::string out = "*";
  out.append(std::to_string(words.size())).append("\r\n");
  for (const std::string &w : words) out.append("$").append(std::to_string(w.size())).append("\r\n").append(w).append("\r\n");
  return out;
}

// The reply of one command, as RESP; code in *code.
std::string run(kl_client *c, int mode, const std::string &route, const std::vector<std::string> &words,
                kl_return_t *code) {
  const std::string req = request(words);
  char *reply = nullptr;
  size_t len = 0;
  *code = kl_command(c, mode, route.data(), route.size(), req.data(), req.size(), &reply, &len);
  std::string out = reply ? std::string(reply, len) : std::string();
  if (reply) kl_free_php_reply_p(&reply);
  return out;
}

std::string ok(kl_client *c, int mode, const std::string &route, const std::vector<std::string> &words) {
  kl_return_t code;
  std::string out = run(c, mode, route, words, &code);
  EXPECT_EQ(code, KL_SUCCESS) << out;
  return out;
}

TEST(AnyCommand, RepliesOfEveryShapeComeBackAsRESP) {
  TestCluster cluster(2);
  kl_client *c = cluster.client();
  EXPECT_EQ(ok(c, KL_COMMAND_WRITE, "k", {"SET", "k", "v\r\nw"}), "+OK\r\n");
  EXPECT_EQ(ok(c, KL_COMMAND_READ, "k", {"GET", "k"}), "$4\r\nv\r\nw\r\n");
  EXPECT_EQ(ok(c, KL_COMMAND_READ, "nokey", {"GET", "nokey"}), "$-1\r\n");
  EXPECT_EQ(ok(c, KL_COMMAND_WRITE, "n", {"INCRBY", "n", "-5"}), ":-5\r\n");
  ok(c, KL_COMMAND_WRITE, "l", {"RPUSH", "l", "a", "b"});
  EXPECT_EQ(ok(c, KL_COMMAND_READ, "l", {"LRANGE", "l", "0", "-1"}), "*2\r\n$1\r\na\r\n$1\r\nb\r\n");
  // The key is where the library's own commands look for it.
  char *value = nullptr;
  size_t len = 0;
  ASSERT_EQ(kl_get_whole(c, mut("k"), 1, &value, &len, nullptr, 0), KL_SUCCESS);
  EXPECT_EQ(std::string(value, len), "v\r\nw");
  kl_free_php_reply_p(&value);
}

TEST(AnyCommand, AnErrorReplyIsKlServerErrorWithTheServersWords) {
  TestCluster cluster(1);
  kl_client *c = cluster.client();
  ok(c, KL_COMMAND_WRITE, "s", {"SET", "s", "x"});
  kl_return_t code;
  const std::string out = run(c, KL_COMMAND_WRITE, "s", {"LPUSH", "s", "y"}, &code);
  EXPECT_EQ(code, KL_SERVER_ERROR);
  EXPECT_EQ(out.rfind("-WRONGTYPE", 0), 0u) << out;
  EXPECT_EQ(std::string(kl_last_failure_text(c)).rfind("WRONGTYPE", 0), 0u);
}

TEST(AnyCommand, ARequestThatIsNotAnArrayOfBulkStringsIsRefused) {
  TestCluster cluster(1);
  kl_client *c = cluster.client();
  char *reply = nullptr;
  size_t len = 0;
  for (std::string bad : {"", "PING\r\n", "*1\r\n$4\r\nPIN\r\n", "*2\r\n$4\r\nPING\r\n", "*1\r\n$4\r\nPING\r\nextra",
                          "*0\r\n", "*1\r\n$-1\r\n", "*1\r\n:4\r\n", "*x\r\n"}) {
    EXPECT_EQ(kl_command(c, KL_COMMAND_READ, "k", 1, bad.data(), bad.size(), &reply, &len), KL_INVALID_PARAMETER)
        << bad;
    EXPECT_EQ(reply, nullptr);
  }
  const std::string ping = request({"PING"});
  EXPECT_EQ(kl_command(c, 9, "k", 1, ping.data(), ping.size(), &reply, &len), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_command(c, KL_COMMAND_READ, "k", 1, ping.data(), ping.size(), nullptr, &len), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_command(nullptr, KL_COMMAND_READ, "k", 1, ping.data(), ping.size(), &reply, &len), KL_INVALID_CLIENT);
}

TEST(AnyCommand, OneServerByName) {
  TestCluster cluster(2);
  kl_client *c = cluster.client();
  const std::string second = "127.0.0.1:" + std::to_string(cluster.server(1).port());
  ok(c, KL_COMMAND_SERVER, second, {"SET", "only-here", "1"});
  EXPECT_EQ(ok(c, KL_COMMAND_SERVER, second, {"DBSIZE"}), ":1\r\n");
  kl_return_t code;
  run(c, KL_COMMAND_SERVER, "10.1.1.1:1", {"PING"}, &code);
  EXPECT_EQ(code, KL_INVALID_PARAMETER);
}

TEST(AnyCommand, WritesReachEveryGroupAndReadsFailOver) {
  TestCluster cluster(2, 2);
  kl_client *c = cluster.client();
  ok(c, KL_COMMAND_WRITE, "g", {"SET", "g", "both"});
  cluster.server(0).stop();
  EXPECT_EQ(ok(c, KL_COMMAND_READ, "g", {"GET", "g"}), "$4\r\nboth\r\n");
  kl_return_t code;
  run(c, KL_COMMAND_WRITE, "g", {"SET", "g", "half"}, &code);
  EXPECT_EQ(code, KL_SUCCESS | KL_DIRTY);
}

TEST(AnyCommand, ScriptKeysMustMeetOnOneServer) {
  TestCluster cluster(3);
  kl_client *c = cluster.client();
  const int mode = KL_COMMAND_WRITE | KL_COMMAND_SCRIPT_KEYS;
  EXPECT_EQ(ok(c, mode, "a", {"EVAL", "return #KEYS", "1", "a"}), ":1\r\n");
  std::vector<std::string> words = {"EVAL", "return 1", "20"};
  for (int i = 0; i < 20; ++i) words.push_back(std::string("k").append(std::to_string(i)));
  kl_return_t code;
  run(c, mode, words[3], words, &code);
  EXPECT_EQ(code, KL_INVALID_PARAMETER);
  EXPECT_NE(std::string(kl_last_failure_text(c)).find("are on different servers"), std::string::npos);
  run(c, mode, "a", {"EVAL", "return 1", "5", "a"}, &code);  // more keys announced than given
  EXPECT_EQ(code, KL_INVALID_PARAMETER);
  ASSERT_EQ(kl_client_set_hash_tag(c, mut("{}"), 2), KL_SUCCESS);
  EXPECT_EQ(ok(c, mode, "{t}1", {"EVAL", "return #KEYS", "2", "{t}1", "{t}2"}), ":2\r\n");
}

TEST(AnyCommand, KnownScriptsRunBySha1AndSurviveAFlush) {
  TestCluster cluster(1);
  kl_client *c = cluster.client();
  const std::string script = "return ARGV[1]";
  EXPECT_EQ(ok(c, KL_COMMAND_READ, "x", {"EVAL", script, "0", "one"}), "$3\r\none\r\n");
  // The script is loaded on the connection: the server knows its SHA-1.
  EXPECT_EQ(ok(c, KL_COMMAND_SERVER, "127.0.0.1:" + std::to_string(cluster.server(0).port()),
               {"SCRIPT", "EXISTS", "a4d6db5a2a9ac40c1ac8d7fe1e4e4a2e2ee2a3bb"}).size() > 0, true);
  ok(c, KL_COMMAND_SERVER, "127.0.0.1:" + std::to_string(cluster.server(0).port()), {"SCRIPT", "FLUSH"});
  EXPECT_EQ(ok(c, KL_COMMAND_READ, "x", {"EVAL", script, "0", "two"}), "$3\r\ntwo\r\n");
  // EVALSHA of a known script is retried as EVAL where the server lost it.
  const std::string loaded = ok(c, KL_COMMAND_SERVER, "127.0.0.1:" + std::to_string(cluster.server(0).port()),
                                {"SCRIPT", "LOAD", "return 'loaded'"});
  const std::string sha = loaded.substr(loaded.find('\n') + 1, 40);
  ok(c, KL_COMMAND_SERVER, "127.0.0.1:" + std::to_string(cluster.server(0).port()), {"SCRIPT", "FLUSH"});
  EXPECT_EQ(ok(c, KL_COMMAND_READ, "x", {"EVALSHA", sha, "0"}), "$6\r\nloaded\r\n");
  kl_return_t code;
  const std::string unknown = run(c, KL_COMMAND_READ, "x", {"EVALSHA", std::string(40, '0'), "0"}, &code);
  EXPECT_EQ(code, KL_SERVER_ERROR);
  EXPECT_EQ(unknown.rfind("-NOSCRIPT", 0), 0u);
}

}  // namespace
