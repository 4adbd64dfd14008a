// The pipeline: calls handed to a client's own thread run together, their
// commands sent to each server in one write, each call keeping its own
// result, failure record, group policy and time budget.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <cstdlib>
#include <string>
#include <vector>

#include "fiber.h"
#include "keyloom.h"
#include "pipeline.h"
#include "support/test_cluster.h"

using keyloom::test::Clock;
using keyloom::test::ms_since;
using keyloom::test::mut;
using keyloom::test::TestCluster;

namespace {

// One job: a SET then a GET of its own key, and what they answered.
struct SetThenGet {
  kl_client *client = nullptr;
  std::string key, value;
  kl_return_t set_rc = KL_ERROR, get_rc = KL_ERROR;
  std::string read;

  static void run(void *data) {
    auto *job = static_cast<SetThenGet *>(data);
    job->set_rc = kl_set(job->client, mut(job->key), job->key.size(), mut(job->value), job->value.size(), 0);
    char *v = nullptr;
    size_t n = 0;
    job->get_rc = kl_get_whole(job->client, mut(job->key), job->key.size(), &v, &n, nullptr, 0);
    if (v) job->read.assign(v, n);
    kl_free_php_reply_p(&v);
  }
};

// One job: a single GET, with the failure its call met.
struct Get {
  Get() = default;
  Get(kl_client *c, std::string k) : client(c), key(std::move(k)) {}
  kl_client *client = nullptr;
  std::string key;
  kl_return_t rc = KL_ERROR;
  int failure_kind = -1;
  std::string failure_text;

