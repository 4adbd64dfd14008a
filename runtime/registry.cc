// Type registry and module info.
#include "runtime/registry.h"

#include <cstring>

#include "runtime/compat.h"

// glibc's assertion report; called directly so that the registry's two
// assertions stay in force in builds made with NDEBUG.
extern "C" void __assert_fail(const char* assertion, const char* file, unsigned int line,
                              const char* function) noexcept __attribute__((__noreturn__));

// The assertions name the module source, as the runtime's reports always have.
#define KEYLOOM_ASSERT(expr)                                                       \
  ((expr) ? static_cast<void>(0)                                                   \
          : __assert_fail(#expr, "../keyloom_wrap.cxx", __LINE__, __PRETTY_FUNCTION__))

// ---- The 18 descriptors, in registry order --------------------------------------

// The static records are named _swigt__ + the mangled name without its leading
// underscore; the macro argument is that name, the string keeps one underscore.
static swig_type_info _swigt__p_char = {"_p_char", "char *", nullptr, nullptr, nullptr, 0};
static swig_type_info _swigt__p_double = {"_p_double", "double *", nullptr, nullptr, nullptr, 0};
static swig_type_info _swigt__p_int = {"_p_int", "int *|setFlags *|zSetFlags *", nullptr, nullptr,
                                       nullptr, 0};
static swig_type_info _swigt__p_kl_client = {"_p_kl_client", "kl_client *", nullptr, nullptr,
                                             nullptr, 0};
static swig_type_info _swigt__p_kl_client_version = {
    "_p_kl_client_version", "enum kl_client_version *|kl_client_version *", nullptr, nullptr,
    nullptr, 0};
static swig_type_info _swigt__p_kl_hash = {"_p_kl_hash", "enum kl_hash *|kl_hash *", nullptr,
                                           nullptr, nullptr, 0};
static swig_type_info _swigt__p_kl_mm_t = {"_p_kl_mm_t", "kl_mm_t *", nullptr, nullptr, nullptr,
                                           0};
static swig_type_info _swigt__p_kl_return_t = {"_p_kl_return_t",
                                               "enum kl_return_t *|kl_return_t *", nullptr,
                                               nullptr, nullptr, 0};
static swig_type_info _swigt__p_kl_server_distribution = {
    "_p_kl_server_distribution", "enum kl_server_distribution *|kl_server_distribution *",
    nullptr, nullptr, nullptr, 0};
static swig_type_info _swigt__p_p_char = {"_p_p_char", "char **", nullptr, nullptr, nullptr, 0};
static swig_type_info _swigt__p_p_double = {"_p_p_double", "double **", nullptr, nullptr, nullptr,
                                            0};
static swig_type_info _swigt__p_p_int = {"_p_p_int", "int **", nullptr, nullptr, nullptr, 0};
static swig_type_info _swigt__p_p_kl_return_t = {"_p_p_kl_return_t",
                                                 "enum kl_return_t **|kl_return_t **", nullptr,
                                                 nullptr, nullptr, 0};
static swig_type_info _swigt__p_p_p_char = {"_p_p_p_char", "char ***", nullptr, nullptr, nullptr,
                                            0};
static swig_type_info _swigt__p_p_size_t = {"_p_p_size_t", "size_t **", nullptr, nullptr, nullptr,
                                            0};
static swig_type_info _swigt__p_p_unsigned_int = {"_p_p_unsigned_int", "unsigned int **", nullptr,
                                                  nullptr, nullptr, 0};
static swig_type_info _swigt__p_size_t = {"_p_size_t", "size_t *", nullptr, nullptr, nullptr, 0};
static swig_type_info _swigt__p_unsigned_int = {"_p_unsigned_int", "unsigned int *", nullptr,
                                                nullptr, nullptr, 0};

// Each cast array: one entry naming its own descriptor, then a terminator.
#define KEYLOOM_CASTS(mangled)                                                      \
  static swig_cast_info _swigc_##mangled[] = {{&_swigt_##mangled, nullptr, nullptr, \
                                               nullptr},                            \
                                              {nullptr, nullptr, nullptr, nullptr}};
KEYLOOM_CASTS(_p_char)
KEYLOOM_CASTS(_p_double)
KEYLOOM_CASTS(_p_int)
KEYLOOM_CASTS(_p_kl_client)
KEYLOOM_CASTS(_p_kl_client_version)
KEYLOOM_CASTS(_p_kl_hash)
KEYLOOM_CASTS(_p_kl_mm_t)
KEYLOOM_CASTS(_p_kl_return_t)
KEYLOOM_CASTS(_p_kl_server_distribution)
KEYLOOM_CASTS(_p_p_char)
KEYLOOM_CASTS(_p_p_double)
KEYLOOM_CASTS(_p_p_int)
KEYLOOM_CASTS(_p_p_kl_return_t)
KEYLOOM_CASTS(_p_p_p_char)
KEYLOOM_CASTS(_p_p_size_t)
KEYLOOM_CASTS(_p_p_unsigned_int)
KEYLOOM_CASTS(_p_size_t)
KEYLOOM_CASTS(_p_unsigned_int)
#undef KEYLOOM_CASTS

