// Strings: SET and its conditional forms, APPEND, GET, GETSET, MGET, MSET,
// counters.
#include <algorithm>
#include <cstdint>

#include "command_kit.h"
#include "internal.h"

using namespace keyloom;

namespace {

// Creates the counter with its TTL only when INCRBY makes it. The new value
// comes back as the stored text: through a Lua number it would lose its low
// digits past 2^53.
Script incr_with_ttl{
    "local existed = redis.call('EXISTS', KEYS[1])\n"
    "redis.call('INCRBY', KEYS[1], ARGV[1])\n"
    "if existed == 0 then redis.call('EXPIRE', KEYS[1], ARGV[2]) end\n"
    "return redis.call('GET', KEYS[1])\n",
    {}};

// Keys per MGET/MSET command: enough to amortize the command, few enough that
// the one reply held while its values are copied out stays a fraction of a
// large call's payload.
constexpr size_t kChunkKeys = 256;

// SET key value [NX|XX] [EX ttl]; `missing` is the code of a nil reply.
kl_return_t set_with(kl_client *client, const char *key, size_t key_len, const char *value,
                     size_t value_len, size_t ttl, const char *condition, kl_return_t missing) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(given(key) && optional_bytes(value, value_len));
  Key k(client, key, key_len);
  Command cmd("SET");
  cmd.arg(k.view()).arg(or_empty(value), value_len);
  if (condition) cmd.arg(condition);
  if (ttl > 0) cmd.arg("EX").arg_int(static_cast<long long>(ttl));
  return write_one(client, route_of(key, key_len), std::move(cmd), [missing](const redisReply *r, bool) {
    if (r->type == REDIS_REPLY_NIL) return missing;
    return expect_type(r, REDIS_REPLY_STATUS);
  });
}

// INCRBY (with the TTL on creation), its reply handed to answer.
template <class Answer>
kl_return_t incr_by_text(kl_client *client, const char *key, size_t key_len, const std::string &by_text,
                         size_t ttl, Answer answer) {
  Key k(client, key, key_len);
  Command cmd;
  std::string ttl_text = std::to_string(ttl);
  if (ttl == 0) cmd.arg("INCRBY").arg(k.view()).arg(by_text);
  else script_call(cmd, incr_with_ttl, {k.view()}, {by_text, ttl_text});
  return write_one(client, route_of(key, key_len), std::move(cmd), answer);
}

kl_return_t incr_by(kl_client *client, const char *key, size_t key_len, long long by, int *value,
                    size_t ttl) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(value);
  KL_REQUIRE(given(key));
  return incr_by_text(client, key, key_len, std::to_string(by), ttl, [value](const redisReply *r, bool fill) {
    return reply_number(r, fill, value);
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

kl_return_t kl_set_binary_if(kl_client *client, char *key, size_t key_len, char *value,
                             size_t value_len, size_t ttl, int condition) {
  kl_return_t r = KL_INVALID_PARAMETER;
  switch (condition) {
    case KL_SET_ALWAYS:
      r = set_with(client, key, key_len, value, value_len, ttl, nullptr, KL_WRONG_REPLY);
      break;
    case KL_SET_IF_ABSENT:
      r = set_with(client, key, key_len, value, value_len, ttl, "NX", KL_ALREADY_EXISTS);
      break;
    case KL_SET_IF_PRESENT:
      r = set_with(client, key, key_len, value, value_len, ttl, "XX", KL_NOTFOUND);
      break;
  }
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
  KL_REQUIRE(given(key) && optional_bytes(value, value_len));
  Key k(client, key, key_len);
  // With a TTL, one script: a refused APPEND (wrong type) leaves the TTL alone.
  return write_keyed(
      client, route_of(key, key_len), {k.view()}, "APPEND", ttl,
      [&](Command &cmd) { cmd.arg(or_empty(value), value_len); },
      [](const redisReply *reply, bool) { return expect_type(reply, REDIS_REPLY_INTEGER); });
}

kl_return_t kl_get_whole(kl_client *client, char *key, size_t key_len, char **value,
                         size_t *value_len, char *route, size_t route_len) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(value, value_len);
  KL_REQUIRE(given(key) && given(value));
  Key k(client, key, key_len);
  Command cmd("GET");
  cmd.arg(k.view());
  return read_one(client, route_of(key, key_len, route, route_len), std::move(cmd),
                  [&](redisReply *r, bool) { return take_reply_string(client, r, value, value_len); });
}

kl_return_t kl_getset_whole(kl_client *client, char *key, size_t key_len, char *value,
                            size_t value_len, char **old_value, size_t *old_len, char *route,
                            size_t route_len) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(old_value, old_len);  // a missing key: null, length 0
  KL_REQUIRE(given(key) && optional_bytes(value, value_len) && given(old_value));
  Key k(client, key, key_len);
  Command cmd("GETSET");
  cmd.arg(k.view()).arg(or_empty(value), value_len);
  Command set_get("SET");  // GETSET is deprecated from Redis 6.2 on
  set_get.arg(k.view()).arg(or_empty(value), value_len).arg("GET");
  cmd.set_newer(&set_get);
  return write_one(client, route_of(key, key_len, route, route_len), std::move(cmd),
                   [&](redisReply *r, bool fill) {
                     if (r->type == REDIS_REPLY_NIL) return KL_SUCCESS;
                     if (!fill) return expect_type(r, REDIS_REPLY_STRING);
                     return take_reply_string(client, r, old_value, old_len);
                   });
}

