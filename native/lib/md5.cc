#include "md5.h"

#include <cstring>

namespace keyloom {
namespace {

// Per-step constants: floor(abs(sin(i + 1)) * 2^32).
constexpr uint32_t kSine[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613,
    0xfd469501, 0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193,
    0xa679438e, 0x49b40821, 0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d,
    0x02441453, 0xd8a1e681, 0xe7d3fbc8, 0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed,
    0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a, 0xfffa3942, 0x8771f681, 0x6d9d6122,
    0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70, 0x289b7ec6, 0xeaa127fa,
    0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665, 0xf4292244,
    0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb,
    0xeb86d391};

// Left-rotation amounts, four per round.
constexpr unsigned kShift[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

inline uint32_t rotl(uint32_t x, unsigned n) { return (x << n) | (x >> (32 - n)); }

inline uint32_t load_le32(const unsigned char *p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

inline void store_le32(unsigned char *p, uint32_t v) {
  p[0] = static_cast<unsigned char>(v);
  p[1] = static_cast<unsigned char>(v >> 8);
  p[2] = static_cast<unsigned char>(v >> 16);
  p[3] = static_cast<unsigned char>(v >> 24);
}

}  // namespace

Md5::Md5() : state_{0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476} {}

void Md5::block(const unsigned char *p) {
  uint32_t x[16];
  for (int i = 0; i < 16; ++i) x[i] = load_le32(p + 4 * i);
  uint32_t a = state_[0], b = state_[1], c = state_[2], d = state_[3];
  for (unsigned i = 0; i < 64; ++i) {
    uint32_t f;
    unsigned g;
    switch (i / 16) {
      case 0:
        f = (b & c) | (~b & d);
        g = i;
        break;
      case 1:
        f = (d & b) | (~d & c);
        g = (5 * i + 1) % 16;
        break;
      case 2:
        f = b ^ c ^ d;
        g = (3 * i + 5) % 16;
        break;
      default:
        f = c ^ (b | ~d);
        g = (7 * i) % 16;
        break;
    }
    const uint32_t t = d;
    d = c;
    c = b;
    b = b + rotl(a + f + kSine[i] + x[g], kShift[i / 16][i % 4]);
    a = t;
  }
  state_[0] += a;
  state_[1] += b;
  state_[2] += c;
  state_[3] += d;
}

void Md5::update(const void *data, size_t len) {
  const auto *p = static_cast<const unsigned char *>(data);
  length_ += len;
  if (buffered_ > 0) {
    const size_t take = len < 64 - buffered_ ? len : 64 - buffered_;
    std::memcpy(buffer_ + buffered_, p, take);
    buffered_ += take;
    p += take;
    len -= take;
    if (buffered_ < 64) return;
    block(buffer_);
    buffered_ = 0;
  }
  for (; len >= 64; p += 64, len -= 64) block(p);
  if (len > 0) {
    std::memcpy(buffer_, p, len);
    buffered_ = len;
  }
}

void Md5::finish(unsigned char digest[16]) {
  const uint64_t bits = length_ * 8;
  // Padding: a 1 bit, zeros up to 56 mod 64, then the bit length little-endian.
  static const unsigned char kPad[64] = {0x80};
  const size_t pad = buffered_ < 56 ? 56 - buffered_ : 120 - buffered_;
  update(kPad, pad);
  unsigned char tail[8];
  store_le32(tail, static_cast<uint32_t>(bits));
  store_le32(tail + 4, static_cast<uint32_t>(bits >> 32));
  update(tail, 8);
  for (int i = 0; i < 4; ++i) store_le32(digest + 4 * i, state_[i]);
}

void md5(const void *data, size_t len, unsigned char digest[16]) {
  Md5 m;
  m.update(data, len);
  m.finish(digest);
}

}  // namespace keyloom
