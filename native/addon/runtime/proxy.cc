// Proxy objects and class templates.
#include "runtime/proxy.h"
#include "runtime/module.h"

#include <node.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

// ---- Per-isolate state ----------------------------------------------------------
//
// A template belongs to one isolate, and the module may be loaded in several
// (the main thread and worker threads), so the "KeyloomProxy" template, and the
// list of live records, are kept per isolate. The first isolate to initialize
// the module gets the primary state, found with one comparison; other isolates
// are looked up under a lock. States are never freed, only recycled: a state
// whose environment ended has a null isolate and is handed to the next isolate.

std::atomic<KLRT_IsolateState*> KLRT_PrimaryState{nullptr};
static std::mutex g_states_mutex;
// Allocated once and never freed: nothing of it is destroyed at process exit,
// when the isolates may be gone already.
static std::vector<KLRT_IsolateState*>* g_states = nullptr;

static KLRT_IsolateState* KLRT_FindState(v8::Isolate* isolate) {
  KLRT_IsolateState* primary = KLRT_PrimaryState.load(std::memory_order_acquire);
  if (primary && primary->isolate.load(std::memory_order_relaxed) == isolate) return primary;
  std::lock_guard<std::mutex> lock(g_states_mutex);
  if (g_states) {
    for (KLRT_IsolateState* state : *g_states) {
      if (state->isolate.load(std::memory_order_relaxed) == isolate) return state;
    }
  }
  return nullptr;
}

static void KLRT_Unlink(KLRT_Proxy* proxy) {
  KLRT_IsolateState* owner = proxy->owner;
  if (!owner) return;
  if (proxy->prev) {
    proxy->prev->next = proxy->next;
  } else {
    owner->live = proxy->next;
  }
  if (proxy->next) proxy->next->prev = proxy->prev;
  proxy->owner = nullptr;
  proxy->prev = proxy->next = nullptr;
}

// Environment cleanup: frees the records still alive (their finalisers would
// never run) and lets go of the templates, then hands the state back.
static void KLRT_CleanupIsolate(void* arg) {
  auto* state = static_cast<KLRT_IsolateState*>(arg);
  v8::Isolate* isolate = state->isolate.load(std::memory_order_relaxed);
  v8::HandleScope scope(isolate);
  while (KLRT_Proxy* proxy = state->live) {
    if (!proxy->handle.IsEmpty()) {
      keyloom::compat::SetAlignedPointer(proxy->handle.Get(isolate), 0, nullptr);
    }
    delete proxy;  // unlinks it
  }
  state->KLRT_Proxy_class_templ.Reset();
  state->instance_templ.Reset();
  state->exemplar = v8::Eternal<v8::Object>();  // eternal: dies with the isolate
  state->isolate.store(nullptr, std::memory_order_release);
}

// The isolate's state, made (or recycled) on its first initialization.
static KLRT_IsolateState* KLRT_ClaimState(v8::Isolate* isolate) {
  if (KLRT_IsolateState* state = KLRT_FindState(isolate)) return state;
  KLRT_IsolateState* state = nullptr;
  {
    std::lock_guard<std::mutex> lock(g_states_mutex);
    if (!g_states) g_states = new std::vector<KLRT_IsolateState*>();
    for (KLRT_IsolateState* candidate : *g_states) {
      if (candidate->isolate.load(std::memory_order_relaxed) == nullptr) {
        state = candidate;
        break;
      }
    }
    if (!state) {
      state = new KLRT_IsolateState();
      g_states->push_back(state);
    }
    state->isolate.store(isolate, std::memory_order_release);
    if (KLRT_PrimaryState.load(std::memory_order_relaxed) == nullptr) {
      KLRT_PrimaryState.store(state, std::memory_order_release);
    }
  }
  node::AddEnvironmentCleanupHook(isolate, KLRT_CleanupIsolate, state);
  return state;
}

// ---- Records and their finalisation --------------------------------------------

KLRT_Proxy::KLRT_Proxy(v8::Isolate* isolate_)
    : owns_c_object(false),
      c_object(nullptr),
      info(nullptr),
      isolate(isolate_),
      owner(nullptr),
      prev(nullptr),
      next(nullptr) {
  keyloom::compat::AdjustExternalMemory(isolate, 1000);
}

KLRT_Proxy::~KLRT_Proxy() {
  if (!handle.IsEmpty()) {
    handle.ClearWeak();
    handle.Reset();
  }
  KLRT_Unlink(this);
  keyloom::compat::AdjustExternalMemory(isolate, -1000);
}

// Second pass of the finaliser: frees the record and takes the charge back.
static void KLRT_Proxy_DefaultDtorSecondPass(const v8::WeakCallbackInfo<KLRT_Proxy>& data) {
  delete data.GetParameter();
}

// KLRT_Proxy_DefaultDtor, the finaliser of every proxy. Its first pass may
// only reset the handle (no other engine call); the record is freed in the
// second pass. The C object is not touched.
static void KLRT_Proxy_DefaultDtor(const v8::WeakCallbackInfo<KLRT_Proxy>& data) {
  KLRT_Proxy* proxy = data.GetParameter();
  if (!proxy) return;
  proxy->handle.Reset();
  KLRT_Unlink(proxy);
  data.SetSecondPassCallback(KLRT_Proxy_DefaultDtorSecondPass);
}

// ---- The class template ------------------------------------------------------------


