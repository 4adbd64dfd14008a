// A connection made on a thread of its own: the name looked up, the socket
// connected, TLS, and the state replayed at connect (AUTH, SELECT, INFO). A
// round that meets a server without a connection makes it here, so that a
// server slow to connect (or a resolver slow to answer) holds none of the
// round's work on other servers.
//
// The thread works on a server record of its own, never on the client's:
// the round goes on reading and changing the client's servers meanwhile.
// finish_connector, on the round's thread, hands what it made to the
// server. The connector belongs to its server (Server::connector) until
// then; whoever needs the server's connection earlier waits for it
// (connect_server, disconnect_server).
#pragma once

#include <atomic>
#include <thread>

#include "client.h"

namespace keyloom {

class Connector {
 public:
  // Starts connecting server within call's time and hands the connector to
  // the server; false when no thread could be had (the caller connects in
  // place then).
  static bool start(const CallContext &call, Server *server);
  ~Connector();  // waits for the thread; closes a connection never handed over

  Connector(const Connector &) = delete;
  Connector &operator=(const Connector &) = delete;

  // Readable once the connection is made or has failed.
  int ready_fd() const { return ready_fd_; }
  bool done() const { return done_.load(std::memory_order_acquire); }
  // The failure met on the way; read it once done.
  const CallFailure &failure() const { return context_.failure; }

 private:
  friend bool finish_connector(Server *server, CallContext *call);
  Connector(const CallContext &call, const Server &server, int ready_fd);
  void wait();

  // What the thread connects: the server's address, and what it learns.
  Server connection_;
  // The thread's own call context: the round goes on changing the call's
  // (deadline, failures) meanwhile.
  CallContext context_;
  int ready_fd_;
  std::atomic<bool> done_{false};
  bool connected_ = false;
  std::thread thread_;
};

// Waits for the connection being made for server beside a round, hands it
// to the server (or marks the server down as the connector did), gives call
// (when not null) the failure met unless the call has one, and forgets the
// connector. Says whether server is connected.
bool finish_connector(Server *server, CallContext *call);

}  // namespace keyloom
