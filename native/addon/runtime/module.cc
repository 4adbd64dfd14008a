#include "runtime/module.h"

v8::Local<v8::String> KLRT_Name(v8::Isolate* isolate, const char* name) {
  return v8::String::NewFromUtf8(isolate, name, v8::NewStringType::kNormal).ToLocalChecked();
}

void KLRT_AddStaticFunction(v8::Isolate* isolate, v8::Local<v8::Context> context,
                            v8::Local<v8::Object> object, const char* name,
                            v8::FunctionCallback callback) {
  v8::Local<v8::Function> function;
  if (!v8::FunctionTemplate::New(isolate, callback)->GetFunction(context).ToLocal(&function)) {
    return;
  }
  object->CreateDataProperty(context, KLRT_Name(isolate, name), function).FromMaybe(false);
}