  static void run(void *data) {
    auto *job = static_cast<Get *>(data);
    char *v = nullptr;
    size_t n = 0;
    job->rc = kl_get_whole(job->client, mut(job->key), job->key.size(), &v, &n, nullptr, 0);
    kl_free_php_reply_p(&v);
    job->failure_kind = kl_last_failure_kind(job->client);
    if (const char *t = kl_last_failure_text(job->client)) job->failure_text = t;
  }
};

// prefix + i (built by append: g++ 12 warns wrongly about operator+ here).
std::string numbered(const char *prefix, size_t i) { return std::string(prefix).append(std::to_string(i)); }

long long reads_processed(TestCluster &cluster, size_t i) {
  auto info = cluster.direct(i, {"INFO", "stats"});
  std::string text(info->str, info->len);
  size_t at = text.find("total_reads_processed:");
  return std::atoll(text.c_str() + at + 22);
}

template <class Job>
void run_all(kl_client *client, std::vector<Job> &jobs, unsigned timeout_ms = 0) {
  std::vector<kl_job> records;
  for (Job &job : jobs) records.push_back({&Job::run, &job, timeout_ms});
  kl_pipeline *pipeline = kl_pipeline_start(client);
  ASSERT_NE(pipeline, nullptr);
  ASSERT_EQ(kl_pipeline_submit(pipeline, records.data(), records.size()), KL_SUCCESS);
  kl_pipeline_stop(pipeline);  // runs them all first
}

TEST(Pipeline, CallsHandedOverTogetherShareTheServersReadsAndEachGetsItsOwnAnswer) {
  TestCluster cluster(1);
  ASSERT_EQ(kl_set(cluster.client(), mut("warm"), 4, mut("up"), 2, 0), KL_SUCCESS);  // connected
  std::vector<SetThenGet> jobs(200);
  for (size_t i = 0; i < jobs.size(); ++i) {
    jobs[i].client = cluster.client();
    jobs[i].key = numbered("key", i);
    jobs[i].value = numbered("value ", i);
  }
  const long long before = reads_processed(cluster, 0);
  run_all(cluster.client(), jobs);
  const long long reads = reads_processed(cluster, 0) - before;
  for (const SetThenGet &job : jobs) {
    EXPECT_EQ(job.set_rc, KL_SUCCESS);
    EXPECT_EQ(job.get_rc, KL_SUCCESS);
    EXPECT_EQ(job.read, job.value);  // each call's write is seen by its own read
  }
  // 400 commands one at a time would be 400 reads on the server.
  EXPECT_LT(reads, 40) << "commands of one round were not sent together";
}

TEST(Pipeline, EachCallKeepsItsOwnFailure) {
  TestCluster cluster(1);
  kl_client *c = cluster.client();
  ASSERT_EQ(kl_lpush(c, mut("list0"), 5, mut("x"), 1, 0), KL_SUCCESS);
  std::vector<Get> jobs{Get(c, numbered("list", 0)), Get(c, numbered("missing", 0)), Get(c, numbered("list", 0))};
  run_all(c, jobs);
  EXPECT_EQ(jobs[0].rc, KL_SERVER_ERROR);
  EXPECT_EQ(jobs[0].failure_kind, KL_FAILURE_SERVER_REPLY);
  EXPECT_EQ(jobs[0].failure_text.rfind("WRONGTYPE", 0), 0u);
  EXPECT_EQ(jobs[1].rc, KL_NOTFOUND);
  EXPECT_EQ(jobs[1].failure_kind, KL_FAILURE_NONE);
  EXPECT_EQ(jobs[2].rc, KL_SERVER_ERROR);
  EXPECT_EQ(jobs[2].failure_kind, KL_FAILURE_SERVER_REPLY);
}

TEST(Pipeline, CallsToAPausedServerWaitTheirBudgetTogetherNotOneAfterAnother) {
  TestCluster cluster(1);
  kl_client *c = cluster.client();
  ASSERT_EQ(kl_set(c, mut("k"), 1, mut("v"), 1, 0), KL_SUCCESS);
  cluster.server(0).pause();
  std::vector<Get> jobs(50, Get(c, std::string(1, 'k')));
  const auto start = Clock::now();
  run_all(c, jobs, 300);
  const long long took = ms_since(start);
  cluster.server(0).resume();
  for (const Get &job : jobs) {
    EXPECT_EQ(job.rc, KL_SERVER_DOWN);
    EXPECT_EQ(job.failure_kind, KL_FAILURE_CONNECTION);
  }
  EXPECT_LT(took, 5000) << "50 calls of 300 ms each waited one after another";
}

TEST(Pipeline, WritesReachEveryGroupAndReadsFailOverPerCall) {
  TestCluster cluster(2, 2);
  kl_client *c = cluster.client();
  std::vector<SetThenGet> jobs(20);
  for (size_t i = 0; i < jobs.size(); ++i) {
    jobs[i].client = c;
    jobs[i].key = numbered("g", i);
    jobs[i].value = numbered("v", i);
  }
  run_all(c, jobs);
  EXPECT_EQ(cluster.dbsize(0), 20);
  EXPECT_EQ(cluster.dbsize(1), 20);
  cluster.server(0).kill();
  std::vector<Get> reads(20);
  for (size_t i = 0; i < reads.size(); ++i) {
    reads[i].client = c;
    reads[i].key = jobs[i].key;
  }
  run_all(c, reads);
  for (const Get &read : reads) EXPECT_EQ(read.rc, KL_SUCCESS);
}

TEST(Pipeline, JobsHandedOverFromManyThreadsAllRun) {
  TestCluster cluster(1);
  kl_pipeline *pipeline = kl_pipeline_start(cluster.client());
  ASSERT_NE(pipeline, nullptr);
  std::vector<SetThenGet> jobs(400);
  std::vector<std::thread> threads;
  for (size_t t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (size_t i = t; i < jobs.size(); i += 4) {
        jobs[i].client = cluster.client();
        jobs[i].key = numbered("t", i);
        jobs[i].value = std::to_string(i);
        kl_job record{&SetThenGet::run, &jobs[i], 0};
        EXPECT_EQ(kl_pipeline_submit(pipeline, &record, 1), KL_SUCCESS);
      }
    });
  }
  for (std::thread &t : threads) t.join();
  kl_pipeline_stop(pipeline);
  for (const SetThenGet &job : jobs) EXPECT_EQ(job.read, job.value);
  EXPECT_EQ(kl_pipeline_submit(nullptr, nullptr, 0), KL_INVALID_CLIENT);
}

// A SET then GET that notes how many fiber stacks were in use as it ended.
struct NotingStacks {
  SetThenGet call;
  size_t stacks_in_use = 0;
  std::atomic<size_t> *done = nullptr;

