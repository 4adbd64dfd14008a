// Hash commands: a key holds a table of fields and values.
#include <deque>
#include <optional>

#include "command_kit.h"
#include "reply_cells.h"

using namespace keyloom;

namespace {

// HMGET of the same fields over several keys, key-major. Keys are routed one
// by one (or all by `route`); any server failing fails the call, since the
// caller has no policy argument to ask for less.
kl_return_t hmget_many(kl_client *client, char **keys, size_t key_count, size_t *key_lens,
                       char **fields, size_t field_count, size_t *field_lens, char ***values,
                       size_t *value_count, size_t **value_lens, char *route, size_t route_len) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(values, value_count, value_lens);
  KL_REQUIRE(entries_given(keys, key_lens, key_count) &&
             entries_given(fields, field_lens, field_count) && given(values) && given(value_count));
  std::deque<Key> prefixed;
  std::vector<Route> routes;
  std::vector<Command> cmds;
  for (size_t i = 0; i < key_count; ++i) {
    prefixed.emplace_back(client, keys[i], key_lens[i]);
    routes.push_back(route_of(keys[i], key_lens[i], route, route_len));
    Command &cmd = cmds.emplace_back("HMGET");
    cmd.arg(prefixed.back().view());
    for (size_t f = 0; f < field_count; ++f) cmd.arg(fields[f], field_lens[f]);
  }
  // Replies live only for the call of on_reply: keep copies.
  std::vector<std::optional<std::string>> found(key_count * field_count);
  kl_return_t refused = KL_SUCCESS;
  kl_return_t r = run_multi(client, Access::read, routes, cmds, KL_NULL_ON_FAIL,
                            [&](size_t i, redisReply *reply) {
                              if (kl_return_t e = expect_type(reply, REDIS_REPLY_ARRAY)) {
                                if (!refused) refused = e;
                                return;
                              }
                              auto elements = elements_of(reply);
                              for (size_t f = 0; f < field_count && f < elements.size(); ++f)
                                if (elements[f]->type == REDIS_REPLY_STRING)
                                  found[i * field_count + f].emplace(elements[f]->str, elements[f]->len);
                            });
  if (r != KL_SUCCESS) return r;
  if (refused) return refused;
  std::vector<std::string_view> views;
  for (const auto &v : found) views.push_back(v ? std::string_view(*v) : std::string_view());
  return put_views(client, views, values, value_count, value_lens);
}

kl_return_t hget(kl_client *client, char *key, size_t key_len, char *field, size_t field_len,
                 char **value, size_t *value_len, Route where) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(value, value_len);
  KL_REQUIRE(given(key) && given(field) && given(value));
  Key k(client, key, key_len);
  Command cmd("HGET");
  cmd.arg(k.view()).arg(field, field_len);
  return read_one(client, where, std::move(cmd), [&](const redisReply *r, bool fill) {
    return reply_value(client, r, fill, value, value_len);
  });
}

kl_return_t hmget(kl_client *client, char *key, size_t key_len, char **fields, size_t count,
                  size_t *field_lens, char ***values, size_t *value_count, size_t **value_lens,
                  Route where) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(values, value_count, value_lens);
  KL_REQUIRE(given(key) && entries_given(fields, field_lens, count) && given(values) &&
             given(value_count));
  Key k(client, key, key_len);
  Command cmd("HMGET");
  cmd.arg(k.view());
  for (size_t i = 0; i < count; ++i) cmd.arg(fields[i], field_lens[i]);
  return read_one(client, where, std::move(cmd), [&](const redisReply *r, bool fill) {
    if (kl_return_t e = expect_type(r, REDIS_REPLY_ARRAY)) return e;
    if (!fill) return KL_SUCCESS;
    return put_string_array(client, r->element, r->elements, values, value_count, value_lens);
  });
}

