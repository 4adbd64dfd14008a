// The floor of a JavaScript -> native call: one export whose callback does
// nothing, built against the same Node.js headers as keyloom.node.
#include <node.h>

namespace {

void Empty(const v8::FunctionCallbackInfo<v8::Value> &) {}

void Initialize(v8::Local<v8::Object> exports) {
  NODE_SET_METHOD(exports, "empty", Empty);
}

}  // namespace

NODE_MODULE(NODE_GYP_MODULE_NAME, Initialize)
