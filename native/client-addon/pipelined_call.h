// A library command called through the client's pipeline: the arguments are
// converted on the JavaScript thread exactly as the synchronous export
// converts them (runtime/wrapper.h), followed by one more, the caller's
// ticket (a uint32) for the call; the library function runs on the
// pipeline's thread. Back on the JavaScript thread, every call that finished
// is handed to the pipeline's settle callback in one call (loop_pipeline.h):
// its ticket and its result, the code, or [code, failure kind, server, text]
// when the call met a failure.
#pragma once

#include <v8.h>

#include <cstdint>
#include <string>
#include <tuple>
#include <type_traits>

#include "keyloom.h"
#include "runtime/arg_kinds.h"
#include "runtime/wrapper.h"

namespace keyloom {

// Why a call failed, as the library recorded it for the call.
struct CallFailureText {
  int kind = KL_FAILURE_NONE;
  std::string server;
  std::string text;

  void ReadFrom(kl_client* client) {
    kind = kl_last_failure_kind(client);
    if (kind == KL_FAILURE_NONE) return;
    if (const char* s = kl_last_failure_server(client)) server = s;
    if (const char* t = kl_last_failure_text(client)) text = t;
  }
};

// One call in flight: made on the JavaScript thread, run on the pipeline's,
// settled and deleted on the JavaScript thread.
class LoopPipeline;

struct PipelinedCall {
  virtual ~PipelinedCall() = default;
  virtual void Run() = 0;              // the library call, on the pipeline's thread
  virtual void ReleaseArguments() = 0;  // after Run, or instead of it
  // The call's result, on the JavaScript thread: the code, or [code, failure
  // kind, server, text] when the call met a failure.
  virtual v8::Local<v8::Value> Result(v8::Isolate* isolate);

  kl_client* client = nullptr;
  LoopPipeline* owner = nullptr;  // settles it
  uint32_t ticket = 0;            // the caller's name for the call
  kl_return_t code = KL_SUCCESS;
  CallFailureText failure;  // read in the call's own context (kl_last_failure_* are per call)

 protected:
  void NoteFailure() { failure.ReadFrom(client); }
};

// A library text as a JavaScript string (UTF-8).
v8::Local<v8::String> TextOf(v8::Isolate* isolate, const std::string& s);

// Hands a converted call to its client's pipeline with the ticket that is
// argument ticket_at; raises an Error (and deletes the call) when the ticket
// is not a uint32 or the client has no pipeline.
void StartPipelinedCall(const v8::FunctionCallbackInfo<v8::Value>& info, int ticket_at, PipelinedCall* call);

template <FixedString Name, auto Fn, class... Kinds>
struct PipelinedWrapper {
  static_assert(Spelled<Fn, RCode, Kinds...>::value);
  using Args = Arguments<Name, Kinds...>;
  static_assert(std::is_same_v<std::tuple_element_t<0, std::tuple<Kinds...>>, Client>,
                "a pipelined command takes its client first");

  struct Call final : PipelinedCall {
    typename Args::Slots slots{};
    void Run() override {
      code = Args::template Apply<Fn>(slots);
      if (code != KL_SUCCESS) NoteFailure();
    }
    void ReleaseArguments() override { Args::Release(slots); }
  };

  static void Start(const v8::FunctionCallbackInfo<v8::Value>& info) {
    auto* call = new Call();
    // Converted in place: a short string's copy lives inside the slot.
    if (!Args::Convert(info, call->slots, 1)) {
      delete call;
      return;
    }
    call->client = Client::get(std::get<0>(call->slots));
    StartPipelinedCall(info, Args::kArity, call);
  }
};

}  // namespace keyloom

// A line of the pipelined table; library functions that are not commands
// (KL_EXPORT) have no pipelined form and make an empty entry.
#define KL_PIPELINED_CMD_AS(NAME, FN, ...) \
  ::keyloom::FunctionEntry{#NAME, &::keyloom::PipelinedWrapper<#NAME, &FN, __VA_ARGS__>::Start}
#define KL_PIPELINED_SKIP(...) ::keyloom::FunctionEntry{nullptr, nullptr}
