// kl_pipeline: a client's own thread that runs library calls on fibers, a
// round at a time. Each call of a round runs until it needs replies
// (exchange() suspends it with its batches), then the round sends the
// batches of every suspended call together: one write per server, replies
// read back in the order the commands went out. The calls resume with their
// replies and either finish or suspend again for a next exchange.
//
// Each call has a site of its own (client.h CallSite): the round's client,
// whose lock the round holds and whose exchanges it makes, and the call's
// time budget. The pipeline enters it whenever it resumes the call; the call's
// context (deadline, failure) lives on the call's own stack, and the batches
// of its exchanges carry it.
#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "client.h"
#include "exchange.h"
#include "fiber.h"
#include "internal.h"
#include "pipeline.h"

namespace keyloom {

namespace {

// How long a pipeline waits with nothing to do before it gives back the
// stacks of its last rounds (all but kIdleKeptStacks).
constexpr auto kIdleRelease = std::chrono::seconds(1);

// One call of a round.
struct Call {
  kl_job job{};
  Fiber fiber;
  CallSite site;
  // The exchange it waits for.
  Batch *batches = nullptr;
  size_t batch_count = 0;
};

thread_local Call *running_call = nullptr;

void call_entry(void *arg) {
  Call *call = static_cast<Call *>(arg);
  call->job.run(call->job.data);
}

void resume(Call &call) {
  CallSite *before = enter_call_site(&call.site);
  running_call = &call;
  call.fiber.resume();
  running_call = nullptr;
  enter_call_site(before);
}

// Every step of an exchange over the batches of every waiting call; each
// batch carries its call's context.
void exchange_together(kl_client *client, const std::vector<Call *> &waiting) {
  ++client->exchange_round;
  for (auto step : {exchange_queue, exchange_send, exchange_read, exchange_settle}) {
    for (Call *call : waiting)
      for (size_t k = 0; k < call->batch_count; ++k) step(call->batches[k]);
  }
}

}  // namespace

void await_round(Batch *batches, size_t n) {
  Call *call = running_call;
  call->batches = batches;
  call->batch_count = n;
  Fiber::suspend();
}

}  // namespace keyloom

using keyloom::Call;

struct kl_pipeline {
  kl_client *client = nullptr;
  std::thread thread;
  std::mutex mutex;
  std::condition_variable wake;
  std::deque<kl_job> queue;  // handed over, not started
  bool stopping = false;

  void main();
  void run_round(std::vector<std::unique_ptr<Call>> &calls, size_t n);
  // A burst of calls must not hold its stacks for the life of the
  // client: the call records (each with its fiber's stack) are cut to the
  // largest round of each stretch of kIdleRelease, and to none when a
  // whole stretch passes without work.
  keyloom::Clock::time_point stretch_start = keyloom::Clock::now();
  size_t stretch_peak = 0;  // the most calls a round of this stretch ran

  // Called with the lock held: waits for work, releasing the records when
  // none comes for kIdleRelease.
  void wait_for_work(std::unique_lock<std::mutex> &lock, std::vector<std::unique_ptr<Call>> &calls);
  void after_round(std::vector<std::unique_ptr<Call>> &calls, size_t n);
  void keep_calls(std::vector<std::unique_ptr<Call>> &calls, size_t keep);
};

void kl_pipeline::keep_calls(std::vector<std::unique_ptr<Call>> &calls, size_t keep) {
  if (calls.size() > keep) {
    calls.resize(keep);  // each fiber gives its stack to the thread's pool
    keyloom::release_pooled_stacks(keyloom::kIdleKeptStacks);
  }
  stretch_start = keyloom::Clock::now();
  stretch_peak = 0;
}

void kl_pipeline::wait_for_work(std::unique_lock<std::mutex> &lock, std::vector<std::unique_ptr<Call>> &calls) {
  auto has_work = [this] { return !queue.empty() || stopping; };
  if (!calls.empty() && !wake.wait_for(lock, keyloom::kIdleRelease, has_work)) {
    lock.unlock();
    keep_calls(calls, 0);
    calls.shrink_to_fit();
    lock.lock();
  }
  wake.wait(lock, has_work);
}