v8::Local<v8::FunctionTemplate> KLRT_CreateClassTemplate(v8::Isolate* isolate,
                                                           const char* name) {
  v8::EscapableHandleScope scope(isolate);
  v8::Local<v8::FunctionTemplate> class_templ = v8::FunctionTemplate::New(isolate);
  class_templ->SetClassName(KLRT_Name(isolate, name));
  v8::Local<v8::ObjectTemplate> inst_templ = class_templ->InstanceTemplate();
  inst_templ->SetInternalFieldCount(1);
  v8::Local<v8::ObjectTemplate> prototype = class_templ->PrototypeTemplate();
  prototype->Set(KLRT_Name(isolate, "equals"),
                 v8::FunctionTemplate::New(isolate, _wrap_equals));
  prototype->Set(KLRT_Name(isolate, "getCPtr"),
                 v8::FunctionTemplate::New(isolate, _wrap_getCPtr));
  return scope.Escape(class_templ);
}

void KLRT_InstallProxyClass(v8::Isolate* isolate) {
  KLRT_IsolateState* state = KLRT_ClaimState(isolate);
  v8::Local<v8::FunctionTemplate> templ = KLRT_CreateClassTemplate(isolate, "KeyloomProxy");
  // A template made by an earlier initialization is disposed of first.
  state->KLRT_Proxy_class_templ.Reset();
  state->KLRT_Proxy_class_templ.Reset(isolate, templ);
  state->instance_templ.Reset(isolate, templ->InstanceTemplate());
  v8::Local<v8::Object> exemplar;
  if (templ->InstanceTemplate()->NewInstance(isolate->GetCurrentContext()).ToLocal(&exemplar)) {
    keyloom::compat::SetAlignedPointer(exemplar, 0, nullptr);
    state->exemplar.Set(isolate, exemplar);
  } else {
    state->exemplar = v8::Eternal<v8::Object>();
  }
}

// ---- Making proxies -------------------------------------------------------------------

v8::Local<v8::Value> KLRT_NewPointerObj(v8::Isolate* isolate, void* ptr,
                                           klrt_type_info* info, int flags) {
  if (ptr == nullptr) return v8::Null(isolate);
  KLRT_IsolateState* state = KLRT_FindState(isolate);
  auto* clientdata = info ? static_cast<KLRT_ClientData*>(info->clientdata) : nullptr;
  v8::Local<v8::ObjectTemplate> templ =
      clientdata ? v8::Local<v8::FunctionTemplate>::New(isolate, clientdata->class_templ)
                       ->InstanceTemplate()
                 : state->instance_templ.Get(isolate);
  v8::Local<v8::Object> result =
      templ->NewInstance(isolate->GetCurrentContext()).ToLocalChecked();

  auto* cdata = new KLRT_Proxy(isolate);
  cdata->c_object = ptr;
  cdata->owns_c_object = (flags & KLRT_POINTER_OWN) != 0;
  cdata->info = info;
  keyloom::compat::SetAlignedPointer(result, 0, cdata);
  cdata->handle.Reset(isolate, result);
  if (cdata->owns_c_object && clientdata && clientdata->dtor) {
    cdata->handle.SetWeak(cdata, clientdata->dtor, v8::WeakCallbackType::kParameter);
  } else {
    cdata->handle.SetWeak(cdata, KLRT_Proxy_DefaultDtor, v8::WeakCallbackType::kParameter);
  }
  // Every weak handle of today's engine may die in a minor collection: the
  // older engine's "independent" mark has no call of its own any more.
  if (state) {
    cdata->owner = state;
    cdata->next = state->live;
    if (state->live) state->live->prev = cdata;
    state->live = cdata;
  }
  return result;
}

// ---- Converting back -------------------------------------------------------------------

bool KLRT_CheckCast(klrt_type_info* from, klrt_type_info* ty) {
  if (KLRT_TypeCheckStruct(from, ty)) return true;
  return from && from->name && ty && KLRT_TypeCheck(from->name, ty);
}

int KLRT_GetInstancePtr(v8::Local<v8::Value> value, void** ptr) {
  if (!value->IsObject()) return KLRT_TypeError;
  v8::Local<v8::Object> object = value.As<v8::Object>();
  if (object->InternalFieldCount() < 1) return KLRT_ERROR;
  auto* cdata = static_cast<KLRT_Proxy*>(keyloom::compat::GetAlignedPointer(object, 0));
  if (cdata == nullptr) return KLRT_ERROR;
  *ptr = cdata->c_object;
  return KLRT_OK;
}

// ---- equals and getCPtr ------------------------------------------------------------------

void _wrap_equals(const v8::FunctionCallbackInfo<v8::Value>& info) {
  if (info.Length() != 1) {
    KLRT_ErrorHandler.error(KLRT_ERROR, "Illegal number of arguments for equals.");
    return;
  }
  void* arg1 = nullptr;
  void* arg2 = nullptr;
  if (KLRT_GetInstancePtr(info.This(), &arg1) < 0) {
    KLRT_ErrorHandler.error(KLRT_ERROR, "Could not get pointer from 'this' object for equals.");
    return;
  }
  if (KLRT_GetInstancePtr(info[0], &arg2) < 0) {
    KLRT_ErrorHandler.error(KLRT_TypeError, "in method 'equals', argument 1 of type 'void *'");
    return;
  }
  info.GetReturnValue().Set(arg1 == arg2);
}

void _wrap_getCPtr(const v8::FunctionCallbackInfo<v8::Value>& info) {
  void* arg1 = nullptr;
  if (KLRT_GetInstancePtr(info.This(), &arg1) < 0) {
    KLRT_ErrorHandler.error(KLRT_TypeError, "in method 'getCPtr', argument 1 of type 'void *'");
    return;
  }
  info.GetReturnValue().Set(static_cast<double>(reinterpret_cast<int64_t>(arg1)));
}
