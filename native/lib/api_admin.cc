// Per-server administration (FLUSHALL, FLUSHDB, SAVE, BGSAVE, LASTSAVE,
// SHUTDOWN, INFO, DBSIZE), key listing with SCAN, and SORT.
#include <cstring>
#include <string>
#include <unordered_set>

#include "command_kit.h"
#include "connection.h"
#include "exchange.h"
#include "internal.h"
#include "protocol.h"

using namespace keyloom;

namespace {

kl_return_t status_of(redisReply *reply) {
  return reply ? expect_type(reply, REDIS_REPLY_STATUS) : KL_SERVER_DOWN;
}

kl_return_t each_server_status(kl_client *client, const char *group, kl_return_t **results,
                               std::initializer_list<std::string_view> args) {
  Command cmd;
  for (auto a : args) cmd.arg(a);
  return run_each_server(client, group, {}, cmd, results,
                         [](size_t, redisReply *reply) { return status_of(reply); });
}

// Glob characters in a prefix must match themselves in a SCAN pattern.
std::string glob_escaped(std::string_view s) {
  std::string out;
  for (char c : s) {
    if (c == '*' || c == '?' || c == '[' || c == ']' || c == '\\') out += '\\';
    out += c;
  }
  return out;
}

kl_return_t put_strings(const kl_client *client, const std::vector<std::string> &items,
                        char ***out, size_t *count, size_t **lengths) {
  std::vector<redisReply> fake(items.size());
  std::vector<const redisReply *> ptrs(items.size());
  for (size_t i = 0; i < items.size(); ++i) {
    fake[i] = redisReply{};
    fake[i].type = REDIS_REPLY_STRING;
    fake[i].str = const_cast<char *>(items[i].data());
    fake[i].len = items[i].size();
    ptrs[i] = &fake[i];
  }
  return put_string_array(client, ptrs.data(), items.size(), out, count, lengths);
}

}  // namespace

kl_return_t kl_flushall(kl_client *client, char const *group, kl_return_t **results) {
  KL_REQUIRE_CLIENT(client);
  return each_server_status(client, group, results, {"FLUSHALL"});
}

kl_return_t kl_flushdb(kl_client *client, char const *group, kl_return_t **results) {
  KL_REQUIRE_CLIENT(client);
  return each_server_status(client, group, results, {"FLUSHDB"});
}

kl_return_t kl_save(kl_client *client, char const *group, kl_return_t **results) {
  KL_REQUIRE_CLIENT(client);
  return each_server_status(client, group, results, {"SAVE"});
}

kl_return_t kl_bgsave(kl_client *client, char const *group, kl_return_t **results) {
  KL_REQUIRE_CLIENT(client);
  return each_server_status(client, group, results, {"BGSAVE"});
}

kl_return_t kl_dbsize(kl_client *client, unsigned int *size, char const *group,
                      kl_return_t **results) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(size, results);
  KL_REQUIRE(given(size));
  Command cmd("DBSIZE");
  unsigned long long total = 0;
  kl_return_t r = run_each_server(client, group, {}, cmd, results, [&](size_t, redisReply *reply) {
    if (!reply) return KL_SERVER_DOWN;
    kl_return_t code = expect_type(reply, REDIS_REPLY_INTEGER);
    if (code == KL_SUCCESS) total += static_cast<unsigned long long>(reply->integer);
    return code;
  });
  if (r == KL_SUCCESS || r == KL_PARTIAL_RESULT) *size = static_cast<unsigned int>(total);
  return r;
}

kl_return_t kl_lastsave(kl_client *client, unsigned int **times, size_t *count,
                        char const *group, kl_return_t **results) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(times, count, results);
  KL_REQUIRE(given(times));
  Command cmd("LASTSAVE");
  std::vector<unsigned int> got;
  kl_return_t r = run_each_server(client, group, {}, cmd, results, [&](size_t i, redisReply *reply) {
    got.resize(i + 1, 0);
    if (!reply) return KL_SERVER_DOWN;
    kl_return_t code = expect_type(reply, REDIS_REPLY_INTEGER);
    if (code == KL_SUCCESS) got[i] = static_cast<unsigned int>(reply->integer);
    return code;
  });
  if (r != KL_SUCCESS && r != KL_PARTIAL_RESULT) return r;
  auto *array = static_cast<unsigned int *>(mm_calloc(client, got.size(), sizeof(unsigned int)));
  if (!array) return KL_MEMORY_FAILURE;
  std::copy(got.begin(), got.end(), array);
  *times = array;
  if (count) *count = got.size();
  return r;
}

