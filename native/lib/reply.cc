// Replies into the caller's cells, with the client's memory manager.
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "allocator.h"
#include "client.h"
#include "internal.h"

namespace keyloom {

void *mm_malloc(const kl_client *client, size_t size) {
  if (size == 0) size = 1;  // a zero-size reply is still a distinct pointer
  if (client && client->custom_mm && client->mm.malloc) {
    void *p = client->mm.malloc(size);
    remember_allocation(p, client->mm.free ? client->mm.free : std::free);
    return p;
  }
  return std::malloc(size);
}

void *mm_calloc(const kl_client *client, size_t count, size_t size) {
  if (count == 0 || size == 0) count = size = 1;
  if (client && client->custom_mm && client->mm.calloc) {
    void *p = client->mm.calloc(count, size);
    remember_allocation(p, client->mm.free ? client->mm.free : std::free);
    return p;
  }
  if (client && client->custom_mm && client->mm.malloc) {
    if (size != 0 && count > SIZE_MAX / size) return nullptr;
    void *p = mm_malloc(client, count * size);
    if (p) std::memset(p, 0, count * size);
    return p;
  }
  return std::calloc(count, size);
}

void mm_free(const kl_client *, void *ptr) { release_allocation(ptr); }

kl_return_t put_bytes(const kl_client *client, const char *data, size_t len, char **out,
                      size_t *len_out) {
  if (out) {
    char *copy = static_cast<char *>(mm_malloc(client, len + 1));
    if (!copy) return KL_MEMORY_FAILURE;
    if (len) std::memcpy(copy, data, len);
    copy[len] = '\0';
    *out = copy;
  }
  if (len_out) *len_out = len;
  return KL_SUCCESS;
}

kl_return_t put_reply_string(const kl_client *client, const redisReply *reply, char **out,
                             size_t *len_out) {
  if (!reply) return KL_WRONG_REPLY;
  switch (reply->type) {
    case REDIS_REPLY_STRING:
    case REDIS_REPLY_STATUS:
      return put_bytes(client, reply->str, reply->len, out, len_out);
    case REDIS_REPLY_INTEGER: {
      std::string text = std::to_string(reply->integer);
      return put_bytes(client, text.data(), text.size(), out, len_out);
    }
    case REDIS_REPLY_NIL: return KL_NOTFOUND;
    case REDIS_REPLY_ERROR: return KL_SERVER_ERROR;
    default: return KL_WRONG_REPLY;
  }
}

namespace {

// Whether hiredis frees reply strings with the C library's free().
bool hiredis_uses_c_allocator() {
#if HIREDIS_MAJOR >= 1
  return hiredisAllocFns.freeFn == std::free;
#else
  return true;  // hiredis before 1.0 always uses malloc()/free()
#endif
}

}  // namespace

kl_return_t take_reply_string(const kl_client *client, redisReply *reply, char **out,
                              size_t *len_out) {
  if (!reply || reply->type != REDIS_REPLY_STRING || !out || !reply->str ||
      (client && client->custom_mm) || !hiredis_uses_c_allocator())
    return put_reply_string(client, reply, out, len_out);
  *out = reply->str;  // NUL-terminated by hiredis
  if (len_out) *len_out = reply->len;
  reply->str = nullptr;
  reply->len = 0;
  return KL_SUCCESS;
}

kl_return_t put_string_array(const kl_client *client, const redisReply *const *elements,
                             size_t n, char ***out, size_t *count, size_t **lens) {
  char **values = nullptr;
  size_t *lengths = nullptr;
  if (out && n > 0) {
    values = static_cast<char **>(mm_calloc(client, n, sizeof(char *)));
    if (!values) return KL_MEMORY_FAILURE;
  }
  if (lens && n > 0) {
    lengths = static_cast<size_t *>(mm_calloc(client, n, sizeof(size_t)));
    if (!lengths) {
      mm_free(client, values);
      return KL_MEMORY_FAILURE;
    }
  }
  for (size_t i = 0; i < n; ++i) {
    const redisReply *e = elements[i];
    bool text = e && (e->type == REDIS_REPLY_STRING || e->type == REDIS_REPLY_STATUS ||
                      e->type == REDIS_REPLY_INTEGER);
    if (!text) {
      if (lengths) lengths[i] = SIZE_MAX;
      continue;
    }
    size_t len = 0;
    kl_return_t r = put_reply_string(client, e, values ? &values[i] : nullptr, &len);
    if (r != KL_SUCCESS) {
      if (values) {
        for (size_t j = 0; j < i; ++j) mm_free(client, values[j]);
        mm_free(client, values);
      }
      mm_free(client, lengths);
      return r;
    }
    if (lengths) lengths[i] = len;
  }
  if (out) *out = values;
  if (lens) *lens = lengths;
  if (count) *count = n;
  return KL_SUCCESS;
}

kl_return_t expect_type(const redisReply *reply, int type) {
  if (!reply) return KL_WRONG_REPLY;
  if (reply->type == REDIS_REPLY_ERROR) return KL_SERVER_ERROR;
  return reply->type == type ? KL_SUCCESS : KL_WRONG_REPLY;
}

bool reply_integer(const redisReply *reply, long long *value) {
  if (!reply) return false;
  if (reply->type == REDIS_REPLY_INTEGER) {
    *value = reply->integer;
    return true;
  }
  if (reply->type != REDIS_REPLY_STRING && reply->type != REDIS_REPLY_STATUS) return false;
  if (reply->len == 0) return false;
  char *end = nullptr;
  errno = 0;
  long long v = std::strtoll(reply->str, &end, 10);
  if (errno != 0 || end != reply->str + reply->len) return false;
  *value = v;
  return true;
}

bool reply_double(const redisReply *reply, double *value) {
  if (!reply) return false;
  if (reply->type == REDIS_REPLY_INTEGER) {
    *value = static_cast<double>(reply->integer);
    return true;
  }
  if (reply->type != REDIS_REPLY_STRING && reply->type != REDIS_REPLY_STATUS) return false;
  if (reply->len == 0) return false;
  char *end = nullptr;
  double v = std::strtod(reply->str, &end);
  if (end != reply->str + reply->len) return false;
  *value = v;
  return true;
}

}  // namespace keyloom

kl_return_t kl_free_php_reply_p(char **reply) {
  if (!reply) return KL_INVALID_PARAMETER;
  keyloom::release_allocation(*reply);
  *reply = nullptr;
  return KL_SUCCESS;
}

kl_return_t kl_free_php_reply_pp(char ***reply, unsigned int n) {
  if (!reply) return KL_INVALID_PARAMETER;
  if (*reply) {
    for (unsigned i = 0; i < n; ++i) keyloom::release_allocation((*reply)[i]);
    keyloom::release_allocation(*reply);
  }
  *reply = nullptr;
  return KL_SUCCESS;
}
