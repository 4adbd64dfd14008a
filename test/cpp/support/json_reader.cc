#include "support/json_reader.h"

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace keyloom::test {

class JsonParser {
 public:
  explicit JsonParser(std::string_view text) : s_(text) {}

  Json document() {
    Json v = value();
    skip_space();
    if (pos_ != s_.size()) fail("trailing characters");
    return v;
  }

 private:
  [[noreturn]] void fail(const std::string &what) const {
    throw std::runtime_error("JSON: " + what + " at offset " + std::to_string(pos_));
  }

  void skip_space() {
    while (pos_ < s_.size() &&
           (s_[pos_] == ' ' || s_[pos_] == '\n' || s_[pos_] == '\r' || s_[pos_] == '\t'))
      ++pos_;
  }

  char peek() {
    skip_space();
    if (pos_ >= s_.size()) fail("unexpected end");
    return s_[pos_];
  }

  void expect(char c) {
    if (peek() != c) fail(std::string("expected '") + c + "'");
    ++pos_;
  }

  bool take_word(std::string_view word) {
    if (s_.substr(pos_, word.size()) != word) return false;
    pos_ += word.size();
    return true;
  }

  Json value() {
    Json v;
    const char c = peek();
    if (c == '{') {
      v.type_ = Json::Type::object;
      ++pos_;
      if (peek() == '}') {
        ++pos_;
        return v;
      }
      for (;;) {
        if (peek() != '"') fail("expected a member name");
        std::string name = string();
        expect(':');
        v.object_[name] = value();
        if (peek() == ',') {
          ++pos_;
          continue;
        }
        expect('}');
        return v;
      }
    }
    if (c == '[') {
      v.type_ = Json::Type::array;
      ++pos_;
      if (peek() == ']') {
        ++pos_;
        return v;
      }
      for (;;) {
        v.array_.push_back(value());
        if (peek() == ',') {
          ++pos_;
          continue;
        }
        expect(']');
        return v;
      }
    }
    if (c == '"') {
      v.type_ = Json::Type::string;
      v.string_ = string();
      return v;
    }
    if (take_word("true") || take_word("false")) {
      v.type_ = Json::Type::boolean;
      v.bool_ = s_[pos_ - 1] == 'e' && s_[pos_ - 2] == 'u';
      return v;
    }
    if (take_word("null")) return v;
    if (c == '-' || (c >= '0' && c <= '9')) {
      const size_t start = pos_;
      while (pos_ < s_.size() && std::string_view("+-.eE0123456789").find(s_[pos_]) !=
                                     std::string_view::npos)
        ++pos_;
      const std::string text(s_.substr(start, pos_ - start));
      char *end = nullptr;
      v.type_ = Json::Type::number;
      v.number_ = std::strtod(text.c_str(), &end);
      if (end != text.c_str() + text.size()) fail("bad number");
      return v;
    }
    fail("unexpected character");
  }

  static void put_utf8(std::string &out, unsigned cp) {
    if (cp < 0x80) {
      out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
      out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
      out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
      out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
  }

  unsigned hex4() {
    if (pos_ + 4 > s_.size()) fail("short \\u escape");
    unsigned v = 0;
    for (int i = 0; i < 4; ++i) {
      const char h = s_[pos_++];
      v <<= 4;
      if (h >= '0' && h <= '9') v |= unsigned(h - '0');
      else if (h >= 'a' && h <= 'f') v |= unsigned(h - 'a' + 10);
      else if (h >= 'A' && h <= 'F') v |= unsigned(h - 'A' + 10);
      else fail("bad \\u escape");
    }
    return v;
  }

  std::string string() {
    expect('"');
    std::string out;
    for (;;) {
      if (pos_ >= s_.size()) fail("unterminated string");
      const char c = s_[pos_++];
      if (c == '"') return out;
      if (static_cast<unsigned char>(c) < 0x20) fail("control character in string");
      if (c != '\\') {
        out.push_back(c);
        continue;
      }
      if (pos_ >= s_.size()) fail("unterminated escape");
      const char e = s_[pos_++];
      switch (e) {
        case '"': out.push_back('"'); break;
        case '\\': out.push_back('\\'); break;
        case '/': out.push_back('/'); break;
        case 'b': out.push_back('\b'); break;
        case 'f': out.push_back('\f'); break;
        case 'n': out.push_back('\n'); break;
        case 'r': out.push_back('\r'); break;
        case 't': out.push_back('\t'); break;
        case 'u': {
          unsigned cp = hex4();
          // A surrogate pair encodes one code point above U+FFFF.
          if (cp >= 0xD800 && cp < 0xDC00 && take_word("\\u")) {
            const unsigned low = hex4();
            if (low < 0xDC00 || low >= 0xE000) fail("bad surrogate pair");
            cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
          }
          put_utf8(out, cp);
          break;
        }
        default:
          fail("bad escape");
      }
    }
  }

  std::string_view s_;
  size_t pos_ = 0;
};

Json Json::parse(std::string_view text) { return JsonParser(text).document(); }

Json Json::load(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot open " + path);
  std::ostringstream buf;
  buf << in.rdbuf();
  return parse(buf.str());
}

static void require(bool ok, const char *what) {
  if (!ok) throw std::runtime_error(std::string("JSON: not ") + what);
}

bool Json::boolean() const {
  require(type_ == Type::boolean, "a boolean");
  return bool_;
}
double Json::number() const {
  require(type_ == Type::number, "a number");
  return number_;
}
uint32_t Json::u32() const {
  require(type_ == Type::number && number_ >= 0 && number_ <= 4294967295.0 &&
              std::floor(number_) == number_,
          "an unsigned 32-bit number");
  return static_cast<uint32_t>(number_);
}
const std::string &Json::str() const {
  require(type_ == Type::string, "a string");
  return string_;
}
const std::vector<Json> &Json::array() const {
  require(type_ == Type::array, "an array");
  return array_;
}
const std::map<std::string, Json> &Json::members() const {
  require(type_ == Type::object, "an object");
  return object_;
}
const Json &Json::operator[](const std::string &name) const {
  const auto &m = members();
  const auto it = m.find(name);
  if (it == m.end()) throw std::runtime_error("JSON: no member " + name);
  return it->second;
}
const Json &Json::operator[](size_t i) const {
  const auto &a = array();
  if (i >= a.size()) throw std::runtime_error("JSON: index out of range");
  return a[i];
}
bool Json::has(const std::string &name) const {
  return type_ == Type::object && object_.count(name) > 0;
}
size_t Json::size() const {
  if (type_ == Type::array) return array_.size();
  if (type_ == Type::object) return object_.size();
  throw std::runtime_error("JSON: size of a scalar");
}

std::string vector_path(const std::string &name) {
#ifdef KEYLOOM_SOURCE_DIR
  return std::string(KEYLOOM_SOURCE_DIR) + "/test/vectors/" + name;
#else
  return "test/vectors/" + name;
#endif
}

}  // namespace keyloom::test
