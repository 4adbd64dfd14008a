// The call log of the test double: one JSON line per library call, appended to
// the file that KEYLOOM_PROBE_LOG names (read on every call), written and
// flushed at once. Nothing is logged when the variable is unset or empty.
#pragma once

#include <cstddef>
#include <string>
#include <type_traits>

#include "keyloom.h"

namespace probe {

// One logged argument, rendered by its C type:
//  integers and enumerations  "decimal value in the C type"
//  double                     "%.17g"
//  char * / char const *      null | {"addr":"0x..","hex":"bytes up to the NUL"}
//  any other pointer          null | "0x.."
std::string arg(int v);
std::string arg(unsigned int v);
std::string arg(unsigned long v);
std::string arg(double v);
std::string arg(char const *text);
std::string arg(void const *p);
// The library's enumerations are logged as the int they hold.
template <typename E, typename = std::enable_if_t<std::is_enum_v<E>>>
std::string arg(E v) { return arg(static_cast<int>(v)); }
// Pointers other than text go through the void const * overload.
template <typename T, typename = std::enable_if_t<!std::is_same_v<std::remove_cv_t<T>, char>>>
std::string arg(T *p) { return arg(static_cast<void const *>(p)); }

// Appends {"fn":name,"args":[...]} as one line.
void write_line(char const *fn, std::string const &args);

template <typename... A>
void log_call(char const *fn, A... a) {
  std::string args;
  ((args += (args.empty() ? "" : ","), args += arg(a)), ...);
  write_line(fn, args);
}

// Environment-driven answers, read on every call.
kl_return_t result_code();      // KEYLOOM_PROBE_RESULT, default 0
bool null_clients();            // KEYLOOM_PROBE_NULL=1
bool null_texts();              // KEYLOOM_PROBE_NULL_TEXT=1

}  // namespace probe
