// Key hashing: the nine hash kinds of kl_hash, computed as the widely used
// memcached-style clients compute them, so a key maps to the same server.
#pragma once

#include <cstddef>
#include <cstdint>

#include "keyloom.h"

namespace keyloom {

// The 32-bit hash of key under one of the nine kinds (an unknown kind hashes
// as KL_HASH_DEFAULT). Pure and allocation-free; key may be null when len is 0.
uint32_t hash_key(kl_hash kind, const char *key, size_t len);

// The full CRC-32 (reflected 0xEDB88320, the value zlib's crc32 gives); the
// CRC hash kind keeps only bits 16..30 of it.
uint32_t crc32_checksum(const void *data, size_t len);

// True for the nine kinds of kl_hash.
bool hash_kind_valid(int kind);

}  // namespace keyloom
