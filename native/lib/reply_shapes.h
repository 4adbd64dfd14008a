// The reply shapes the families share, each turned into a code and the
// caller's cells.
#pragma once

#include <utility>

#include "internal.h"

namespace keyloom {

// Any non-error reply is success.
kl_return_t reply_done(const redisReply *reply, bool fill);
// v into *out (when both fill and out); a value the cell cannot hold is
// KL_WRONG_REPLY, never cut.
template <class T>
kl_return_t put_count(long long v, bool fill, T *out) {
  if (!fill || !out) return KL_SUCCESS;
  if (!std::in_range<T>(v)) return KL_WRONG_REPLY;
  *out = static_cast<T>(v);
  return KL_SUCCESS;
}
// An integer into *out (when both fill and out); an error reply is KL_SERVER_ERROR.
template <class T>
kl_return_t reply_count(const redisReply *reply, bool fill, T *out) {
  long long v = 0;
  if (kl_return_t r = expect_type(reply, REDIS_REPLY_INTEGER)) return r;
  reply_integer(reply, &v);
  return put_count(v, fill, out);
}
// An integer, or a string holding one (a script's exact answer), into *out.
template <class T>
kl_return_t reply_number(const redisReply *reply, bool fill, T *out) {
  long long v = 0;
  if (reply && reply->type == REDIS_REPLY_ERROR) return KL_SERVER_ERROR;
  if (!reply_integer(reply, &v)) return KL_WRONG_REPLY;
  return put_count(v, fill, out);
}
// An integer, or a string holding one, as decimal text into *out / *len.
kl_return_t reply_decimal(const kl_client *client, const redisReply *reply, bool fill, char **out, size_t *len);
// 1 is success, 0 is `when_zero` (KL_NOTFOUND, KL_ALREADY_EXISTS ...).
kl_return_t reply_flag(const redisReply *reply, kl_return_t when_zero);
// One value into *out / *len; nil is KL_NOTFOUND.
kl_return_t reply_value(const kl_client *client, const redisReply *reply, bool fill, char **out,
                        size_t *len);
// An array of values into the cells; an empty array is KL_NOTFOUND (an empty
// list, set or hash does not exist on the server).
kl_return_t reply_array(const kl_client *client, const redisReply *reply, bool fill, char ***out,
                        size_t *count, size_t **lens);

}  // namespace keyloom
