// Argument kinds and result kinds of the wrapper pattern.
//
// An argument kind is a C++ type that carries everything the wrapper does with
// one C parameter:
//   c_type    the C parameter type; the wrapper checks the list of kinds against
//             the C declaration at compile time
//   text      the type as the failure message spells it ("kl_client *", "size_t")
//   slot      the per-call storage of the converted value (zeroed at entry)
//   convert   0, or the code the failure is reported with (-5, -7 or -1)
//   get       the value handed to C
//   release   what happens after a completed call (string copies are freed)
//   abandon   (optional) what happens to a converted argument when a later one
//             fails: nothing is released then (the copy stays allocated)
// A result kind turns the C result into the call's return value.
#pragma once

#include <v8.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "keyloom.h"
#include "runtime/compat.h"
#include "runtime/convert.h"
#include "runtime/errors.h"
#include "runtime/proxy.h"
#include "runtime/registry.h"

namespace keyloom {

// A string usable as a template argument (the exported name, a type text).
template <size_t N>
struct FixedString {
  char s[N];
  constexpr FixedString(const char (&text)[N]) {
    for (size_t i = 0; i < N; ++i) s[i] = text[i];
  }
};

// The code a wrapper reports for a converter's result r < 0: r, except that -1
// (an object without a proxy record) is reported as -5.
constexpr int ReportedCode(int r) { return r == KLRT_ERROR ? KLRT_TypeError : r; }

// ---- Argument kinds -------------------------------------------------------------

// A pointer to a library type, a cell or an array: a proxy of descriptor Desc
// (or one its cast list accepts), or null for a null pointer.
template <class T, KlrtTypeIndex Desc, FixedString Text>
struct PtrArg {
  static_assert(std::is_pointer_v<T>);
  using c_type = T;
  static constexpr const char* text = Text.s;
  static constexpr KlrtTypeIndex desc = Desc;
  struct slot {
    void* p;
  };
  static int convert(v8::Isolate* isolate, v8::Local<v8::Value> value, slot& s) {
    int r = KLRT_ConvertPtr(isolate, value, &s.p, klrt_types[Desc], 0);
    return r < 0 ? ReportedCode(r) : 0;
  }
  static T get(const slot& s) { return static_cast<T>(s.p); }
  static void release(slot&) {}
};

// The bytes of a string argument's copy kept in the wrapper's frame; a longer
// copy is made on the heap.
inline constexpr size_t kSmallString = 64;

// The two allocations the module leaves to the process on purpose, each in a
// function of its own so that leak checkers can name them (see
// test/sanitizer/valgrind.supp).
// A string argument's copy kept when a later argument fails: size bytes.
[[gnu::noinline]] inline char* AbandonedStringCopy(const char* bytes, size_t size) {
  auto* copy = new char[size];
  std::memcpy(copy, bytes, size);
  return copy;
}
// kl_set_binary's value buffer, which the library takes over.
[[gnu::noinline]] inline char* BinaryValueBuffer(size_t size) { return new char[size]; }

// char * and char const *: a string (a NUL-terminated UTF-8 copy that lives
// for the call) or a _p_char proxy (its address, borrowed). With NullSentinel,
// the C string "_NL_" is passed as a null pointer (the module's own
// server_add, keys and flushall only); the copy is released all the same.
//
// The copy of a short string is made in the slot, a longer one with new[];
// either is gone after a completed call. When a later argument fails, the
// copy is left allocated on the heap, exactly UTF-8 length + 1 bytes, and never
// freed (abandon, through AbandonedStringCopy). HeapCopy makes every copy on the heap and
// releases it with delete[] after the call: delete_charp, whose C function
// frees its argument, so that the deliberate double free stays what it is.
template <class T, FixedString Text, bool NullSentinel = false, bool HeapCopy = false>
struct StrArg {
  using c_type = T;
  static constexpr const char* text = Text.s;
  struct slot {
    slot() : buf(nullptr), alloc(KLRT_OLDOBJ), size(0) {}
    char* buf;
    int alloc;  // KLRT_NEWOBJ: a copy made for the call
    size_t size;
    char small[HeapCopy ? 1 : kSmallString];
  };
  static int convert(v8::Isolate* isolate, v8::Local<v8::Value> value, slot& s) {
    if (value->IsString()) {
      s.buf = Utf8Copy(isolate, value.As<v8::String>(), s.small, HeapCopy ? 0 : kSmallString,
                       &s.size);
      s.alloc = KLRT_NEWOBJ;
      return 0;
    }
    int r = KLRT_AsCharPtrAndSize(isolate, value, &s.buf, nullptr, &s.alloc);
    return r < 0 ? ReportedCode(r) : 0;
  }
  static T get(const slot& s) {
    if constexpr (NullSentinel) {
      if (s.buf && std::strcmp(s.buf, "_NL_") == 0) return nullptr;
    }
    return s.buf;
  }
  static void release(slot& s) {
    if (s.alloc == KLRT_NEWOBJ && s.buf && s.buf != s.small) delete[] s.buf;
  }
  static void abandon(slot& s) {
    if (s.alloc != KLRT_NEWOBJ || !s.buf) return;
    char* kept = AbandonedStringCopy(s.buf, s.size);  // never freed
    if (s.buf != s.small) delete[] s.buf;
    s.buf = kept;
  }
};

// int, setFlags, zSetFlags and the enumerations: a number, the low 32 bits of
// its IntegerValue.
template <class T, FixedString Text>
struct IntArg {
  using c_type = T;
  static constexpr const char* text = Text.s;
  struct slot {
    int v;
  };
  static int convert(v8::Isolate*, v8::Local<v8::Value> value, slot& s) {
    return KLRT_AsVal_int(value, &s.v);  // never -1
  }
  static T get(const slot& s) { return static_cast<T>(s.v); }
  static void release(slot&) {}
};

// unsigned int: a number, truncated, within 0..4294967295 (else -7).
struct UIntArg {
  using c_type = unsigned int;
  static constexpr const char* text = "unsigned int";
  struct slot {
    unsigned int v;
  };
  static int convert(v8::Isolate*, v8::Local<v8::Value> value, slot& s) {
    return KLRT_AsVal_unsigned_int(value, &s.v);
  }
  static unsigned int get(const slot& s) { return s.v; }
  static void release(slot&) {}
};

// size_t: a number, truncated, not negative (else -7).
struct SizeArg {
  using c_type = size_t;
  static constexpr const char* text = "size_t";
  struct slot {
    size_t v;
  };
  static int convert(v8::Isolate*, v8::Local<v8::Value> value, slot& s) {
    return KLRT_AsVal_size_t(value, &s.v);
  }
  static size_t get(const slot& s) { return s.v; }
  static void release(slot&) {}
};

// double: a number, as it is.
struct DoubleArg {
  using c_type = double;
  static constexpr const char* text = "double";
  struct slot {
    double v;
  };
  static int convert(v8::Isolate*, v8::Local<v8::Value> value, slot& s) {
    return KLRT_AsVal_double(value, &s.v);
  }
  static double get(const slot& s) { return s.v; }
  static void release(slot&) {}
};

// The binary encoded string of kl_set_binary: a string primitive only (code -1
// otherwise), one byte per UTF-16 unit (its low 8 bits) and a NUL, in a new[]
// buffer that is never freed by the module: the library takes it over.
struct BinaryArg {
  using c_type = char*;
  static constexpr const char* text = "binary encoded string";
  struct slot {
    char* buf;
  };
  static int convert(v8::Isolate* isolate, v8::Local<v8::Value> value, slot& s) {
    if (!value->IsString()) return KLRT_ERROR;
    v8::Local<v8::String> string = value.As<v8::String>();
    s.buf = BinaryValueBuffer(static_cast<size_t>(string->Length()) + 1);
    compat::WriteOneByteWhole(isolate, string, reinterpret_cast<uint8_t*>(s.buf));
    return 0;
  }
  static char* get(const slot& s) { return s.buf; }
  static void release(slot&) {}
};

// ---- The argument kinds by their C type ------------------------------------------

using Client = PtrArg<kl_client*, KLRT_TYPE_p_kl_client, "kl_client *">;
using MM = PtrArg<kl_mm_t*, KLRT_TYPE_p_kl_mm_t, "kl_mm_t *">;
using CharPP = PtrArg<char**, KLRT_TYPE_p_p_char, "char **">;
using CharConstPP = PtrArg<char const**, KLRT_TYPE_p_p_char, "char const **">;
using CharPPP = PtrArg<char***, KLRT_TYPE_p_p_p_char, "char ***">;
using SizeP = PtrArg<size_t*, KLRT_TYPE_p_size_t, "size_t *">;
using SizeConstP = PtrArg<size_t const*, KLRT_TYPE_p_size_t, "size_t const *">;
using SizePP = PtrArg<size_t**, KLRT_TYPE_p_p_size_t, "size_t **">;
using IntP = PtrArg<int*, KLRT_TYPE_p_int, "int *">;
using IntPP = PtrArg<int**, KLRT_TYPE_p_p_int, "int **">;
using UIntP = PtrArg<unsigned int*, KLRT_TYPE_p_unsigned_int, "unsigned int *">;
using UIntPP = PtrArg<unsigned int**, KLRT_TYPE_p_p_unsigned_int, "unsigned int **">;
using DoubleP = PtrArg<double*, KLRT_TYPE_p_double, "double *">;
using DoublePP = PtrArg<double**, KLRT_TYPE_p_p_double, "double **">;
using RetP = PtrArg<kl_return_t*, KLRT_TYPE_p_kl_return_t, "kl_return_t *">;
using RetPP = PtrArg<kl_return_t**, KLRT_TYPE_p_p_kl_return_t, "kl_return_t **">;

using CharP = StrArg<char*, "char *">;
using CharConstP = StrArg<char const*, "char const *">;
using CharPOrNull = StrArg<char*, "char *", true>;
using CharConstPOrNull = StrArg<char const*, "char const *", true>;
using CharPHeap = StrArg<char*, "char *", false, true>;
using Binary = BinaryArg;

using Int = IntArg<int, "int">;
using SetFlags = IntArg<setFlags, "setFlags">;
using ZSetFlags = IntArg<zSetFlags, "zSetFlags">;
using Ret = IntArg<kl_return_t, "kl_return_t">;
// A kl_return_t value of a cell (copy_kl_return_tp, kl_return_tp_assign):
// converted alike, carried as an int so that no value is out of range.
using RetValue = IntArg<int, "kl_return_t">;
using Hash = IntArg<kl_hash, "kl_hash">;
using Distribution = IntArg<kl_server_distribution, "kl_server_distribution">;
using Version = IntArg<kl_client_version, "kl_client_version">;
using UInt = UIntArg;
using Size = SizeArg;
using Double = DoubleArg;

// ---- Result kinds ------------------------------------------------------------------
// c_type is the C result type each accepts (checked against the declaration).

using Info = v8::FunctionCallbackInfo<v8::Value>;

// The library's code as a number.
struct RCode {
  using c_type = kl_return_t;
  static void Set(const Info& info, v8::Isolate*, kl_return_t r) {
    info.GetReturnValue().Set(static_cast<int32_t>(r));
  }
};
// A code the wrapper does not return (the _php_ releases): undefined.
struct RIgnoreCode {
  using c_type = kl_return_t;
  static void Set(const Info&, v8::Isolate*, kl_return_t) {}
};
struct RVoid {
  using c_type = void;
};
// A signed 32-bit integer.
struct RInt {
  using c_type = int;
  static void Set(const Info& info, v8::Isolate*, int r) { info.GetReturnValue().Set(r); }
};
// An unsigned int handed over as a signed 32-bit value (uintp_value).
struct RUIntAsInt {
  using c_type = unsigned int;
  static void Set(const Info& info, v8::Isolate*, unsigned int r) {
    info.GetReturnValue().Set(static_cast<int32_t>(r));
  }
};
// An 8-bit unsigned result, zero-extended (kl_is_dirty, kl_check_result).
struct RByte {
  using c_type = uint8_t;
  static void Set(const Info& info, v8::Isolate*, uint8_t r) {
    info.GetReturnValue().Set(static_cast<int32_t>(r));
  }
};
// A size_t by its low 32 bits: unsigned when the top bit is set, else signed.
struct RSizeLow32 {
  using c_type = size_t;
  static void Set(const Info& info, v8::Isolate*, size_t r) {
    if (r > static_cast<size_t>(INT64_MAX)) {
      info.GetReturnValue().Set(static_cast<uint32_t>(r));
    } else {
      info.GetReturnValue().Set(static_cast<int32_t>(static_cast<uint32_t>(r)));
    }
  }
};
struct RDouble {
  using c_type = double;
  static void Set(const Info& info, v8::Isolate*, double r) { info.GetReturnValue().Set(r); }
};
// A new proxy of descriptor Desc, not owning; null for a null pointer.
template <class T, KlrtTypeIndex Desc>
struct RProxy {
  using c_type = T;
  static void Set(const Info& info, v8::Isolate* isolate, T r) {
    info.GetReturnValue().Set(KLRT_NewPointerObj(
        isolate, const_cast<void*>(static_cast<const void*>(r)), klrt_types[Desc], 0));
  }
};
// Library-owned C text read as UTF-8 up to its NUL; undefined for null or for
// 2^31 bytes or more.
struct RUtf8 {
  using c_type = char const*;
  static void Set(const Info& info, v8::Isolate* isolate, char const* r) {
    if (!r) return;
    size_t size = std::strlen(r);
    if (size > INT32_MAX) return;
    v8::Local<v8::String> string;
    if (v8::String::NewFromUtf8(isolate, r, v8::NewStringType::kNormal, static_cast<int>(size))
            .ToLocal(&string)) {
      info.GetReturnValue().Set(string);
    }
  }
};

// A reply text for the readers: bytes null means JavaScript null.
struct Latin1Text {
  const char* bytes;
  size_t length;
};
// Every byte one character (ISO 8859-1): the same string as a
// two-byte buffer of zero-extended bytes, made without the temporary buffer.
struct RLatin1 {
  using c_type = Latin1Text;
  static void Set(const Info& info, v8::Isolate* isolate, Latin1Text r) {
    if (!r.bytes) {
      info.GetReturnValue().SetNull();
      return;
    }
    if (r.length > INT32_MAX) return;  // beyond the 32-bit count: not supported
    v8::Local<v8::String> string;
    if (v8::String::NewFromOneByte(isolate, reinterpret_cast<const uint8_t*>(r.bytes),
                                   v8::NewStringType::kNormal, static_cast<int>(r.length))
            .ToLocal(&string)) {
      info.GetReturnValue().Set(string);
    }
  }
};

}  // namespace keyloom
