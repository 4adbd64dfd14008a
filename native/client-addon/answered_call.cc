#include "answered_call.h"

#include <cstring>
#include <vector>

namespace keyloom {

namespace {

// The bytes as a Buffer (a copy) or a string (their UTF-8 decoding, bad
// sequences as U+FFFD); empty with a RangeError pending when V8 cannot hold it.
v8::MaybeLocal<v8::Value> BytesOf(v8::Isolate* isolate, const char* bytes, size_t length, bool as_buffer) {
  if (as_buffer) {
    v8::Local<v8::Object> buffer;
    if (node::Buffer::Copy(isolate, bytes, length).ToLocal(&buffer)) return buffer;
  } else if (length <= static_cast<size_t>(v8::String::kMaxLength)) {
    v8::Local<v8::String> text;
    if (v8::String::NewFromUtf8(isolate, bytes, v8::NewStringType::kNormal, static_cast<int>(length))
            .ToLocal(&text)) {
      return text;
    }
  }
  const std::string why = "keyloom: a value of " + std::to_string(length) + " bytes is too large for a " +
                          (as_buffer ? "Buffer" : "string; ask for a Buffer");
  isolate->ThrowException(v8::Exception::RangeError(TextOf(isolate, why)));
  return {};
}

}  // namespace

v8::MaybeLocal<v8::Value> OneValue::ValueOf(v8::Isolate* isolate, const Cells& cells, bool as_buffer) {
  if (!cells.value) return v8::Null(isolate);
  return BytesOf(isolate, cells.value, cells.length, as_buffer);
}

v8::MaybeLocal<v8::Value> ManyValues::ValueOf(v8::Isolate* isolate, const Cells& cells, bool as_buffer) {
  const size_t count = cells.Count();
  if (count > static_cast<size_t>(INT_MAX)) {
    isolate->ThrowException(v8::Exception::RangeError(
        TextOf(isolate, "keyloom: " + std::to_string(count) + " values are too many for an array")));
    return {};
  }
  std::vector<v8::Local<v8::Value>> elements(count);
  for (size_t i = 0; i < count; ++i) {
    const char* element = cells.values[i];
    const bool missing = !element || (cells.lengths && cells.lengths[i] == SIZE_MAX);
    if (missing) {
      elements[i] = v8::Null(isolate);
      continue;
    }
    const size_t length = cells.lengths ? cells.lengths[i] : std::strlen(element);
    if (!BytesOf(isolate, element, length, as_buffer).ToLocal(&elements[i])) return {};
  }
  return v8::Array::New(isolate, elements.data(), count);
}

v8::Local<v8::Value> FailedAnswer(v8::Isolate* isolate, kl_return_t code, v8::Local<v8::Value> value,
                                  const CallFailureText& failure) {
  v8::Local<v8::Name> names[] = {
      v8::String::NewFromUtf8Literal(isolate, "code", v8::NewStringType::kInternalized),
      v8::String::NewFromUtf8Literal(isolate, "value", v8::NewStringType::kInternalized),
      v8::String::NewFromUtf8Literal(isolate, "kind", v8::NewStringType::kInternalized),
      v8::String::NewFromUtf8Literal(isolate, "server", v8::NewStringType::kInternalized),
      v8::String::NewFromUtf8Literal(isolate, "text", v8::NewStringType::kInternalized)};
  v8::Local<v8::Value> values[] = {v8::Integer::New(isolate, static_cast<int>(code)), value,
                                   v8::Integer::New(isolate, failure.kind), TextOf(isolate, failure.server),
                                   TextOf(isolate, failure.text)};
  return v8::Object::New(isolate, v8::Null(isolate), names, values, 5);
}

}  // namespace keyloom
