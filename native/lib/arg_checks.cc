#include "arg_checks.h"

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

}  // namespace keyloom
