// kl_pipeline: a client's own thread that runs library calls on fibers, a
// round at a time. Each call of a round runs until it needs replies
// (exchange() suspends it with its batches), then the round sends the
// batches of every suspended call together: one write per server, replies
// read from whichever server has them ready, each server's in the order the
// commands went out. The calls resume with their replies and either finish
// or suspend again for a next exchange. A server being connected holds only
// the calls that wait for it: while it connects, the round goes on with the
// others and takes in new calls.
//
// Each call has a site of its own (client.h CallSite): the round's client,
// whose lock the round holds and whose exchanges it makes, and the call's
// time budget. The pipeline enters it whenever it resumes the call; the call's
// context (deadline, failure) lives on the call's own stack, and the batches
// of its exchanges carry it.
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

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
#include "exchange_round.h"
#include "fiber.h"
#include "internal.h"
#include "pipeline.h"
#include "wake_fd.h"

namespace keyloom {

namespace {

// How long a pipeline waits with nothing to do before it gives back the
// stacks of its last rounds (all but kIdleKeptStacks).
constexpr auto kIdleRelease = std::chrono::seconds(1);

// One call of a round.
struct Call {
  kl_job job{};
  bool plain = false;  // no stack to be had: runs after the round, on the thread's own
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
  // While a round waits for a connection or a slow server, a submit rings
  // wake_fd so that the round takes the new calls in.
  int wake_fd = -1;
  bool round_listens = false;

  void main();
  // Runs the calls[0..n) to the end, and the calls it takes in meanwhile;
  // says how many records the round used.
  size_t run_round(std::vector<std::unique_ptr<Call>> &calls, size_t n);
  void start_call(Call &call, std::vector<Call *> &plain);
  // Takes queued jobs into the round: finished calls' records first, then
  // new ones, while fewer than kRoundCalls calls are in progress. n grows to
  // cover the records used; false when it took none.
  bool take_in(std::vector<std::unique_ptr<Call>> &calls, size_t &n, std::vector<Call *> &plain);
  // Whether a submit should wake the round; calls queued before it listened
  // wake it at once.
  void set_listening(bool on) {
    std::lock_guard<std::mutex> lock(mutex);
    round_listens = on;
    if (on && !queue.empty()) keyloom::ring(wake_fd);
  }
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

void kl_pipeline::start_call(Call &call, std::vector<Call *> &plain) {
  call.site = {client, call.job.timeout_ms, nullptr};
  call.batches = nullptr;
  call.batch_count = 0;
  call.plain = !call.fiber.prepare(keyloom::call_entry, &call);
  if (call.plain) {
    plain.push_back(&call);
    return;
  }
  keyloom::resume(call);
}

bool kl_pipeline::take_in(std::vector<std::unique_ptr<Call>> &calls, size_t &n, std::vector<Call *> &plain) {
  std::vector<Call *> taken;
  {
    std::lock_guard<std::mutex> lock(mutex);
    size_t in_progress = 0;
    for (size_t i = 0; i < n; ++i) in_progress += !calls[i]->fiber.finished();
    for (size_t i = 0; i < calls.size() && in_progress < keyloom::kRoundCalls && !queue.empty(); ++i) {
      Call &call = *calls[i];
      if (i < n && (!call.fiber.finished() || call.plain)) continue;
      call.job = queue.front();
      queue.pop_front();
      taken.push_back(&call);
      ++in_progress;
      n = std::max(n, i + 1);
    }
    while (in_progress < keyloom::kRoundCalls && !queue.empty()) {
      calls.push_back(std::make_unique<Call>());
      calls.back()->job = queue.front();
      queue.pop_front();
      taken.push_back(calls.back().get());
      ++in_progress;
      n = calls.size();
    }
  }
  for (Call *call : taken) start_call(*call, plain);
  return !taken.empty();
}

// The round holds the client's lock: under KL_FLAG_SHARED, other threads'
// calls wait for it.
size_t kl_pipeline::run_round(std::vector<std::unique_ptr<Call>> &calls, size_t n) {
  std::vector<Call *> plain;
  {
    keyloom::ClientLock lock(client->mutex);
    keyloom::ExchangeRound exchanges(client, true);
    for (size_t i = 0; i < n; ++i) start_call(*calls[i], plain);
    std::vector<Call *> waiting;
    std::vector<keyloom::Batch *> batches;
    for (;;) {
      waiting.clear();
      batches.clear();
      for (size_t i = 0; i < n; ++i) {
        Call &call = *calls[i];
        if (call.fiber.finished() || !call.batch_count) continue;
        waiting.push_back(&call);
        for (size_t k = 0; k < call.batch_count; ++k)
          if (!call.batches[k].done) batches.push_back(&call.batches[k]);
      }
      if (waiting.empty()) break;
      // Once the round has a server to wait for (connecting, or slow to
      // answer), calls handed over meanwhile wake it, while it has room for
      // them.
      const bool listen = (exchanges.connecting() || exchanges.reading()) && waiting.size() < keyloom::kRoundCalls;
      if (listen) set_listening(true);
      exchanges.run(batches.data(), batches.size(), listen ? wake_fd : -1);
      if (listen) set_listening(false);
      bool resumed = false;
      for (Call *call : waiting) {
        keyloom::Batch *begin = call->batches, *end = call->batches + call->batch_count;
        if (!std::all_of(begin, end, [](const keyloom::Batch &b) { return b.done; })) continue;
        call->batches = nullptr;
        call->batch_count = 0;
        keyloom::resume(*call);
        resumed = true;
      }
      if (!exchanges.connecting() && !exchanges.reading()) continue;
      // Calls for the servers that are up go on meanwhile, new ones too.
      if (take_in(calls, n, plain) || resumed || exchanges.reading()) continue;
      set_listening(true);
      exchanges.wait_for_connection(wake_fd);
      set_listening(false);
    }
  }
  for (Call *call : plain) {
    // On this thread, outside the round: the call takes the lock itself.
    call->site = {nullptr, call->job.timeout_ms, nullptr};
    keyloom::CallSite *before = keyloom::enter_call_site(&call->site);
    call->job.run(call->job.data);
    keyloom::enter_call_site(before);
    call->plain = false;
  }
  return n;
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
    after_round(calls, run_round(calls, n));
  }
}

kl_pipeline *kl_pipeline_start(kl_client *client) {
  if (!client) return nullptr;
  auto *pipeline = new (std::nothrow) kl_pipeline();
  if (!pipeline) return nullptr;
  pipeline->client = client;
  pipeline->wake_fd = keyloom::make_wake_fd();
  if (pipeline->wake_fd < 0) {
    delete pipeline;
    return nullptr;
  }
  try {
    pipeline->thread = std::thread([pipeline] { pipeline->main(); });
  } catch (...) {
    close(pipeline->wake_fd);
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
    if (pipeline->round_listens) keyloom::ring(pipeline->wake_fd);
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
  close(pipeline->wake_fd);
  delete pipeline;
}