static swig_type_info* swig_type_initial[SWIGTYPE_COUNT] = {
    &_swigt__p_char,
    &_swigt__p_double,
    &_swigt__p_int,
    &_swigt__p_kl_client,
    &_swigt__p_kl_client_version,
    &_swigt__p_kl_hash,
    &_swigt__p_kl_mm_t,
    &_swigt__p_kl_return_t,
    &_swigt__p_kl_server_distribution,
    &_swigt__p_p_char,
    &_swigt__p_p_double,
    &_swigt__p_p_int,
    &_swigt__p_p_kl_return_t,
    &_swigt__p_p_p_char,
    &_swigt__p_p_size_t,
    &_swigt__p_p_unsigned_int,
    &_swigt__p_size_t,
    &_swigt__p_unsigned_int,
};

static swig_cast_info* swig_cast_initial[SWIGTYPE_COUNT] = {
    _swigc__p_char,
    _swigc__p_double,
    _swigc__p_int,
    _swigc__p_kl_client,
    _swigc__p_kl_client_version,
    _swigc__p_kl_hash,
    _swigc__p_kl_mm_t,
    _swigc__p_kl_return_t,
    _swigc__p_kl_server_distribution,
    _swigc__p_p_char,
    _swigc__p_p_double,
    _swigc__p_p_int,
    _swigc__p_p_kl_return_t,
    _swigc__p_p_p_char,
    _swigc__p_p_size_t,
    _swigc__p_p_unsigned_int,
    _swigc__p_size_t,
    _swigc__p_unsigned_int,
};

swig_type_info* swig_types[SWIGTYPE_COUNT + 1];
swig_module_info swig_module = {swig_types, SWIGTYPE_COUNT, nullptr, nullptr, nullptr, nullptr};

// ---- The ring's head on the global object -------------------------------------

static v8::Local<v8::Private> ModuleInfoKey(v8::Isolate* isolate) {
  // Private::ForApi gives every module of the isolate the same key for the
  // same name, as the hidden value's string key did.
  return v8::Private::ForApi(
      isolate, v8::String::NewFromUtf8(isolate, "swig_module_info_data", v8::NewStringType::kNormal)
                   .ToLocalChecked());
}

swig_module_info* SWIG_V8_GetModule(void*) {
  v8::Isolate* isolate = v8::Isolate::GetCurrent();
  v8::Local<v8::Context> context = isolate->GetCurrentContext();
  v8::Local<v8::Value> moduleinfo;
  if (!context->Global()->GetPrivate(context, ModuleInfoKey(isolate)).ToLocal(&moduleinfo) ||
      moduleinfo->IsNull() || moduleinfo->IsUndefined()) {
    return nullptr;
  }
  void* ptr = moduleinfo->IsExternal()
                  ? keyloom::compat::ExternalValue(moduleinfo.As<v8::External>())
                  : nullptr;
  KEYLOOM_ASSERT(ptr);
  return static_cast<swig_module_info*>(ptr);
}

void SWIG_V8_SetModule(void*, swig_module_info* swig_module) {
  v8::Isolate* isolate = v8::Isolate::GetCurrent();
  v8::Local<v8::Context> context = isolate->GetCurrentContext();
  v8::Local<v8::External> mod = keyloom::compat::NewExternal(isolate, swig_module);
  KEYLOOM_ASSERT(!mod.IsEmpty());
  context->Global()->SetPrivate(context, ModuleInfoKey(isolate), mod).Check();
}

// ---- Lookups ------------------------------------------------------------------

swig_type_info* SWIG_MangledTypeQueryModule(swig_module_info* start, swig_module_info* end,
                                            const char* name) {
  swig_module_info* iter = start;
  do {
    if (iter->size) {
      size_t l = 0;
      size_t r = iter->size - 1;
      do {
        size_t i = (l + r) >> 1;
        const char* iname = iter->types[i]->name;
        if (!iname) break;
        int compare = std::strcmp(name, iname);
        if (compare == 0) return iter->types[i];
        if (compare < 0) {
          if (i == 0) break;
          r = i - 1;
        } else {
          l = i + 1;
        }
      } while (l <= r);
    }
    iter = iter->next;
  } while (iter != end);
  return nullptr;
}

// Compares one alternative [f1, l1) with [f2, l2), blanks ignored on both sides.
static int SWIG_TypeNameComp(const char* f1, const char* l1, const char* f2, const char* l2) {
  for (; (f1 != l1) && (f2 != l2); ++f1, ++f2) {
    while ((*f1 == ' ') && (f1 != l1)) ++f1;
    while ((*f2 == ' ') && (f2 != l2)) ++f2;
    if (*f1 != *f2) return (*f1 > *f2) ? 1 : -1;
  }
  return static_cast<int>((l1 - f1) - (l2 - f2));
}

