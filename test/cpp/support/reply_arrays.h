// Reading and releasing the library's reply cells in tests: every helper
// takes the reply out of its cells and frees it the way a caller must.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "keyloom.h"

namespace keyloom::test {

// How a missing element (null pointer, length SIZE_MAX) reads in expectations.
inline const std::string kNil = "<nil>";

// How a failed call reads in expectations: "<" + kl_strerror(r) + ">".
inline std::string failed(kl_return_t r) {
  std::string text("<");
  text += kl_strerror(r);
  text += '>';
  return text;
}

// prefix followed by the decimal i ("key" 3 -> "key3").
inline std::string numbered(const char *prefix, long i) {
  std::string text(prefix);
  text += std::to_string(i);
  return text;
}

// The n strings of an array reply; frees the array and its lengths.
inline std::vector<std::string> take_strings(char **&array, size_t n, size_t *&lens) {
  std::vector<std::string> out;
  for (size_t i = 0; i < n; ++i) {
    if (!array[i]) {
      out.push_back(lens && lens[i] == SIZE_MAX ? kNil : "<null with length>");
      continue;
    }
    out.emplace_back(array[i], lens ? lens[i] : std::string(array[i]).size());
  }
  kl_free_php_reply_pp(&array, static_cast<unsigned>(n));
  kl_free_php_reply_p(reinterpret_cast<char **>(&lens));
  return out;
}

// One value reply; frees it.
inline std::string take_value(char *&value, size_t len) {
  if (!value) return len == SIZE_MAX ? kNil : "<null with length>";
  std::string out(value, len);
  kl_free_php_reply_p(&value);
  return out;
}

inline std::vector<double> take_doubles(double *&array, size_t n) {
  std::vector<double> out(array, array + n);
  kl_free_php_reply_p(reinterpret_cast<char **>(&array));
  return out;
}

// A string literal where the C interface takes a char * (never written to).
inline char *lit(const char *s) { return const_cast<char *>(s); }

// C views of strings for the array arguments.
struct CArgs {
  explicit CArgs(const std::vector<std::string> &items) {
    for (const auto &s : items) {
      ptrs.push_back(const_cast<char *>(s.data()));
      lens.push_back(s.size());
    }
  }
  std::vector<char *> ptrs;
  std::vector<size_t> lens;
};

}  // namespace keyloom::test
