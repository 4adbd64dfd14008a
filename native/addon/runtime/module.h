// What every module built on this runtime does at load: names made from C
// text, and functions added to the exports object.
#pragma once

#include <v8.h>

// A string from NUL-terminated UTF-8 text (a name known to be valid).
v8::Local<v8::String> KLRT_Name(v8::Isolate* isolate, const char* name);

// A function: no data, no signature, declared length 0; a plain data property,
// writable, enumerable and configurable. It is defined with CreateDataProperty
// rather than Set: on the fresh exports object the property is the same, but a
// named definition of a constant function keeps the object in fast mode
// (Set's keyed store turns an object of more than a few properties into a
// dictionary, which costs every `keyloom.fn` lookup a hash probe).
void KLRT_AddStaticFunction(v8::Isolate* isolate, v8::Local<v8::Context> context,
                            v8::Local<v8::Object> object, const char* name,
                            v8::FunctionCallback callback);
