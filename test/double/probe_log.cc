#include "probe_log.h"

#include <fcntl.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace probe {
namespace {

std::string quoted(char const *s) { return std::string("\"") + s + "\""; }

std::string hex_address(void const *p) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "0x%" PRIxPTR, reinterpret_cast<uintptr_t>(p));
  return buf;
}

bool env_is_one(char const *name) {
  char const *v = std::getenv(name);
  return v != nullptr && std::strcmp(v, "1") == 0;
}

}  // namespace

std::string arg(int v) { return quoted(std::to_string(v).c_str()); }
std::string arg(unsigned int v) { return quoted(std::to_string(v).c_str()); }
std::string arg(unsigned long v) { return quoted(std::to_string(v).c_str()); }

std::string arg(double v) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.17g", v);
  return quoted(buf);
}

std::string arg(char const *text) {
  if (text == nullptr) return "null";
  std::string hex;
  static char const digits[] = "0123456789abcdef";
  for (auto const *b = reinterpret_cast<unsigned char const *>(text); *b != 0; ++b) {
    hex += digits[*b >> 4];
    hex += digits[*b & 15];
  }
  return "{\"addr\":" + quoted(hex_address(text).c_str()) + ",\"hex\":" + quoted(hex.c_str()) + "}";
}

std::string arg(void const *p) { return p == nullptr ? "null" : quoted(hex_address(p).c_str()); }

void write_line(char const *fn, std::string const &args) {
  char const *path = std::getenv("KEYLOOM_PROBE_LOG");
  if (path == nullptr || *path == 0) return;
  std::string line = "{\"fn\":" + quoted(fn) + ",\"args\":[" + args + "]}\n";
  int fd = ::open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (fd < 0) return;
  for (size_t done = 0; done < line.size();) {
    ssize_t n = ::write(fd, line.data() + done, line.size() - done);
    if (n <= 0) break;
    done += static_cast<size_t>(n);
  }
  ::close(fd);
}

kl_return_t result_code() {
  char const *v = std::getenv("KEYLOOM_PROBE_RESULT");
  if (v == nullptr || *v == 0) return KL_SUCCESS;
  // The low 32 bits of the number, so that any int (negative included) comes back.
  return static_cast<kl_return_t>(static_cast<int32_t>(std::strtoll(v, nullptr, 10)));
}

bool null_clients() { return env_is_one("KEYLOOM_PROBE_NULL"); }
bool null_texts() { return env_is_one("KEYLOOM_PROBE_NULL_TEXT"); }

}  // namespace probe
