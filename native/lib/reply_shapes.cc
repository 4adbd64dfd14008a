#include "reply_shapes.h"

#include <string>

namespace keyloom {

kl_return_t reply_done(const redisReply *reply, bool) {
  if (!reply) return KL_WRONG_REPLY;
  return reply->type == REDIS_REPLY_ERROR ? KL_SERVER_ERROR : KL_SUCCESS;
}

kl_return_t reply_flag(const redisReply *reply, kl_return_t when_zero) {
  long long v = 0;
  if (kl_return_t r = expect_type(reply, REDIS_REPLY_INTEGER)) return r;
  reply_integer(reply, &v);
  return v ? KL_SUCCESS : when_zero;
}

kl_return_t reply_value(const kl_client *client, const redisReply *reply, bool fill, char **out,
                        size_t *len) {
  if (!fill) return put_reply_string(client, reply, nullptr, nullptr);
  return put_reply_string(client, reply, out, len);
}

kl_return_t reply_array(const kl_client *client, const redisReply *reply, bool fill, char ***out,
                        size_t *count, size_t **lens) {
  if (kl_return_t r = expect_type(reply, REDIS_REPLY_ARRAY)) return r;
  if (reply->elements == 0) return KL_NOTFOUND;
  if (!fill) return KL_SUCCESS;
  return put_string_array(client, reply->element, reply->elements, out, count, lens);
}

kl_return_t reply_decimal(const kl_client *client, const redisReply *reply, bool fill, char **out, size_t *len) {
  long long v = 0;
  if (reply && reply->type == REDIS_REPLY_ERROR) return KL_SERVER_ERROR;
  if (!reply_integer(reply, &v)) return KL_WRONG_REPLY;
  if (!fill) return KL_SUCCESS;
  const std::string text = std::to_string(v);
  return put_bytes(client, text.data(), text.size(), out, len);
}

}  // namespace keyloom