kl_return_t hset(kl_client *client, std::string_view name, char *key, size_t key_len, char *field,
                 size_t field_len, char *value, size_t value_len, size_t ttl,
                 kl_return_t when_zero) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(given(key) && given(field) && optional_bytes(value, value_len) && ttl_ok(ttl));
  Key k(client, key, key_len);
  return write_keyed(client, route_of(key, key_len), {k.view()}, name, ttl,
                     [&](Command &c) { c.arg(field, field_len).arg(or_empty(value), value_len); },
                     [&](const redisReply *r, bool) { return reply_flag(r, when_zero); });
}

}  // namespace

kl_return_t kl_hset(kl_client *client, char *key, size_t key_len, char *field, size_t field_len,
                    char *value, size_t value_len, size_t ttl) {
  // HSET answers 0 when it updated an existing field: still a success.
  return hset(client, "HSET", key, key_len, field, field_len, value, value_len, ttl, KL_SUCCESS);
}

kl_return_t kl_hsetnx(kl_client *client, char *key, size_t key_len, char *field,
                      size_t field_len, char *value, size_t value_len, size_t ttl) {
  return hset(client, "HSETNX", key, key_len, field, field_len, value, value_len, ttl,
              KL_ALREADY_EXISTS);
}

kl_return_t kl_hget(kl_client *client, char *key, size_t key_len, char *field, size_t field_len,
                    char **value, size_t *value_len) {
  return hget(client, key, key_len, field, field_len, value, value_len, route_of(key, key_len));
}

kl_return_t kl_hget_whole(kl_client *client, char *key, size_t key_len, char *field,
                          size_t field_len, char **value, size_t *value_len, char *route,
                          size_t route_len) {
  return hget(client, key, key_len, field, field_len, value, value_len,
              route_of(key, key_len, route, route_len));
}

kl_return_t kl_hmset(kl_client *client, char *key, size_t key_len, char **fields, size_t count,
                     size_t *field_lens, char **values, size_t *value_lens, size_t ttl) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(given(key) && entries_given(fields, field_lens, count) &&
             values_given(values, value_lens, count) && ttl_ok(ttl));
  Key k(client, key, key_len);
  return write_keyed(client, route_of(key, key_len), {k.view()}, "HMSET", ttl,
                     [&](Command &c) {
                       for (size_t i = 0; i < count; ++i)
                         c.arg(fields[i], field_lens[i]).arg(or_empty(values[i]), value_lens[i]);
                     },
                     reply_done);
}

kl_return_t kl_hmget(kl_client *client, char *key, size_t key_len, char **fields, size_t count,
                     size_t *field_lens, char ***values, size_t *value_count,
                     size_t **value_lens) {
  return hmget(client, key, key_len, fields, count, field_lens, values, value_count, value_lens,
               route_of(key, key_len));
}

kl_return_t kl_hmget_whole(kl_client *client, char *key, size_t key_len, char **fields,
                           size_t count, size_t *field_lens, char ***values,
                           size_t *value_count, size_t **value_lens, char *route,
                           size_t route_len) {
  return hmget(client, key, key_len, fields, count, field_lens, values, value_count, value_lens,
               route_of(key, key_len, route, route_len));
}

kl_return_t kl_mhmget(kl_client *client, char **keys, size_t key_count, size_t *key_lens,
                      char **fields, size_t field_count, size_t *field_lens, char ***values,
                      size_t *value_count, size_t **value_lens) {
  return hmget_many(client, keys, key_count, key_lens, fields, field_count, field_lens, values,
                    value_count, value_lens, nullptr, 0);
}

kl_return_t kl_mhmget_whole(kl_client *client, char **keys, size_t key_count,
                            size_t *key_lens, char **fields, size_t field_count,
                            size_t *field_lens, char ***values, size_t *value_count,
                            size_t **value_lens, char *route, size_t route_len) {
  return hmget_many(client, keys, key_count, key_lens, fields, field_count, field_lens, values,
                    value_count, value_lens, route, route_len);
}

kl_return_t kl_hincrby(kl_client *client, char *key, size_t key_len, char *field,
                       size_t field_len, int by, int *value, size_t ttl) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(given(key) && given(field) && ttl_ok(ttl));
  Key k(client, key, key_len);
  return write_keyed(client, route_of(key, key_len), {k.view()}, "HINCRBY", ttl,
                     [&](Command &c) { c.arg(field, field_len).arg_int(by); },
                     [&](const redisReply *r, bool fill) { return reply_count(r, fill, value); });
}

