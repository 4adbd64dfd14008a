// A round's servers do not wait for one another: a server still being
// connected (one that accepts and never answers, say) holds only the calls
// that need it, and the replies of the others are read as they come.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "keyloom.h"
#include "support/scripted_server.h"
#include "support/test_cluster.h"

using keyloom::test::Clock;
using keyloom::test::ms_since;
using keyloom::test::mut;
using keyloom::test::ScriptedServer;
using keyloom::test::TestCluster;

namespace {

constexpr unsigned kConnectTimeoutMs = 1500;

// A GET, with when it ended (ms after `start`) and how.
struct TimedGet {
  kl_client *client = nullptr;
  std::string key;
  Clock::time_point start;
  kl_return_t rc = KL_ERROR;
  int failure_kind = -1;
  std::string failure_server;
  long long ended_ms = -1;

  static void run(void *data) {
    auto *job = static_cast<TimedGet *>(data);
    char *v = nullptr;
    size_t n = 0;
    job->rc = kl_get_whole(job->client, mut(job->key), job->key.size(), &v, &n, nullptr, 0);
    kl_free_php_reply_p(&v);
    job->failure_kind = kl_last_failure_kind(job->client);
    if (const char *s = kl_last_failure_server(job->client)) job->failure_server = s;
    job->ended_ms = ms_since(job->start);
  }
};

// A TimedGet of each key, timed from start.
std::vector<TimedGet> timed_gets(kl_client *client, const std::vector<std::string> &keys, Clock::time_point start) {
  std::vector<TimedGet> jobs(keys.size());
  for (size_t i = 0; i < keys.size(); ++i) {
    jobs[i].client = client;
    jobs[i].key = keys[i];
    jobs[i].start = start;
  }
  return jobs;
}

std::vector<kl_job> records(std::vector<TimedGet> &jobs) {
  std::vector<kl_job> out;
  for (TimedGet &job : jobs) out.push_back({&TimedGet::run, &job, 0});
  return out;
}

// Sets key0..key39 through the cluster's client (modula over its two
// servers) and sorts them by the server modula gave them.
void keys_by_server(TestCluster &cluster, std::vector<std::string> *on_first, std::vector<std::string> *on_second) {
  for (size_t i = 0; i < 40; ++i) {
    const std::string key = "key" + std::to_string(i);
    ASSERT_EQ(kl_set(cluster.client(), mut(key), key.size(), mut("value"), 5, 0), KL_SUCCESS);
    (cluster.direct(0, {"EXISTS", key})->integer ? on_first : on_second)->push_back(key);
  }
}

// Hands `first` to a new pipeline over client and `later` after `gap`, runs
// before_stop, and stops the pipeline (which runs every call first).
void hand_over_twice(kl_client *client, std::vector<TimedGet> &first, std::vector<TimedGet> &later,
                     std::chrono::milliseconds gap, const std::function<void()> &before_stop = [] {}) {
  auto first_records = records(first), later_records = records(later);
  kl_pipeline *pipeline = kl_pipeline_start(client);
  ASSERT_NE(pipeline, nullptr);
  ASSERT_EQ(kl_pipeline_submit(pipeline, first_records.data(), first_records.size()), KL_SUCCESS);
  std::this_thread::sleep_for(gap);
  ASSERT_EQ(kl_pipeline_submit(pipeline, later_records.data(), later_records.size()), KL_SUCCESS);
  before_stop();
  kl_pipeline_stop(pipeline);
}

// Two servers by modula, the first a real one (the cluster's server 0) and
// the second one that accepts connections and never answers: the INFO asked
// at connect goes unanswered for the whole connect time-out.
class RoundTest : public ::testing::Test {
 protected:
  RoundTest() : cluster_(2, 1, KL_DISTRIBUTION_MODULA), silent_({}) {
    // Which server modula gives each key, learnt from the cluster's client
    // over two real servers in the same order.
    keys_by_server(cluster_, &healthy_keys_, &silent_keys_);
    client_ = kl_client_create(KL_HASH_DEFAULT, KL_DISTRIBUTION_MODULA, nullptr, KL_FLAG_NONE);
    kl_client_connection_timeout(client_, kConnectTimeoutMs);
    kl_server_add(client_, mut("127.0.0.1"), cluster_.server(0).port(), nullptr);
    kl_server_add(client_, mut("127.0.0.1"), silent_.port(), nullptr);
    silent_name_ = "127.0.0.1:" + std::to_string(silent_.port());
  }
  ~RoundTest() override { kl_client_destroy(client_); }

  std::vector<TimedGet> gets(const std::vector<std::string> &keys, Clock::time_point start) {
    return timed_gets(client_, keys, start);
  }

