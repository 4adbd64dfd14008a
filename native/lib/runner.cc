// Running commands: routing, pipelining, fail-over across groups, the dirty
// bit and per-server administration.
extern "C" {  // sds.h has no C++ guard of its own
#include <hiredis/sds.h>
}

#include <algorithm>
#include <climits>
#include <cstring>
#include <string>

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
  drop_failed(client, b.server, why);
}

// The call has no time left for this server: it is not its fault, so it is
// not marked down, but whatever was queued on the connection must go.
void out_of_time(kl_client *client, Batch &b) {
  b.failed = true;
  b.replies.clear();
  log_event(client, KL_LEVEL_WARNING, "no time left for %s in this call", b.server->name.c_str());
  disconnect_server(b.server);
}

// Decimal digits of v.
size_t digits(size_t v) {
  size_t n = 1;
  while (v >= 10) {
    v /= 10;
    ++n;
  }
  return n;
}

char *put_decimal(char *p, size_t v, size_t n) {
  for (size_t k = n; k > 0; --k) {
    p[k - 1] = static_cast<char>('0' + v % 10);
    v /= 10;
  }
  return p + n;
}

// Queues one command in the protocol's form straight into the connection's
// output buffer: the same bytes as redisAppendCommandArgv, without its
// formatted intermediate copy and its printf-style formatting.
bool append_argv(redisContext *ctx, int argc, const char **argv, const size_t *lens) {
  const size_t count = static_cast<size_t>(argc);
  size_t total = 1 + digits(count) + 2;
  for (size_t i = 0; i < count; ++i) total += 1 + digits(lens[i]) + 2 + lens[i] + 2;
  if (total > static_cast<size_t>(INT_MAX))
    return redisAppendCommandArgv(ctx, argc, argv, lens) == REDIS_OK;
  sds buf = sdsMakeRoomFor(ctx->obuf, total);
  if (!buf) return false;
  ctx->obuf = buf;
  char *p = buf + sdslen(buf);
  *p++ = '*';
  p = put_decimal(p, count, digits(count));
  *p++ = '\r';
  *p++ = '\n';
  for (size_t i = 0; i < count; ++i) {
    *p++ = '$';
    p = put_decimal(p, lens[i], digits(lens[i]));
    *p++ = '\r';
    *p++ = '\n';
    if (lens[i]) std::memcpy(p, argv[i], lens[i]);
    p += lens[i];
    *p++ = '\r';
    *p++ = '\n';
  }
  sdsIncrLen(buf, static_cast<int>(total));
  return true;
}

bool append(const kl_client *client, Batch &b) {
  redisContext *ctx = b.server->ctx;
  for (size_t i = 0; i < b.size(); ++i) {
    Command &c = b.cmd(i);
    if (Command *newer = c.newer(); newer && accepts_v2_forms(client, b.server)) {
      if (!append_argv(ctx, newer->argc(), newer->argv(), newer->argvlen())) return false;
      continue;
    }
    const Script *script = c.script();
    if (script && !script_loaded(b.server, script)) {
      // Loaded ahead in the same pipeline, so commands after it can rely on it.
      if (b.preloaded.empty()) b.preloaded.assign(b.size(), 0);
      b.preloaded[i] = 1;
      const char *argv[3] = {"SCRIPT", "LOAD", script->source};
      size_t lens[3] = {6, 4, std::strlen(script->source)};
      if (!append_argv(ctx, 3, argv, lens)) return false;
      b.server->loaded_scripts.push_back(script);
    }
    if (!append_argv(ctx, c.argc(), c.argv(), c.argvlen())) return false;
  }
  return true;
}

