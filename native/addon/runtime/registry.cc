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

// The static records are named _type__ + the mangled name without its leading
// underscore; the macro argument is that name, the string keeps one underscore.
static klrt_type_info _type__p_char = {"_p_char", "char *", nullptr, nullptr, nullptr, 0};
static klrt_type_info _type__p_double = {"_p_double", "double *", nullptr, nullptr, nullptr, 0};
static klrt_type_info _type__p_int = {"_p_int", "int *|setFlags *|zSetFlags *", nullptr, nullptr,
                                       nullptr, 0};
static klrt_type_info _type__p_kl_client = {"_p_kl_client", "kl_client *", nullptr, nullptr,
                                             nullptr, 0};
static klrt_type_info _type__p_kl_client_version = {
    "_p_kl_client_version", "enum kl_client_version *|kl_client_version *", nullptr, nullptr,
    nullptr, 0};
static klrt_type_info _type__p_kl_hash = {"_p_kl_hash", "enum kl_hash *|kl_hash *", nullptr,
                                           nullptr, nullptr, 0};
static klrt_type_info _type__p_kl_mm_t = {"_p_kl_mm_t", "kl_mm_t *", nullptr, nullptr, nullptr,
                                           0};
static klrt_type_info _type__p_kl_return_t = {"_p_kl_return_t",
                                               "enum kl_return_t *|kl_return_t *", nullptr,
                                               nullptr, nullptr, 0};
static klrt_type_info _type__p_kl_server_distribution = {
    "_p_kl_server_distribution", "enum kl_server_distribution *|kl_server_distribution *",
    nullptr, nullptr, nullptr, 0};
static klrt_type_info _type__p_p_char = {"_p_p_char", "char **", nullptr, nullptr, nullptr, 0};
static klrt_type_info _type__p_p_double = {"_p_p_double", "double **", nullptr, nullptr, nullptr,
                                            0};
static klrt_type_info _type__p_p_int = {"_p_p_int", "int **", nullptr, nullptr, nullptr, 0};
static klrt_type_info _type__p_p_kl_return_t = {"_p_p_kl_return_t",
                                                 "enum kl_return_t **|kl_return_t **", nullptr,
                                                 nullptr, nullptr, 0};
static klrt_type_info _type__p_p_p_char = {"_p_p_p_char", "char ***", nullptr, nullptr, nullptr,
                                            0};
static klrt_type_info _type__p_p_size_t = {"_p_p_size_t", "size_t **", nullptr, nullptr, nullptr,
                                            0};
static klrt_type_info _type__p_p_unsigned_int = {"_p_p_unsigned_int", "unsigned int **", nullptr,
                                                  nullptr, nullptr, 0};
static klrt_type_info _type__p_size_t = {"_p_size_t", "size_t *", nullptr, nullptr, nullptr, 0};
static klrt_type_info _type__p_unsigned_int = {"_p_unsigned_int", "unsigned int *", nullptr,
                                                nullptr, nullptr, 0};

// Each cast array: one entry naming its own descriptor, then a terminator.
#define KEYLOOM_CASTS(mangled)                                                      \
  static klrt_cast_info _cast_##mangled[] = {{&_type_##mangled, nullptr, nullptr, \
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

static klrt_type_info* klrt_type_initial[KLRT_TYPE_COUNT] = {
    &_type__p_char,
    &_type__p_double,
    &_type__p_int,
    &_type__p_kl_client,
    &_type__p_kl_client_version,
    &_type__p_kl_hash,
    &_type__p_kl_mm_t,
    &_type__p_kl_return_t,
    &_type__p_kl_server_distribution,
    &_type__p_p_char,
    &_type__p_p_double,
    &_type__p_p_int,
    &_type__p_p_kl_return_t,
    &_type__p_p_p_char,
    &_type__p_p_size_t,
    &_type__p_p_unsigned_int,
    &_type__p_size_t,
    &_type__p_unsigned_int,
};

static klrt_cast_info* klrt_cast_initial[KLRT_TYPE_COUNT] = {
    _cast__p_char,
    _cast__p_double,
    _cast__p_int,
    _cast__p_kl_client,
    _cast__p_kl_client_version,
    _cast__p_kl_hash,
    _cast__p_kl_mm_t,
    _cast__p_kl_return_t,
    _cast__p_kl_server_distribution,
    _cast__p_p_char,
    _cast__p_p_double,
    _cast__p_p_int,
    _cast__p_p_kl_return_t,
    _cast__p_p_p_char,
    _cast__p_p_size_t,
    _cast__p_p_unsigned_int,
    _cast__p_size_t,
    _cast__p_unsigned_int,
};

klrt_type_info* klrt_types[KLRT_TYPE_COUNT + 1];
klrt_module_info klrt_module = {klrt_types, KLRT_TYPE_COUNT, nullptr, nullptr, nullptr, nullptr};

// ---- The ring's head on the global object -------------------------------------

static v8::Local<v8::Private> ModuleInfoKey(v8::Isolate* isolate) {
  // Private::ForApi gives every module of the isolate the same key for the
  // same name, as the hidden value's string key did.
  return v8::Private::ForApi(
      isolate, v8::String::NewFromUtf8(isolate, "keyloom_module_info_data", v8::NewStringType::kNormal)
                   .ToLocalChecked());
}

klrt_module_info* KLRT_GetModule(void*) {
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
  return static_cast<klrt_module_info*>(ptr);
}

