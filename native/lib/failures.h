// Why the last call failed: the first failure a call meets (a connection that
// could not be made or was lost, a reply that did not come, a server's error
// reply), with the server it came from. Kept in the call's context, and on the
// client once the call ends, for kl_last_failure_kind/_server/_text. Never holds a password: the
// texts are the system's and the server's own, and AUTH is never echoed.
#pragma once

#include <string_view>

#include "client.h"

namespace keyloom {

// Records a failure of `server` for the call, unless the call has one
// already. kind: KL_FAILURE_CONNECTION or KL_FAILURE_SERVER_REPLY.
void note_failure(CallContext &call, const Server *server, int kind, std::string_view text);

// The cause of a connection failure, as "<call> <ERRNO>" (connect ECONNREFUSED)
// or the library's text when errno does not say it.
std::string describe_io_failure(const char *call, const redisContext *ctx);

// Why a read from server's connection failed: "no reply in N ms" for a
// time-out, "connection closed by the server", or the system's text.
std::string describe_read_failure(const Server *server);

}  // namespace keyloom
