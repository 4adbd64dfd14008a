// Running commands: routing, pipelining, fail-over across groups, the dirty
// bit and per-server administration.
#include <algorithm>
#include <cstring>

#include "connection.h"
#include "exchange.h"
#include "log.h"

namespace keyloom {

namespace {

bool is_noscript(const redisReply *r) {
  return r && r->type == REDIS_REPLY_ERROR && std::strncmp(r->str, "NOSCRIPT", 8) == 0;
}

bool script_loaded(const Server *s, const Script *script) {
  return std::find(s->loaded_scripts.begin(), s->loaded_scripts.end(), script) !=
         s->loaded_scripts.end();
}

void fail(kl_client *client, Batch &b, const char *why) {
  b.failed = true;
  b.replies.clear();
  mark_down(client, b.server, why);
}

bool append(Batch &b) {
  redisContext *ctx = b.server->ctx;
  for (size_t i = 0; i < b.size(); ++i) {
    Command &c = b.cmd(i);
    const Script *script = c.script();
    if (script && !script_loaded(b.server, script)) {
      // Loaded ahead in the same pipeline, so commands after it can rely on it.
      if (b.preloaded.empty()) b.preloaded.assign(b.size(), 0);
      b.preloaded[i] = 1;
      const char *argv[3] = {"SCRIPT", "LOAD", script->source};
      size_t lens[3] = {6, 4, std::strlen(script->source)};
      if (redisAppendCommandArgv(ctx, 3, argv, lens) != REDIS_OK) return false;
      b.server->loaded_scripts.push_back(script);
    }
    if (redisAppendCommandArgv(ctx, c.argc(), c.argv(), c.argvlen()) != REDIS_OK) return false;
  }
  return true;
}

bool read_one(redisContext *ctx, Reply *out) {
  void *r = nullptr;
  if (redisGetReply(ctx, &r) != REDIS_OK || !r) return false;
  out->reset(static_cast<redisReply *>(r));
  return true;
}

// A server without the script (flushed since we loaded it): run it as EVAL.
bool retry_as_eval(Batch &b, size_t i) {
  Command &c = b.cmd(i);
  int at = c.script_index();
  std::vector<const char *> argv(c.argv(), c.argv() + c.argc());
  std::vector<size_t> lens(c.argvlen(), c.argvlen() + c.argc());
  argv[at] = "EVAL";
  lens[at] = 4;
  argv[at + 1] = c.script()->source;
  lens[at + 1] = std::strlen(c.script()->source);
  void *r = redisCommandArgv(b.server->ctx, c.argc(), argv.data(), lens.data());
  if (!r) return false;
  b.replies[i].reset(static_cast<redisReply *>(r));
  return true;
}

}  // namespace

void exchange(kl_client *client, Batch *batches, size_t n) {
  for (size_t k = 0; k < n; ++k) {
    Batch &b = batches[k];
    b.failed = false;
    b.replies.clear();
    if (b.size() == 0) continue;
    if (!connect_server(client, b.server)) {
      b.failed = true;
      continue;
    }
    if (!append(b)) fail(client, b, "could not queue commands");
  }
  for (size_t k = 0; k < n; ++k) {
    Batch &b = batches[k];
    if (b.size() == 0 || b.failed) continue;
    int done = 0;
    while (!done) {
      if (redisBufferWrite(b.server->ctx, &done) != REDIS_OK) {
        fail(client, b, "write failed");
        break;
      }
    }
  }
  for (size_t k = 0; k < n; ++k) {
    Batch &b = batches[k];
    if (b.size() == 0 || b.failed) continue;
    b.replies.resize(b.size());
    bool ok = true;
    for (size_t i = 0; ok && i < b.size(); ++i) {
      if (!b.preloaded.empty() && b.preloaded[i]) {
        Reply load;
        ok = read_one(b.server->ctx, &load);
        if (!ok) break;
      }
      ok = read_one(b.server->ctx, &b.replies[i]);
    }
    for (size_t i = 0; ok && i < b.size(); ++i)
      if (is_noscript(b.replies[i].get()) && b.cmd(i).script()) ok = retry_as_eval(b, i);
    if (!ok) {
      log_event(client, KL_LEVEL_ERROR, "no reply from %s: %s", b.server->name.c_str(),
                b.server->ctx ? b.server->ctx->errstr : "");
      fail(client, b, "read failed");
    }
  }
}

kl_return_t run_write(kl_client *client, Route route, std::vector<Command> &cmds,
                      const Interpret &interpret) {
  KL_REQUIRE_CLIENT(client);
  ClientLock lock(client->mutex);
  if (!lock.ok()) return KL_PTHREAD_OP_FAILURE;
  if (client->groups.empty()) return KL_NO_SERVER_ATTACHED;

  std::vector<Batch> batches(client->groups.size());
  for (size_t g = 0; g < batches.size(); ++g) {
    batches[g].server = server_for(*client->groups[g], route);
    batches[g].cmds = cmds.data();
    batches[g].count = cmds.size();
  }
  exchange(client, batches.data(), batches.size());

  bool answered = false, some_failed = false;
  kl_return_t result = KL_SUCCESS;
  for (auto &b : batches) {
    if (b.failed) {
      some_failed = true;
      continue;
    }
    kl_return_t code = interpret(b.replies, !answered);
    if (!answered) result = code;
    answered = true;
  }
  if (!answered) return down_code(client);
  return some_failed ? static_cast<kl_return_t>(result | KL_DIRTY) : result;
}

kl_return_t run_read(kl_client *client, Route route, std::vector<Command> &cmds,
                     const Interpret &interpret) {
  KL_REQUIRE_CLIENT(client);
  ClientLock lock(client->mutex);
  if (!lock.ok()) return KL_PTHREAD_OP_FAILURE;
  if (client->groups.empty()) return KL_NO_SERVER_ATTACHED;

  Batch b;
  b.cmds = cmds.data();
  b.count = cmds.size();
  for (auto &group : client->groups) {
    b.server = server_for(*group, route);
    exchange(client, &b, 1);
    if (!b.failed) return interpret(b.replies, true);
  }
  return down_code(client);
}

kl_return_t run_multi(kl_client *client, Access access, const std::vector<Route> &routes,
                      std::vector<Command> &cmds, int policy,
                      const std::function<void(size_t i, redisReply *reply)> &on_reply) {
  KL_REQUIRE_CLIENT(client);
  ClientLock lock(client->mutex);
  if (!lock.ok()) return KL_PTHREAD_OP_FAILURE;
  if (client->groups.empty()) return KL_NO_SERVER_ATTACHED;
  const size_t n = std::min(routes.size(), cmds.size());

  Replies chosen(n);
  std::vector<unsigned char> answered(n, 0), missed(n, 0);  // missed: a group failed
  std::vector<Batch> batches;
  std::vector<std::vector<size_t>> items;  // item index of each picked command

  // Queues the items still wanted in group g, one batch per server.
  auto queue_group = [&](const Group &group, bool only_unanswered) {
    size_t base = batches.size();
    batches.resize(base + group.servers.size());
    items.resize(base + group.servers.size());
    for (size_t s = 0; s < group.servers.size(); ++s) batches[base + s].server = group.servers[s].get();
    for (size_t i = 0; i < n; ++i) {
      if (only_unanswered && answered[i]) continue;
      size_t s = group.continuum.server_for(routes[i].data, routes[i].len);
      batches[base + s].picked.push_back(&cmds[i]);
      items[base + s].push_back(i);
    }
  };
  // Takes the replies of batches [from, end) for items not answered yet.
  auto collect = [&](size_t from) {
    for (size_t k = from; k < batches.size(); ++k) {
      for (size_t j = 0; j < items[k].size(); ++j) {
        size_t i = items[k][j];
        if (batches[k].failed) {
          missed[i] = 1;
        } else if (!answered[i]) {
          chosen[i] = std::move(batches[k].replies[j]);
          answered[i] = 1;
        }
      }
    }
  };

  if (access == Access::write) {
    for (auto &group : client->groups) queue_group(*group, false);
    exchange(client, batches.data(), batches.size());
    collect(0);
  } else {
    // Per item fail-over: each round asks the next group for what is missing.
    for (auto &group : client->groups) {
      size_t from = batches.size();
      queue_group(*group, true);
      exchange(client, batches.data() + from, batches.size() - from);
      collect(from);
      if (std::all_of(answered.begin(), answered.end(), [](unsigned char a) { return a != 0; }))
        break;
    }
  }

  size_t failed = 0;
  bool dirty = false;
  for (size_t i = 0; i < n; ++i) {
    if (!answered[i]) ++failed;
    else if (missed[i] && access == Access::write) dirty = true;
  }
  if (failed > 0 && (policy != KL_BEST_EFFORT_ON_FAIL || failed == n)) return down_code(client);
  for (size_t i = 0; i < n; ++i) on_reply(i, chosen[i].get());
  kl_return_t result = failed ? KL_PARTIAL_RESULT : KL_SUCCESS;
  return dirty ? static_cast<kl_return_t>(result | KL_DIRTY) : result;
}

bool addressed_servers(const kl_client *client, const char *group, std::string_view server,
                       std::vector<Server *> *out) {
  out->clear();
  bool every_group = !group || !*group;
  if (!every_group && std::strcmp(group, "_NL_") == 0) {
    every_group = std::none_of(client->groups.begin(), client->groups.end(),
                               [](const auto &g) { return g->name == "_NL_"; });
  }
  bool group_found = every_group;
  for (auto &g : client->groups) {
    if (!every_group && g->name != group) continue;
    group_found = true;
    for (auto &s : g->servers)
      if (server.empty() || s->name == server) out->push_back(s.get());
  }
  return group_found && !out->empty();
}

kl_return_t put_results(const kl_client *client, const std::vector<kl_return_t> &codes,
                        kl_return_t **results) {
  if (!results) return KL_SUCCESS;
  auto *array = static_cast<kl_return_t *>(mm_calloc(client, codes.size(), sizeof(kl_return_t)));
  if (!array) return KL_MEMORY_FAILURE;
  std::copy(codes.begin(), codes.end(), array);
  *results = array;
  return KL_SUCCESS;
}

kl_return_t combine_codes(const std::vector<kl_return_t> &codes) {
  size_t ok = 0;
  kl_return_t first_failure = KL_SUCCESS;
  for (auto c : codes) {
    if (c == KL_SUCCESS) ++ok;
    else if (first_failure == KL_SUCCESS) first_failure = c;
  }
  if (ok == codes.size()) return KL_SUCCESS;
  return ok == 0 ? first_failure : KL_PARTIAL_RESULT;
}

kl_return_t run_each_server(kl_client *client, const char *group, std::string_view server,
                            Command &cmd, kl_return_t **results,
                            const std::function<kl_return_t(size_t server_index,
                                                            redisReply *reply)> &on_reply) {
  KL_REQUIRE_CLIENT(client);
  ClientLock lock(client->mutex);
  if (!lock.ok()) return KL_PTHREAD_OP_FAILURE;
  if (client->groups.empty()) return KL_NO_SERVER_ATTACHED;
  std::vector<Server *> servers;
  if (!addressed_servers(client, group, server, &servers)) return KL_INVALID_PARAMETER;

  std::vector<Batch> batches(servers.size());
  for (size_t k = 0; k < servers.size(); ++k) {
    batches[k].server = servers[k];
    batches[k].cmds = &cmd;
    batches[k].count = 1;
  }
  exchange(client, batches.data(), batches.size());
  std::vector<kl_return_t> codes(servers.size());
  for (size_t k = 0; k < servers.size(); ++k) {
    if (batches[k].failed) {
      on_reply(k, nullptr);
      codes[k] = KL_SERVER_DOWN;
    } else {
      codes[k] = on_reply(k, batches[k].replies[0].get());
    }
  }
  kl_return_t stored = put_results(client, codes, results);
  if (stored != KL_SUCCESS) return stored;
  return combine_codes(codes);
}

}  // namespace keyloom
