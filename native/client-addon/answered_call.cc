#include "answered_call.h"

namespace keyloom {

namespace {

// The value as a Buffer (its bytes) or a string (their UTF-8 decoding, bad
// sequences as U+FFFD); empty with a RangeError pending when V8 cannot hold it.
v8::MaybeLocal<v8::Value> ValueOf(v8::Isolate* isolate, const ValueCells& cells, bool as_buffer) {
  if (!cells.value) return v8::Null(isolate);
  if (as_buffer) {
    v8::Local<v8::Object> buffer;
    if (node::Buffer::Copy(isolate, cells.value, cells.length).ToLocal(&buffer)) return buffer;
  } else if (cells.length <= static_cast<size_t>(v8::String::kMaxLength)) {
    v8::Local<v8::String> text;
    if (v8::String::NewFromUtf8(isolate, cells.value, v8::NewStringType::kNormal, static_cast<int>(cells.length))
            .ToLocal(&text)) {
      return text;
    }
  }
  const std::string why = "keyloom: a value of " + std::to_string(cells.length) + " bytes is too large for a " +
                          (as_buffer ? "Buffer" : "string; ask for a Buffer");
  isolate->ThrowException(v8::Exception::RangeError(TextOf(isolate, why)));
  return {};
}

}  // namespace

v8::MaybeLocal<v8::Value> AnswerOf(v8::Isolate* isolate, kl_return_t code, ValueCells& cells, bool as_buffer,
                                   const CallFailureText& failure) {
  const kl_return_t result = static_cast<kl_return_t>(code & ~KL_DIRTY);
  if (result == KL_NOTFOUND) {
    cells.Free();
    return v8::Null(isolate);
  }
  v8::Local<v8::Value> value;
  const bool made = ValueOf(isolate, cells, as_buffer).ToLocal(&value);
  cells.Free();
  if (!made) return {};
  if (code == KL_SUCCESS) return value;
  v8::Local<v8::Value> parts[] = {v8::Integer::New(isolate, static_cast<int>(code)), value,
                                  v8::Integer::New(isolate, failure.kind), TextOf(isolate, failure.server),
                                  TextOf(isolate, failure.text)};
  return v8::Array::New(isolate, parts, 5);
}

}  // namespace keyloom
