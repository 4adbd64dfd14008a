// Keys: existence, deletion, type, random key, renaming, time to live, MOVE.
#include <cstring>

#include "command_kit.h"
#include "collection_scripts.h"
#include "exchange.h"
#include "internal.h"

using namespace keyloom;

namespace {

bool error_starts(const redisReply *r, const char *prefix) {
  return r && r->type == REDIS_REPLY_ERROR && std::strncmp(r->str, prefix, std::strlen(prefix)) == 0;
}

// Runs cmds on one server; false when it failed. Caller holds the lock.
bool run_on(kl_client *client, Server *server, std::vector<Command> &cmds, Replies *replies) {
  Batch b;
  b.server = server;
  b.cmds = cmds.data();
  b.count = cmds.size();
  exchange(client, &b, 1);
  if (b.failed) return false;
  *replies = std::move(b.replies);
  return true;
}

// RENAME/RENAMENX within one group; a collection's companion keys go along.
// `failed` when a server could not be used.
kl_return_t rename_in_group(kl_client *client, const Group &group, const Key &src, Route src_route,
                            const Key &dst, Route dst_route, bool nx, bool *failed) {
  *failed = false;
  Server *from = server_for(group, src_route);
  Server *to = server_for(group, dst_route);
  Replies r;
  if (from == to) {
    std::vector<Command> cmds;
    cmds.push_back(script_with_companions(rename_with_companions, {src, dst}));
    cmds[0].arg(nx ? "RENAMENX" : "RENAME");
    if (!run_on(client, from, cmds, &r)) return *failed = true, KL_SERVER_DOWN;
    if (error_starts(r[0].get(), "ERR no such key")) return KL_NOTFOUND;
    if (nx) return reply_flag(r[0].get(), KL_ALREADY_EXISTS);
    return expect_type(r[0].get(), REDIS_REPLY_STATUS);
  }
  // Across servers: DUMP and PTTL of the key and its companions here, RESTORE
  // there (the key first, so that RENAMENX can refuse before anything else
  // is written), then DEL here.
  const std::vector<std::string> from_names = names_with_companions(src);
  const std::vector<std::string> to_names = names_with_companions(dst);
  std::vector<Command> dump = dump_commands(from_names);
  if (!run_on(client, from, dump, &r)) return *failed = true, KL_SERVER_DOWN;
  if (r[0]->type == REDIS_REPLY_NIL) return KL_NOTFOUND;
  // Dumped name i becomes to_names[i], with its own remaining TTL.
  auto restore = [&](size_t i, bool replace, Command &cmd) {
    long long pttl = 0;
    if (!reply_integer(r[2 * i + 1].get(), &pttl) || pttl < 0) pttl = 0;
    restore_or_delete(cmd, to_names[i], r[2 * i].get(), pttl, replace);
  };
  kl_return_t code = expect_type(r[0].get(), REDIS_REPLY_STRING);
  if (code != KL_SUCCESS) return code;
  std::vector<Command> key_restore(1);
  restore(0, !nx, key_restore[0]);
  Replies rr;
  if (!run_on(client, to, key_restore, &rr)) return *failed = true, KL_SERVER_DOWN;
  if (error_starts(rr[0].get(), "BUSYKEY")) return KL_ALREADY_EXISTS;
  code = expect_type(rr[0].get(), REDIS_REPLY_STATUS);
  if (code != KL_SUCCESS) return code;

  std::vector<Command> companions(kCompanionCount);
  for (size_t i = 1; i <= kCompanionCount; ++i) restore(i, true, companions[i - 1]);
  if (!run_on(client, to, companions, &rr)) return *failed = true, KL_SERVER_DOWN;
  for (const Reply &reply : rr) {
    if (reply && reply->type == REDIS_REPLY_ERROR) return KL_SERVER_ERROR;
  }

  std::vector<Command> del;
  del.push_back(script_with_companions(del_with_companions, {src}));
  if (!run_on(client, from, del, &r)) return *failed = true, KL_SERVER_DOWN;
  return expect_type(r[0].get(), REDIS_REPLY_INTEGER);
}

kl_return_t rename_key(kl_client *client, const char *key, size_t key_len, const char *new_key,
                       size_t new_key_len, bool nx) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(given(key) && given(new_key));
  CallScope lock(client);
  if (!lock.ok()) return KL_PTHREAD_OP_FAILURE;
  if (client->groups.empty()) return KL_NO_SERVER_ATTACHED;
  Key src(client, key, key_len), dst(client, new_key, new_key_len);
  bool answered = false, some_failed = false;
  kl_return_t result = KL_SUCCESS;
  for (auto &group : client->groups) {
    bool failed = false;
    kl_return_t code = rename_in_group(client, *group, src, route_of(key, key_len), dst,
                                       route_of(new_key, new_key_len), nx, &failed);
    if (failed) {
      some_failed = true;
      continue;
    }
    if (!answered) result = code;
    answered = true;
  }
  if (!answered) return down_code(client);
  return some_failed ? static_cast<kl_return_t>(result | KL_DIRTY) : result;
}

}  // namespace

