// keyloom_client.node: the native entry points of the idiomatic client that the
// exact layer does not export (library functions beyond the ones it wraps). Every function
// is one line of kFunctions, written with the exact layer's wrapper template
// and argument kinds (native/addon/runtime), so it converts, checks and raises
// exactly as the exact layer does. Proxies made by keyloom.node (clients, cells,
// arrays) are accepted here: both modules join one registry ring and share
// their pointer types.
#include <node.h>
#include <v8.h>

#include <cstring>
#include <unordered_set>
#include <vector>

#include "answered_call.h"
#include "bytes_arg.h"
#include "keyloom.h"
#include "loop_pipeline.h"
#include "pipelined_call.h"
#include "runtime/arg_kinds.h"
#include "runtime/module.h"
#include "runtime/proxy.h"
#include "runtime/registry.h"
#include "runtime/wrapper.h"

using namespace keyloom;  // the kinds: Client, CharP, Size, RCode ...

namespace {

// A second proxy of the same client: the one the idiomatic client gives out as
// its `handle`, which keeps that client alive, while the first one stays with
// the client's finaliser.
kl_client* client_alias(kl_client* client) { return client; }
using RClient = RProxy<kl_client*, KLRT_TYPE_p_kl_client>;

// The clients the idiomatic client made in this thread's environment and has
// not destroyed yet. A worker thread that ends, or is terminated, runs no more
// finalisers: its environment's cleanup destroys what is left, so no
// connection or descriptor outlives the thread.
struct LiveClients {
  std::unordered_set<kl_client*> clients;
};
thread_local LiveClients* live_clients = nullptr;

void DestroyLeftClients(void* arg) {
  auto* live = static_cast<LiveClients*>(arg);
  for (kl_client* client : live->clients) {
    LoopPipeline::Stop(client);
    kl_client_destroy(client);
  }
  if (live_clients == live) live_clients = nullptr;
  delete live;
}

// Takes a new client into this environment's care.
void client_adopt(kl_client* client) {
  if (client && live_clients) live_clients->clients.insert(client);
}
// Destroys a client, and forgets it (null: nothing). Its pipeline, if it has
// one, ends first.
void client_destroy(kl_client* client) {
  if (!client) return;
  if (live_clients) live_clients->clients.erase(client);
  LoopPipeline::Stop(client);
  kl_client_destroy(client);
}

// pipeline_start(client, onSettled): the client's pipeline on this thread;
// its calls then go through exports.pipelined, and onSettled gets the
// finished ones ([ticket, result, ...]). 0, or KL_PTHREAD_OP_FAILURE when no
// thread could be made.
void PipelineStart(const v8::FunctionCallbackInfo<v8::Value>& info) {
  using Args = Arguments<"pipeline_start", Client>;
  Args::Slots slots{};
  if (!Args::Convert(info, slots, 1)) return;
  v8::Isolate* isolate = info.GetIsolate();
  if (!info[1]->IsFunction()) {
    isolate->ThrowException(v8::Exception::TypeError(
        v8::String::NewFromUtf8Literal(isolate, "keyloom: pipeline_start takes the settle callback")));
    return;
  }
  const bool started = LoopPipeline::Start(isolate, Client::get(std::get<0>(slots)), info[1].As<v8::Function>());
  info.GetReturnValue().Set(started ? KL_SUCCESS : KL_PTHREAD_OP_FAILURE);
}
// Hands over the pipelined calls made since the last flush (once a tick).
void pipeline_flush(kl_client* client) {
  if (LoopPipeline* pipeline = LoopPipeline::Of(client)) pipeline->Flush();
}
// The time budget, in ms, of the pipelined calls made from now on (0: the client's).
void pipeline_timeout(kl_client* client, unsigned ms) {
  if (LoopPipeline* pipeline = LoopPipeline::Of(client)) pipeline->set_timeout_ms(ms);
}

// The library commands beyond the exact layer's.
#define KEYLOOM_CLIENT_COMMANDS                                                                \
  KL_CMD(kl_client_max_reply_size, Client, Size),                                              \
      KL_CMD(kl_set_binary_if, Client, CharP, Size, Binary, Size, Size, Int),                  \
      KL_CMD(kl_incrby_decimal, Client, CharP, Size, CharConstP, Size, CharPP, SizeP, Size),   \
      KL_CMD(kl_hincrby_decimal, Client, CharP, Size, CharP, Size, CharConstP, Size, CharPP,   \
             SizeP, Size),                                                                     \
      KL_CMD(kl_get_ttl_decimal, Client, CharP, Size, CharPP, SizeP),                          \
      KL_CMD(kl_command, Client, Int, Bytes, Size, Bytes, Size, CharPP, SizeP)

// The commands whose answered forms are declared piece by piece: a list of
// strings in (TextList, TextPairs) is spelled like output cells, a char **
// alone (Text) or a double * (Score) is no shape of its own, some answer
// twice (ZSCORE: [score, value]) and some have outputs apart that share one
// count (SMEMBERS with values), so the pieces say which is which
// (answered_call.h). Each line must spell the C declaration. A line here
// replaces the form found in the kinds of the same command (kl_sort_whole,
// whose count comes without values when it stores).
#define KEYLOOM_COMPOSED_COMMANDS                                                              \
  KL_COMPOSED(kl_mget_whole, Client, TextList<CharPP, SizeP>, ManyValues, CharP, Size, Int),   \
      KL_COMPOSED(kl_mdel, Client, TextList<CharPP, SizeP>, Count<IntP>),                      \
      KL_COMPOSED(kl_hmget_whole, Client, CharP, Size, TextList<CharPP, SizeP>, ManyValues,    \
                  CharP, Size),                                                                \
      KL_COMPOSED(kl_mhmget_whole, Client, TextList<CharPP, SizeP>, TextList<CharPP, SizeP>,   \
                  ManyValues, CharP, Size),                                                    \
      KL_COMPOSED(kl_hmdel, Client, CharP, Size, TextList<CharPP, SizeP>, Count<IntP>),        \
      KL_COMPOSED(kl_zmrem, Client, CharP, Size, TextList<CharPP, SizeP>, Count<IntP>),        \
      KL_COMPOSED(kl_mset, Client, TextPairs<CharConstPP, SizeP, CharPP, SizeP>, Done),         \
      KL_COMPOSED(kl_hmset, Client, CharP, Size, TextPairs<CharPP, SizeP, CharPP, SizeP>, Done, \
                  Size),                                                                       \
      KL_COMPOSED(kl_dmadd, Client, CharP, Size, TextPairs<CharPP, SizeP, CharPP, SizeP>, UInt, \
                  Count<IntP>, Size),                                                          \
      KL_COMPOSED(kl_sunion_whole, Client, TextList<CharPP, SizeP>, ManyValues, CharP, Size, Int), \
      KL_COMPOSED(kl_sunionstore, Client, CharP, Size, TextList<CharPP, SizeP>, Done, Int, Size),  \
      KL_COMPOSED(kl_type, Client, CharP, Size, Text),                                          \
      KL_COMPOSED(kl_zscore, Client, CharP, Size, CharP, Size, Score, OneValue),                \
      KL_COMPOSED(kl_zrank, Client, CharP, Size, CharP, Size, Count<UIntP>, ZSetFlags, OneValue), \
      KL_COMPOSED(kl_zincrby, Client, CharP, Size, CharP, Size, Double, Score, Size),           \
      KL_COMPOSED(kl_zadddis, Client, CharP, Size, Double, CharP, Size, Double, Text, Size),     \
      KL_COMPOSED(kl_smembers_whole, Client, CharConstP, Size, ManyValues, CharConstP, Size,      \
                  SetFlags, ValuesAlongside),                                                  \
      KL_COMPOSED(kl_zrange_whole, Client, CharP, Size, Int, Int, ManyValues, CharP, Size,        \
                  ZSetFlags, ScoresAlongside, ValuesAlongside),                                \
      KL_COMPOSED(kl_zrangebyscore_whole, Client, CharP, Size, Double, Double, ManyValues, CharP, \
                  Size, ZSetFlags, ScoresAlongside, ValuesAlongside),                          \
      KL_COMPOSED(kl_zmadd, Client, CharP, Size, NumberList<DoubleP>, TextList<CharPP, SizeP>,   \
                  Done, Size),                                                                 \
      KL_COMPOSED(kl_zmaddval, Client, CharP, Size, NumberList<DoubleP>,                        \
                  TextPairs<CharPP, SizeP, CharPP, SizeP>, Done, Size),                        \
      KL_COMPOSED(kl_msetex, Client, TextPairs<CharConstPP, SizeConstP, CharConstPP, SizeConstP>, \
                  NumberList<SizeConstP>, Done),                                               \
      KL_COMPOSED(kl_sort_whole, Client, CountedValues, CharP, Size, CharP, Size, Size, CharP,   \
                  Int, Int, CharP, CharP, CharP, CharP, CharP, CharP),                         \
      KL_COMPOSED(kl_info, Client, TextsToNull, CharConstP, RetPP)

// The functions, one line each: KL_CMD(C function, argument kinds...) or
// KL_EXPORT(exported name, C function, result kind, argument kinds...).
const std::vector<FunctionEntry> kFunctions = {
    KEYLOOM_CLIENT_COMMANDS,
    // Settings, made before a client's pipeline starts: not pipelined.
    KL_CMD(kl_client_set_tls, Client, CharP, Size, CharP, Size, CharP, Size, CharP, Size, Int),
    KL_CMD(kl_client_set_hash_tag, Client, CharP, Size),
    KL_CMD(kl_server_add_weighted, Client, CharP, UInt, CharP, UInt),
    KL_EXPORT(kl_last_failure_kind, kl_last_failure_kind, RInt, Client),
    KL_EXPORT(kl_last_failure_server, kl_last_failure_server, RUtf8, Client),
    KL_EXPORT(kl_last_failure_text, kl_last_failure_text, RUtf8, Client),
    KL_EXPORT(client_alias, client_alias, RClient, Client),
    KL_EXPORT(client_adopt, client_adopt, RVoid, Client),
    KL_EXPORT(client_destroy, client_destroy, RVoid, Client),
    FunctionEntry{"pipeline_start", &PipelineStart},
    KL_EXPORT(pipeline_flush, pipeline_flush, RVoid, Client),
    KL_EXPORT(pipeline_timeout, pipeline_timeout, RVoid, Client, UInt),
};

// Adding a server changes the routing that suspended calls of a round may be
// in the middle of: it is done before the pipeline starts, never through it.
bool AddsServers(const char* name) {
  return std::strcmp(name, "kl_server_add") == 0 || std::strcmp(name, "server_add") == 0 ||
         std::strcmp(name, "kl_server_add_weighted") == 0;
}

// exports.pipelined: every library command of both modules, under the same
// names, returning a Promise (native/client-addon/pipelined_call.h).
#undef KL_CMD_AS
#undef KL_EXPORT
#define KL_CMD_AS KL_PIPELINED_CMD_AS
#define KL_EXPORT KL_PIPELINED_SKIP
const std::vector<FunctionEntry> kPipelined = {
#include "library_functions.inc"
    KEYLOOM_CLIENT_COMMANDS,
};

// exports.answered and exports.answered_pipelined: the commands that answer with
// a value, several values, names with values or a count, returning (or
// settling with) the value itself (answered_call.h).
#undef KL_CMD_AS
#define KL_CMD_AS KL_ANSWERED_CMD_AS
#define KL_COMPOSED KL_COMPOSED_ANSWERED
const std::vector<FunctionEntry> kAnswered = {
#include "library_functions.inc"
    KEYLOOM_CLIENT_COMMANDS,
    KEYLOOM_COMPOSED_COMMANDS,
};
#undef KL_CMD_AS
#undef KL_COMPOSED
#define KL_CMD_AS KL_PIPELINED_ANSWERED_CMD_AS
#define KL_COMPOSED KL_COMPOSED_PIPELINED
const std::vector<FunctionEntry> kAnsweredPipelined = {
#include "library_functions.inc"
    KEYLOOM_CLIENT_COMMANDS,
    KEYLOOM_COMPOSED_COMMANDS,
};

// exports.signatures: the C kinds of every library command, by name, as its
// table line spells them ("Client, CharP, Size, CharPP, SizeP"). Each line of
// the client's command tables is checked against them when it is made, and
// the build checks every line (scripts/check-command-table.js), so a line
// whose arguments do not lay out the C declaration does not build.
struct Signature {
  const char* name;
  const char* kinds;
};
#undef KL_CMD_AS
#undef KL_EXPORT
#define KL_CMD_AS(NAME, FN, ...) Signature{#NAME, #__VA_ARGS__}
#define KL_EXPORT(...) Signature{nullptr, nullptr}
const std::vector<Signature> kSignatures = {
#include "library_functions.inc"
    KEYLOOM_CLIENT_COMMANDS,
};

void ExportSignatures(v8::Isolate* isolate, v8::Local<v8::Context> context, v8::Local<v8::Object> exports) {
  v8::Local<v8::Object> signatures = v8::Object::New(isolate);
  for (const Signature& signature : kSignatures) {
    if (!signature.name) continue;
    signatures
        ->Set(context, v8::String::NewFromUtf8(isolate, signature.name).ToLocalChecked(),
              v8::String::NewFromUtf8(isolate, signature.kinds).ToLocalChecked())
        .Check();
  }
  exports->Set(context, v8::String::NewFromUtf8Literal(isolate, "signatures"), signatures).Check();
}

// exports[name]: an object of the table's functions that have an entry.
void ExportTable(v8::Isolate* isolate, v8::Local<v8::Context> context, v8::Local<v8::Object> exports,
                 const char* name, const std::vector<FunctionEntry>& table) {
  v8::Local<v8::Object> functions = v8::Object::New(isolate);
  for (const FunctionEntry& function : table) {
    if (function.name && !AddsServers(function.name)) {
      KLRT_AddStaticFunction(isolate, context, functions, function.name, function.callback);
    }
  }
  exports->Set(context, v8::String::NewFromUtf8(isolate, name).ToLocalChecked(), functions).Check();
}

}  // namespace

// Context-aware: loaded again by every worker thread that requires it.
NODE_MODULE_INIT(/* exports, module, context */) {
  v8::Isolate* isolate = v8::Isolate::GetCurrent();
  KLRT_InitializeModule(static_cast<void*>(&exports));
  v8::HandleScope scope(isolate);
  KLRT_InstallProxyClass(isolate);
  if (!live_clients) {
    live_clients = new LiveClients();
    node::AddEnvironmentCleanupHook(isolate, DestroyLeftClients, live_clients);
  }
  for (const FunctionEntry& function : kFunctions) {
    KLRT_AddStaticFunction(isolate, context, exports, function.name, function.callback);
  }
  ExportTable(isolate, context, exports, "pipelined", kPipelined);
  ExportTable(isolate, context, exports, "answered", kAnswered);
  ExportTable(isolate, context, exports, "answered_pipelined", kAnsweredPipelined);
  ExportSignatures(isolate, context, exports);
}
