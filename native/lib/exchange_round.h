// The exchanges of a round: the batches of one call, or of every call a
// pipeline runs together. Each server gets its batches queued and sent in one
// write; replies are read from whichever server has them ready (poll), each
// server's in the order its commands went out. A server that needs a new
// connection is connected beside the round (connector.h) when the round has
// other work to do meanwhile: its batches wait for it (neither done nor in
// flight), and the rest go ahead.
#pragma once

#include <memory>
#include <vector>

#include "client.h"
#include "exchange.h"

namespace keyloom {

struct ServerTurn;

class ExchangeRound {
 public:
  // shared: the round runs the calls of a pipeline, whose other calls must
  // never wait for a server's connect or a slow server's replies; otherwise
  // connections are made beside the round only when it has other servers
  // to serve meanwhile, and every reply is read before run() returns.
  ExchangeRound(kl_client *client, bool shared);
  // Waits for the connections still being made: a connector never outlives
  // the round (and the client lock the round is under).
  ~ExchangeRound();

  ExchangeRound(const ExchangeRound &) = delete;
  ExchangeRound &operator=(const ExchangeRound &) = delete;

  // Sends the batches not done or sent yet and reads replies. Each batch
  // ends done (with its replies, or failed), awaiting its server's
  // connection (neither done nor in flight) or, in a shared round, still in
  // flight (b.in_flight: its server has not answered yet, while other calls'
  // replies are all read); a later run() goes on reading it. A shared round
  // also returns when wake_fd (when >= 0) becomes readable.
  void run(Batch *const *batches, size_t n, int wake_fd = -1);
  // True while connections are being made beside the round.
  bool connecting() const;
  // True while batches sent by the round wait for their replies.
  bool reading() const { return !live_.empty(); }
  // Waits until a connection being made is ready (true), or until wake_fd
  // (when >= 0) is readable, which it then drains (false).
  bool wait_for_connection(int wake_fd);

 private:
  // Queues the turn's batches on their server's connection, or fails them
  // when it could not be made; false when they wait for a connection being
  // made beside the round.
  bool start_turn(ServerTurn &turn, bool aside);

  kl_client *client_;
  bool shared_;
  std::vector<Server *> connecting_;  // servers whose connector this round started
  std::vector<std::unique_ptr<ServerTurn>> live_;  // turns with replies still to read
};

// Runs batches as one round, for the call in progress on this thread.
void run_exchange(kl_client *client, Batch *batches, size_t n);

}  // namespace keyloom
