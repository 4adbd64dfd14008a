// libFuzzer target: kl_server_add's handling of arbitrary host, port and group
// values (through the public interface; servers are only added, never
// contacted). Each record: a flag byte, a port (2 bytes), then host and group
// texts separated by 0xff bytes; the client's hash and distribution come from
// the first two bytes, also unknown values.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "keyloom.h"

#define CHECK(cond) \
  do {              \
    if (!(cond)) __builtin_trap(); \
  } while (0)

static std::string take(const uint8_t *&p, const uint8_t *end) {
  const uint8_t *start = p;
  while (p < end && *p != 0xff) p++;
  std::string s(reinterpret_cast<const char *>(start), p - start);
  if (p < end) p++;
  return s;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 2) return 0;
  kl_client *c = kl_client_create(static_cast<kl_hash>(static_cast<int8_t>(data[0])),
                                  static_cast<kl_server_distribution>(static_cast<int8_t>(data[1])),
                                  nullptr, KL_FLAG_NONE);
  if (!c) return 0;  // an unknown hash or distribution may be refused
  const uint8_t *p = data + 2;
  const uint8_t *end = data + size;
  for (int n = 0; n < 32 && p + 3 <= end; n++) {
    const uint8_t flags = *p++;
    unsigned port = p[0] | (p[1] << 8);
    if (flags & 1) port |= 0x10000u * p[0];  // ports above 65535 too
    p += 2;
    std::string host = take(p, end);
    std::string group = take(p, end);
    kl_return_t r = kl_server_add(c, (flags & 2) ? nullptr : host.data(), port,
                                  (flags & 4) ? nullptr : group.data());
    CHECK(static_cast<int>(r) >= 0 && static_cast<int>(r) <= (20 | 128));
  }
  kl_client *g = kl_group_client(c);
  kl_client_destroy(g);
  kl_client_destroy(c);
  return 0;
}