kl_return_t kl_hincrby_decimal(kl_client *client, char *key, size_t key_len, char *field, size_t field_len,
                               char const *by, size_t by_len, char **value, size_t *value_len, size_t ttl) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(value, value_len);
  long long parsed = 0;
  KL_REQUIRE(given(key) && given(field) && ttl_ok(ttl) && given(by) && decimal_ok(by, by_len, &parsed));
  Key k(client, key, key_len);
  return write_keyed(client, route_of(key, key_len), {k.view()}, "HINCRBY", ttl,
                     [&](Command &c) { c.arg(field, field_len).arg_int(parsed); },
                     [&](const redisReply *r, bool fill) { return reply_decimal(client, r, fill, value, value_len); });
}

kl_return_t kl_hexists(kl_client *client, char *key, size_t key_len, char *field,
                       size_t field_len) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(given(key) && given(field));
  Key k(client, key, key_len);
  Command cmd("HEXISTS");
  cmd.arg(k.view()).arg(field, field_len);
  return read_one(client, route_of(key, key_len), std::move(cmd),
                  [](const redisReply *r, bool) { return reply_flag(r, KL_NOTFOUND); });
}

kl_return_t kl_hdel(kl_client *client, char *key, size_t key_len, char *field,
                    size_t field_len) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(given(field));
  int deleted = 0;
  kl_return_t r = kl_hmdel(client, key, key_len, &field, 1, &field_len, &deleted);
  return (kl_get_result(r) == KL_SUCCESS && deleted == 0) ? KL_NOTFOUND : r;
}

kl_return_t kl_hmdel(kl_client *client, char *key, size_t key_len, char **fields, size_t count,
                     size_t *field_lens, int *deleted) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(deleted);
  KL_REQUIRE(given(key) && entries_given(fields, field_lens, count));
  Key k(client, key, key_len);
  Command cmd("HDEL");
  cmd.arg(k.view());
  for (size_t i = 0; i < count; ++i) cmd.arg(fields[i], field_lens[i]);
  return write_one(client, route_of(key, key_len), std::move(cmd),
                   [&](const redisReply *r, bool fill) { return reply_count(r, fill, deleted); });
}

kl_return_t kl_hlen(kl_client *client, char *key, size_t key_len, int *len) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(len);
  KL_REQUIRE(given(key) && given(len));
  Key k(client, key, key_len);
  return read_one(client, route_of(key, key_len), Command("HLEN").arg(k.view()),
                  [&](const redisReply *r, bool fill) { return reply_count(r, fill, len); });
}

kl_return_t kl_hgetall(kl_client *client, char *key, size_t key_len, size_t *count,
                       char ***fields, size_t **field_lens, char ***values,
                       size_t **value_lens) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(count, fields, field_lens, values, value_lens);
  KL_REQUIRE(given(key) && given(count) && given(fields) && given(values));
  Key k(client, key, key_len);
  return read_one(client, route_of(key, key_len), Command("HGETALL").arg(k.view()),
                  [&](const redisReply *r, bool fill) {
                    if (kl_return_t e = expect_type(r, REDIS_REPLY_ARRAY)) return e;
                    if (r->elements == 0) return KL_NOTFOUND;
                    // Field/value pairs: an odd count would leave a field without its value.
                    if (r->elements % 2 != 0) return KL_WRONG_REPLY;
                    if (!fill) return KL_SUCCESS;
                    auto names = elements_of(r, 0, 2);
                    auto found = elements_of(r, 1, 2);
                    if (kl_return_t e = put_string_array(client, names.data(), names.size(), fields,
                                                         count, field_lens))
                      return e;
                    if (kl_return_t e = put_string_array(client, found.data(), found.size(), values,
                                                         nullptr, value_lens)) {
                      release_strings(client, fields, names.size(), field_lens);
                      *count = 0;
                      return e;
                    }
                    return KL_SUCCESS;
                  });
}
