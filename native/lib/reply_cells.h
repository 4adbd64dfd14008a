// Multi-value replies built by the library itself (merged, sorted or picked
// out of a larger reply) into the caller's cells, with the client's memory
// manager, in the same shapes as put_string_array.
#pragma once

#include <string_view>
#include <vector>

#include "internal.h"

namespace keyloom {

// Every `stride`-th element of an array reply from `first` on (members out of
// a member/score reply). Not an array: empty.
std::vector<const redisReply *> elements_of(const redisReply *array, size_t first = 0,
                                            size_t stride = 1);

// Byte strings into *out / *count / *lens; a view with a null data pointer is
// a missing element (null, length SIZE_MAX).
kl_return_t put_views(const kl_client *client, const std::vector<std::string_view> &items,
                      char ***out, size_t *count, size_t **lens);

// A double array into *out (not written when out is null).
kl_return_t put_doubles(const kl_client *client, const std::vector<double> &values, double **out);

// Undoes a put of n strings: frees them and the arrays, nulls the cells.
void release_strings(const kl_client *client, char ***out, size_t n, size_t **lens);

// A null single value: null pointer, length SIZE_MAX.
inline void put_missing(char **out, size_t *len) {
  if (out) *out = nullptr;
  if (len) *len = SIZE_MAX;
}

}  // namespace keyloom