kl_return_t kl_exists(kl_client *client, char *key, size_t key_len) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(given(key));
  Key k(client, key, key_len);
  Command cmd("EXISTS");
  cmd.arg(k.view());
  return read_one(client, route_of(key, key_len), std::move(cmd),
                  [](const redisReply *r, bool) { return reply_flag(r, KL_NOTFOUND); });
}

kl_return_t kl_del(kl_client *client, char *key, size_t key_len) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(given(key));
  Key k(client, key, key_len);
  return write_one(client, route_of(key, key_len), script_with_companions(del_with_companions, {k}),
                   [](const redisReply *r, bool) { return reply_flag(r, KL_NOTFOUND); });
}

kl_return_t kl_mdel(kl_client *client, char **keys, size_t count, size_t *key_lens,
                    int *deleted) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(deleted);
  KL_REQUIRE(entries_given(keys, key_lens, count));
  std::vector<Key> ks;
  std::vector<Route> routes;
  std::vector<Command> cmds;
  ks.reserve(count);  // the commands borrow the key names: no reallocation
  routes.reserve(count);
  cmds.reserve(count);
  for (size_t i = 0; i < count; ++i) {
    ks.emplace_back(client, keys[i], key_lens[i]);
    routes.push_back(route_of(keys[i], key_lens[i]));
    cmds.push_back(script_with_companions(del_with_companions, {ks[i]}));
  }
  long long total = 0;
  kl_return_t item_error = KL_SUCCESS;
  kl_return_t r = run_multi(client, Access::write, routes, cmds, KL_NULL_ON_FAIL,
                            [&](size_t, redisReply *reply) {
                              kl_return_t code = expect_type(reply, REDIS_REPLY_INTEGER);
                              if (code == KL_SUCCESS) total += reply->integer;
                              else if (item_error == KL_SUCCESS) item_error = code;
                            });
  if (kl_get_result(r) == KL_SUCCESS && deleted) *deleted = static_cast<int>(total);
  if (kl_get_result(r) == KL_SUCCESS && item_error != KL_SUCCESS)
    return static_cast<kl_return_t>(item_error | (r & KL_DIRTY));
  return r;
}

kl_return_t kl_type(kl_client *client, char *key, size_t key_len, char **type) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(type);
  KL_REQUIRE(given(key) && given(type));
  Key k(client, key, key_len);
  Command cmd("TYPE");
  cmd.arg(k.view());
  return read_one(client, route_of(key, key_len), std::move(cmd), [&](const redisReply *r, bool) {
    kl_return_t code = expect_type(r, REDIS_REPLY_STATUS);
    return code != KL_SUCCESS ? code : put_bytes(client, r->str, r->len, type, nullptr);
  });
}