void kl_pipeline::after_round(std::vector<std::unique_ptr<Call>> &calls, size_t n) {
  stretch_peak = std::max(stretch_peak, n);
  if (keyloom::Clock::now() - stretch_start >= keyloom::kIdleRelease) keep_calls(calls, stretch_peak);
}

// Runs n calls to the end. The round holds the client's lock: under
// KL_FLAG_SHARED, other threads' calls wait for it.
void kl_pipeline::run_round(std::vector<std::unique_ptr<Call>> &calls, size_t n) {
  std::vector<Call *> unstarted;  // no stack to be had: run plainly after the round
  {
    keyloom::ClientLock lock(client->mutex);
    std::vector<Call *> waiting;
    for (size_t i = 0; i < n; ++i) {
      Call &call = *calls[i];
      call.site = {client, call.job.timeout_ms, nullptr};
      call.batches = nullptr;
      call.batch_count = 0;
      if (!call.fiber.prepare(keyloom::call_entry, &call)) {
        unstarted.push_back(&call);
        continue;
      }
      keyloom::resume(call);
    }
    for (;;) {
      waiting.clear();
      for (size_t i = 0; i < n; ++i)
        if (!calls[i]->fiber.finished() && calls[i]->batch_count) waiting.push_back(calls[i].get());
      if (waiting.empty()) break;
      keyloom::exchange_together(client, waiting);
      for (Call *call : waiting) {
        call->batches = nullptr;
        call->batch_count = 0;
        keyloom::resume(*call);
      }
    }
  }
  for (Call *call : unstarted) {
    // On this thread, outside the round: the call takes the lock itself.
    call->site = {nullptr, call->job.timeout_ms, nullptr};
    keyloom::CallSite *before = keyloom::enter_call_site(&call->site);
    call->job.run(call->job.data);
    keyloom::enter_call_site(before);
  }
}

void kl_pipeline::main() {
  // Signals are the process's business, not this thread's.
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);
  std::vector<std::unique_ptr<Call>> calls;
  for (;;) {
    size_t n = 0;
    {
      std::unique_lock<std::mutex> lock(mutex);
      wait_for_work(lock, calls);
      if (queue.empty()) return;
      n = std::min(queue.size(), keyloom::kRoundCalls);
      while (calls.size() < n) calls.push_back(std::make_unique<Call>());
      for (size_t i = 0; i < n; ++i) {
        calls[i]->job = queue.front();
        queue.pop_front();
      }
    }
    run_round(calls, n);
    after_round(calls, n);
  }
}

kl_pipeline *kl_pipeline_start(kl_client *client) {
  if (!client) return nullptr;
  auto *pipeline = new (std::nothrow) kl_pipeline();
  if (!pipeline) return nullptr;
  pipeline->client = client;
  try {
    pipeline->thread = std::thread([pipeline] { pipeline->main(); });
  } catch (...) {
    delete pipeline;
    return nullptr;
  }
  return pipeline;
}

kl_return_t kl_pipeline_submit(kl_pipeline *pipeline, const kl_job *jobs, size_t n) {
  if (!pipeline) return KL_INVALID_CLIENT;
  if (n == 0) return KL_SUCCESS;
  if (!jobs) return KL_INVALID_PARAMETER;
  try {
    std::lock_guard<std::mutex> lock(pipeline->mutex);
    pipeline->queue.insert(pipeline->queue.end(), jobs, jobs + n);
  } catch (...) {
    return KL_MEMORY_FAILURE;
  }
  pipeline->wake.notify_one();
  return KL_SUCCESS;
}

void kl_pipeline_stop(kl_pipeline *pipeline) {
  if (!pipeline) return;
  {
    std::lock_guard<std::mutex> lock(pipeline->mutex);
    pipeline->stopping = true;
  }
  pipeline->wake.notify_one();
  pipeline->thread.join();
  delete pipeline;
}