kl_return_t kl_info(kl_client *client, char ***infos, char const *group, kl_return_t **results) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(infos, results);
  KL_REQUIRE(given(infos));
  Command cmd("INFO");
  std::vector<std::string> texts;
  kl_return_t r = run_each_server(client, group, {}, cmd, results, [&](size_t i, redisReply *reply) {
    texts.resize(i + 1);  // a failed server gives an empty text
    if (!reply) return KL_SERVER_DOWN;
    kl_return_t code = expect_type(reply, REDIS_REPLY_STRING);
    if (code == KL_SUCCESS) texts[i].assign(reply->str, reply->len);
    return code;
  });
  if (r != KL_SUCCESS && r != KL_PARTIAL_RESULT) return r;
  auto **array = static_cast<char **>(mm_calloc(client, texts.size() + 1, sizeof(char *)));
  if (!array) return KL_MEMORY_FAILURE;
  for (size_t i = 0; i < texts.size(); ++i) {
    if (put_bytes(client, texts[i].data(), texts[i].size(), &array[i], nullptr) != KL_SUCCESS) {
      kl_free_php_reply_pp(&array, static_cast<unsigned>(i));
      return KL_MEMORY_FAILURE;
    }
  }
  *infos = array;
  return r;
}

kl_return_t kl_shutdown(kl_client *client, char const *group, kl_return_t **results) {
  KL_REQUIRE_CLIENT(client);
  CallScope lock(client);
  if (!lock.ok()) return KL_PTHREAD_OP_FAILURE;
  if (client->groups.empty()) return KL_NO_SERVER_ATTACHED;
  std::vector<Server *> servers;
  if (!addressed_servers(client, group, {}, &servers)) return KL_INVALID_PARAMETER;
  std::vector<kl_return_t> codes;
  for (Server *s : servers) {
    if (!connect_server(lock.call(), s) || !arm_timeout(lock.call(), s)) {
      codes.push_back(KL_SERVER_DOWN);
      continue;
    }
    // A server that shuts down closes the connection instead of answering.
    const char *argv[2] = {"SHUTDOWN", "NOSAVE"};
    const size_t lens[2] = {8, 6};
    Reply reply;
    round_trip(lock.call(), s, 2, argv, lens, &reply);
    codes.push_back(reply ? expect_type(reply.get(), REDIS_REPLY_STATUS) : KL_SUCCESS);
    disconnect_server(s);
  }
  kl_return_t stored = put_results(client, codes, results);
  return stored != KL_SUCCESS ? stored : combine_codes(codes);
}