// 0 when one of the '|'-separated alternatives of nb equals tb.
static int SWIG_TypeCmp(const char* nb, const char* tb) {
  int equiv = 1;
  const char* te = tb + std::strlen(tb);
  const char* ne = nb;
  while (equiv != 0 && *ne) {
    for (nb = ne; *ne; ++ne) {
      if (*ne == '|') break;
    }
    equiv = SWIG_TypeNameComp(nb, ne, tb, te);
    if (*ne) ++ne;
  }
  return equiv;
}

swig_type_info* SWIG_TypeQueryModule(swig_module_info* start, swig_module_info* end,
                                     const char* name) {
  swig_type_info* ret = SWIG_MangledTypeQueryModule(start, end, name);
  if (ret) return ret;
  swig_module_info* iter = start;
  do {
    for (size_t i = 0; i < iter->size; ++i) {
      if (iter->types[i]->str && SWIG_TypeCmp(iter->types[i]->str, name) == 0) {
        return iter->types[i];
      }
    }
    iter = iter->next;
  } while (iter != end);
  return nullptr;
}

// Moves iter to the front of ty's cast list.
static swig_cast_info* SWIG_MoveToFront(swig_cast_info* iter, swig_type_info* ty) {
  if (iter == ty->cast) return iter;
  iter->prev->next = iter->next;
  if (iter->next) iter->next->prev = iter->prev;
  iter->next = ty->cast;
  iter->prev = nullptr;
  if (ty->cast) ty->cast->prev = iter;
  ty->cast = iter;
  return iter;
}

swig_cast_info* SWIG_TypeCheck(const char* c, swig_type_info* ty) {
  if (ty) {
    for (swig_cast_info* iter = ty->cast; iter; iter = iter->next) {
      if (std::strcmp(iter->type->name, c) == 0) return SWIG_MoveToFront(iter, ty);
    }
  }
  return nullptr;
}

swig_cast_info* SWIG_TypeCheckStruct(const swig_type_info* from, swig_type_info* ty) {
  if (ty) {
    for (swig_cast_info* iter = ty->cast; iter; iter = iter->next) {
      if (iter->type == from) return SWIG_MoveToFront(iter, ty);
    }
  }
  return nullptr;
}

swig_type_info* SWIG_pchar_descriptor(void) {
  static int init = 0;
  static swig_type_info* info = nullptr;
  if (!init) {
    info = SWIG_TypeQueryModule(&swig_module, &swig_module, "_p_char");
    init = 1;
  }
  return info;
}

// ---- Setting up the registry -----------------------------------------------------

void SWIG_InitializeModule(void* clientdata) {
  int init;
  // First initialization in the process: make the ring of one.
  if (swig_module.next == nullptr) {
    swig_module.type_initial = swig_type_initial;
    swig_module.cast_initial = swig_cast_initial;
    swig_module.next = &swig_module;
    init = 1;
  } else {
    init = 0;
  }

  swig_module_info* module_head = SWIG_V8_GetModule(clientdata);
  if (!module_head) {
    SWIG_V8_SetModule(clientdata, &swig_module);
  } else {
    swig_module_info* iter = module_head;
    do {
      if (iter == &swig_module) return;  // already in this context's ring
      iter = iter->next;
    } while (iter != module_head);
    swig_module.next = module_head->next;
    module_head->next = &swig_module;
  }

  if (init == 0) return;  // the types were filled by an earlier initialization

  size_t i;
  for (i = 0; i < swig_module.size; ++i) {
    swig_type_info* type = nullptr;
    if (swig_module.next != &swig_module) {
      type = SWIG_MangledTypeQueryModule(swig_module.next, &swig_module,
                                         swig_module.type_initial[i]->name);
    }
    if (type) {
      if (swig_module.type_initial[i]->clientdata) {
        type->clientdata = swig_module.type_initial[i]->clientdata;
      }
    } else {
      type = swig_module.type_initial[i];
    }

    for (swig_cast_info* cast = swig_module.cast_initial[i]; cast->type; ++cast) {
      swig_type_info* ret = nullptr;
      if (swig_module.next != &swig_module) {
        ret = SWIG_MangledTypeQueryModule(swig_module.next, &swig_module, cast->type->name);
      }
      if (ret) {
        if (type == swig_module.type_initial[i]) {
          cast->type = ret;
          ret = nullptr;
        } else if (!SWIG_TypeCheck(ret->name, type)) {
          ret = nullptr;
        }
      }
      if (!ret) {
        if (type->cast) {
          type->cast->prev = cast;
          cast->next = type->cast;
        }
        type->cast = cast;
      }
    }
    swig_module.types[i] = type;
  }
  swig_module.types[i] = nullptr;
}
