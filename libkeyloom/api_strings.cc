// Strings: SET and its conditional forms, APPEND, GET, GETSET, MGET, MSET,
// counters.
#include "internal.h"

using namespace keyloom;

namespace {

// Creates the counter with its TTL only when INCRBY makes it.
Script incr_with_ttl{
    "local existed = redis.call('EXISTS', KEYS[1])\n"
    "local v = redis.call('INCRBY', KEYS[1], ARGV[1])\n"
    "if existed == 0 then redis.call('EXPIRE', KEYS[1], ARGV[2]) end\n"
    "return v\n",
    {}};

const char *bytes(const char *p) { return p ? p : ""; }

// SET key value [NX|XX] [EX ttl]; `missing` is the code of a nil reply.
kl_return_t set_with(kl_client *client, const char *key, size_t key_len, const char *value,
                     size_t value_len, size_t ttl, const char *condition, kl_return_t missing) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(key && (value || value_len == 0));
  Key k(client, key, key_len);
  std::vector<Command> cmds(1);
  cmds[0].arg("SET").arg(k.view()).arg(bytes(value), value_len);
  if (condition) cmds[0].arg(condition);
  if (ttl > 0) cmds[0].arg("EX").arg_int(static_cast<long long>(ttl));
  return run_write(client, route_of(key, key_len), cmds, [missing](Replies &r, bool) {
    if (r[0]->type == REDIS_REPLY_NIL) return missing;
    return expect_type(r[0].get(), REDIS_REPLY_STATUS);
  });
}

kl_return_t incr_by(kl_client *client, const char *key, size_t key_len, long long by, int *value,
                    size_t ttl) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(key);
  Key k(client, key, key_len);
  std::vector<Command> cmds(1);
  std::string by_text = std::to_string(by), ttl_text = std::to_string(ttl);
  if (ttl == 0) cmds[0].arg("INCRBY").arg(k.view()).arg(by_text);
  else script_call(cmds[0], incr_with_ttl, {k.view()}, {by_text, ttl_text});
  return run_write(client, route_of(key, key_len), cmds, [value](Replies &r, bool fill) {
    kl_return_t code = expect_type(r[0].get(), REDIS_REPLY_INTEGER);
    if (code == KL_SUCCESS && fill && value) *value = static_cast<int>(r[0]->integer);
    return code;
  });
}

}  // namespace

kl_return_t kl_set(kl_client *client, char *key, size_t key_len, char *value, size_t value_len,
                   size_t ttl) {
  return set_with(client, key, key_len, value, value_len, ttl, nullptr, KL_WRONG_REPLY);
}

kl_return_t kl_set_binary(kl_client *client, char *key, size_t key_len, char *value,
                          size_t value_len, size_t ttl) {
  kl_return_t r = set_with(client, key, key_len, value, value_len, ttl, nullptr, KL_WRONG_REPLY);
  delete[] value;  // ours in every case, failures included
  return r;
}

kl_return_t kl_setnx(kl_client *client, char *key, size_t key_len, char *value,
                     size_t value_len, size_t ttl) {
  return set_with(client, key, key_len, value, value_len, ttl, "NX", KL_ALREADY_EXISTS);
}

kl_return_t kl_setifx(kl_client *client, char *key, size_t key_len, char *value,
                      size_t value_len, size_t ttl) {
  return set_with(client, key, key_len, value, value_len, ttl, "XX", KL_NOTFOUND);
}

kl_return_t kl_append(kl_client *client, char *key, size_t key_len, char *value,
                      size_t value_len, size_t ttl) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(key && (value || value_len == 0));
  Key k(client, key, key_len);
  std::vector<Command> cmds;
  if (ttl > 0) cmds.emplace_back("MULTI");
  cmds.emplace_back("APPEND");
  cmds.back().arg(k.view()).arg(bytes(value), value_len);
  if (ttl > 0) {
    cmds.emplace_back("EXPIRE");
    cmds.back().arg(k.view()).arg_int(static_cast<long long>(ttl));
    cmds.emplace_back("EXEC");
  }
  return run_write(client, route_of(key, key_len), cmds, [](Replies &r, bool) {
    const redisReply *last = r.back().get();
    if (r.size() == 1) return expect_type(last, REDIS_REPLY_INTEGER);
    kl_return_t code = expect_type(last, REDIS_REPLY_ARRAY);
    if (code != KL_SUCCESS) return last->type == REDIS_REPLY_NIL ? KL_SERVER_ERROR : code;
    return last->elements > 0 ? expect_type(last->element[0], REDIS_REPLY_INTEGER) : KL_WRONG_REPLY;
  });
}

kl_return_t kl_get_whole(kl_client *client, char *key, size_t key_len, char **value,
                         size_t *value_len, char *route, size_t route_len) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(key && value);
  Key k(client, key, key_len);
  std::vector<Command> cmds(1);
  cmds[0].arg("GET").arg(k.view());
  struct Out {
    char **value;
    size_t *len;
  } out{value, value_len};
  return run_read(client, route_of(key, key_len, route, route_len), cmds,
                  [client, &out](Replies &r, bool) {
                    return put_reply_string(client, r[0].get(), out.value, out.len);
                  });
}

