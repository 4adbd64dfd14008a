// SHA-1 (FIPS 180-4), for the digests that EVALSHA names scripts by.
#pragma once

#include <cstddef>
#include <string>

namespace keyloom {

// Lower-case hex SHA-1 of data (40 characters).
std::string sha1_hex(const void *data, size_t len);

}  // namespace keyloom
