#include "hash.h"

#include "md5.h"

namespace keyloom {
namespace {

// Several kinds read the key through a plain (signed on x86-64) char, so a
// byte >= 0x80 enters their arithmetic sign-extended. Doing it explicitly
// keeps the values identical on platforms whose char is unsigned.
inline uint32_t signed_byte(unsigned char b) {
  return static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(b)));
}

inline uint32_t lo16(const unsigned char *p) { return uint32_t(p[0]) | uint32_t(p[1]) << 8; }

uint32_t one_at_a_time(const unsigned char *p, size_t len) {
  uint32_t h = 0;
  for (size_t i = 0; i < len; ++i) {
    h += signed_byte(p[i]);
    h += h << 10;
    h ^= h >> 6;
  }
  h += h << 3;
  h ^= h >> 11;
  h += h << 15;
  return h;
}

uint32_t md5_hash(const unsigned char *p, size_t len) {
  unsigned char d[16];
  md5(p, len, d);
  return uint32_t(d[0]) | uint32_t(d[1]) << 8 | uint32_t(d[2]) << 16 | uint32_t(d[3]) << 24;
}

constexpr uint64_t kFnv64Offset = 0xcbf29ce484222325ULL;
constexpr uint64_t kFnv64Prime = 0x100000001b3ULL;
constexpr uint32_t kFnv32Offset = 0x811c9dc5U;
constexpr uint32_t kFnv32Prime = 0x01000193U;

uint32_t fnv1_64(const unsigned char *p, size_t len) {
  uint64_t h = kFnv64Offset;
  for (size_t i = 0; i < len; ++i) {
    h *= kFnv64Prime;
    // Sign-extending to 64 bits leaves the low 32 bits as the 32-bit extension.
    h ^= static_cast<uint64_t>(static_cast<int64_t>(static_cast<signed char>(p[i])));
  }
  return static_cast<uint32_t>(h);
}

uint32_t fnv1a_64(const unsigned char *p, size_t len) {
  uint64_t h = kFnv64Offset;
  for (size_t i = 0; i < len; ++i) {
    h ^= static_cast<uint64_t>(static_cast<int64_t>(static_cast<signed char>(p[i])));
    h *= kFnv64Prime;
  }
  return static_cast<uint32_t>(h);
}

uint32_t fnv1_32(const unsigned char *p, size_t len) {
  uint32_t h = kFnv32Offset;
  for (size_t i = 0; i < len; ++i) {
    h *= kFnv32Prime;
    h ^= signed_byte(p[i]);
  }
  return h;
}

uint32_t fnv1a_32(const unsigned char *p, size_t len) {
  uint32_t h = kFnv32Offset;
  for (size_t i = 0; i < len; ++i) {
    h ^= signed_byte(p[i]);
    h *= kFnv32Prime;
  }
  return h;
}

// SuperFastHash with the running hash starting at 0 instead of the length.
uint32_t hsieh(const unsigned char *p, size_t len) {
  if (len == 0) return 0;
  uint32_t h = 0;
  for (size_t blocks = len / 4; blocks > 0; --blocks, p += 4) {
    h += lo16(p);
    const uint32_t t = (lo16(p + 2) << 11) ^ h;
    h = (h << 16) ^ t;
    h += h >> 11;
  }
  switch (len & 3) {
    case 3:
      h += lo16(p);
      h ^= h << 16;
      h ^= signed_byte(p[2]) << 18;
      h += h >> 11;
      break;
    case 2:
      h += lo16(p);
      h ^= h << 11;
      h += h >> 17;
      break;
    case 1:
      h += p[0];
      h ^= h << 10;
      h += h >> 1;
      break;
    default:
      break;
  }
  h ^= h << 3;
  h += h >> 5;
  h ^= h << 4;
  h += h >> 17;
  h ^= h << 25;
  h += h >> 6;
  return h;
}

// MurmurHash2 (32-bit) seeded with 0xdeadbeef * len.
uint32_t murmur(const unsigned char *p, size_t len) {
  constexpr uint32_t m = 0x5bd1e995;
  constexpr unsigned r = 24;
  const uint32_t n = static_cast<uint32_t>(len);
  uint32_t h = (0xdeadbeefU * n) ^ n;
  for (; len >= 4; p += 4, len -= 4) {
    uint32_t k = uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 |
                 uint32_t(p[3]) << 24;
    k *= m;
    k ^= k >> r;
    k *= m;
    h *= m;
    h ^= k;
  }
  if (len > 0) {
    uint32_t t = 0;
    for (size_t i = len; i > 0; --i) t = (t << 8) | p[i - 1];
    h ^= t;
    h *= m;
  }
  h ^= h >> 13;
  h *= m;
  h ^= h >> 15;
  return h;
}

struct CrcTable {
  uint32_t v[256];
  constexpr CrcTable() : v{} {
    for (uint32_t i = 0; i < 256; ++i) {
      uint32_t c = i;
      for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320U ^ (c >> 1) : c >> 1;
      v[i] = c;
    }
  }
};
constexpr CrcTable kCrcTable;

}  // namespace

uint32_t crc32_checksum(const void *data, size_t len) {
  const auto *p = static_cast<const unsigned char *>(data);
  uint32_t c = 0xFFFFFFFFU;
  for (size_t i = 0; i < len; ++i) c = kCrcTable.v[(c ^ p[i]) & 0xFF] ^ (c >> 8);
  return ~c;
}

bool hash_kind_valid(int kind) { return kind >= KL_HASH_DEFAULT && kind <= KL_HASH_MURMUR; }

uint32_t hash_key(kl_hash kind, const char *key, size_t len) {
  const auto *p = reinterpret_cast<const unsigned char *>(key);
  switch (kind) {
    case KL_HASH_MD5:
      return md5_hash(p, len);
    case KL_HASH_CRC:
      return (crc32_checksum(p, len) >> 16) & 0x7FFF;
    case KL_HASH_FNV1_64:
      return fnv1_64(p, len);
    case KL_HASH_FNV1A_64:
      return fnv1a_64(p, len);
    case KL_HASH_FNV1_32:
      return fnv1_32(p, len);
    case KL_HASH_FNV1A_32:
      return fnv1a_32(p, len);
    case KL_HASH_HSIEH:
      return hsieh(p, len);
    case KL_HASH_MURMUR:
      return murmur(p, len);
    case KL_HASH_DEFAULT:
    default:
      return one_at_a_time(p, len);
  }
}

}  // namespace keyloom
