// Proxy objects and class templates.
//
// A C pointer crosses into JavaScript as an object made from the one class
// template "SwigProxy"; its internal field 0 points at a SWIGV8_Proxy record
// (C pointer, descriptor, ownership flag, weak handle). No proxy of this module
// owns C memory: collecting a proxy frees only its record.
#pragma once

#include <v8.h>

#include <atomic>
#include <cstdint>

#include "runtime/compat.h"
#include "runtime/errors.h"
#include "runtime/registry.h"

enum : int { SWIG_POINTER_OWN = 1 };

struct SWIGV8_IsolateState;

// One record per proxy object, allocated when the object is made and deleted
// when the collector takes it. The first four fields are the shared record,
// in its order (other modules of the same runtime read them); the rest is the
// bookkeeping that frees the records still alive when the environment ends.
class SWIGV8_Proxy {
 public:
  // Zeroed; reports 1000 bytes of external memory to the isolate.
  explicit SWIGV8_Proxy(v8::Isolate* isolate);
  // Clears the handle's weakness and disposes of it; takes the 1000 bytes back.
  ~SWIGV8_Proxy();

  bool swigCMemOwn;
  void* swigCObject;
  swig_type_info* info;
  v8::Global<v8::Object> handle;

  v8::Isolate* isolate;
  SWIGV8_IsolateState* owner;  // the list of live records it is on, or null
  SWIGV8_Proxy* prev;
  SWIGV8_Proxy* next;
};

// Per-type client data of a descriptor (no descriptor of this module has any):
// the type's own class template, then the finaliser of owned proxies.
struct SWIGV8_ClientData {
  v8::Global<v8::FunctionTemplate> class_templ;
  void (*dtor)(const v8::WeakCallbackInfo<SWIGV8_Proxy>& data);
};

// Makes a class template with one internal field and the prototype methods
// equals and getCPtr.
v8::Local<v8::FunctionTemplate> SWIGV8_CreateClassTemplate(v8::Isolate* isolate,
                                                           const char* name);
// Step 3 of the initialization: makes the "SwigProxy" template and keeps it in
// the isolate's SWIGV8_SWIGTYPE_Proxy_class_templ, replacing an earlier one.
void SWIGV8_InstallProxyClass(v8::Isolate* isolate);

// A new proxy for ptr with descriptor info, or null for a null pointer.
v8::Local<v8::Value> SWIG_V8_NewPointerObj(v8::Isolate* isolate, void* ptr,
                                           swig_type_info* info, int flags);

// Whether a proxy of descriptor from is accepted where ty is wanted (by
// address, then by mangled name), the cast lists' move-to-front included.
bool SWIGV8_CheckCast(swig_type_info* from, swig_type_info* ty);

// What the module keeps per isolate (the main thread's and each worker's):
// the "SwigProxy" template, its instance template, an exemplar instance and
// the records whose objects are alive. Defined here for the inline shape test.
struct SWIGV8_IsolateState {
  std::atomic<v8::Isolate*> isolate{nullptr};
  // The persistent handle to the "SwigProxy" template (strong).
  v8::Global<v8::FunctionTemplate> SWIGV8_SWIGTYPE_Proxy_class_templ;
  // Its instance template, kept to spare the lookup on every proxy made.
  v8::Global<v8::ObjectTemplate> instance_templ;
  // An instance of the template that is never handed out: its map is the map
  // of the proxies made from the template, so an object of that map has the
  // internal field. An eternal handle: read inline, without a handle scope.
  v8::Eternal<v8::Object> exemplar;
  // Records whose objects are alive (their finaliser has not run).
  SWIGV8_Proxy* live = nullptr;
};

// The state of the first isolate that initialized the module (set once).
extern std::atomic<SWIGV8_IsolateState*> SWIGV8_PrimaryState;

// Whether value has the shape of this isolate's proxies: a cheaper, exact
// stand-in for "an object with at least one internal field" in the common
// case. Anything else takes the general test.
inline bool SWIGV8_HasProxyShape(v8::Isolate* isolate, v8::Local<v8::Value> value) {
  SWIGV8_IsolateState* state = SWIGV8_PrimaryState.load(std::memory_order_acquire);
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
inline int SWIG_V8_ConvertPtr(v8::Isolate* isolate, v8::Local<v8::Value> value, void** ptr,
                              swig_type_info* info, int /*flags*/) {
  if (value->IsNull()) {
    *ptr = nullptr;
    return SWIG_OK;
  }
  if (!SWIGV8_HasProxyShape(isolate, value)) {
    if (!value->IsObject()) return SWIG_TypeError;
    if (value.As<v8::Object>()->InternalFieldCount() < 1) return SWIG_ERROR;
  }
  auto* cdata = static_cast<SWIGV8_Proxy*>(
      keyloom::compat::GetAlignedPointer(value.As<v8::Object>(), 0));
  if (cdata == nullptr) return SWIG_ERROR;
  if (cdata->info != info && !SWIGV8_CheckCast(cdata->info, info)) return SWIG_TypeError;
  *ptr = cdata->swigCObject;
  return SWIG_OK;
}

// The same with the classic signature, on the current isolate.
inline int SWIG_V8_ConvertPtr(v8::Local<v8::Value> value, void** ptr, swig_type_info* info,
                              int flags) {
  return SWIG_V8_ConvertPtr(v8::Isolate::GetCurrent(), value, ptr, info, flags);
}

// The instance pointer of equals and getCPtr: no null rule, no type check.
int SWIG_V8_GetInstancePtr(v8::Local<v8::Value> value, void** ptr);

// The methods of every proxy.
void _SWIGV8_wrap_equals(const v8::FunctionCallbackInfo<v8::Value>& info);
void _wrap_getCPtr(const v8::FunctionCallbackInfo<v8::Value>& info);