bool read_one(Server *server, Reply *out) {
  void *r = nullptr;
  if (!read_reply(server->ctx, &server->budget, &r)) return false;
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
    b.failed = b.too_large = false;
    b.replies.clear();
    if (b.size() == 0) continue;
    if (!connect_server(client, b.server)) {
      b.failed = true;
      continue;
    }
    if (!append(client, b)) fail(client, b, "could not queue commands");
  }
  for (size_t k = 0; k < n; ++k) {
    Batch &b = batches[k];
    if (b.size() == 0 || b.failed) continue;
    if (!arm_timeout(client, b.server)) {
      out_of_time(client, b);
      continue;
    }
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
    if (!arm_timeout(client, b.server)) {
      out_of_time(client, b);
      continue;
    }
    b.replies.resize(b.size());
    bool ok = true;
    redisReader *reader = b.server->ctx->reader;
    redisReplyObjectFunctions *saved_fn = reader->fn;
    void *saved_privdata = reader->privdata;
    if (b.reader_fn) {
      reader->fn = b.reader_fn;
      reader->privdata = b.on_read_context;
    }
    for (size_t i = 0; ok && i < b.size(); ++i) {
      if (!b.preloaded.empty() && b.preloaded[i]) {
        Reply load;
        ok = read_one(b.server, &load);
        if (!ok) break;
      }
      if (b.on_read_start) b.on_read_start(b.on_read_context, b, i);
      if (b.reader_fn) {
        void *r = nullptr;
        ok = read_reply(b.server->ctx, &b.server->budget, &r);
      } else {
        ok = read_one(b.server, &b.replies[i]);
      }
      if (ok && b.on_read) b.on_read(b.on_read_context, b, i);
    }
    if (b.reader_fn) {
      // A reply cut short is the direct functions' object: the default
      // functions must never be asked to free it.
      reader->reply = nullptr;
      reader->fn = saved_fn;
      reader->privdata = saved_privdata;
    }
    for (size_t i = 0; ok && i < b.size(); ++i)
      if (is_noscript(b.replies[i].get()) && b.cmd(i).script()) ok = retry_as_eval(b, i);
    if (!ok && b.server->budget.exceeded) {
      // The server is up and answering: only this connection, whose stream
      // now holds the rest of the refused reply, goes.
      log_event(client, KL_LEVEL_ERROR, "a reply from %s passes the maximum reply size of %zu bytes",
                b.server->name.c_str(), client->max_reply_bytes);
      b.failed = b.too_large = true;
      b.replies.clear();
      disconnect_server(b.server);
    } else if (!ok) {
      log_event(client, KL_LEVEL_ERROR, "no reply from %s: %s", b.server->name.c_str(),
                b.server->ctx ? b.server->ctx->errstr : "");
      fail(client, b, "read failed");
    }
  }
}

kl_return_t run_write(kl_client *client, Route route, Command *cmds, size_t n,
                      const Interpret &interpret) {
  KL_REQUIRE_CLIENT(client);
  CallScope lock(client);
  if (!lock.ok()) return KL_PTHREAD_OP_FAILURE;
  if (client->groups.empty()) return KL_NO_SERVER_ATTACHED;

  // A few groups fit on the stack: no allocation per write.
  constexpr size_t kLocal = 4;
  const size_t groups = client->groups.size();
  Batch local[kLocal];
  std::vector<Batch> heap;
  Batch *batches = local;
  if (groups > kLocal) {
    heap.resize(groups);
    batches = heap.data();
  }
  for (size_t g = 0; g < groups; ++g) {
    batches[g].server = server_for(*client->groups[g], route);
    batches[g].cmds = cmds;
    batches[g].count = n;
  }
  exchange(client, batches, groups);

  bool answered = false, some_failed = false, too_large = false;
  kl_return_t result = KL_SUCCESS;
  for (size_t g = 0; g < groups; ++g) {
    Batch &b = batches[g];
    if (b.failed) {
      some_failed = true;
      too_large = too_large || b.too_large;
      continue;
    }
    kl_return_t code = interpret(b.replies, !answered);
    if (!answered) result = code;
    // A group that answered otherwise (an error reply, a key it did or did
    // not have) now holds another copy than the first: dirty as well.
    else if (code != result) some_failed = true;
    answered = true;
  }
  if (!answered) return too_large ? KL_REPLY_TOO_LARGE : down_code(client);
  return some_failed ? static_cast<kl_return_t>(result | KL_DIRTY) : result;
}