kl_return_t kl_mget_whole(kl_client *client, char **keys, size_t count, size_t *key_lens,
                          char ***values, size_t *value_count, size_t **value_lens, char *route,
                          size_t route_len, int policy) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(values, value_count, value_lens);
  KL_REQUIRE(entries_given(keys, key_lens, count) && given(values));
  std::vector<Key> ks;
  ks.reserve(count);
  for (size_t i = 0; i < count; ++i) ks.emplace_back(client, keys[i], key_lens[i]);
  // With a routing string every key goes to the route's server.
  std::vector<Route> routes;
  if (route && route_len > 0) {
    routes.push_back(route_of(nullptr, 0, route, route_len));
  } else {
    routes.reserve(count);
    for (size_t i = 0; i < count; ++i) routes.push_back(route_of(keys[i], key_lens[i]));
  }

  // The output is allocated first and the values are copied into it straight
  // from the protocol reader (no reply objects are held); missing keys stay
  // null with length SIZE_MAX.
  auto *out = static_cast<char **>(mm_calloc(client, count, sizeof(char *)));
  auto *lens = value_lens ? static_cast<size_t *>(mm_calloc(client, count, sizeof(size_t)))
                          : nullptr;
  auto drop = [&] {
    if (out)
      for (size_t i = 0; i < count; ++i) mm_free(client, out[i]);
    mm_free(client, out);
    mm_free(client, lens);
  };
  if (!out || (value_lens && !lens)) {
    drop();
    return KL_MEMORY_FAILURE;
  }
  if (lens) std::fill(lens, lens + count, SIZE_MAX);

  auto make = [&](Command &cmd, const size_t *items, size_t n) {
    cmd.reserve(n + 1);
    cmd.arg("MGET");
    for (size_t j = 0; j < n; ++j) cmd.arg(ks[items[j]].view());
  };
  auto put = [&](size_t item, const char *data, size_t len) {
    // A chunk cut short is asked again of the next group: replace, not leak.
    if (out[item]) mm_free(client, out[item]);
    out[item] = nullptr;
    kl_return_t code = put_bytes(client, data, len, &out[item], nullptr);
    if (code == KL_SUCCESS && lens) lens[item] = len;
    return code;
  };
  kl_return_t refused = KL_SUCCESS;  // a chunk's error reply, or out of memory
  kl_return_t r = run_chunked_strings(client, routes.data(), routes.size(), count, kChunkKeys,
                                      policy, make, put, &refused);
  kl_return_t result = kl_get_result(r);
  if (result != KL_SUCCESS && result != KL_PARTIAL_RESULT) {
    drop();
    return r;
  }
  if (refused != KL_SUCCESS) {
    drop();
    return refused;
  }
  *values = out;
  if (value_lens) *value_lens = lens;
  if (value_count) *value_count = count;
  return r;
}

namespace {

// MSET of every pair, one command per server and chunk of keys.
kl_return_t mset_chunked(kl_client *client, const std::vector<Key> &ks,
                         const std::vector<Route> &routes, const char *const *values,
                         const size_t *value_lens) {
  kl_return_t item_error = KL_SUCCESS;
  auto make = [&](Command &cmd, const size_t *items, size_t n) {
    cmd.reserve(2 * n + 1);
    cmd.arg("MSET");
    for (size_t j = 0; j < n; ++j)
      cmd.arg(ks[items[j]].view()).arg(or_empty(values[items[j]]), value_lens[items[j]]);
  };
  auto take = [&](const size_t *, size_t, const redisReply *reply, bool first) {
    if (!first) return;  // the caller hears the first group's answer
    kl_return_t code = expect_type(reply, REDIS_REPLY_STATUS);
    if (code != KL_SUCCESS && item_error == KL_SUCCESS) item_error = code;
  };
  kl_return_t r = run_chunked(client, Access::write, routes.data(), routes.size(), ks.size(),
                              kChunkKeys, KL_NULL_ON_FAIL, make, take);
  if (kl_get_result(r) == KL_SUCCESS && item_error != KL_SUCCESS)
    return static_cast<kl_return_t>(item_error | (r & KL_DIRTY));
  return r;
}

// SET of every pair (MSET when no pair has a TTL), one pipelined batch per
// server.
kl_return_t set_many(kl_client *client, const char *const *keys, size_t count,
                     const size_t *key_lens, const char *const *values, const size_t *value_lens,
                     const size_t *ttls) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(entries_given(const_cast<char *const *>(keys), key_lens, count) &&
             values_given(const_cast<char *const *>(values), value_lens, count));
  std::vector<Key> ks;
  std::vector<Route> routes;
  ks.reserve(count);
  routes.reserve(count);
  for (size_t i = 0; i < count; ++i) {
    ks.emplace_back(client, keys[i], key_lens[i]);
    routes.push_back(route_of(keys[i], key_lens[i]));
  }
  const bool any_ttl = ttls && std::any_of(ttls, ttls + count, [](size_t t) { return t > 0; });
  if (!any_ttl) return mset_chunked(client, ks, routes, values, value_lens);

  std::vector<Command> cmds(count);
  for (size_t i = 0; i < count; ++i) {
    cmds[i].arg("SET").arg(ks[i].view()).arg(or_empty(values[i]), value_lens[i]);
    if (ttls[i] > 0) cmds[i].arg("EX").arg_int(static_cast<long long>(ttls[i]));
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
  KL_REQUIRE(given(ttls));
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

kl_return_t kl_incrby_decimal(kl_client *client, char *key, size_t key_len, char const *by, size_t by_len,
                              char **value, size_t *value_len, size_t ttl) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(value, value_len);
  long long parsed = 0;
  KL_REQUIRE(given(key) && given(by) && decimal_ok(by, by_len, &parsed));
  return incr_by_text(client, key, key_len, std::to_string(parsed), ttl,
                      [client, value, value_len](const redisReply *r, bool fill) {
                        return reply_decimal(client, r, fill, value, value_len);
                      });
}
