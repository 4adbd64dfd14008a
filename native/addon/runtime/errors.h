// Error reporting.
//
// Every failure the module detects becomes a plain JavaScript Error thrown on
// the current isolate through the one handler object; the code never changes
// what is thrown. Messages are formatted only on the failure path.
#pragma once

#include <v8.h>

// Result codes of the runtime.
enum : int {
  KLRT_OK = 0,
  KLRT_ERROR = -1,
  KLRT_TypeError = -5,
  KLRT_OverflowError = -7,
};

// Allocation marker of the string converter: a new[] copy the caller frees.
enum : int { KLRT_OLDOBJ = 0, KLRT_NEWOBJ = 512 };

class V8ErrorHandler {
 public:
  virtual ~V8ErrorHandler() {}
  // Throws an Error with message on the current isolate; code is ignored.
  virtual void error(int code, const char* message);
};

// The single handler; every raise of the module goes to it.
extern V8ErrorHandler KLRT_ErrorHandler;

namespace keyloom {

// "Illegal number of arguments for _wrap_" + name + "."
[[gnu::cold, gnu::noinline]] void RaiseArity(const char* name);
// "in method '" + name + "', argument " + position + " of type '" + type + "'"
[[gnu::cold, gnu::noinline]] void RaiseArgument(int code, const char* name, int position,
                                                const char* type);

}  // namespace keyloom
