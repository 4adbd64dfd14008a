// A client's pipeline seen from one JavaScript thread: calls made in a tick
// wait in `pending` until the tick's flush hands them over together; the
// pipeline's thread runs them and queues them as done; a uv_async handle
// wakes this thread's event loop, which hands every finished call to the
// settle callback in one call: on_settled([ticket, result, ticket, result,
// ...]). The loop is kept alive only while calls are in flight.
#pragma once

#include <uv.h>
#include <v8.h>

#include <mutex>
#include <vector>

#include "keyloom.h"
#include "pipelined_call.h"

namespace keyloom {

class LoopPipeline {
 public:
  // Starts client's pipeline for the current thread, its finished calls
  // handed to on_settled; false when its thread could not be made or it runs
  // already.
  static bool Start(v8::Isolate* isolate, kl_client* client, v8::Local<v8::Function> on_settled);
  // The client's pipeline on this thread, or null.
  static LoopPipeline* Of(kl_client* client);
  // Runs what was handed over, ends the thread and forgets the client; calls
  // not yet handed over, and the Promises of any not yet settled, are
  // dropped (never settled). Nothing when the client has no pipeline.
  static void Stop(kl_client* client);

  void Add(PipelinedCall* call);
  // Hands the calls made since the last flush to the pipeline, in order.
  void Flush();
  // The time budget of the calls added from now on (0: the client's own).
  void set_timeout_ms(unsigned ms) { timeout_ms_ = ms; }

 private:
  LoopPipeline(v8::Isolate* isolate, kl_client* client, kl_pipeline* pipeline, v8::Local<v8::Function> on_settled);
  ~LoopPipeline();
  static void RunCall(void* data);
  static void OnDone(uv_async_t* handle);
  void SettleDone();
  void Track(int delta);

  v8::Isolate* isolate_;
  kl_client* client_;
  kl_pipeline* pipeline_;
  uv_async_t* wakeup_;
  v8::Global<v8::Context> context_;
  v8::Global<v8::Object> resource_;  // the async resource the calls settle under
  v8::Global<v8::Function> on_settled_;
  std::vector<kl_job> pending_;
  size_t in_flight_ = 0;
  unsigned timeout_ms_ = 0;
  std::mutex done_mutex_;
  std::vector<PipelinedCall*> done_;  // run, not settled; under done_mutex_
};

}  // namespace keyloom
