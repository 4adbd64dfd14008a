#include "reply_cells.h"

#include <cstring>

namespace keyloom {

std::vector<const redisReply *> elements_of(const redisReply *array, size_t first, size_t stride) {
  std::vector<const redisReply *> picked;
  if (!array || array->type != REDIS_REPLY_ARRAY) return picked;
  for (size_t i = first; i < array->elements; i += stride) picked.push_back(array->element[i]);
  return picked;
}

kl_return_t put_views(const kl_client *client, const std::vector<std::string_view> &items,
                      char ***out, size_t *count, size_t **lens) {
  const size_t n = items.size();
  char **values = nullptr;
  size_t *lengths = nullptr;
  if (out && n > 0 && !(values = static_cast<char **>(mm_calloc(client, n, sizeof(char *)))))
    return KL_MEMORY_FAILURE;
  if (lens && n > 0 && !(lengths = static_cast<size_t *>(mm_calloc(client, n, sizeof(size_t))))) {
    mm_free(client, values);
    return KL_MEMORY_FAILURE;
  }
  for (size_t i = 0; i < n; ++i) {
    if (!items[i].data()) {
      if (lengths) lengths[i] = SIZE_MAX;
      continue;
    }
    if (lengths) lengths[i] = items[i].size();
    if (values && put_bytes(client, items[i].data(), items[i].size(), &values[i], nullptr)) {
      release_strings(client, &values, i, &lengths);
      return KL_MEMORY_FAILURE;
    }
  }
  if (out) *out = values;
  if (lens) *lens = lengths;
  if (count) *count = n;
  return KL_SUCCESS;
}

kl_return_t put_doubles(const kl_client *client, const std::vector<double> &values, double **out) {
  if (!out) return KL_SUCCESS;
  if (values.empty()) {
    *out = nullptr;
    return KL_SUCCESS;
  }
  auto *array = static_cast<double *>(mm_malloc(client, values.size() * sizeof(double)));
  if (!array) return KL_MEMORY_FAILURE;
  std::memcpy(array, values.data(), values.size() * sizeof(double));
  *out = array;
  return KL_SUCCESS;
}

void release_strings(const kl_client *client, char ***out, size_t n, size_t **lens) {
  if (out && *out) {
    for (size_t i = 0; i < n; ++i) mm_free(client, (*out)[i]);
    mm_free(client, *out);
    *out = nullptr;
  }
  if (lens && *lens) {
    mm_free(client, *lens);
    *lens = nullptr;
  }
}

}  // namespace keyloom
