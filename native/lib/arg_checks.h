// The argument checks every command makes before anything is sent, and the
// rule for output cells: each one given is cleared first, so that a call that
// fails leaves nothing stale behind.
#pragma once

#include <cmath>
#include <cstddef>

#include "keyloom.h"

namespace keyloom {

// A byte string the call needs: a null pointer is refused even with length 0.
inline bool given(const void *p) { return p != nullptr; }
// An optional byte string: null is fine only with length 0.
inline bool optional_bytes(const char *p, size_t len) { return p || len == 0; }
inline const char *or_empty(const char *p) { return p ? p : ""; }
// count entries whose pointers and lengths are all there.
bool entries_given(char *const *items, const size_t *lens, size_t count);
// count values: the arrays are there; an element may be null with length 0.
bool values_given(char *const *items, const size_t *lens, size_t count);
inline bool score_ok(double v) { return !std::isnan(v); }
// len bytes of decimal text ("-12") that fit a long long, into *value.
bool decimal_ok(const char *text, size_t len, long long *value);

// Sets each output cell that is not null to its empty value (null pointer,
// zero count), so that a failed call leaves nothing stale behind.
template <class... T>
void clear_cells(T *...cells) {
  ((cells ? (void)(*cells = T{}) : (void)0), ...);
}

}  // namespace keyloom

// Returns KL_INVALID_CLIENT without a client, KL_INVALID_PARAMETER when cond fails.
#define KL_REQUIRE_CLIENT(client) \
  do {                            \
    if (!(client)) return KL_INVALID_CLIENT; \
  } while (0)
#define KL_REQUIRE(cond)                      \
  do {                                        \
    if (!(cond)) return KL_INVALID_PARAMETER; \
  } while (0)
