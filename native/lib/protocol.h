// The protocol on one connection: a batch's commands queued in the
// connection's output buffer (scripts loaded ahead, the newer command forms
// where the server takes them), replies read one at a time, and a script
// the server lost run again as EVAL. Callers hold the client lock.
#pragma once

#include "exchange.h"

namespace keyloom {

// Queues every command of b on its server's connection; false when out of memory.
bool append(const kl_client *client, Batch &b);
// The next reply of server's connection, within its reply budget and the
// call's time: every read waits at most what the call has left.
bool read_next(CallContext &call, Server *server, void **reply);
bool read_next(CallContext &call, Server *server, Reply *out);
// A NOSCRIPT error reply: the server does not have the script (any more).
bool is_noscript(const redisReply *r);
// Runs command i of b again as EVAL, its reply replacing the NOSCRIPT one.
bool retry_as_eval(Batch &b, size_t i);
// One command on its own: sent, and its reply read within the call's time.
// False when the connection failed first (*out is empty then).
bool round_trip(CallContext &call, Server *server, int argc, const char **argv, const size_t *lens,
                Reply *out);

}  // namespace keyloom
