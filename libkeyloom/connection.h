// One synchronous connection per server, opened lazily. A server that fails
// is marked down and not retried before the reconnect time-out; a fresh
// connection replays AUTH and SELECT and reads the server's version.
#pragma once

#include "client.h"

namespace keyloom {

// True when server has a usable connection (opening it when needed).
bool connect_server(kl_client *client, Server *server);
// Closes the connection and marks the server down until the reconnect
// time-out has passed.
void mark_down(kl_client *client, Server *server, const char *why);
// Closes the connection without marking the server down.
void disconnect_server(Server *server);
// True when commands of Redis 6.2 and later may be sent to server.
bool accepts_v2_forms(const kl_client *client, const Server *server);

}  // namespace keyloom
