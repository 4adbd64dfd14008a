// List commands: a key holds an ordered list of byte strings.
#include <cstring>

#include "command_kit.h"

using namespace keyloom;

namespace {

kl_return_t push(kl_client *client, std::string_view name, char *key, size_t key_len, char *value,
                 size_t value_len, size_t ttl) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(given(key) && optional_bytes(value, value_len) && ttl_ok(ttl));
  Key k(client, key, key_len);
  return write_keyed(client, route_of(key, key_len), {k.view()}, name, ttl,
                     [&](Command &c) { c.arg(or_empty(value), value_len); }, reply_done);
}

// LPOP/RPOP: a write (the element leaves every group), read back from one.
kl_return_t pop(kl_client *client, std::string_view name, char *key, size_t key_len, char **value,
                size_t *value_len, char *route, size_t route_len) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(value, value_len);
  KL_REQUIRE(given(key) && given(value));
  Key k(client, key, key_len);
  return write_one(client, route_of(key, key_len, route, route_len), Command(name).arg(k.view()),
                   [&](const redisReply *r, bool fill) {
                     return reply_value(client, r, fill, value, value_len);
                   });
}

// LSET answers an error for a missing key or index: both mean "no element there".
kl_return_t lset_reply(const redisReply *reply, bool) {
  if (reply && reply->type == REDIS_REPLY_ERROR &&
      (std::strstr(reply->str, "no such key") || std::strstr(reply->str, "out of range")))
    return KL_NOTFOUND;
  return reply_done(reply, false);
}

}  // namespace

kl_return_t kl_rpush(kl_client *client, char *key, size_t key_len, char *value, size_t value_len,
                     size_t ttl) {
  return push(client, "RPUSH", key, key_len, value, value_len, ttl);
}

kl_return_t kl_lpush(kl_client *client, char *key, size_t key_len, char *value, size_t value_len,
                     size_t ttl) {
  return push(client, "LPUSH", key, key_len, value, value_len, ttl);
}

kl_return_t kl_llen(kl_client *client, char *key, size_t key_len, unsigned int *len) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(len);
  KL_REQUIRE(given(key) && given(len));
  Key k(client, key, key_len);
  return read_one(client, route_of(key, key_len), Command("LLEN").arg(k.view()),
                  [&](const redisReply *r, bool fill) { return reply_count(r, fill, len); });
}

kl_return_t kl_lrange_whole(kl_client *client, char *key, size_t key_len, int start, int stop,
                            char ***values, size_t *count, size_t **lengths, char *route,
                            size_t route_len) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(values, count, lengths);
  KL_REQUIRE(given(key) && given(values) && given(count));
  Key k(client, key, key_len);
  Command cmd("LRANGE");
  cmd.arg(k.view()).arg_int(start).arg_int(stop);
  return read_one(client, route_of(key, key_len, route, route_len), std::move(cmd),
                  [&](const redisReply *r, bool fill) {
                    return reply_array(client, r, fill, values, count, lengths);
                  });
}

kl_return_t kl_ltrim(kl_client *client, char *key, size_t key_len, int start, int stop) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(given(key));
  Key k(client, key, key_len);
  Command cmd("LTRIM");
  cmd.arg(k.view()).arg_int(start).arg_int(stop);
  return write_one(client, route_of(key, key_len), std::move(cmd), reply_done);
}

kl_return_t kl_lindex_whole(kl_client *client, char *key, size_t key_len, int index, char **value,
                            size_t *value_len, char *route, size_t route_len) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(value, value_len);
  KL_REQUIRE(given(key) && given(value));
  Key k(client, key, key_len);
  Command cmd("LINDEX");
  cmd.arg(k.view()).arg_int(index);
  return read_one(client, route_of(key, key_len, route, route_len), std::move(cmd),
                  [&](const redisReply *r, bool fill) {
                    return reply_value(client, r, fill, value, value_len);
                  });
}

kl_return_t kl_lset(kl_client *client, char *key, size_t key_len, int index, char *value,
                    size_t value_len, size_t ttl) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(given(key) && optional_bytes(value, value_len) && ttl_ok(ttl));
  Key k(client, key, key_len);
  return write_keyed(client, route_of(key, key_len), {k.view()}, "LSET", ttl,
                     [&](Command &c) { c.arg_int(index).arg(or_empty(value), value_len); },
                     lset_reply);
}

kl_return_t kl_lrem(kl_client *client, char *key, size_t key_len, int count, char *value,
                    size_t value_len, unsigned int *removed) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(removed);
  KL_REQUIRE(given(key) && optional_bytes(value, value_len));
  Key k(client, key, key_len);
  Command cmd("LREM");
  cmd.arg(k.view()).arg_int(count).arg(or_empty(value), value_len);
  return write_one(client, route_of(key, key_len), std::move(cmd),
                   [&](const redisReply *r, bool fill) { return reply_count(r, fill, removed); });
}

kl_return_t kl_lpop_whole(kl_client *client, char *key, size_t key_len, char **value,
                          size_t *value_len, char *route, size_t route_len) {
  return pop(client, "LPOP", key, key_len, value, value_len, route, route_len);
}

kl_return_t kl_rpop_whole(kl_client *client, char *key, size_t key_len, char **value,
                          size_t *value_len, char *route, size_t route_len) {
  return pop(client, "RPOP", key, key_len, value, value_len, route, route_len);
}
