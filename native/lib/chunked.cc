// Many keys in few commands (MGET, MSET): the items of each server cut into
// chunks, one command per chunk, every server's chunks sent before any reply
// is read; MGET's arrays of strings read straight into the caller's values.
#include <algorithm>
#include <string>
#include <vector>

#include "exchange.h"

namespace keyloom {

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
  kl_return_t code = KL_SUCCESS;    // first malformed or refused reply (put)
  unsigned char *answered = nullptr;
  // What each batch's reading is at: the servers' replies are read as they
  // come, several at once.
  struct Reading {
    ChunkRound *round;
    size_t batch;
    Chunk *current = nullptr;  // the chunk whose reply is being read
  };
  std::vector<Reading> readings;  // readings[k] for batches[k]
};

// Batch::on_read for chunked rounds: hands the chunk's reply over and frees it.
void take_chunk(void *context, Batch &b, size_t i) {
  auto &reading = *static_cast<ChunkRound::Reading *>(context);
  ChunkRound &round = *reading.round;
  ChunkRound::Chunk &c = round.chunks[round.first_chunk[reading.batch] + i];
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
// answers the batch's reading itself as the "object" (never freed).
void start_chunk(void *context, Batch &, size_t i) {
  auto &reading = *static_cast<ChunkRound::Reading *>(context);
  reading.current = &reading.round->chunks[reading.round->first_chunk[reading.batch] + i];
}

void refuse(ChunkRound &round, kl_return_t code) {
  if (round.code == KL_SUCCESS) round.code = code;
}

void *direct_string(const redisReadTask *task, char *str, size_t len) {
  auto &reading = *static_cast<ChunkRound::Reading *>(task->privdata);
  ChunkRound &round = *reading.round;
  if (!task->parent) {
    refuse(round, task->type == REDIS_REPLY_ERROR ? KL_SERVER_ERROR : KL_WRONG_REPLY);
  } else if (task->type != REDIS_REPLY_ERROR && !task->parent->parent && task->idx >= 0 &&
             static_cast<size_t>(task->idx) < reading.current->count &&
             round.code == KL_SUCCESS) {
    const size_t item = round.order[reading.current->first + static_cast<size_t>(task->idx)];
    kl_return_t code = (*round.put)(item, str, len);
    if (code != KL_SUCCESS) refuse(round, code);
  }
  return &reading;
}

void *direct_array(const redisReadTask *task, int elements) {
  auto &reading = *static_cast<ChunkRound::Reading *>(task->privdata);
  if (!task->parent && (elements < 0 || static_cast<size_t>(elements) != reading.current->count))
    refuse(*reading.round, KL_WRONG_REPLY);
  else if (task->parent)
    refuse(*reading.round, KL_WRONG_REPLY);  // arrays of strings only
  return &reading;
}

void *direct_integer(const redisReadTask *task, long long value) {
  auto &reading = *static_cast<ChunkRound::Reading *>(task->privdata);
  if (!task->parent || task->parent->parent) {
    refuse(*reading.round, KL_WRONG_REPLY);
  } else {
    // As text, like an integer reply read through put_reply_string.
    const std::string text = std::to_string(value);
    direct_string(task, const_cast<char *>(text.data()), text.size());
  }
  return &reading;
}

void *direct_nil(const redisReadTask *task) {
  auto &reading = *static_cast<ChunkRound::Reading *>(task->privdata);
  if (!task->parent) refuse(*reading.round, KL_WRONG_REPLY);
  return &reading;  // a nil element: the item keeps its "missing" value
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
  round.readings.assign(round.batches.size(), {&round, 0});
  for (size_t k = 0; k < round.batches.size(); ++k) {
    Batch &b = round.batches[k];
    round.readings[k].batch = k;
    const size_t end =
        k + 1 < round.batches.size() ? round.first_chunk[k + 1] : round.chunks.size();
    b.cmds = round.cmds.data() + round.first_chunk[k];
    b.count = end - round.first_chunk[k];
    b.on_read = take_chunk;
    b.on_read_context = &round.readings[k];
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
}  // namespace keyloom
