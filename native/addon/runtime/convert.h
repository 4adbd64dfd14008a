// Value conversion.
//
// Converters take a JavaScript value and an out pointer, return a result code
// (0 success, -5 type error, -7 overflow) and write the C value only on
// success; they never throw. They are inline: they are the hot path of every
// wrapper. A number is what IsNumber accepts (a number primitive only).
#pragma once

#include <v8.h>

#include <cmath>
#include <cstdint>
#include <cstring>

#include "runtime/compat.h"
#include "runtime/errors.h"
#include "runtime/proxy.h"
#include "runtime/registry.h"

namespace keyloom {

// The engine's IntegerValue of a number, computed from its double: truncation
// toward zero, NaN as 0, saturating at the ends of the 64-bit range (V8's
// NumberToInt64). Reading the double directly spares the context round trip
// of Value::IntegerValue(context), with the same result.
inline int64_t IntegerValueOf(double d) {
  if (std::isnan(d)) return 0;
  if (d >= 9223372036854775808.0) return INT64_MAX;
  if (d <= -9223372036854775808.0) return INT64_MIN;
  return static_cast<int64_t>(d);
}

// The processor's truncating conversion of a double to a signed 64-bit integer
// (cvttsd2si): NaN, the infinities and every magnitude at or above 2^63 give
// the most negative value. Written out so that it is defined behaviour.
inline int64_t TruncateToInt64(double d) {
  if (d >= -9223372036854775808.0 && d < 9223372036854775808.0) return static_cast<int64_t>(d);
  return INT64_MIN;
}

inline double NumberOf(v8::Local<v8::Value> value) { return value.As<v8::Number>()->Value(); }

}  // namespace keyloom

// int, and the typedefs and enumerations that take the same path: the low 32
// bits of IntegerValue, no range check.
inline int KLRT_AsVal_int(v8::Local<v8::Value> obj, int* val) {
  if (!obj->IsNumber()) return KLRT_TypeError;
  if (val) {
    *val = static_cast<int>(
        static_cast<uint32_t>(static_cast<uint64_t>(keyloom::IntegerValueOf(keyloom::NumberOf(obj)))));
  }
  return KLRT_OK;
}

// unsigned int: the truncated value must lie in 0..4294967295.
inline int KLRT_AsVal_unsigned_int(v8::Local<v8::Value> obj, unsigned int* val) {
  if (!obj->IsNumber()) return KLRT_TypeError;
  int64_t v = keyloom::TruncateToInt64(keyloom::NumberOf(obj));
  if (v < 0 || v > 4294967295LL) return KLRT_OverflowError;
  if (val) *val = static_cast<unsigned int>(v);
  return KLRT_OK;
}

// size_t: the truncated value must not be negative.
inline int KLRT_AsVal_size_t(v8::Local<v8::Value> obj, size_t* val) {
  if (!obj->IsNumber()) return KLRT_TypeError;
  int64_t v = keyloom::TruncateToInt64(keyloom::NumberOf(obj));
  if (v < 0) return KLRT_OverflowError;
  if (val) *val = static_cast<size_t>(v);
  return KLRT_OK;
}

// double: any number, as it is.
inline int KLRT_AsVal_double(v8::Local<v8::Value> obj, double* val) {
  if (!obj->IsNumber()) return KLRT_TypeError;
  if (val) *val = keyloom::NumberOf(obj);
  return KLRT_OK;
}

namespace keyloom {

// The UTF-8 form of string and a NUL byte, exactly UTF-8 length + 1 bytes
// (*size), as WriteUtf8 writes it (lone surrogates as their three-byte forms).
// Written into small when it fits in capacity bytes, else into a new[] buffer;
// the result is the one written. A string stored one byte per character
// (Latin-1, the common case) is copied with one engine call and encoded here:
// ASCII as it is, every other Latin-1 character as the two bytes the engine's
// UTF-8 writer makes of it.
inline char* Utf8Copy(v8::Isolate* isolate, v8::Local<v8::String> string, char* small,
                      size_t capacity, size_t* size) {
  if (compat::IsOneByte(string)) {
    int length = string->Length();
    size_t n = static_cast<size_t>(length);
    char* bytes = n < capacity ? small : new char[n + 1];
    compat::WriteOneByte(isolate, string, reinterpret_cast<uint8_t*>(bytes), length);
    size_t high = 0;  // characters above 0x7F: two bytes each
    for (size_t i = 0; i < n; ++i) high += static_cast<uint8_t>(bytes[i]) >> 7;
    if (high == 0) {
      bytes[n] = '\0';
      *size = n + 1;
      return bytes;
    }
    size_t need = n + high + 1;
    char* utf8 = need <= capacity ? small : new char[need];
    // Backwards, so that small can be encoded in place.
    size_t j = need - 1;
    utf8[j] = '\0';
    for (size_t i = n; i-- > 0;) {
      auto c = static_cast<uint8_t>(bytes[i]);
      if (c < 0x80) {
        utf8[--j] = static_cast<char>(c);
      } else {
        utf8[--j] = static_cast<char>(0x80 | (c & 0x3F));
        utf8[--j] = static_cast<char>(0xC0 | (c >> 6));
      }
    }
    if (bytes != small) delete[] bytes;
    *size = need;
    return utf8;
  }
  size_t need = compat::Utf8Length(isolate, string) + 1;
  char* utf8 = need <= capacity ? small : new char[need];
  compat::WriteUtf8(isolate, string, utf8, need);
  *size = need;
  return utf8;
}

}  // namespace keyloom

// char *: a string primitive becomes a new[] copy of its UTF-8 form and a NUL
// byte, exactly UTF-8 length + 1 bytes (marker 512: the caller frees it with
// delete[]); a proxy of descriptor _p_char passes its address (marker 0).
// Anything else, null and undefined included, is a type error.
inline int KLRT_AsCharPtrAndSize(v8::Isolate* isolate, v8::Local<v8::Value> valRef, char** cptr,
                                 size_t* psize, int* alloc) {
  if (valRef->IsString()) {
    size_t size = 0;
    char* cstr = keyloom::Utf8Copy(isolate, valRef.As<v8::String>(), nullptr, 0, &size);
    if (alloc) *alloc = KLRT_NEWOBJ;
    if (psize) *psize = size - 1;
    if (cptr) *cptr = cstr;
    return KLRT_OK;
  }
  if (valRef->IsObject()) {
    klrt_type_info* pchar_descriptor = KLRT_pchar_descriptor();
    void* vptr = nullptr;
    if (pchar_descriptor &&
        KLRT_ConvertPtr(isolate, valRef, &vptr, pchar_descriptor, 0) == KLRT_OK) {
      if (cptr) *cptr = static_cast<char*>(vptr);
      if (psize) *psize = vptr ? std::strlen(static_cast<char*>(vptr)) + 1 : 0;
      if (alloc) *alloc = KLRT_OLDOBJ;
      return KLRT_OK;
    }
  }
  return KLRT_TypeError;
}
