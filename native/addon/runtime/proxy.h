// Proxy objects and class templates.
//
// A C pointer crosses into JavaScript as an object made from the one class
// template "KeyloomProxy"; its internal field 0 points at a KLRT_Proxy record
// (C pointer, descriptor, ownership flag, weak handle). No proxy of this module
// owns C memory: collecting a proxy frees only its record.
#pragma once

#include <v8.h>

#include <atomic>
#include <cstdint>

#include "runtime/compat.h"
#include "runtime/errors.h"
#include "runtime/registry.h"

enum : int { KLRT_POINTER_OWN = 1 };

struct KLRT_IsolateState;

// One record per proxy object, allocated when the object is made and deleted
// when the collector takes it. The first four fields are the shared record,
// in its order (other modules of the same runtime read them); the rest is the
// bookkeeping that frees the records still alive when the environment ends.
class KLRT_Proxy {
 public:
  // Zeroed; reports 1000 bytes of external memory to the isolate.
  explicit KLRT_Proxy(v8::Isolate* isolate);
  // Clears the handle's weakness and disposes of it; takes the 1000 bytes back.
  ~KLRT_Proxy();

  bool owns_c_object;
  void* c_object;
  klrt_type_info* info;
  v8::Global<v8::Object> handle;

  v8::Isolate* isolate;
  KLRT_IsolateState* owner;  // the list of live records it is on, or null
  KLRT_Proxy* prev;
  KLRT_Proxy* next;
};

// Per-type client data of a descriptor (no descriptor of this module has any):
// the type's own class template, then the finaliser of owned proxies.
struct KLRT_ClientData {
  v8::Global<v8::FunctionTemplate> class_templ;
  void (*dtor)(const v8::WeakCallbackInfo<KLRT_Proxy>& data);
};

// Makes a class template with one internal field and the prototype methods
// equals and getCPtr.
v8::Local<v8::FunctionTemplate> KLRT_CreateClassTemplate(v8::Isolate* isolate,
                                                           const char* name);
// Step 3 of the initialization: makes the "KeyloomProxy" template and keeps it in
// the isolate's KLRT_Proxy_class_templ, replacing an earlier one.
void KLRT_InstallProxyClass(v8::Isolate* isolate);

// A new proxy for ptr with descriptor info, or null for a null pointer.
v8::Local<v8::Value> KLRT_NewPointerObj(v8::Isolate* isolate, void* ptr,
                                           klrt_type_info* info, int flags);

// Whether a proxy of descriptor from is accepted where ty is wanted (by
// address, then by mangled name), the cast lists' move-to-front included.
bool KLRT_CheckCast(klrt_type_info* from, klrt_type_info* ty);

// What the module keeps per isolate (the main thread's and each worker's):
// the "KeyloomProxy" template, its instance template, an exemplar instance and
// the records whose objects are alive. Defined here for the inline shape test.
struct KLRT_IsolateState {
  std::atomic<v8::Isolate*> isolate{nullptr};
  // The persistent handle to the "KeyloomProxy" template (strong).
  v8::Global<v8::FunctionTemplate> KLRT_Proxy_class_templ;
  // Its instance template, kept to spare the lookup on every proxy made.
  v8::Global<v8::ObjectTemplate> instance_templ;
  // An instance of the template that is never handed out: its map is the map
  // of the proxies made from the template, so an object of that map has the
  // internal field. An eternal handle: read inline, without a handle scope.
  v8::Eternal<v8::Object> exemplar;
  // Records whose objects are alive (their finaliser has not run).
  KLRT_Proxy* live = nullptr;
};

// The state of the first isolate that initialized the module (set once).
extern std::atomic<KLRT_IsolateState*> KLRT_PrimaryState;

// Whether value has the shape of this isolate's proxies: a cheaper, exact
// stand-in for "an object with at least one internal field" in the common
// case. Anything else takes the general test.
inline bool KLRT_HasProxyShape(v8::Isolate* isolate, v8::Local<v8::Value> value) {
  KLRT_IsolateState* state = KLRT_PrimaryState.load(std::memory_order_acquire);
  if (!state || state->isolate.load(std::memory_order_relaxed) != isolate ||
      state->exemplar.IsEmpty()) {
    return false;
  }
  uintptr_t map = keyloom::compat::MapOf(value);
  return map != 0 && map == keyloom::compat::MapOf(state->exemplar.Get(isolate));
}

// The pointer conversion with its type check: 0 and *ptr set, or -5 (not an
// object, wrong descriptor) or -1 (an object without a proxy record). null
// gives a null pointer; undefined is refused.
inline int KLRT_ConvertPtr(v8::Isolate* isolate, v8::Local<v8::Value> value, void** ptr,
                              klrt_type_info* info, int /*flags*/) {
  if (value->IsNull()) {
    *ptr = nullptr;
    return KLRT_OK;
  }
  if (!KLRT_HasProxyShape(isolate, value)) {
    if (!value->IsObject()) return KLRT_TypeError;
    if (value.As<v8::Object>()->InternalFieldCount() < 1) return KLRT_ERROR;
  }
  auto* cdata = static_cast<KLRT_Proxy*>(
      keyloom::compat::GetAlignedPointer(value.As<v8::Object>(), 0));
  if (cdata == nullptr) return KLRT_ERROR;
  if (cdata->info != info && !KLRT_CheckCast(cdata->info, info)) return KLRT_TypeError;
  *ptr = cdata->c_object;
  return KLRT_OK;
}

// The same with the classic signature, on the current isolate.
inline int KLRT_ConvertPtr(v8::Local<v8::Value> value, void** ptr, klrt_type_info* info,
                              int flags) {
  return KLRT_ConvertPtr(v8::Isolate::GetCurrent(), value, ptr, info, flags);
}

// The instance pointer of equals and getCPtr: no null rule, no type check.
int KLRT_GetInstancePtr(v8::Local<v8::Value> value, void** ptr);

// The methods of every proxy.
void _wrap_equals(const v8::FunctionCallbackInfo<v8::Value>& info);
void _wrap_getCPtr(const v8::FunctionCallbackInfo<v8::Value>& info);