void KLRT_SetModule(void*, klrt_module_info* klrt_module) {
  v8::Isolate* isolate = v8::Isolate::GetCurrent();
  v8::Local<v8::Context> context = isolate->GetCurrentContext();
  v8::Local<v8::External> mod = keyloom::compat::NewExternal(isolate, klrt_module);
  KEYLOOM_ASSERT(!mod.IsEmpty());
  context->Global()->SetPrivate(context, ModuleInfoKey(isolate), mod).Check();
}

// ---- Lookups ------------------------------------------------------------------

klrt_type_info* KLRT_MangledTypeQueryModule(klrt_module_info* start, klrt_module_info* end,
                                            const char* name) {
  klrt_module_info* iter = start;
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
static int KLRT_TypeNameComp(const char* f1, const char* l1, const char* f2, const char* l2) {
  for (; (f1 != l1) && (f2 != l2); ++f1, ++f2) {
    while ((*f1 == ' ') && (f1 != l1)) ++f1;
    while ((*f2 == ' ') && (f2 != l2)) ++f2;
    if (*f1 != *f2) return (*f1 > *f2) ? 1 : -1;
  }
  return static_cast<int>((l1 - f1) - (l2 - f2));
}

// 0 when one of the '|'-separated alternatives of nb equals tb.
static int KLRT_TypeCmp(const char* nb, const char* tb) {
  int equiv = 1;
  const char* te = tb + std::strlen(tb);
  const char* ne = nb;
  while (equiv != 0 && *ne) {
    for (nb = ne; *ne; ++ne) {
      if (*ne == '|') break;
    }
    equiv = KLRT_TypeNameComp(nb, ne, tb, te);
    if (*ne) ++ne;
  }
  return equiv;
}

klrt_type_info* KLRT_TypeQueryModule(klrt_module_info* start, klrt_module_info* end,
                                     const char* name) {
  klrt_type_info* ret = KLRT_MangledTypeQueryModule(start, end, name);
  if (ret) return ret;
  klrt_module_info* iter = start;
  do {
    for (size_t i = 0; i < iter->size; ++i) {
      if (iter->types[i]->str && KLRT_TypeCmp(iter->types[i]->str, name) == 0) {
        return iter->types[i];
      }
    }
    iter = iter->next;
  } while (iter != end);
  return nullptr;
}

// Moves iter to the front of ty's cast list.
static klrt_cast_info* KLRT_MoveToFront(klrt_cast_info* iter, klrt_type_info* ty) {
  if (iter == ty->cast) return iter;
  iter->prev->next = iter->next;
  if (iter->next) iter->next->prev = iter->prev;
  iter->next = ty->cast;
  iter->prev = nullptr;
  if (ty->cast) ty->cast->prev = iter;
  ty->cast = iter;
  return iter;
}

klrt_cast_info* KLRT_TypeCheck(const char* c, klrt_type_info* ty) {
  if (ty) {
    for (klrt_cast_info* iter = ty->cast; iter; iter = iter->next) {
      if (std::strcmp(iter->type->name, c) == 0) return KLRT_MoveToFront(iter, ty);
    }
  }
  return nullptr;
}

klrt_cast_info* KLRT_TypeCheckStruct(const klrt_type_info* from, klrt_type_info* ty) {
  if (ty) {
    for (klrt_cast_info* iter = ty->cast; iter; iter = iter->next) {
      if (iter->type == from) return KLRT_MoveToFront(iter, ty);
    }
  }
  return nullptr;
}

klrt_type_info* KLRT_pchar_descriptor(void) {
  static int init = 0;
  static klrt_type_info* info = nullptr;
  if (!init) {
    info = KLRT_TypeQueryModule(&klrt_module, &klrt_module, "_p_char");
    init = 1;
  }
  return info;
}

// ---- Setting up the registry -----------------------------------------------------

void KLRT_InitializeModule(void* clientdata) {
  int init;
  // First initialization in the process: make the ring of one.
  if (klrt_module.next == nullptr) {
    klrt_module.type_initial = klrt_type_initial;
    klrt_module.cast_initial = klrt_cast_initial;
    klrt_module.next = &klrt_module;
    init = 1;
  } else {
    init = 0;
  }

  klrt_module_info* module_head = KLRT_GetModule(clientdata);
  if (!module_head) {
    KLRT_SetModule(clientdata, &klrt_module);
  } else {
    klrt_module_info* iter = module_head;
    do {
      if (iter == &klrt_module) return;  // already in this context's ring
      iter = iter->next;
    } while (iter != module_head);
    klrt_module.next = module_head->next;
    module_head->next = &klrt_module;
  }

  if (init == 0) return;  // the types were filled by an earlier initialization

  size_t i;
  for (i = 0; i < klrt_module.size; ++i) {
    klrt_type_info* type = nullptr;
    if (klrt_module.next != &klrt_module) {
      type = KLRT_MangledTypeQueryModule(klrt_module.next, &klrt_module,
                                         klrt_module.type_initial[i]->name);
    }
    if (type) {
      if (klrt_module.type_initial[i]->clientdata) {
        type->clientdata = klrt_module.type_initial[i]->clientdata;
      }
    } else {
      type = klrt_module.type_initial[i];
    }

    for (klrt_cast_info* cast = klrt_module.cast_initial[i]; cast->type; ++cast) {
      klrt_type_info* ret = nullptr;
      if (klrt_module.next != &klrt_module) {
        ret = KLRT_MangledTypeQueryModule(klrt_module.next, &klrt_module, cast->type->name);
      }
      if (ret) {
        if (type == klrt_module.type_initial[i]) {
          cast->type = ret;
          ret = nullptr;
        } else if (!KLRT_TypeCheck(ret->name, type)) {
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
    klrt_module.types[i] = type;
  }
  klrt_module.types[i] = nullptr;
}
