// keyloom_client.node: the native entry points of the idiomatic client that the
// exact layer does not export (library functions beyond the ones it wraps). Every function
// is one line of kFunctions, written with the exact layer's wrapper template
// and argument kinds (native/addon/runtime), so it converts, checks and raises
// exactly as the exact layer does. Proxies made by keyloom.node (clients, cells,
// arrays) are accepted here: both modules join one registry ring and share
// their pointer types.
#include <node.h>
#include <v8.h>

#include <unordered_set>
#include <vector>

#include "keyloom.h"
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
  for (kl_client* client : live->clients) kl_client_destroy(client);
  if (live_clients == live) live_clients = nullptr;
  delete live;
}

// Takes a new client into this environment's care.
void client_adopt(kl_client* client) {
  if (client && live_clients) live_clients->clients.insert(client);
}
// Destroys a client, and forgets it (null: nothing).
void client_destroy(kl_client* client) {
  if (!client) return;
  if (live_clients) live_clients->clients.erase(client);
  kl_client_destroy(client);
}

// The functions, one line each: KL_CMD(C function, argument kinds...) or
// KL_EXPORT(exported name, C function, result kind, argument kinds...).
const std::vector<FunctionEntry> kFunctions = {
    KL_CMD(kl_client_max_reply_size, Client, Size),
    KL_CMD(kl_set_binary_if, Client, CharP, Size, Binary, Size, Size, Int),
    KL_EXPORT(kl_last_failure_kind, kl_last_failure_kind, RInt, Client),
    KL_EXPORT(kl_last_failure_server, kl_last_failure_server, RUtf8, Client),
    KL_EXPORT(kl_last_failure_text, kl_last_failure_text, RUtf8, Client),
    KL_EXPORT(client_alias, client_alias, RClient, Client),
    KL_EXPORT(client_adopt, client_adopt, RVoid, Client),
    KL_EXPORT(client_destroy, client_destroy, RVoid, Client),
};

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
}