kl_return_t run_read(kl_client *client, Route route, Command *cmds, size_t n,
                     const Interpret &interpret) {
  KL_REQUIRE_CLIENT(client);
  CallScope lock(client);
  if (!lock.ok()) return KL_PTHREAD_OP_FAILURE;
  if (client->groups.empty()) return KL_NO_SERVER_ATTACHED;

  Batch b;
  b.cmds = cmds;
  b.count = n;
  for (auto &group : client->groups) {
    b.server = server_for(*group, route);
    exchange(client, &b, 1);
    if (!b.failed) return interpret(b.replies, true);
    // Another group holds the same value: failing over would not make it smaller.
    if (b.too_large) return KL_REPLY_TOO_LARGE;
  }
  return down_code(client);
}

namespace {

// The code of a call over many items, from what each item got: success, or
// KL_PARTIAL_RESULT when some items got no answer and the policy is
// KL_BEST_EFFORT_ON_FAIL, with KL_DIRTY when a write missed a group; else
// (nothing answered, or KL_NULL_ON_FAIL and something missing) the code of
// servers being down.
kl_return_t multi_outcome(const kl_client *client, Access access, int policy,
                          const std::vector<unsigned char> &answered,
                          const std::vector<unsigned char> &missed) {
  const size_t count = answered.size();
  size_t failed = 0;
  bool dirty = false;
  for (size_t i = 0; i < count; ++i) {
    if (!answered[i]) ++failed;
    else if (missed[i] && access == Access::write) dirty = true;
  }
  if (failed > 0 && (policy != KL_BEST_EFFORT_ON_FAIL || failed == count))
    return down_code(client);
  kl_return_t result = failed ? KL_PARTIAL_RESULT : KL_SUCCESS;
  return dirty ? static_cast<kl_return_t>(result | KL_DIRTY) : result;
}

}  // namespace

kl_return_t run_multi(kl_client *client, Access access, const std::vector<Route> &routes,
                      std::vector<Command> &cmds, int policy, const OnItemReply &on_reply) {
  KL_REQUIRE_CLIENT(client);
  CallScope lock(client);
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

  kl_return_t result = multi_outcome(client, access, policy, answered, missed);
  if (kl_get_result(result) == KL_SUCCESS || kl_get_result(result) == KL_PARTIAL_RESULT)
    for (size_t i = 0; i < n; ++i) on_reply(i, chosen[i].get());
  return result;
}

