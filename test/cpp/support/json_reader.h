// A small JSON reader for the test vectors in test/vectors/: enough JSON for
// data files (objects, arrays, strings with escapes, numbers, true/false/null).
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace keyloom::test {

class Json {
 public:
  enum class Type { null, boolean, number, string, array, object };

  // Parses text; throws std::runtime_error (with the offset) on bad input.
  static Json parse(std::string_view text);
  // Reads and parses a file; throws std::runtime_error when it cannot.
  static Json load(const std::string &path);

  Type type() const { return type_; }
  bool is(Type t) const { return type_ == t; }

  // Typed access; each throws std::runtime_error on a type mismatch.
  bool boolean() const;
  double number() const;
  // The number as an exact unsigned 32-bit value (throws if it is not one).
  uint32_t u32() const;
  const std::string &str() const;
  const std::vector<Json> &array() const;
  // Member of an object; throws when missing.
  const Json &operator[](const std::string &name) const;
  // Element of an array; throws when out of range.
  const Json &operator[](size_t i) const;
  bool has(const std::string &name) const;
  const std::map<std::string, Json> &members() const;
  size_t size() const;

 private:
  friend class JsonParser;
  Type type_ = Type::null;
  bool bool_ = false;
  double number_ = 0;
  std::string string_;
  std::vector<Json> array_;
  std::map<std::string, Json> object_;
};

// Absolute path of a file in the repository's test/vectors/.
std::string vector_path(const std::string &name);

}  // namespace keyloom::test
