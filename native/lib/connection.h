// One synchronous connection per server, opened lazily. A server that fails
// is marked down and not retried before the reconnect time-out; a fresh
// connection replays AUTH and SELECT and reads the server's version.
#pragma once

#include <string_view>
#include <utility>

#include "client.h"

namespace keyloom {

// True when server has a usable connection (opening it when needed, or
// waiting for the one being made beside a round).
bool connect_server(CallContext &call, Server *server);
// Opens server's connection in place (connect_server without a connector).
bool open_connection(CallContext &call, Server *server);
// True when a connection would have to be opened for call: server has none,
// is not skipped as down, and the call has time left.
bool connect_would_wait(const CallContext &call, const Server *server);
// Closes the connection and marks the server down until the reconnect
// time-out has passed; calls that skip it are told the call's failure on it,
// or why.
void mark_down(CallContext &call, Server *server, const char *why);
// A connection that broke while being set up (step: "AUTH", "SELECT", "INFO"):
// the call's failure is noted and the server dropped.
void lost_at_connect(CallContext &call, Server *server, const char *step);
// Closes the connection without marking the server down (waiting first for
// one being made beside a round).
void disconnect_server(Server *server);
// After a failed exchange: marks the server down, or only closes the
// connection when the wait was cut short by the call's deadline.
void drop_failed(CallContext &call, Server *server, const char *why);
// Milliseconds left before the call must return (0: none).
unsigned call_ms_left(const CallContext &call);
// Sets server's socket time-out to what the call may still wait (at most the
// client's time-out); false when no time is left.
bool arm_timeout(CallContext &call, Server *server);
// kl_auth's secret, "password" or "user\0password": {user, password}, with a
// null user.data() when there is no user.
std::pair<std::string_view, std::string_view> split_credentials(std::string_view secret);
// True when commands of Redis 6.2 and later may be sent to server.
bool accepts_v2_forms(const kl_client *client, const Server *server);

}  // namespace keyloom