namespace {

// One round of chunked work: the items of one or more groups, grouped by
// server and cut into chunks, one command per chunk.
struct ChunkRound {
  struct Chunk {
    size_t first;  // into order
    size_t count;
    bool taken;    // its reply was read and handed over
  };
  std::vector<size_t> order;  // item indices, grouped by server
  std::vector<Chunk> chunks;  // chunks[j] is sent as cmds[j]
  std::vector<Command> cmds;
  std::vector<Batch> batches;
  std::vector<size_t> first_chunk;  // of each batch
  const TakeChunk *take = nullptr;  // replies as redisReply objects, or...
  const PutString *put = nullptr;   // ...elements straight from the reader
  Chunk *current = nullptr;         // the chunk whose reply is being read
  kl_return_t code = KL_SUCCESS;    // first malformed or refused reply (put)
  unsigned char *answered = nullptr;
};

// Batch::on_read for chunked rounds: hands the chunk's reply over and frees it.
void take_chunk(void *context, Batch &b, size_t i) {
  auto &round = *static_cast<ChunkRound *>(context);
  const size_t k = static_cast<size_t>(&b - round.batches.data());
  ChunkRound::Chunk &c = round.chunks[round.first_chunk[k] + i];
  const size_t *items = round.order.data() + c.first;
  bool first = false;
  for (size_t j = 0; j < c.count; ++j) {
    if (!round.answered[items[j]]) first = true;
    round.answered[items[j]] = 1;
  }
  if (round.take) (*round.take)(items, c.count, b.replies[i].get(), first);
  b.replies[i].reset();
  c.taken = true;
}

// Direct reading of arrays of strings: no reply object is built; each
// element of the current chunk's array goes to round.put. Every function
// answers the round itself as the "object" (never freed).
void start_chunk(void *context, Batch &b, size_t i) {
  auto &round = *static_cast<ChunkRound *>(context);
  const size_t k = static_cast<size_t>(&b - round.batches.data());
  round.current = &round.chunks[round.first_chunk[k] + i];
}

void refuse(ChunkRound &round, kl_return_t code) {
  if (round.code == KL_SUCCESS) round.code = code;
}

void *direct_string(const redisReadTask *task, char *str, size_t len) {
  auto &round = *static_cast<ChunkRound *>(task->privdata);
  if (!task->parent) {
    refuse(round, task->type == REDIS_REPLY_ERROR ? KL_SERVER_ERROR : KL_WRONG_REPLY);
  } else if (task->type != REDIS_REPLY_ERROR && !task->parent->parent && task->idx >= 0 &&
             static_cast<size_t>(task->idx) < round.current->count &&
             round.code == KL_SUCCESS) {
    const size_t item = round.order[round.current->first + static_cast<size_t>(task->idx)];
    kl_return_t code = (*round.put)(item, str, len);
    if (code != KL_SUCCESS) refuse(round, code);
  }
  return &round;
}

void *direct_array(const redisReadTask *task, int elements) {
  auto &round = *static_cast<ChunkRound *>(task->privdata);
  if (!task->parent && (elements < 0 || static_cast<size_t>(elements) != round.current->count))
    refuse(round, KL_WRONG_REPLY);
  else if (task->parent)
    refuse(round, KL_WRONG_REPLY);  // arrays of strings only
  return &round;
}

void *direct_integer(const redisReadTask *task, long long value) {
  auto &round = *static_cast<ChunkRound *>(task->privdata);
  if (!task->parent || task->parent->parent) {
    refuse(round, KL_WRONG_REPLY);
  } else {
    // As text, like an integer reply read through put_reply_string.
    const std::string text = std::to_string(value);
    direct_string(task, const_cast<char *>(text.data()), text.size());
  }
  return &round;
}

void *direct_nil(const redisReadTask *task) {
  auto &round = *static_cast<ChunkRound *>(task->privdata);
  if (!task->parent) refuse(round, KL_WRONG_REPLY);
  return &round;  // a nil element: the item keeps its "missing" value
}

void direct_free(void *) {}

redisReplyObjectFunctions direct_functions = {direct_string, direct_array, direct_integer,
                                              direct_nil, direct_free};

// Queues group's share of the wanted items (answered[i] == 0 when
// only_unanswered) into round, one batch per server that has any.
void queue_chunks(ChunkRound &round, Group &group, const Route *routes, size_t route_count,
                  size_t count, size_t chunk, const unsigned char *answered,
                  std::vector<size_t> &server_of) {
  const size_t servers = group.servers.size();
  if (servers == 0) return;
  constexpr size_t kSkip = SIZE_MAX;
  const size_t shared =
      route_count == 1 ? group.continuum.server_for(routes[0].data, routes[0].len) : 0;
  std::vector<size_t> start(servers + 1, 0);
  for (size_t i = 0; i < count; ++i) {
    if (answered && answered[i]) {
      server_of[i] = kSkip;
      continue;
    }
    size_t s = route_count == 1 ? shared : group.continuum.server_for(routes[i].data, routes[i].len);
    server_of[i] = s;
    ++start[s + 1];
  }
  for (size_t s = 0; s < servers; ++s) start[s + 1] += start[s];
  const size_t base = round.order.size();
  round.order.resize(base + start[servers]);
  std::vector<size_t> next(start.begin(), start.end() - 1);
  for (size_t i = 0; i < count; ++i)
    if (server_of[i] != kSkip) round.order[base + next[server_of[i]]++] = i;
  for (size_t s = 0; s < servers; ++s) {
    const size_t items = start[s + 1] - start[s];
    if (items == 0) continue;
    round.batches.emplace_back();
    round.batches.back().server = group.servers[s].get();
    round.first_chunk.push_back(round.chunks.size());
    for (size_t off = 0; off < items; off += chunk)
      round.chunks.push_back({base + start[s] + off, std::min(chunk, items - off), false});
  }
}

// Builds the commands, runs the round and marks the items of chunks that got
// no reply as missed.
void run_round(kl_client *client, ChunkRound &round, const MakeChunk &make,
               std::vector<unsigned char> &missed) {
  round.cmds.resize(round.chunks.size());
  for (size_t j = 0; j < round.chunks.size(); ++j) {
    const auto &c = round.chunks[j];
    make(round.cmds[j], round.order.data() + c.first, c.count);
  }
  for (size_t k = 0; k < round.batches.size(); ++k) {
    Batch &b = round.batches[k];
    const size_t end =
        k + 1 < round.batches.size() ? round.first_chunk[k + 1] : round.chunks.size();
    b.cmds = round.cmds.data() + round.first_chunk[k];
    b.count = end - round.first_chunk[k];
    b.on_read = take_chunk;
    b.on_read_context = &round;
    if (round.put) {
      b.reader_fn = &direct_functions;
      b.on_read_start = start_chunk;
    }
  }
  exchange(client, round.batches.data(), round.batches.size());
  for (const auto &c : round.chunks)
    if (!c.taken)
      for (size_t j = 0; j < c.count; ++j) missed[round.order[c.first + j]] = 1;
}

}  // namespace

