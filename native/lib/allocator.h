// Which allocator each reply came from, so that kl_free_php_reply_p (which
// gets no client) frees it with the right one. Only memory from a caller's
// memory manager is recorded; everything else is the C library's.
#pragma once

#include <cstddef>

namespace keyloom {

void remember_allocation(void *ptr, void (*free_fn)(void *));
// Frees ptr with the allocator it came from; null is ignored.
void release_allocation(void *ptr);

}  // namespace keyloom
