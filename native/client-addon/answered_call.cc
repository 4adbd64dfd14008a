#include "answered_call.h"

#include <climits>
#include <cstdint>
#include <cstring>
#include <vector>

#include "runtime/compat.h"

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

// count items as an array of strings or Buffers (null for a missing one).
v8::MaybeLocal<v8::Value> ArrayOf(v8::Isolate* isolate, char* const* items, const size_t* lengths, size_t count,
                                  bool as_buffer) {
  if (!items) count = 0;
  if (count > static_cast<size_t>(INT_MAX)) {
    isolate->ThrowException(v8::Exception::RangeError(
        TextOf(isolate, "keyloom: " + std::to_string(count) + " values are too many for an array")));
    return {};
  }
  std::vector<v8::Local<v8::Value>> elements(count);
  for (size_t i = 0; i < count; ++i) {
    const char* element = items[i];
    const bool missing = !element || (lengths && lengths[i] == SIZE_MAX);
    if (missing) {
      elements[i] = v8::Null(isolate);
      continue;
    }
    const size_t length = lengths ? lengths[i] : std::strlen(element);
    if (!BytesOf(isolate, element, length, as_buffer).ToLocal(&elements[i])) return {};
  }
  return v8::Array::New(isolate, elements.data(), count);
}

}  // namespace

v8::MaybeLocal<v8::Value> OneValue::ValueOf(v8::Isolate* isolate, const Cells& cells, bool as_buffer) {
  if (!cells.value) return v8::Null(isolate);
  return BytesOf(isolate, cells.value, cells.length, as_buffer);
}

v8::MaybeLocal<v8::Value> Text::ValueOf(v8::Isolate* isolate, const Cells& cells, bool as_buffer) {
  if (!cells.value) return v8::Null(isolate);
  return BytesOf(isolate, cells.value, std::strlen(cells.value), as_buffer);
}

v8::MaybeLocal<v8::Value> ScoresAlongside::ValueOf(v8::Isolate* isolate, const Cells& cells, bool) {
  const size_t count = cells.scores ? cells.count : 0;
  if (count > static_cast<size_t>(INT_MAX)) {
    isolate->ThrowException(v8::Exception::RangeError(
        TextOf(isolate, "keyloom: " + std::to_string(count) + " scores are too many for an array")));
    return {};
  }
  std::vector<v8::Local<v8::Value>> scores(count);
  for (size_t i = 0; i < count; ++i) scores[i] = v8::Number::New(isolate, cells.scores[i]);
  return v8::Array::New(isolate, scores.data(), count);
}

v8::MaybeLocal<v8::Value> CountedValues::ValueOf(v8::Isolate* isolate, const Cells& cells, bool as_buffer) {
  v8::Local<v8::Value> parts[2];
  if (!ArrayOf(isolate, cells.values, cells.lengths, cells.Count(), as_buffer).ToLocal(&parts[0])) return {};
  parts[1] = v8::Number::New(isolate, static_cast<double>(cells.count == SIZE_MAX ? 0 : cells.count));
  return v8::Array::New(isolate, parts, 2);
}

v8::MaybeLocal<v8::Value> TextsToNull::ValueOf(v8::Isolate* isolate, const Cells& cells, bool as_buffer) {
  return ArrayOf(isolate, cells.texts, nullptr, cells.Length(), as_buffer);
}

v8::MaybeLocal<v8::Value> ManyValues::ValueOf(v8::Isolate* isolate, const Cells& cells, bool as_buffer) {
  return ArrayOf(isolate, cells.values, cells.lengths, cells.Count(), as_buffer);
}

v8::MaybeLocal<v8::Value> NamedValues::ValueOf(v8::Isolate* isolate, const Cells& cells, bool as_buffer) {
  const size_t count = cells.count == SIZE_MAX ? 0 : cells.count;
  v8::Local<v8::Value> parts[2];
  if (!ArrayOf(isolate, cells.names.values, cells.names.lengths, count, false).ToLocal(&parts[0]) ||
      !ArrayOf(isolate, cells.values.values, cells.values.lengths, count, as_buffer).ToLocal(&parts[1])) {
    return {};
  }
  return v8::Array::New(isolate, parts, 2);
}

int CopyTextList(v8::Isolate* isolate, v8::Local<v8::Value> value, std::string& bytes, std::vector<char*>& items,
                 std::vector<size_t>& lengths) {
  if (!value->IsArray()) return KLRT_TypeError;
  v8::Local<v8::Array> array = value.As<v8::Array>();
  v8::Local<v8::Context> context = isolate->GetCurrentContext();
  const uint32_t n = array->Length();
  std::vector<v8::Local<v8::String>> strings(n);
  lengths.resize(n);
  size_t total = 0;
  for (uint32_t i = 0; i < n; ++i) {
    v8::Local<v8::Value> item;
    if (!array->Get(context, i).ToLocal(&item) || !item->IsString()) return KLRT_TypeError;
    strings[i] = item.As<v8::String>();
    lengths[i] = compat::Utf8Length(isolate, strings[i]);
    total += lengths[i] + 1;
  }
  bytes.resize(total);
  items.resize(n);
  size_t at = 0;
  for (uint32_t i = 0; i < n; ++i) {
    compat::WriteUtf8(isolate, strings[i], &bytes[at], lengths[i] + 1);
    items[i] = &bytes[at];
    at += lengths[i] + 1;
  }
  return 0;
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
