// A byte string argument of the client's own entry points: a Buffer (any
// Uint8Array) or a string (its UTF-8), copied for the call, so a pipelined
// call keeps its bytes however the caller's buffer changes meanwhile.
#pragma once

#include <v8.h>

#include <cstring>
#include <memory>

#include "runtime/arg_kinds.h"

namespace keyloom {

struct BytesArg {
  using c_type = char const*;
  static constexpr const char* text = "Buffer or string";
  struct slot {
    std::unique_ptr<char[]> bytes;
  };
  static int convert(v8::Isolate* isolate, v8::Local<v8::Value> value, slot& s) {
    if (value->IsUint8Array()) {
      auto view = value.As<v8::Uint8Array>();
      const size_t n = view->ByteLength();
      s.bytes.reset(new char[n + 1]);
      view->CopyContents(s.bytes.get(), n);
      s.bytes[n] = '\0';
      return 0;
    }
    if (value->IsString()) {
      size_t n = 0;
      char* copy = Utf8Copy(isolate, value.As<v8::String>(), nullptr, 0, &n);
      s.bytes.reset(copy);
      return 0;
    }
    return KLRT_TypeError;
  }
  static char const* get(const slot& s) { return s.bytes.get(); }
  static void release(slot& s) { s.bytes.reset(); }
};

using Bytes = BytesArg;

}  // namespace keyloom