kl_return_t kl_keys(kl_client *client, char *pattern, size_t pattern_len, char ***keys,
                    size_t *count, size_t **lengths, char const *group, kl_return_t **results) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(keys, count, lengths, results);
  KL_REQUIRE(given(pattern) && given(keys));
  CallScope lock(client);
  if (!lock.ok()) return KL_PTHREAD_OP_FAILURE;
  if (client->groups.empty()) return KL_NO_SERVER_ATTACHED;
  std::vector<Server *> servers;
  if (!addressed_servers(client, group, {}, &servers)) return KL_INVALID_PARAMETER;

  const std::string prefix = client->prefix;
  std::string match = glob_escaped(prefix);
  match.append(pattern_len ? std::string_view(pattern, pattern_len) : std::string_view("*"));

  // Every server's SCAN advances in the same pipelined round.
  std::vector<std::string> cursors(servers.size(), "0");
  std::vector<kl_return_t> codes(servers.size(), KL_SUCCESS);
  std::vector<bool> active(servers.size(), true);
  std::vector<std::string> found;
  std::unordered_set<std::string> seen;  // groups hold copies: each key once
  for (;;) {
    std::vector<Batch> batches;
    std::vector<size_t> which;
    std::vector<Command> cmds(servers.size());
    for (size_t i = 0; i < servers.size(); ++i) {
      if (!active[i]) continue;
      cmds[i].arg("SCAN").arg(cursors[i]).arg("MATCH").arg(match).arg("COUNT").arg("1000");
      batches.emplace_back();
      batches.back().server = servers[i];
      batches.back().cmds = &cmds[i];
      batches.back().count = 1;
      which.push_back(i);
    }
    if (batches.empty()) break;
    exchange(client, batches.data(), batches.size());
    for (size_t k = 0; k < batches.size(); ++k) {
      size_t i = which[k];
      const redisReply *r = batches[k].failed ? nullptr : batches[k].replies[0].get();
      kl_return_t code = batches[k].failed ? KL_SERVER_DOWN : expect_type(r, REDIS_REPLY_ARRAY);
      if (code == KL_SUCCESS && (r->elements != 2 || r->element[0]->type != REDIS_REPLY_STRING ||
                                 r->element[1]->type != REDIS_REPLY_ARRAY))
        code = KL_WRONG_REPLY;
      if (code != KL_SUCCESS) {
        codes[i] = code;
        active[i] = false;
        continue;
      }
      cursors[i].assign(r->element[0]->str, r->element[0]->len);
      if (cursors[i] == "0") active[i] = false;
      const redisReply *page = r->element[1];
      for (size_t e = 0; e < page->elements; ++e) {
        const redisReply *key = page->element[e];
        if (key->type != REDIS_REPLY_STRING || key->len < prefix.size()) continue;
        std::string name(key->str + prefix.size(), key->len - prefix.size());
        if (is_companion_name(name)) continue;
        if (seen.insert(name).second) found.push_back(std::move(name));
      }
    }
  }
  kl_return_t stored = put_results(client, codes, results);
  if (stored != KL_SUCCESS) return stored;
  kl_return_t r = combine_codes(codes);
  if (r != KL_SUCCESS && r != KL_PARTIAL_RESULT) return r;
  if (found.empty()) {
    *keys = nullptr;
    if (count) *count = 0;
    if (lengths) *lengths = nullptr;
    return r;
  }
  kl_return_t put = put_strings(client, found, keys, count, lengths);
  return put != KL_SUCCESS ? put : r;
}

kl_return_t kl_sort_whole(kl_client *client, char ***values, size_t *count, size_t **lengths,
                          char *key, size_t key_len, char *by, size_t by_len, size_t offset,
                          char *route, int limit_count, int desc, char *get1, char *get2,
                          char *get3, char *get4, char *alpha, char *store) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(values, count, lengths);
  const bool storing = store && *store;
  KL_REQUIRE(given(key) && (storing ? given(count) : given(values)));
  const std::string &prefix = client->prefix;
  // Patterns name keys, so they carry the database prefix too ("#" and
  // "nosort" are not keys).
  auto keyed = [&](std::string_view s) {
    return (s == "#" || s == "nosort") ? std::string(s) : prefix + std::string(s);
  };
  Key k(client, key, key_len);
  Command c("SORT");
  c.arg(k.view());
  if (by && by_len > 0) c.arg("BY").arg_owned(keyed(std::string_view(by, by_len)));
  if (limit_count != 0) c.arg("LIMIT").arg_int(static_cast<long long>(offset)).arg_int(limit_count < 0 ? -1 : limit_count);
  for (char *get : {get1, get2, get3, get4})
    if (get && *get) c.arg("GET").arg_owned(keyed(get));
  c.arg(desc ? "DESC" : "ASC");
  if (alpha && *alpha) c.arg("ALPHA");
  if (storing) c.arg("STORE").arg_owned(prefix + store);

  Route r = (route && *route) ? Route{route, std::strlen(route)} : route_of(key, key_len);
  if (storing) {
    return write_one(client, r, std::move(c),
                     [count](const redisReply *reply, bool fill) { return reply_count(reply, fill, count); });
  }
  return read_one(client, r, std::move(c), [&](const redisReply *reply, bool) {
    kl_return_t code = expect_type(reply, REDIS_REPLY_ARRAY);
    if (code != KL_SUCCESS) return code;
    return put_string_array(client, reply->element, reply->elements, values, count, lengths);
  });
}
