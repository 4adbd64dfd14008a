// Reading replies with a size limit. Every connection's reader builds its
// reply objects with the functions here: the same objects hiredis builds (freed
// with freeReplyObject), but each reply is charged for what it costs (objects,
// strings, element slots) and refused as soon as it would pass the client's
// maximum reply size, before the memory for it is taken. An array's element
// slots grow as its elements arrive, so a header announcing 2^31 elements
// costs nothing until the elements come; a bulk string's announced length is
// checked before the reader buffers its bytes.
#pragma once

#include <hiredis/hiredis.h>

#include <cstddef>

#include "internal.h"

namespace keyloom {

// The charge of the reply being read on one connection.
struct ReplyBudget {
  size_t limit = 0;      // bytes one reply may cost
  size_t used = 0;       // charged to the reply in progress
  bool exceeded = false;  // the reply in progress was refused
};

// Makes reader build budgeted reply objects, charged to budget (which must
// outlive the reader's use).
void attach_reply_budget(redisReader *reader, ReplyBudget *budget);

// The next reply of ctx, reading as needed (redisGetReply with the
// announced-size check between reads). read_more feeds ctx's reader from the
// connection and may refuse to (the call's time is up): a reply drip-fed a
// byte at a time, or reads cut short by signals, end there. False when none
// could be read: the connection failed, timed out, read_more refused, or the
// reply passed the budget (budget->exceeded is set then).
bool read_reply(redisContext *ctx, ReplyBudget *budget, void **reply,
                FunctionRef<bool()> read_more);

// The same in steps, for a connection fed by someone else (a round reading
// whichever server is ready): start_reply once per reply, then take_reply
// after each feed until it stops asking for more.
enum class ReplyStep { kReply, kMore, kFailed };
void start_reply(ReplyBudget *budget);
ReplyStep take_reply(redisContext *ctx, ReplyBudget *budget, void **reply);

}  // namespace keyloom
