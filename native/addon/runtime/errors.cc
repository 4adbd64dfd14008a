// Error reporting.
#include "runtime/errors.h"

#include <cstdio>

V8ErrorHandler KLRT_ErrorHandler;

void V8ErrorHandler::error(int, const char* message) {
  v8::Isolate* isolate = v8::Isolate::GetCurrent();
  v8::Local<v8::String> text;
  if (!v8::String::NewFromUtf8(isolate, message, v8::NewStringType::kNormal).ToLocal(&text)) {
    return;
  }
  isolate->ThrowException(v8::Exception::Error(text));
}

namespace keyloom {

void RaiseArity(const char* name) {
  char message[160];
  std::snprintf(message, sizeof message, "Illegal number of arguments for _wrap_%s.", name);
  KLRT_ErrorHandler.error(KLRT_ERROR, message);
}

void RaiseArgument(int code, const char* name, int position, const char* type) {
  char message[200];
  std::snprintf(message, sizeof message, "in method '%s', argument %d of type '%s'", name,
                position, type);
  KLRT_ErrorHandler.error(code, message);
}

}  // namespace keyloom
