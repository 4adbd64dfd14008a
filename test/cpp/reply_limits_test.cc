// The maximum reply size: a reply that would cost more than the client allows
// is refused before the memory is taken, the call fails with
// KL_MEMORY_FAILURE, that connection goes and the server stays up.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>

#include <chrono>
#include <cstring>
#include <string>

#include "keyloom.h"
#include "support/scripted_server.h"
#include "support/test_cluster.h"

using keyloom::test::Clock;
using keyloom::test::ms_since;
using keyloom::test::mut;
using keyloom::test::ScriptedServer;
using keyloom::test::TestCluster;

namespace {


// A client of one scripted server that sends no INFO at connect.
kl_client *client_of(const ScriptedServer &server, unsigned timeout_ms) {
  kl_client *c = kl_client_create(KL_HASH_DEFAULT, KL_DISTRIBUTION_MODULA, nullptr, KL_FLAG_NONE);
  kl_set_client_version(c, CLIENT_VERSION_1);
  kl_client_connection_timeout(c, timeout_ms);
  kl_server_add(c, mut("127.0.0.1"), server.port(), nullptr);
  return c;
}

kl_return_t get(kl_client *c, const char *key, std::string *out = nullptr) {
  char *value = nullptr;
  size_t len = 0;
  kl_return_t r = kl_get_whole(c, mut(key), std::strlen(key), &value, &len, nullptr, 0);
  if (r == KL_SUCCESS && out) out->assign(value, len);
  kl_free_php_reply_p(&value);
  return r;
}

TEST(ReplyLimits, AnAnnouncedBulkLengthOverTheLimitIsRefusedBeforeItsBytesArrive) {
  // 1 GB announced, 3 bytes sent: the default limit (512 MiB) refuses it at
  // the header instead of buffering until the time-out.
  ScriptedServer server({"$1000000000\r\nabc"});
  kl_client *c = client_of(server, 3000);
  auto start = Clock::now();
  EXPECT_EQ(get(c, "k"), KL_MEMORY_FAILURE);
  EXPECT_LT(ms_since(start), 3000);
  kl_client_destroy(c);
}

TEST(ReplyLimits, AnArrayCostsWhatArrivesNotWhatItsHeaderAnnounces) {
  // A million elements announced, 300,000 sent: they alone pass a 1 MiB limit.
  std::string answer = "*1000000\r\n";
  for (int i = 0; i < 300000; ++i) answer += ":1\r\n";
  ScriptedServer server({answer});
  kl_client *c = client_of(server, 3000);
  ASSERT_EQ(kl_client_max_reply_size(c, 1 << 20), KL_SUCCESS);
  size_t count = 0;
  char **fields = nullptr, **values = nullptr;
  size_t *field_lens = nullptr, *value_lens = nullptr;
  auto start = Clock::now();
  EXPECT_EQ(kl_hgetall(c, mut("h"), 1, &count, &fields, &field_lens, &values, &value_lens),
            KL_MEMORY_FAILURE);
  EXPECT_LT(ms_since(start), 3000);
  EXPECT_EQ(fields, nullptr);
  kl_client_destroy(c);
}

TEST(ReplyLimits, AValueOverTheLimitFailsAloneAndTheServerStaysUp) {
  TestCluster cluster(1);
  kl_client *c = cluster.client();
  const std::string big(64 * 1024, 'x');
  ASSERT_EQ(kl_set(c, mut("big"), 3, mut(big), big.size(), 0), KL_SUCCESS);
  ASSERT_EQ(kl_set(c, mut("small"), 5, mut("v"), 1, 0), KL_SUCCESS);

  ASSERT_EQ(kl_client_max_reply_size(c, 16 * 1024), KL_SUCCESS);
  EXPECT_EQ(get(c, "big"), KL_MEMORY_FAILURE);
  std::string value;
  EXPECT_EQ(get(c, "small", &value), KL_SUCCESS);  // not marked down: a new connection
  EXPECT_EQ(value, "v");

  ASSERT_EQ(kl_client_max_reply_size(c, 0), KL_SUCCESS);  // back to the default
  EXPECT_EQ(get(c, "big", &value), KL_SUCCESS);
  EXPECT_EQ(value, big);
}

TEST(ReplyLimits, AHashOverTheLimitIsRefusedWhateverItsShape) {
  TestCluster cluster(1);
  kl_client *c = cluster.client();
  for (int i = 0; i < 2000; ++i) {
    std::string f = "field" + std::to_string(i);
    ASSERT_EQ(kl_hset(c, mut("h"), 1, mut(f), f.size(), mut("value"), 5, 0), KL_SUCCESS);
  }
  ASSERT_EQ(kl_client_max_reply_size(c, 8 * 1024), KL_SUCCESS);
  size_t count = 0;
  char **fields = nullptr, **values = nullptr;
  size_t *field_lens = nullptr, *value_lens = nullptr;
  EXPECT_EQ(kl_hgetall(c, mut("h"), 1, &count, &fields, &field_lens, &values, &value_lens),
            KL_MEMORY_FAILURE);
  ASSERT_EQ(kl_client_max_reply_size(c, 0), KL_SUCCESS);
  ASSERT_EQ(kl_hgetall(c, mut("h"), 1, &count, &fields, &field_lens, &values, &value_lens),
            KL_SUCCESS);
  EXPECT_EQ(count, 2000u);
  kl_free_php_reply_pp(&fields, static_cast<unsigned>(count));
  kl_free_php_reply_pp(&values, static_cast<unsigned>(count));
  kl_free_php_reply_p(reinterpret_cast<char **>(&field_lens));
  kl_free_php_reply_p(reinterpret_cast<char **>(&value_lens));
}

}  // namespace

