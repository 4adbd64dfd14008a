// libFuzzer target: key hashing and server routing over arbitrary bytes.
// Byte 0 picks the hash kind (also unknown ones), byte 1 the distribution,
// byte 2 the number of servers; then server names, then the key.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "continuum.h"
#include "hash.h"
#include "md5.h"

#define CHECK(cond) \
  do {              \
    if (!(cond)) __builtin_trap(); \
  } while (0)

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 3) {
    // an empty key must hash without touching memory
    for (int kind = 0; kind < 10; kind++) (void)keyloom::hash_key(static_cast<kl_hash>(kind), nullptr, 0);
    return 0;
  }
  const auto kind = static_cast<kl_hash>(static_cast<int8_t>(data[0]) % 12);
  const auto dist = static_cast<kl_server_distribution>(data[1] % 4);
  const size_t nservers = 1 + data[2] % 8;
  const char *rest = reinterpret_cast<const char *>(data + 3);
  size_t left = size - 3;

  // every kind over the whole input, twice: the hash is a pure function
  for (int k = -1; k < 10; k++) {
    const auto hk = static_cast<kl_hash>(k);
    CHECK(keyloom::hash_key(hk, rest, left) == keyloom::hash_key(hk, rest, left));
  }
  CHECK(keyloom::hash_key(kind, rest, left) == keyloom::hash_key(kind, rest, left));
  (void)keyloom::crc32_checksum(rest, left);
  unsigned char d1[16], d2[16];
  keyloom::md5(rest, left, d1);
  keyloom::Md5 inc;
  inc.update(rest, left / 2);
  inc.update(rest + left / 2, left - left / 2);
  inc.finish(d2);
  CHECK(std::memcmp(d1, d2, 16) == 0);

  // server names: up to 16 bytes each taken from the input, with a port
  std::vector<std::string> servers;
  for (size_t i = 0; i < nservers; i++) {
    size_t n = left ? (static_cast<uint8_t>(rest[0]) % 17) : 0;
    if (n > left) n = left;
    const unsigned port = left > 1 ? static_cast<uint8_t>(rest[1]) * 257u : 11211u;
    servers.push_back(keyloom::point_base(std::string_view(rest, n), port));
    rest += n;
    left -= n;
  }
  keyloom::Continuum c;
  c.build(dist, kind, servers);
  CHECK(c.servers() == servers.size());
  const size_t s = c.server_for(rest, left);
  CHECK(s < servers.size());
  CHECK(s == c.server_for(rest, left));
  if (c.points() > 0) {
    const uint32_t h = keyloom::hash_key(kind, rest, left);
    const size_t p = c.point_for_hash(h);
    CHECK(p < c.points());
    CHECK(c.point_server(p) < servers.size());
    for (size_t i = 1; i < c.points(); i++) CHECK(c.point_value(i - 1) <= c.point_value(i));
  }
  // weighted, with weights from the key bytes (0 included)
  std::vector<unsigned> weights;
  for (size_t i = 0; i < servers.size(); i++) weights.push_back(i < left ? static_cast<uint8_t>(rest[i]) % 4 : 1);
  c.build_weighted(kind, servers, weights);
  CHECK(c.server_for(rest, left) < servers.size());
  return 0;
}