  TestCluster cluster_;
  ScriptedServer silent_;
  std::vector<std::string> healthy_keys_, silent_keys_;
  kl_client *client_ = nullptr;
  std::string silent_name_;
};

TEST_F(RoundTest, CallsToAHealthyServerEndWhileAnotherServerIsStillConnecting) {
  ASSERT_FALSE(healthy_keys_.empty());
  ASSERT_FALSE(silent_keys_.empty());
  const Clock::time_point start = Clock::now();
  std::vector<TimedGet> first = gets({silent_keys_[0]}, start);
  std::vector<TimedGet> healthy = gets(healthy_keys_, start);
  first.insert(first.end(), healthy.begin(), healthy.end());
  std::vector<TimedGet> later = gets(healthy_keys_, start);
  // `later` is handed over while the round still waits for the silent server.
  ASSERT_NO_FATAL_FAILURE(hand_over_twice(client_, first, later, std::chrono::milliseconds(200)));

  const TimedGet &stalled = first[0];
  EXPECT_NE(stalled.rc, KL_SUCCESS);
  EXPECT_EQ(stalled.failure_kind, KL_FAILURE_CONNECTION);
  EXPECT_EQ(stalled.failure_server, silent_name_);
  for (size_t i = 1; i < first.size(); ++i) {
    EXPECT_EQ(first[i].rc, KL_SUCCESS) << first[i].key;
    EXPECT_LT(first[i].ended_ms, stalled.ended_ms) << first[i].key << " waited for the silent server";
  }
  for (const TimedGet &job : later) {
    EXPECT_EQ(job.rc, KL_SUCCESS) << job.key;
    EXPECT_LT(job.ended_ms, stalled.ended_ms) << job.key << " (handed over later) waited for the silent server";
  }
  // The silent server's call took its connect time-out; the others, none of it.
  EXPECT_GE(stalled.ended_ms, kConnectTimeoutMs - 100);
}

TEST_F(RoundTest, AFailedConnectBesideTheRoundIsToldToEveryCallThatNeededTheServer) {
  const Clock::time_point start = Clock::now();
  std::vector<TimedGet> jobs = gets(silent_keys_, start);
  std::vector<TimedGet> healthy = gets(healthy_keys_, start);
  jobs.insert(jobs.end(), healthy.begin(), healthy.end());
  auto job_records = records(jobs);
  kl_pipeline *pipeline = kl_pipeline_start(client_);
  ASSERT_NE(pipeline, nullptr);
  ASSERT_EQ(kl_pipeline_submit(pipeline, job_records.data(), job_records.size()), KL_SUCCESS);
  kl_pipeline_stop(pipeline);
  for (size_t i = 0; i < jobs.size(); ++i) {
    if (i < silent_keys_.size()) {
      EXPECT_NE(jobs[i].rc, KL_SUCCESS) << jobs[i].key;
      EXPECT_EQ(jobs[i].failure_kind, KL_FAILURE_CONNECTION) << jobs[i].key;
      EXPECT_EQ(jobs[i].failure_server, silent_name_) << jobs[i].key;
    } else {
      EXPECT_EQ(jobs[i].rc, KL_SUCCESS) << jobs[i].key;
    }
  }
  // The server is down now: the next call skips it at once.
  const Clock::time_point again = Clock::now();
  char *v = nullptr;
  size_t n = 0;
  EXPECT_NE(kl_get_whole(client_, mut(silent_keys_[0]), silent_keys_[0].size(), &v, &n, nullptr, 0), KL_SUCCESS);
  kl_free_php_reply_p(&v);
  EXPECT_LT(ms_since(again), 500);
}

TEST_F(RoundTest, OneCallOverBothServersGetsTheHealthyPartAndWaitsOneConnectTimeOut) {
  ASSERT_GE(healthy_keys_.size(), 2u);
  ASSERT_FALSE(silent_keys_.empty());
  std::vector<char *> keys{mut(healthy_keys_[0]), mut(silent_keys_[0]), mut(healthy_keys_[1])};
  std::vector<size_t> lens;
  for (const char *k : keys) lens.push_back(std::strlen(k));
  char **values = nullptr;
  size_t count = 0;
  size_t *value_lens = nullptr;
  const Clock::time_point start = Clock::now();
  const kl_return_t rc = kl_mget_whole(client_, keys.data(), keys.size(), lens.data(), &values, &count,
                                       &value_lens, nullptr, 0, KL_BEST_EFFORT_ON_FAIL);
  const long long took = ms_since(start);
  EXPECT_NE(rc, KL_SUCCESS);
  EXPECT_EQ(kl_last_failure_server(client_), silent_name_);
  ASSERT_EQ(count, keys.size());
  EXPECT_EQ(std::string(values[0], value_lens[0]), "value");
  EXPECT_EQ(values[1], nullptr);
  EXPECT_EQ(std::string(values[2], value_lens[2]), "value");
  kl_free_php_reply_pp(&values, static_cast<unsigned>(count));
  kl_free_php_reply_p(reinterpret_cast<char **>(&value_lens));
  EXPECT_GE(took, kConnectTimeoutMs - 100);
  EXPECT_LT(took, 2 * kConnectTimeoutMs);
}

TEST(RoundReading, CallsToAnsweringServersGoOnWhileAnotherServerOfTheRoundIsPaused) {
  TestCluster cluster(2, 1, KL_DISTRIBUTION_MODULA);
  kl_client *c = cluster.client();
  kl_client_connection_timeout(c, kConnectTimeoutMs);
  std::vector<std::string> answering, paused;
  ASSERT_NO_FATAL_FAILURE(keys_by_server(cluster, &answering, &paused));  // both connected
  ASSERT_FALSE(answering.empty());
  ASSERT_FALSE(paused.empty());
  cluster.server(1).pause();

  const Clock::time_point start = Clock::now();
  auto gets = [&](const std::vector<std::string> &keys) { return timed_gets(c, keys, start); };
  // One round: calls to both servers, sent together.
  std::vector<TimedGet> first = gets(paused), answered = gets(answering), later = gets(answering);
  first.insert(first.end(), answered.begin(), answered.end());
  // `later` is handed over while the round still waits for the paused server.
  ASSERT_NO_FATAL_FAILURE(hand_over_twice(c, first, later, std::chrono::milliseconds(200)));
  cluster.server(1).resume();

  long long first_stalled_end = LLONG_MAX;
  for (size_t i = 0; i < paused.size(); ++i) {
    EXPECT_NE(first[i].rc, KL_SUCCESS) << first[i].key;
    EXPECT_EQ(first[i].failure_kind, KL_FAILURE_CONNECTION) << first[i].key;
    first_stalled_end = std::min(first_stalled_end, first[i].ended_ms);
  }
  EXPECT_GE(first_stalled_end, kConnectTimeoutMs - 100);
  for (size_t i = paused.size(); i < first.size(); ++i) {
    EXPECT_EQ(first[i].rc, KL_SUCCESS) << first[i].key;
    EXPECT_LT(first[i].ended_ms, first_stalled_end) << first[i].key << " waited for the paused server";
  }
  for (const TimedGet &job : later) {
    EXPECT_EQ(job.rc, KL_SUCCESS) << job.key;
    EXPECT_LT(job.ended_ms, first_stalled_end) << job.key << " (handed over later) waited for the paused server";
  }
}

TEST(RoundReading, AServerThatDiesWithCallsInFlightFailsOnlyItsOwnCalls) {
  TestCluster cluster(2, 1, KL_DISTRIBUTION_MODULA);
  kl_client *c = cluster.client();
  kl_client_connection_timeout(c, kConnectTimeoutMs);
  std::vector<std::string> answering, dying;
  ASSERT_NO_FATAL_FAILURE(keys_by_server(cluster, &answering, &dying));
  cluster.server(1).pause();
  const Clock::time_point start = Clock::now();
  std::vector<TimedGet> first = timed_gets(c, dying, start), answered = timed_gets(c, answering, start);
  first.insert(first.end(), answered.begin(), answered.end());
  // Sent behind the first calls, still unanswered, on the same connection.
  std::vector<TimedGet> later = timed_gets(c, dying, start), later_answered = timed_gets(c, answering, start);
  later.insert(later.end(), later_answered.begin(), later_answered.end());
  ASSERT_NO_FATAL_FAILURE(hand_over_twice(c, first, later, std::chrono::milliseconds(100), [&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    cluster.server(1).kill();
  }));

  for (const std::vector<TimedGet> *jobs : {&first, &later}) {
    for (size_t i = 0; i < jobs->size(); ++i) {
      const TimedGet &job = (*jobs)[i];
      if (i < dying.size()) {
        EXPECT_NE(job.rc, KL_SUCCESS) << job.key;
        EXPECT_EQ(job.failure_kind, KL_FAILURE_CONNECTION) << job.key;
        EXPECT_LT(job.ended_ms, kConnectTimeoutMs) << job.key << " waited out the time-out of a closed connection";
      } else {
        EXPECT_EQ(job.rc, KL_SUCCESS) << job.key;
      }
    }
  }
}

}  // namespace
