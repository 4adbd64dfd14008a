// MD5 message digest (RFC 1321), used by the MD5 hash kind and the ketama
// continuum.
#pragma once

#include <cstddef>
#include <cstdint>

namespace keyloom {

// Incremental MD5: update() any number of times, then finish() once.
class Md5 {
 public:
  Md5();
  void update(const void *data, size_t len);
  void finish(unsigned char digest[16]);

 private:
  void block(const unsigned char *p);

  uint32_t state_[4];
  uint64_t length_ = 0;  // bytes seen so far
  unsigned char buffer_[64];
  size_t buffered_ = 0;
};

// The MD5 digest of data in one call; no allocation.
void md5(const void *data, size_t len, unsigned char digest[16]);

}  // namespace keyloom