namespace {

// A server that answers one request twice: the spare reply is never taken for
// the answer to the next request; the connection is dropped and made again.
TEST(StreamInStep, AReplyNobodyAskedForDropsTheConnection) {
  ScriptedServer server({"+OK\r\n+OK\r\n", "$5\r\nright\r\n"});
  kl_client *c = client_of(server, 2000);
  EXPECT_EQ(kl_set(c, mut("k"), 1, mut("v"), 1, 0), KL_SUCCESS);
  std::string value;
  EXPECT_EQ(get(c, "k", &value), KL_SUCCESS);
  EXPECT_EQ(value, "right");
  EXPECT_EQ(server.connections(), 2);
  kl_client_destroy(c);
}

}  // namespace

namespace {

volatile sig_atomic_t alarms_left = 0;

void on_alarm(int) {
  alarms_left = alarms_left - 1;
  if (alarms_left <= 0) {
    itimerval off{};
    setitimer(ITIMER_REAL, &off, nullptr);
  }
}

// Signals arriving every 50 ms (without SA_RESTART, so each blocked read ends
// with EINTR) never restart the wait: the call still ends at its deadline.
TEST(CallBound, SignalsDuringAReadDoNotRestartTheWait) {
  ScriptedServer server({});  // accepts, never answers
  kl_client *c = client_of(server, 300);
  struct sigaction action {}, previous {};
  action.sa_handler = on_alarm;
  sigemptyset(&action.sa_mask);
  action.sa_flags = 0;
  sigaction(SIGALRM, &action, &previous);
  alarms_left = 60;  // 3 s of signals at most, so a failing run ends too
  itimerval every{{0, 50'000}, {0, 50'000}};
  setitimer(ITIMER_REAL, &every, nullptr);
  auto start = Clock::now();
  EXPECT_EQ(get(c, "k"), KL_SERVER_DOWN);
  const long long elapsed = ms_since(start);
  itimerval off{};
  setitimer(ITIMER_REAL, &off, nullptr);
  sigaction(SIGALRM, &previous, nullptr);
  EXPECT_LT(elapsed, 1500);  // the bound is twice the 300 ms time-out; signals would make it 3 s
  kl_client_destroy(c);
}

}  // namespace

namespace {

// Replies whose element counts do not fit the command are refused whole, so
// the caller never gets arrays of unequal lengths to read past.
TEST(ReplyShapes, AnOddFieldValueArrayIsAWrongReply) {
  ScriptedServer server({"*3\r\n$1\r\na\r\n$1\r\nb\r\n$1\r\nc\r\n"});
  kl_client *c = client_of(server, 2000);
  size_t count = 0;
  char **fields = nullptr, **values = nullptr;
  size_t *field_lens = nullptr, *value_lens = nullptr;
  EXPECT_EQ(kl_hgetall(c, mut("h"), 1, &count, &fields, &field_lens, &values, &value_lens), KL_WRONG_REPLY);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(fields, nullptr);
  EXPECT_EQ(values, nullptr);
  kl_client_destroy(c);
}

TEST(ReplyShapes, AnOddMemberScoreArrayIsAWrongReply) {
  ScriptedServer server({"*3\r\n$1\r\na\r\n$1\r\n1\r\n$1\r\nb\r\n"});
  kl_client *c = client_of(server, 2000);
  size_t count = 0;
  char **members = nullptr;
  size_t *lens = nullptr;
  double *scores = nullptr;
  EXPECT_EQ(kl_zrange_whole(c, mut("z"), 1, 0, -1, &members, &count, &lens, nullptr, 0,
                            ZSET_WITH_SCORES, &scores, nullptr, nullptr),
            KL_WRONG_REPLY);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(members, nullptr);
  kl_client_destroy(c);
}

}  // namespace
