// Engine compatibility: the one place where the engine's version matters.
//
// The runtime was first written against an older engine line (hidden values, MakeWeak,
// SetAccessor, WriteUtf8, Holder ...). Every call whose spelling differs
// between the engine lines this addon builds on (Node.js 20, 22, 24 and 26:
// V8 11.3, 12.4, 13.6 and 14.6) goes through a helper below, and no other file
// of the addon tests an engine version. Two conditions cover every difference:
//   V8_MAJOR_VERSION >= 13  the string V2 calls (Utf8LengthV2, WriteUtf8V2,
//                           WriteOneByteV2); the old ones are deprecated on 13
//                           and gone on 14
//   V8_MAJOR_VERSION >= 14  the tagged External and internal-field calls
// The calls that are spelt alike on all four (Private for the hidden value,
// Global::SetWeak with kParameter, SetNativeDataProperty, This(), the
// context-taking Set/GetFunction/NewInstance) are used directly elsewhere.
#pragma once

#include <node.h>
#include <node_version.h>
#include <v8.h>

#include <cstddef>
#include <cstdint>

#if !defined(V8_MAJOR_VERSION)
#error "the V8 headers do not define V8_MAJOR_VERSION"
#endif

namespace keyloom::compat {

// ---- v8::External ------------------------------------------------------------

inline v8::Local<v8::External> NewExternal(v8::Isolate* isolate, void* value) {
#if V8_MAJOR_VERSION >= 14
  return v8::External::New(isolate, value, v8::kExternalPointerTypeTagDefault);
#else
  return v8::External::New(isolate, value);
#endif
}

inline void* ExternalValue(v8::Local<v8::External> external) {
#if V8_MAJOR_VERSION >= 14
  return external->Value(v8::kExternalPointerTypeTagDefault);
#else
  return external->Value();
#endif
}

// ---- Aligned pointers in internal fields --------------------------------------

inline void SetAlignedPointer(v8::Local<v8::Object> object, int index, void* value) {
#if V8_MAJOR_VERSION >= 14
  object->SetAlignedPointerInInternalField(index, value, v8::kEmbedderDataTypeTagDefault);
#else
  object->SetAlignedPointerInInternalField(index, value);
#endif
}

// Inline in the engine's headers (a fast path for API objects): the hot path of
// every pointer argument.
inline void* GetAlignedPointer(v8::Local<v8::Object> object, int index) {
#if V8_MAJOR_VERSION >= 14
  return object->GetAlignedPointerFromInternalField(index, v8::kEmbedderDataTypeTagDefault);
#else
  return object->GetAlignedPointerFromInternalField(index);
#endif
}

// ---- Strings -----------------------------------------------------------------

// The UTF-8 length of a string in bytes, without a terminator. Lone surrogates
// count three bytes on every line (the old and the V2 call agree).
inline size_t Utf8Length(v8::Isolate* isolate, v8::Local<v8::String> string) {
#if V8_MAJOR_VERSION >= 13
  return string->Utf8LengthV2(isolate);
#else
  return static_cast<size_t>(string->Utf8Length(isolate));
#endif
}

// Writes the UTF-8 form of string into buffer, followed by a NUL byte when it
// fits: the old WriteUtf8(isolate, buffer, capacity, nullptr, NO_OPTIONS).
// Lone surrogates are written as their three-byte forms, not replaced.
inline void WriteUtf8(v8::Isolate* isolate, v8::Local<v8::String> string, char* buffer,
                      size_t capacity) {
#if V8_MAJOR_VERSION >= 13
  string->WriteUtf8V2(isolate, buffer, capacity, v8::String::WriteFlags::kNullTerminate);
#else
  string->WriteUtf8(isolate, buffer, static_cast<int>(capacity), nullptr,
                    v8::String::NO_OPTIONS);
#endif
}

// Writes the low byte of every UTF-16 unit of the whole string, then a NUL
// byte: the old WriteOneByte(isolate, buffer, 0, Length() + 1, NO_OPTIONS).
// buffer must hold Length() + 1 bytes.
inline void WriteOneByteWhole(v8::Isolate* isolate, v8::Local<v8::String> string,
                              uint8_t* buffer) {
#if V8_MAJOR_VERSION >= 13
  string->WriteOneByteV2(isolate, 0, static_cast<uint32_t>(string->Length()), buffer,
                         v8::String::WriteFlags::kNullTerminate);
#else
  string->WriteOneByte(isolate, buffer, 0, string->Length() + 1, v8::String::NO_OPTIONS);
#endif
}

// Whether the string is stored one byte per character (all its characters
// are in ISO 8859-1). False negatives are possible; it does not read the text.
inline bool IsOneByte(v8::Local<v8::String> string) { return string->IsOneByte(); }

// Writes characters [0, length) of a one-byte string, one byte each, without a
// terminator.
inline void WriteOneByte(v8::Isolate* isolate, v8::Local<v8::String> string, uint8_t* buffer,
                         int length) {
#if V8_MAJOR_VERSION >= 13
  string->WriteOneByteV2(isolate, 0, static_cast<uint32_t>(length), buffer,
                         v8::String::WriteFlags::kNone);
#else
  string->WriteOneByte(isolate, buffer, 0, length, v8::String::NO_NULL_TERMINATION);
#endif
}

// ---- Object shapes ---------------------------------------------------------------

// The address of the map (hidden class) of a heap object, or 0 for a small
// integer. Two live objects with the same map have the same layout, so an
// object whose map is that of a known proxy has the proxy's internal field.
// Read with the inline helpers that the engine's own inline functions use
// (GetAlignedPointerFromInternalField's fast path); they are spelt alike on the
// four lines, but they are the engine's internals, hence here.
inline uintptr_t MapOf(v8::Local<v8::Value> value) {
  using I = v8::internal::Internals;
  v8::internal::Address object = v8::internal::ValueHelper::ValueAsAddress(*value);
  if (!I::HasHeapObjectTag(object)) return 0;
  return static_cast<uintptr_t>(I::ReadTaggedPointerField(object, I::kHeapObjectMapOffset));
}

// ---- External memory ----------------------------------------------------------

// Only "deprecate soon" on 24 and 26 (its replacement's header is not shipped
// with Node.js), so it builds warning-free with V8_DEPRECATION_WARNINGS.
inline void AdjustExternalMemory(v8::Isolate* isolate, int64_t change) {
  isolate->AdjustAmountOfExternalAllocatedMemory(change);
}

}  // namespace keyloom::compat
