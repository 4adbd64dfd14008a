#include "arg_checks.h"

#include <cerrno>
#include <cstdlib>
#include <string>

namespace keyloom {

bool entries_given(char *const *items, const size_t *lens, size_t count) {
  if (!items || !lens || count == 0) return false;
  for (size_t i = 0; i < count; ++i)
    if (!items[i]) return false;
  return true;
}

bool values_given(char *const *items, const size_t *lens, size_t count) {
  if (!items || !lens || count == 0) return false;
  for (size_t i = 0; i < count; ++i)
    if (!optional_bytes(items[i], lens[i])) return false;
  return true;
}

bool decimal_ok(const char *text, size_t len, long long *value) {
  if (!text || len == 0 || len > 20) return false;
  const std::string s(text, len);
  char *end = nullptr;
  errno = 0;
  const long long v = std::strtoll(s.c_str(), &end, 10);
  if (errno != 0 || end != s.c_str() + s.size() || s[0] == '+' || s[0] == ' ') return false;
  *value = v;
  return true;
}

}  // namespace keyloom
