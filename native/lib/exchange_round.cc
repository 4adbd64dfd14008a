#include "exchange_round.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <memory>
#include <utility>

#include "connection.h"
#include "connector.h"
#include "failures.h"
#include "log.h"
#include "transport.h"
#include "wake_fd.h"

namespace keyloom {

// One server's part of a round: its batches in the order they were sent,
// read back in that order. In a pipeline a turn may outlive the run that
// started it (a server slow to answer): later runs send more behind it.
struct ServerTurn {
  Server *server = nullptr;
  redisContext *ctx = nullptr;  // the connection its batches went out on
  std::vector<Batch *> batches;
  // Reading: batches[reading] is read, its reply `reply` next.
  size_t reading = 0;
  size_t reply = 0;
  bool batch_started = false;  // its replies sized, its reader functions in place
  bool load_read = false;      // the SCRIPT LOAD queued ahead of that reply has been read
  bool item_started = false;   // the reply (or SCRIPT LOAD) being read has begun
  redisReplyObjectFunctions *saved_fn = nullptr;
  void *saved_privdata = nullptr;
  Clock::time_point last_input;  // when the server last sent something (or the wait began)

  bool read_all() const { return reading == batches.size(); }
  Batch &current() const { return *batches[reading]; }
  // False once the connection its batches went out on is gone (closed, or
  // replaced by a new one): their replies went with it.
  bool connected() const { return ctx && server->ctx == ctx; }
};

namespace {

void next_batch(ServerTurn &t) {
  ++t.reading;
  t.reply = 0;
  t.batch_started = t.load_read = t.item_started = false;
}

// Ends the batch being read: the connection's own reader functions back, and
// the failure noted when it could not be read whole.
void end_batch(ServerTurn &t, bool ok) {
  Batch &b = t.current();
  if (t.batch_started && b.reader_fn && t.connected()) {
    // A reply cut short is the direct functions' object: the default
    // functions must never be asked to free it.
    redisReader *reader = t.server->ctx->reader;
    reader->reply = nullptr;
    reader->fn = t.saved_fn;
    reader->privdata = t.saved_privdata;
  }
  if (!ok) read_failed(b);
  next_batch(t);
}

// Takes the replies the turn's reader holds, batch after batch; true when
// the batch being read needs more input.
bool take_buffered(ServerTurn &t) {
  Server *s = t.server;
  while (!t.read_all()) {
    Batch &b = t.current();
    if (b.size() == 0 || b.failed) {
      next_batch(t);
      continue;
    }
    if (!t.connected()) {
      // Closed under the batch (a write of later commands to the server
      // failed, say): its reader went with the connection.
      connection_gone(b);
      next_batch(t);
      continue;
    }
    if (!t.batch_started) {
      if (!arm_timeout(*b.call, s)) {
        out_of_time(b);
        next_batch(t);
        continue;
      }
      b.replies.resize(b.size());
      if (b.reader_fn) {
        redisReader *reader = s->ctx->reader;
        t.saved_fn = reader->fn;
        t.saved_privdata = reader->privdata;
        reader->fn = b.reader_fn;
        reader->privdata = b.on_read_context;
      }
      t.batch_started = true;
    }
    const size_t i = t.reply;
    const bool load = !b.preloaded.empty() && b.preloaded[i] && !t.load_read;
    if (!t.item_started) {
      if (!load && b.on_read_start) b.on_read_start(b.on_read_context, b, i);
      start_reply(&s->budget);
      t.item_started = true;
    }
    void *r = nullptr;
    const ReplyStep step = take_reply(s->ctx, &s->budget, &r);
    if (step == ReplyStep::kMore) return true;
    if (step == ReplyStep::kFailed) {
      end_batch(t, false);
      continue;
    }
    t.item_started = false;
    if (load) {
      Reply dropped(static_cast<redisReply *>(r));
      t.load_read = true;
      continue;
    }
    if (!b.reader_fn) b.replies[i].reset(static_cast<redisReply *>(r));
    if (b.on_read) b.on_read(b.on_read_context, b, i);
    t.load_read = false;
    if (++t.reply == b.size()) end_batch(t, true);
  }
  return false;
}

// Serves the turn from what has arrived; true when it must wait for its
// server to send more.
bool serve(ServerTurn &t) {
  while (take_buffered(t)) {
    Batch &b = t.current();
    if (!arm_timeout(*b.call, t.server)) {
      end_batch(t, false);  // the call's time is up
      continue;
    }
    if (!has_buffered_input(t.server)) return true;
    if (!receive_more(t.server)) {
      end_batch(t, false);
      continue;
    }
    t.last_input = Clock::now();
  }
  return false;
}

// How long a pipeline's round keeps the calls whose replies are all read
// waiting for a server that has not answered yet, before it lets them go on.
constexpr auto kResumeAfter = std::chrono::milliseconds(1);

// Reads the turns' replies, from whichever server has them ready. A server
// waits at most the client's time-out between two reads, and never past the
// deadline of the call whose batch it is reading. A pipeline's round
// (may_leave) returns early, with turns left to read, once a turn is read
// and the others have sent nothing for kResumeAfter, or when wake_fd (when
// >= 0) becomes readable.
void read_turns(kl_client *client, const std::vector<std::unique_ptr<ServerTurn>> &turns, bool may_leave,
                int wake_fd) {
  const auto idle_limit = std::chrono::milliseconds(client->connect_timeout_ms);
  auto read_count = [&turns] {
    return std::count_if(turns.begin(), turns.end(), [](const auto &t) { return t->read_all(); });
  };
  const auto read_before = read_count();
  std::vector<pollfd> fds;
  std::vector<ServerTurn *> polled;
  for (;;) {
    fds.clear();
    polled.clear();
    const Clock::time_point now = Clock::now();
    Clock::time_point wake_by = Clock::time_point::max();
    for (const auto &turn : turns) {
      ServerTurn &t = *turn;
      while (serve(t)) {
        const Clock::time_point until = std::min(t.last_input + idle_limit, t.current().call->deadline);
        if (until <= now) {
          mark_timed_out(t.server);
          end_batch(t, false);
          continue;
        }
        fds.push_back({t.server->ctx->fd, POLLIN, 0});
        polled.push_back(&t);
        wake_by = std::min(wake_by, until);
        break;
      }
    }
    if (fds.empty()) return;
    const bool calls_to_resume = may_leave && read_count() > read_before;
    if (fds.size() == 1 && !calls_to_resume && wake_fd < 0) {
      // One server to wait for: a read waits as a poll would (the socket's
      // time-out is armed within the same limits), a system call fewer.
      ServerTurn &t = *polled[0];
      if (receive_more(t.server))
        t.last_input = Clock::now();
      else
        end_batch(t, false);
      continue;
    }
    auto wait = std::chrono::ceil<std::chrono::milliseconds>(wake_by - now);
    const bool resume_after = calls_to_resume && wait > kResumeAfter;
    if (resume_after) wait = kResumeAfter;
    if (may_leave && wake_fd >= 0) fds.push_back({wake_fd, POLLIN, 0});
    const int rc = poll(fds.data(), fds.size(), static_cast<int>(std::min<long long>(wait.count(), INT_MAX)));
    if (rc < 0 && errno != EINTR) {
      // No way to wait: what is being read cannot be finished.
      for (ServerTurn *t : polled) end_batch(*t, false);
      continue;
    }
    if (rc == 0 && resume_after) return;
    const Clock::time_point read_at = Clock::now();
    for (size_t k = 0; rc > 0 && k < polled.size(); ++k) {
      if (fds[k].revents == 0) continue;
      ServerTurn &t = *polled[k];
      if (receive_more(t.server))
        t.last_input = read_at;
      else
        end_batch(t, false);
    }
    if (rc > 0 && polled.size() < fds.size() && fds.back().revents) {
      drain(wake_fd);
      return;  // new calls to take in
    }
  }
}

}  // namespace

ExchangeRound::ExchangeRound(kl_client *client, bool shared) : client_(client), shared_(shared) {}

void ExchangeRound::run(Batch *const *batches, size_t n, int wake_fd) {
  ++client_->exchange_round;
  std::vector<std::unique_ptr<ServerTurn>> fresh;
  for (size_t k = 0; k < n; ++k) {
    Batch &b = *batches[k];
    if (b.done || b.in_flight) continue;
    b.failed = b.too_large = false;
    b.replies.clear();
    if (b.size() == 0) {
      b.done = true;
      continue;
    }
    auto turn = std::find_if(fresh.begin(), fresh.end(), [&b](const auto &t) { return t->server == b.server; });
    if (turn == fresh.end()) {
      fresh.push_back(std::make_unique<ServerTurn>());
      turn = fresh.end() - 1;
      (*turn)->server = b.server;
    }
    (*turn)->batches.push_back(&b);
  }
  // A connection is made beside the round only when something else can go
  // on meanwhile.
  const bool aside = shared_ || fresh.size() + live_.size() > 1;
  std::vector<std::pair<ServerTurn *, size_t>> sends;  // turn, its first batch sent now
  for (auto &t : fresh) {
    auto behind = std::find_if(live_.begin(), live_.end(),
                               [&t](const auto &l) { return l->server == t->server && l->connected(); });
    if (behind != live_.end()) {
      // Replies are still being read on this connection: these go out
      // behind them and are read after them.
      ServerTurn &l = **behind;
      for (Batch *b : t->batches) exchange_queue(*b);
      sends.emplace_back(&l, l.batches.size());
      l.batches.insert(l.batches.end(), t->batches.begin(), t->batches.end());
      continue;
    }
    if (!start_turn(*t, aside)) continue;  // its server is being connected
    t->ctx = t->server->ctx;
    sends.emplace_back(t.get(), 0);
    live_.push_back(std::move(t));
  }
  for (auto [t, first] : sends) {
    for (size_t k = first; k < t->batches.size(); ++k) {
      exchange_send(*t->batches[k]);
      t->batches[k]->in_flight = true;
    }
  }
  // A server's wait starts once everything is written (a large batch takes
  // a while to write).
  const Clock::time_point sent = Clock::now();
  for (auto [t, first] : sends)
    if (first == 0) t->last_input = sent;
  read_turns(client_, live_, shared_, wake_fd);
  for (auto &t : live_) {
    if (!t->read_all()) continue;
    for (Batch *b : t->batches) {
      exchange_settle(*b);
      b->in_flight = false;
      b->done = true;
    }
  }
  live_.erase(std::remove_if(live_.begin(), live_.end(), [](const auto &t) { return t->read_all(); }), live_.end());
}

bool ExchangeRound::start_turn(ServerTurn &t, bool aside) {
  Server *s = t.server;
  CallContext &first_call = *t.batches[0]->call;
  if (s->connector) {
    if (!s->connector->done()) return false;
    const CallFailure failure = s->connector->failure();
    if (!finish_connector(s, nullptr)) {
      // Every call with work for it is told why.
      for (Batch *b : t.batches) {
        note_failure(*b->call, s, KL_FAILURE_CONNECTION, failure.text.empty() ? "connect failed" : failure.text);
        b->failed = true;
      }
      return true;
    }
  }
  if (s->exchange_round != client_->exchange_round && input_pending(s)) {
    // Replies nobody asked for (a server that answered twice) or a close
    // while idle: later replies would be matched to the wrong requests.
    log_event(client_, KL_LEVEL_WARNING, "%s sent what was not asked for; reconnecting", s->name.c_str());
    disconnect_server(s);
  }
  s->exchange_round = client_->exchange_round;
  if (aside && connect_would_wait(first_call, s) && Connector::start(first_call, s)) {
    if (std::find(connecting_.begin(), connecting_.end(), s) == connecting_.end()) connecting_.push_back(s);
    return false;
  }
  for (Batch *b : t.batches) exchange_queue(*b);
  return true;
}

bool ExchangeRound::connecting() const {
  return std::any_of(connecting_.begin(), connecting_.end(), [](const Server *s) { return s->connector != nullptr; });
}

bool ExchangeRound::wait_for_connection(int wake_fd) {
  connecting_.erase(std::remove_if(connecting_.begin(), connecting_.end(),
                                   [](const Server *s) { return s->connector == nullptr; }),
                    connecting_.end());
  std::vector<pollfd> fds;
  for (const Server *s : connecting_) fds.push_back({s->connector->ready_fd(), POLLIN, 0});
  if (fds.empty()) return true;
  if (wake_fd >= 0) fds.push_back({wake_fd, POLLIN, 0});
  // Each connector ends within its call's time.
  while (poll(fds.data(), fds.size(), -1) < 0 && errno == EINTR) {
  }
  for (const Server *s : connecting_)
    if (s->connector->done()) return true;
  if (wake_fd >= 0) drain(wake_fd);
  return false;
}

ExchangeRound::~ExchangeRound() {
  for (Server *s : connecting_)
    if (s->connector) finish_connector(s, nullptr);
}

void run_exchange(kl_client *client, Batch *batches, size_t n) {
  std::vector<Batch *> left(n);
  for (size_t k = 0; k < n; ++k) left[k] = &batches[k];
  ExchangeRound round(client, false);
  for (;;) {
    round.run(left.data(), left.size());
    left.erase(std::remove_if(left.begin(), left.end(), [](const Batch *b) { return b->done; }), left.end());
    if (left.empty()) return;
    round.wait_for_connection(-1);
  }
}

}  // namespace keyloom
