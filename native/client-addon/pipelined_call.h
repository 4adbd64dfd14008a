// A library command called through the client's pipeline: the arguments are
// converted on the JavaScript thread exactly as the synchronous export
// converts them (runtime/wrapper.h), the library function runs on the
// pipeline's thread, and the returned Promise settles on the JavaScript
// thread with the code, or with [code, failure kind, server, text] when the
// call met a failure.
#pragma once

#include <v8.h>

#include <string>
#include <tuple>
#include <type_traits>

#include "keyloom.h"
#include "runtime/arg_kinds.h"
#include "runtime/wrapper.h"

namespace keyloom {

// One call in flight: made on the JavaScript thread, run on the pipeline's,
// settled and deleted on the JavaScript thread.
class LoopPipeline;

struct PipelinedCall {
  virtual ~PipelinedCall() = default;
  virtual void Run() = 0;              // the library call, on the pipeline's thread
  virtual void ReleaseArguments() = 0;  // after Run, or instead of it

  kl_client* client = nullptr;
  LoopPipeline* owner = nullptr;  // settles it
  v8::Global<v8::Promise::Resolver> resolver;
  kl_return_t code = KL_SUCCESS;
  // Read in the call's own context (kl_last_failure_* are per call).
  int failure_kind = KL_FAILURE_NONE;
  std::string failure_server;
  std::string failure_text;

 protected:
  void NoteFailure() {
    failure_kind = kl_last_failure_kind(client);
    if (failure_kind == KL_FAILURE_NONE) return;
    if (const char* s = kl_last_failure_server(client)) failure_server = s;
    if (const char* t = kl_last_failure_text(client)) failure_text = t;
  }
};

// Hands a converted call to its client's pipeline and gives back its
// Promise; raises an Error when the client has no pipeline.
void StartPipelinedCall(const v8::FunctionCallbackInfo<v8::Value>& info, PipelinedCall* call);

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
    if (!Args::Convert(info, call->slots)) {
      delete call;
      return;
    }
    call->client = Client::get(std::get<0>(call->slots));
    StartPipelinedCall(info, call);
  }
};

}  // namespace keyloom

// A line of the pipelined table; library functions that are not commands
// (KL_EXPORT) have no pipelined form and make an empty entry.
#define KL_PIPELINED_CMD_AS(NAME, FN, ...) \
  ::keyloom::FunctionEntry{#NAME, &::keyloom::PipelinedWrapper<#NAME, &FN, __VA_ARGS__>::Start}
#define KL_PIPELINED_SKIP(...) ::keyloom::FunctionEntry{nullptr, nullptr}
