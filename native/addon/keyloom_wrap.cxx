// keyloom.node: the module entry, the constants, the module's own helper
// functions and the wrapper table of the client library.
//
// Every exported function is one line of the table kFunctions below, in the
// order of the exports object: the exported name, the C function it calls, the kind of
// its result and the kinds of its arguments (runtime/arg_kinds.h). The one
// wrapper template (runtime/wrapper.h) does the rest, and refuses to compile a
// line whose kinds do not spell the C declaration in include/keyloom.h.
//
// Ownership at a glance: no proxy owns C memory. Cells and arrays live until
// their delete_ function; replies are released with kl_free_php_reply_p/_pp;
// a client lives until kl_client_destroy. String arguments are copied for the
// call and freed after it (not on a failure exit: those copies stay allocated); the value of
// kl_set_binary is handed over to the library and never freed here.
#include <node.h>
#include <node_version.h>
#include <v8.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "keyloom.h"
#include "runtime/arg_kinds.h"
#include "runtime/compat.h"
#include "runtime/errors.h"
#include "runtime/module.h"
#include "runtime/proxy.h"
#include "runtime/registry.h"
#include "runtime/wrapper.h"

using namespace keyloom;  // the kinds: Client, CharP, Size, RCode ...

namespace {

// ---- Typed pointer cells --------------------------------------------
// One template per operation, instantiated per family. A family is a
// CellType: the C type a cell holds and the C++ type its value crosses as.
// They differ only for kl_return_t, whose cells may hold any 32-bit value: it
// is copied in and out as an int, never loaded as the enumeration (a value
// outside the enumeration is no error of the caller's, and the sanitizer build
// would stop on such a load). Cells come from the single-object new and go with
// the single-object delete; a new cell is zeroed.

template <class Stored, class Value = Stored>
struct CellType {
  static_assert(sizeof(Stored) == sizeof(Value));
  using stored = Stored;
  using value = Value;
};

template <class C>
typename C::stored* cell_new() {
  return new typename C::stored();
}
template <class C>
typename C::stored* cell_copy(typename C::value value) {
  auto* cell = new typename C::stored();
  std::memcpy(static_cast<void*>(cell), &value, sizeof value);
  return cell;
}
template <class C>
void cell_delete(typename C::stored* cell) {
  if (cell) delete cell;
}
template <class C>
void cell_assign(typename C::stored* cell, typename C::value value) {  // no null check
  std::memcpy(static_cast<void*>(cell), &value, sizeof value);
}
template <class C>
typename C::value cell_value(typename C::stored* cell) {  // no null check
  typename C::value value;
  std::memcpy(&value, static_cast<const void*>(cell), sizeof value);
  return value;
}

using ReturnCodeCell = CellType<kl_return_t, int>;

// The char cells come from malloc and go with free. The string a charpp cell
// points to is not freed (replies are released with kl_free_php_reply_p/_pp).
char** new_charpp() {
  auto** cell = static_cast<char**>(std::malloc(sizeof(char*)));
  *cell = nullptr;
  return cell;
}
void delete_charpp(char** cell) {
  if (cell) std::free(cell);
}
char*** new_charppp() {
  auto*** cell = static_cast<char***>(std::malloc(sizeof(char**)));
  *cell = nullptr;
  return cell;
}
void delete_charppp(char*** cell) {
  if (cell) std::free(cell);
}
// free() of whatever the pointer is. For a JavaScript string argument the
// wrapper then releases its temporary copy as after every char * argument,
// which frees it a second time: a deliberate quirk of the exact layer (the
// function is meant for _p_char and null).
// Not inlined, so that the compiler does not flag the deliberate double free.
[[gnu::noinline]] void delete_charp(char* pointer) { std::free(pointer); }

// ---- Typed arrays --------------------------------------------------------
// calloc'd, zero-filled, released with free; counts and indexes are ints
// widened with their sign, never range-checked.

// A count whose product with the element size does not fit a size_t (every
// negative count, widened) gives null, as the C library's calloc does; the
// test is made here so that the sanitizer build sees no impossible request.
template <class T>
T* array_new(int count) {
  size_t n = static_cast<size_t>(count);
  if (n > SIZE_MAX / sizeof(T)) return nullptr;
  return static_cast<T*>(std::calloc(n, sizeof(T)));
}
template <class T>
void array_delete(T* array) {
  if (array) std::free(array);
}
template <class T>
void array_set(T* array, int index, T value) {
  array[index] = value;
}
template <class T>
T array_get(T* array, int index) {
  return array[index];
}

// A charp_array owns its elements: zero-terminated calloc'd copies.
void delete_charp_array(char** array, int count) {
  if (!array) return;
  for (int i = 0; i < count; ++i) {
    if (array[i]) {
      std::free(array[i]);
      array[i] = nullptr;
    }
  }
  std::free(array);
}
// Copies exactly length bytes of text (the caller's length, not the text's).
void charp_array_set(char** array, int index, char* text, int length) {
  if (array[index]) {
    std::free(array[index]);
    array[index] = nullptr;
  }
  int size = static_cast<int>(static_cast<unsigned int>(length) + 1u);
  array[index] = static_cast<char*>(std::calloc(static_cast<size_t>(size), 1));
  std::memcpy(array[index], text, static_cast<size_t>(length));
}

// ---- Reply readers ------------------------------------------------------
// Length conventions: SIZE_MAX no value; 0 measure the zero-terminated text and
// write the length back; and, for the plain readers only, 4 with "_NL_" a
// missing value and 1 with a zero byte an empty value (both write back 0).

template <bool Raw>
Latin1Text read_text(char* text, size_t* length) {
  if (*length == SIZE_MAX) return {nullptr, 0};
  if constexpr (!Raw) {
    if (*length == 1 && text[0] == '\0') {
      *length = 0;
      return {text, 0};
    }
    if (*length == 4 && std::memcmp(text, "_NL_", 4) == 0) {
      *length = 0;
      return {nullptr, 0};
    }
  }
  if (*length == 0) *length = std::strlen(text);
  return {text, *length};
}

template <bool Raw>
Latin1Text charpp_value(char** cell, size_t* length) {
  if (!cell || !*cell || !length) return {nullptr, 0};
  return read_text<Raw>(*cell, length);
}

template <bool Raw>
Latin1Text charppp_value(char*** cell, size_t** lengths, int index) {
  if (!cell || !*cell) return {nullptr, 0};
  size_t scratch = 0;  // no length array: measure, write nothing of the caller's
  size_t* slot = &scratch;
  if (lengths) {
    if (!*lengths) return {nullptr, 0};
    slot = &(*lengths)[index];
  }
  char* text = (*cell)[index];
  if (!text) return {nullptr, 0};
  return read_text<Raw>(text, slot);
}

// Element index of the array held in the cell (0 for a null array); the cell
// itself is not tested for null.
template <class C>
typename C::value index_value(typename C::stored** cell, int index) {
  typename C::stored* array = *cell;
  if (!array) return typename C::value(0);
  typename C::value value;
  std::memcpy(&value, static_cast<const void*>(&array[index]), sizeof value);
  return value;
}

// The cell's address as a char **, for the release functions.
template <class T>
char** to_charpp(T** cell) {
  return reinterpret_cast<char**>(cell);
}

kl_return_t** new_empty_kl_return_tpp() { return nullptr; }

// ---- Memory manager and reply release --------------------------------------

kl_mm_t* new_mm() { return nullptr; }

// Through the record's release function (its fourth member); no null tests.
void kl_free_reply_p(char** reply, kl_mm_t* mm) { mm->free(reply); }
void kl_free_reply_pp(char*** reply, unsigned int count, kl_mm_t* mm) {
  if (!reply) return;
  for (unsigned int i = 0; i < count; ++i) mm->free(reply[i]);
  mm->free(reply);
}

// ---- Flag helpers ----------------------------------------------------------

static_assert(KL_DURABLE_TTL_BIT == 0x80000000u && KL_COMMIT_BIT == 0x40000000u);
int DURABLE_TTL(int ttl) { return static_cast<int>(static_cast<unsigned int>(ttl) | 0x80000000u); }
int COMMIT(int ttl) { return static_cast<int>(static_cast<unsigned int>(ttl) | 0x40000000u); }

// ---- Result kinds used by the table ----------------------------------------------------

template <class PtrKind>
using RProxyOf = RProxy<typename PtrKind::c_type, PtrKind::desc>;

// ---- Constants ---------------------------------------------------------------
// Name and the exported value; the value compiled in is the library's, and the
// two must agree.
#define KEYLOOM_CONSTANTS(X)                                                              \
  X(KL_SUCCESS, 0) X(KL_ERROR, 1) X(KL_PTHREAD_OP_FAILURE, 2) X(KL_MEMORY_FAILURE, 3)     \
  X(KL_CONNECTION_FAILURE, 4) X(KL_INVALID_CLIENT, 5) X(KL_INVALID_COMMAND, 6)            \
  X(KL_SERVER_ERROR, 7) X(KL_SERVER_DOWN, 8) X(KL_UNKNOWN_REPLY, 9)                       \
  X(KL_WRONG_REPLY, 10) X(KL_TTL_ALREADY_SET, 11) X(KL_ALREADY_EXISTS, 12)                \
  X(KL_NOTFOUND, 13) X(KL_NO_SERVER_ATTACHED, 14) X(KL_INVALID_PARAMETER, 15)             \
  X(KL_PARTIAL_RESULT, 16) X(KL_NO_SET_KEY, 17) X(KL_SET_EMPTY_VALUE, 18)                 \
  X(KL_NO_SUBNET, 19) X(KL_ALL_GROUP_SERVERS_DOWN, 20) X(KL_DIRTY, 128)                   \
  X(KL_DISTRIBUTION_MODULA, 0) X(KL_DISTRIBUTION_CONSISTENT, 1)                           \
  X(KL_DISTRIBUTION_CONSISTENT_KETAMA, 2) X(KL_HASH_DEFAULT, 0) X(KL_HASH_MD5, 1)         \
  X(KL_HASH_CRC, 2) X(KL_HASH_FNV1_64, 3) X(KL_HASH_FNV1A_64, 4) X(KL_HASH_FNV1_32, 5)    \
  X(KL_HASH_FNV1A_32, 6) X(KL_HASH_HSIEH, 7) X(KL_HASH_MURMUR, 8)                         \
  X(CLIENT_VERSION_AUTO, 3) X(CLIENT_VERSION_1, 1) X(CLIENT_VERSION_2, 2)                 \
  X(SET_DEFAULT, 0) X(SET_WITH_VALUES, 2) X(ZSET_DEFAULT, 0) X(ZSET_WITH_SCORES, 1)       \
  X(ZSET_WITH_VALUES, 2) X(ZSET_WITH_LIMIT, 4) X(ZSET_REVERSE, 8) X(KL_FLAG_NONE, 1)      \
  X(KL_FLAG_RECURSIVE, 2) X(KL_FLAG_SHARED, 4) X(KL_NULL_ON_FAIL, 1)                      \
  X(KL_BEST_EFFORT_ON_FAIL, 2) X(KL_LEVEL_ERROR, 1) X(KL_LEVEL_DEBUG, 2)                  \
  X(KL_LEVEL_EVENT, 4) X(KL_LEVEL_NOTICE, 8) X(KL_LEVEL_WARNING, 16)

#define KEYLOOM_CHECK_CONSTANT(NAME, VALUE) \
  static_assert(static_cast<int32_t>(NAME) == (VALUE), #NAME " differs from its exported value");
KEYLOOM_CONSTANTS(KEYLOOM_CHECK_CONSTANT)
#undef KEYLOOM_CHECK_CONSTANT

// The getters _wrap_KL_SUCCESS ...: a fresh integer on every read.
#define KEYLOOM_CONSTANT_GETTER(NAME, VALUE)                                           \
  void _wrap_##NAME(v8::Local<v8::Name>, const v8::PropertyCallbackInfo<v8::Value>& info) { \
    info.GetReturnValue().Set(static_cast<int32_t>(NAME));                              \
  }
KEYLOOM_CONSTANTS(KEYLOOM_CONSTANT_GETTER)
#undef KEYLOOM_CONSTANT_GETTER

struct ConstantEntry {
  const char* name;
  v8::AccessorNameGetterCallback getter;
};

#define KEYLOOM_CONSTANT_ENTRY(NAME, VALUE) {#NAME, _wrap_##NAME},
const ConstantEntry kConstants[] = {KEYLOOM_CONSTANTS(KEYLOOM_CONSTANT_ENTRY)};
#undef KEYLOOM_CONSTANT_ENTRY

// The setter of every constant: refuses the write.
void JS_veto_set_variable(v8::Local<v8::Name> property, v8::Local<v8::Value>,
                          const v8::PropertyCallbackInfo<void>& info) {
  char buffer[256] = "";
  char message[512];
  if (property->IsString()) {
    compat::WriteUtf8(info.GetIsolate(), property.As<v8::String>(), buffer, sizeof buffer);
  }
  int res = std::snprintf(message, sizeof message, "Tried to write read-only variable: %s.", buffer);
  if (res < 0) {
    KLRT_ErrorHandler.error(KLRT_ERROR, "Tried to write read-only variable.");
  } else {
    KLRT_ErrorHandler.error(KLRT_ERROR, message);
  }
}

// ---- The functions, in the order of the exports object ------------------------

// The five functions of a cell family X of CellType C: new_X, copy_X,
// delete_X, X_assign and X_value. VALUE is the kind of a value argument, CELL
// the kind of a cell, and RESULT how X_value returns the value.
#define KL_CELL_FAMILY(X, C, VALUE, CELL, RESULT)                 \
  KL_EXPORT(new_##X, cell_new<C>, RProxyOf<CELL>),                \
      KL_EXPORT(copy_##X, cell_copy<C>, RProxyOf<CELL>, VALUE),   \
      KL_EXPORT(delete_##X, cell_delete<C>, RVoid, CELL),         \
      KL_EXPORT(X##_assign, cell_assign<C>, RVoid, CELL, VALUE),  \
      KL_EXPORT(X##_value, cell_value<C>, RESULT, CELL)

const FunctionEntry kFunctions[] = {
    // 1. Typed pointer cells, 50 functions.
    KL_CELL_FAMILY(intp, CellType<int>, Int, IntP, RInt),
    KL_CELL_FAMILY(intpp, CellType<int*>, IntP, IntPP, RProxyOf<IntP>),
    KL_CELL_FAMILY(uintp, CellType<unsigned int>, UInt, UIntP, RUIntAsInt),
    KL_CELL_FAMILY(ulongp, CellType<size_t>, Size, SizeP, RSizeLow32),
    KL_CELL_FAMILY(doublep, CellType<double>, Double, DoubleP, RDouble),
    KL_CELL_FAMILY(doublepp, CellType<double*>, DoubleP, DoublePP, RProxyOf<DoubleP>),
    KL_CELL_FAMILY(uintpp, CellType<unsigned int*>, UIntP, UIntPP, RProxyOf<UIntP>),
    KL_CELL_FAMILY(ulongpp, CellType<size_t*>, SizeP, SizePP, RProxyOf<SizeP>),
    KL_CELL_FAMILY(kl_return_tp, ReturnCodeCell, RetValue, RetP, RInt),
    KL_CELL_FAMILY(kl_return_tpp, CellType<kl_return_t*>, RetP, RetPP, RProxyOf<RetP>),

    // 2. String cells and reply readers, 15 functions.
    KL_EXPORT(delete_charp, delete_charp, RVoid, CharPHeap),
    KL_EXPORT(new_empty_kl_return_tpp, new_empty_kl_return_tpp, RProxyOf<RetPP>),
    KL_EXPORT(uintpp_to_charpp, to_charpp<unsigned int>, RProxyOf<CharPP>, UIntPP),
    KL_EXPORT(intpp_to_charpp, to_charpp<int>, RProxyOf<CharPP>, IntPP),
    KL_EXPORT(kl_return_tpp_to_charpp, to_charpp<kl_return_t>, RProxyOf<CharPP>, RetPP),
    KL_EXPORT(ulongpp_to_charpp, to_charpp<size_t>, RProxyOf<CharPP>, SizePP),
    KL_EXPORT(doublepp_to_charpp, to_charpp<double>, RProxyOf<CharPP>, DoublePP),
    KL_EXPORT(new_charpp, new_charpp, RProxyOf<CharPP>),
    KL_EXPORT(delete_charpp, delete_charpp, RVoid, CharPP),
    KL_EXPORT(charpp_value_raw, charpp_value<true>, RLatin1, CharPP, SizeP),
    KL_EXPORT(charpp_value, charpp_value<false>, RLatin1, CharPP, SizeP),
    KL_EXPORT(new_charppp, new_charppp, RProxyOf<CharPPP>),
    KL_EXPORT(delete_charppp, delete_charppp, RVoid, CharPPP),
    KL_EXPORT(charppp_value_raw, charppp_value<true>, RLatin1, CharPPP, SizePP, Int),
    KL_EXPORT(charppp_value, charppp_value<false>, RLatin1, CharPPP, SizePP, Int),

    // 3. Typed arrays, 14 functions.
    KL_EXPORT(new_charp_array, array_new<char*>, RProxyOf<CharPP>, Int),
    KL_EXPORT(delete_charp_array, delete_charp_array, RVoid, CharPP, Int),
    KL_EXPORT(charp_array_set, charp_array_set, RVoid, CharPP, Int, CharP, Int),
    KL_EXPORT(new_uint_array, array_new<unsigned int>, RProxyOf<UIntP>, Int),
    KL_EXPORT(delete_uint_array, array_delete<unsigned int>, RVoid, UIntP),
    KL_EXPORT(uint_array_set, array_set<unsigned int>, RVoid, UIntP, Int, UInt),
    KL_EXPORT(new_ulong_array, array_new<size_t>, RProxyOf<SizeP>, Int),
    KL_EXPORT(delete_ulong_array, array_delete<size_t>, RVoid, SizeP),
    KL_EXPORT(ulong_array_set, array_set<size_t>, RVoid, SizeP, Int, Size),
    KL_EXPORT(ulong_array_get, array_get<size_t>, RSizeLow32, SizeP, Int),
    KL_EXPORT(new_double_array, array_new<double>, RProxyOf<DoubleP>, Int),
    KL_EXPORT(delete_double_array, array_delete<double>, RVoid, DoubleP),
    KL_EXPORT(double_array_set, array_set<double>, RVoid, DoubleP, Int, Double),
    KL_EXPORT(double_array_get, array_get<double>, RDouble, DoubleP, Int),

    // 4. Indexed readers, 3 functions.
    KL_EXPORT(doublepp_index_value, index_value<CellType<double>>, RDouble, DoublePP, Int),
    KL_EXPORT(intpp_index_value, index_value<CellType<int>>, RInt, IntPP, Int),
    KL_EXPORT(kl_return_tpp_index_value, index_value<ReturnCodeCell>, RInt, RetPP, Int),

#include "library_functions.inc"
};
#undef KL_CELL_FAMILY

// ---- Initialization ------------------------------------------------------------

// A constant: an accessor-like native data property whose getter makes the
// value and whose setter refuses the write (enumerable, configurable).
void KLRT_AddStaticVariable(v8::Isolate* isolate, v8::Local<v8::Context> context,
                              v8::Local<v8::Object> object, const char* name,
                              v8::AccessorNameGetterCallback getter) {
  object->SetNativeDataProperty(context, KLRT_Name(isolate, name), getter, JS_veto_set_variable)
      .FromMaybe(false);
}

void Initialize(v8::Local<v8::Object> exports) {
  v8::Isolate* isolate = v8::Isolate::GetCurrent();
  // 1. The type registry, joined to the ring of the current context.
  KLRT_InitializeModule(static_cast<void*>(&exports));
  // 2.
  v8::HandleScope scope(isolate);
  v8::Local<v8::Context> context = isolate->GetCurrentContext();
  // 3. The "KeyloomProxy" class template of this isolate.
  KLRT_InstallProxyClass(isolate);
  // 4. The constants.
  for (const ConstantEntry& constant : kConstants) {
    KLRT_AddStaticVariable(isolate, context, exports, constant.name, constant.getter);
  }
  // 5. The functions.
  for (const FunctionEntry& function : kFunctions) {
    KLRT_AddStaticFunction(isolate, context, exports, function.name, function.callback);
  }
}

}  // namespace

// ---- Registration ---------------------------------------------------------------------------

// The registration function Node.js calls with the exports object.
extern "C" NODE_MODULE_EXPORT void keyloom_initialize(v8::Local<v8::Object> exports,
                                                      v8::Local<v8::Value> module, void* priv) {
  (void)module;
  (void)priv;
  Initialize(exports);
}

// The module record: the module version of the headers built against, an
// ordinary addon (flags 0), no context-aware registration function.
static node::node_module _module = {
    NODE_MODULE_VERSION,      // nm_version
    0,                        // nm_flags
    nullptr,                  // nm_dso_handle
    "../keyloom_wrap.cxx",    // nm_filename
    keyloom_initialize,       // nm_register_func
    nullptr,                  // nm_context_register_func
    "keyloom",                // nm_modname
    nullptr,                  // nm_priv
    nullptr,                  // nm_link
};

// Registers the module record when the shared object is loaded.
__attribute__((constructor)) static void _register_keyloom(void) {
  node::node_module_register(&_module);
}

// The well-known context-aware entry point. Node.js looks it up when a load
// registers no record, that is whenever the shared object is already loaded in
// the process: in a worker thread, or a second load on the same thread. The
// first load on a thread still goes through _module and keyloom_initialize.
extern "C" NODE_MODULE_EXPORT void NODE_MODULE_INITIALIZER(v8::Local<v8::Object> exports,
                                                           v8::Local<v8::Value> module,
                                                           v8::Local<v8::Context> context) {
  (void)context;
  keyloom_initialize(exports, module, nullptr);
}