kl_return_t kl_randomkey(kl_client *client, char **key, size_t *key_len) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(key, key_len);
  KL_REQUIRE(given(key));
  CallScope lock(client);
  if (!lock.ok()) return KL_PTHREAD_OP_FAILURE;
  if (client->groups.empty()) return KL_NO_SERVER_ATTACHED;
  // RANDOMKEY draws from the whole server database, where companion keys
  // and, under a logical-database prefix, other databases' keys do not count:
  // each server gets several draws in its one round trip, the first that
  // counts is the answer.
  constexpr size_t kDrawsPerServer = 16;
  std::vector<Command> cmds(kDrawsPerServer);
  for (Command &cmd : cmds) cmd.arg("RANDOMKEY");
  bool answered = false;
  for (auto &group : client->groups)
    for (auto &server : group->servers) {
      Replies r;
      if (!run_on(client, server.get(), cmds, &r)) continue;
      answered = true;
      for (const Reply &draw : r) {
        if (!draw || draw->type != REDIS_REPLY_STRING) continue;
        std::string_view found(draw->str, draw->len);
        if (!client->prefix.empty()) {
          if (found.substr(0, client->prefix.size()) != client->prefix) continue;
          found.remove_prefix(client->prefix.size());
        }
        if (is_companion_name(found)) continue;
        return put_bytes(client, found.data(), found.size(), key, key_len);
      }
    }
  return answered ? KL_NOTFOUND : down_code(client);
}

kl_return_t kl_rename(kl_client *client, char *key, size_t key_len, char *new_key,
                      size_t new_key_len) {
  return rename_key(client, key, key_len, new_key, new_key_len, false);
}

kl_return_t kl_renamenx(kl_client *client, char *key, size_t key_len, char *new_key,
                        size_t new_key_len) {
  return rename_key(client, key, key_len, new_key, new_key_len, true);
}

kl_return_t kl_set_ttl(kl_client *client, char *key, size_t key_len, size_t ttl) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(given(key));
  Key k(client, key, key_len);
  Command cmd = script_with_companions(expire_with_companions, {k});
  cmd.arg_int(static_cast<long long>(ttl));  // 0: PERSIST
  return write_one(client, route_of(key, key_len), std::move(cmd),
                   [](const redisReply *r, bool) { return reply_flag(r, KL_NOTFOUND); });
}

kl_return_t kl_get_ttl(kl_client *client, char *key, size_t key_len, int *ttl) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(ttl);
  KL_REQUIRE(given(key) && given(ttl));
  Key k(client, key, key_len);
  Command cmd("TTL");
  cmd.arg(k.view());
  return read_one(client, route_of(key, key_len), std::move(cmd), [ttl](const redisReply *r, bool fill) {
    kl_return_t code = expect_type(r, REDIS_REPLY_INTEGER);
    if (code != KL_SUCCESS) return code;
    if (r->integer == -2) return KL_NOTFOUND;
    return reply_count(r, fill, ttl);
  });
}

kl_return_t kl_get_ttl_decimal(kl_client *client, char *key, size_t key_len, char **ttl, size_t *ttl_len) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(ttl, ttl_len);
  KL_REQUIRE(given(key) && given(ttl));
  Key k(client, key, key_len);
  Command cmd("TTL");
  cmd.arg(k.view());
  return read_one(client, route_of(key, key_len), std::move(cmd), [client, ttl, ttl_len](const redisReply *r, bool fill) {
    kl_return_t code = expect_type(r, REDIS_REPLY_INTEGER);
    if (code != KL_SUCCESS) return code;
    if (r->integer == -2) return KL_NOTFOUND;
    return reply_decimal(client, r, fill, ttl, ttl_len);
  });
}

kl_return_t kl_move(kl_client *client, char *key, size_t key_len, int db) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(given(key) && db >= 0);
  Key k(client, key, key_len);
  Command cmd = script_with_companions(move_with_companions, {k});
  cmd.arg_int(db);
  return write_one(client, route_of(key, key_len), std::move(cmd), [](const redisReply *r, bool) {
    kl_return_t code = expect_type(r, REDIS_REPLY_INTEGER);
    if (code != KL_SUCCESS) return code;
    if (r->integer < 0) return KL_NOTFOUND;
    return r->integer == 0 ? KL_ALREADY_EXISTS : KL_SUCCESS;
  });
}