namespace {

kl_return_t chunked(kl_client *client, Access access, const Route *routes, size_t route_count,
                    size_t count, size_t chunk, int policy, const MakeChunk &make,
                    const TakeChunk *take, const PutString *put, kl_return_t *refused) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(routes && count > 0 && (route_count == count || route_count == 1));
  if (chunk == 0) chunk = count;
  CallScope lock(client);
  if (!lock.ok()) return KL_PTHREAD_OP_FAILURE;
  if (client->groups.empty()) return KL_NO_SERVER_ATTACHED;

  std::vector<unsigned char> answered(count, 0), missed(count, 0);
  std::vector<size_t> server_of(count);
  if (access == Access::write) {
    // Every group in one round: all batches sent before any reply is read.
    ChunkRound round;
    round.take = take;
    round.put = put;
    round.answered = answered.data();
    for (auto &group : client->groups)
      queue_chunks(round, *group, routes, route_count, count, chunk, nullptr, server_of);
    run_round(client, round, make, missed);
    if (refused) *refused = round.code;
  } else {
    // Per item fail-over: each round asks the next group for what is missing.
    for (auto &group : client->groups) {
      ChunkRound round;
      round.take = take;
      round.put = put;
      round.answered = answered.data();
      queue_chunks(round, *group, routes, route_count, count, chunk, answered.data(), server_of);
      if (round.chunks.empty()) break;
      run_round(client, round, make, missed);
      if (refused && *refused == KL_SUCCESS) *refused = round.code;
      if (std::all_of(answered.begin(), answered.end(), [](unsigned char a) { return a != 0; }))
        break;
    }
  }

  return multi_outcome(client, access, policy, answered, missed);
}

}  // namespace

kl_return_t run_chunked(kl_client *client, Access access, const Route *routes,
                        size_t route_count, size_t count, size_t chunk, int policy,
                        const MakeChunk &make, const TakeChunk &take) {
  return chunked(client, access, routes, route_count, count, chunk, policy, make, &take, nullptr,
                 nullptr);
}

kl_return_t run_chunked_strings(kl_client *client, const Route *routes, size_t route_count,
                                size_t count, size_t chunk, int policy, const MakeChunk &make,
                                const PutString &put, kl_return_t *refused) {
  if (refused) *refused = KL_SUCCESS;
  return chunked(client, Access::read, routes, route_count, count, chunk, policy, make, nullptr,
                 &put, refused);
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
  CallScope lock(client);
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