  static void run(void *data) {
    auto *job = static_cast<NotingStacks *>(data);
    SetThenGet::run(&job->call);
    // On the pipeline's thread: its pool is the one counted here.
    job->stacks_in_use = keyloom::fiber_stacks_mapped() - keyloom::fiber_stacks_pooled();
    job->done->fetch_add(1);
  }
};

// A pipeline on a one-server cluster that runs bursts of NotingStacks jobs,
// with the stacks mapped before it started.
class PipelineStacks : public ::testing::Test {
 protected:
  void SetUp() override {
    mapped_before = keyloom::fiber_stacks_mapped();
    pipeline = kl_pipeline_start(cluster.client());
    ASSERT_NE(pipeline, nullptr);
  }
  void TearDown() override {
    if (pipeline) kl_pipeline_stop(pipeline);
  }
  // Stops the pipeline: every stack it mapped goes.
  void Stop() {
    kl_pipeline_stop(pipeline);
    pipeline = nullptr;
    EXPECT_EQ(keyloom::fiber_stacks_mapped(), mapped_before);
  }

  // Hands over n jobs at once, waits until all have run, checks that each
  // read its own write, and returns the most stacks in use as one ended.
  size_t Burst(size_t n) {
    jobs = std::vector<NotingStacks>(n);
    std::vector<kl_job> records;
    done = 0;
    for (size_t i = 0; i < n; ++i) {
      jobs[i].call.client = cluster.client();
      jobs[i].call.key = numbered("burst", i);
      jobs[i].call.value = std::to_string(i);
      jobs[i].done = &done;
      records.push_back({&NotingStacks::run, &jobs[i], 0});
    }
    EXPECT_EQ(kl_pipeline_submit(pipeline, records.data(), records.size()), KL_SUCCESS);
    while (done.load() < n) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    size_t most = 0;
    for (const NotingStacks &job : jobs) {
      EXPECT_EQ(job.call.read, job.call.value);
      most = std::max(most, job.stacks_in_use);
    }
    return most;
  }

  // Waits (not timed) until at most `kept` stacks are mapped; false when they never are.
  bool StacksComeDownTo(size_t kept, const std::function<void()> &meanwhile = [] {}) {
    const auto give_up = Clock::now() + std::chrono::seconds(60);
    while (keyloom::fiber_stacks_mapped() > kept && Clock::now() < give_up) {
      meanwhile();
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return keyloom::fiber_stacks_mapped() <= kept;
  }

  TestCluster cluster{1};
  size_t mapped_before = 0;
  kl_pipeline *pipeline = nullptr;
  std::atomic<size_t> done{0};
  std::vector<NotingStacks> jobs;
};

TEST_F(PipelineStacks, ABurstLargerThanARoundRunsAsSeveralRoundsOfAtMostTheRoundSize) {
  EXPECT_LE(Burst(4 * keyloom::kRoundCalls + 3), keyloom::kRoundCalls) << "a round ran more calls than the round size";
}

TEST_F(PipelineStacks, AnIdlePipelineGivesBackTheStacksOfItsLastRounds) {
  for (int burst = 0; burst < 2; ++burst) {
    EXPECT_GE(Burst(keyloom::kRoundCalls), keyloom::kRoundCalls) << "the burst did not run as one round";
    // Idle now: the stacks go back, all but a few.
    EXPECT_TRUE(StacksComeDownTo(mapped_before + keyloom::kIdleKeptStacks)) << "burst " << burst;
  }
  Stop();
}

TEST_F(PipelineStacks, APipelineKeptBusyWithSmallRoundsGivesBackTheStacksOfAnEarlierBurst) {
  Burst(keyloom::kRoundCalls);
  // One call at a time, never idle long: the records beyond what these
  // rounds use are cut. Kept: the pooled few and the stack of the one call
  // these rounds run.
  size_t rounds = 0;
  EXPECT_TRUE(StacksComeDownTo(mapped_before + keyloom::kIdleKeptStacks + 1, [&] {
    Burst(1);
    ++rounds;
  })) << rounds << " rounds";
  Stop();
}

}  // namespace