kl_return_t kl_getset_whole(kl_client *client, char *key, size_t key_len, char *value,
                            size_t value_len, char **old_value, size_t *old_len, char *route,
                            size_t route_len) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(key && (value || value_len == 0) && old_value);
  Key k(client, key, key_len);
  std::vector<Command> cmds(1);
  cmds[0].arg("GETSET").arg(k.view()).arg(bytes(value), value_len);
  struct Out {
    char **value;
    size_t *len;
  } out{old_value, old_len};
  return run_write(client, route_of(key, key_len, route, route_len), cmds,
                   [client, &out](Replies &r, bool fill) {
                     if (r[0]->type == REDIS_REPLY_NIL) {
                       if (fill) {
                         *out.value = nullptr;
                         if (out.len) *out.len = 0;
                       }
                       return KL_SUCCESS;
                     }
                     if (!fill) return expect_type(r[0].get(), REDIS_REPLY_STRING);
                     return put_reply_string(client, r[0].get(), out.value, out.len);
                   });
}

kl_return_t kl_mget_whole(kl_client *client, char **keys, size_t count, size_t *key_lens,
                          char ***values, size_t *value_count, size_t **value_lens, char *route,
                          size_t route_len, int policy) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(keys && count > 0 && key_lens && values);
  for (size_t i = 0; i < count; ++i) KL_REQUIRE(keys[i]);
  std::vector<Key> ks;
  ks.reserve(count);
  for (size_t i = 0; i < count; ++i) ks.emplace_back(client, keys[i], key_lens[i]);

  if (route && route_len > 0) {  // every key on the route's server: one MGET
    std::vector<Command> cmds(1);
    cmds[0].arg("MGET");
    for (auto &k : ks) cmds[0].arg(k.view());
    return run_read(client, route_of(nullptr, 0, route, route_len), cmds,
                    [&](Replies &r, bool) {
                      kl_return_t code = expect_type(r[0].get(), REDIS_REPLY_ARRAY);
                      if (code != KL_SUCCESS) return code;
                      return put_string_array(client, r[0]->element, r[0]->elements, values,
                                              value_count, value_lens);
                    });
  }
  std::vector<Route> routes;
  std::vector<Command> cmds(count);
  routes.reserve(count);
  for (size_t i = 0; i < count; ++i) {
    routes.push_back(route_of(keys[i], key_lens[i]));
    cmds[i].arg("GET").arg(ks[i].view());
  }
  std::vector<const redisReply *> got(count);
  kl_return_t filled = KL_SUCCESS;
  kl_return_t r = run_multi(client, Access::read, routes, cmds, policy,
                            [&](size_t i, redisReply *reply) {
                              got[i] = reply;
                              // Called for every item in order: the last one fills.
                              if (i + 1 == count)
                                filled = put_string_array(client, got.data(), count, values,
                                                          value_count, value_lens);
                            });
  return filled != KL_SUCCESS ? filled : r;
}

namespace {

// SET of every pair, one pipelined batch per server.
kl_return_t set_many(kl_client *client, const char *const *keys, size_t count,
                     const size_t *key_lens, const char *const *values, const size_t *value_lens,
                     const size_t *ttls) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(keys && count > 0 && key_lens && values && value_lens);
  for (size_t i = 0; i < count; ++i) KL_REQUIRE(keys[i] && (values[i] || value_lens[i] == 0));
  std::vector<Key> ks;
  std::vector<Route> routes;
  std::vector<Command> cmds(count);
  ks.reserve(count);
  routes.reserve(count);
  for (size_t i = 0; i < count; ++i) {
    ks.emplace_back(client, keys[i], key_lens[i]);
    routes.push_back(route_of(keys[i], key_lens[i]));
    cmds[i].arg("SET").arg(ks[i].view()).arg(bytes(values[i]), value_lens[i]);
    if (ttls && ttls[i] > 0) cmds[i].arg("EX").arg_int(static_cast<long long>(ttls[i]));
  }
  kl_return_t item_error = KL_SUCCESS;
  kl_return_t r = run_multi(client, Access::write, routes, cmds, KL_NULL_ON_FAIL,
                            [&](size_t, redisReply *reply) {
                              kl_return_t code = expect_type(reply, REDIS_REPLY_STATUS);
                              if (code != KL_SUCCESS && item_error == KL_SUCCESS) item_error = code;
                            });
  if (kl_get_result(r) == KL_SUCCESS && item_error != KL_SUCCESS)
    return static_cast<kl_return_t>(item_error | (r & KL_DIRTY));
  return r;
}

}  // namespace

kl_return_t kl_mset(kl_client *client, char const **keys, size_t count, size_t *key_lens,
                    char **values, size_t *value_lens) {
  return set_many(client, keys, count, key_lens, values, value_lens, nullptr);
}

kl_return_t kl_msetex(kl_client *client, char const **keys, size_t count,
                      size_t const *key_lens, char const **values, size_t const *value_lens,
                      size_t const *ttls) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(ttls);
  return set_many(client, keys, count, key_lens, values, value_lens, ttls);
}

kl_return_t kl_incr(kl_client *client, char *key, size_t key_len, int *value, size_t ttl) {
  return incr_by(client, key, key_len, 1, value, ttl);
}

kl_return_t kl_incrby(kl_client *client, char *key, size_t key_len, int by, int *value,
                      size_t ttl) {
  return incr_by(client, key, key_len, by, value, ttl);
}

kl_return_t kl_decr(kl_client *client, char *key, size_t key_len, int *value, size_t ttl) {
  return incr_by(client, key, key_len, -1, value, ttl);
}

kl_return_t kl_decrby(kl_client *client, char *key, size_t key_len, int by, int *value,
                      size_t ttl) {
  return incr_by(client, key, key_len, -static_cast<long long>(by), value, ttl);
}
