// Moving bytes between a server's connection and its buffers: the socket
// itself, or a TLS session over it. Everything above (queueing commands,
// parsing replies) works on the hiredis context's buffers either way.
#pragma once

#include "client.h"

namespace keyloom {

// Writes everything queued in server's output buffer. False when the
// connection broke or the socket's time-out passed (ctx->err and errno say
// which, as hiredis reports its own failures).
bool send_queued(Server *server);
// Reads what the server has sent into the connection's reader, waiting at
// most the socket's time-out. False as for send_queued.
bool receive_more(Server *server);
// True when server's open connection has input nobody asked for: a reply left
// in the reader, or bytes (or the server's close) waiting before anything
// was sent. Such a stream is out of step with its requests.
bool input_pending(Server *server);
// True when bytes already received for server wait to be fed to its reader
// (decrypted TLS data): a wait for the socket to be readable would miss them.
bool has_buffered_input(const Server *server);
// Records on server's connection that a wait for its reply timed out, as a
// socket time-out would have.
void mark_timed_out(Server *server);

}  // namespace keyloom
