// Running one command of a family: the reply callback every family uses, the
// write that sets a TTL in the same round trip, and the scripts over a key and
// its companions.
#pragma once

#include <functional>
#include <initializer_list>
#include <string_view>

#include "internal.h"

namespace keyloom {

// Interprets the one reply of a call's command (see run_write's `fill`: only
// the server whose answer the caller gets may write the caller's cells). The
// reply may be taken apart (a string handed over to the caller).
using OnReply = FunctionRef<kl_return_t(redisReply *reply, bool fill)>;
// Appends a command's arguments after its key.
using AppendArgs = FunctionRef<void(Command &cmd)>;

// A TTL the server accepts as EXPIRE seconds: it refuses one whose expiry
// time, now plus the TTL in milliseconds, would pass the largest 64-bit
// integer. Checked before anything is sent.
bool ttl_ok(size_t ttl);

// Runs one command (a write: every group; a read: the first group up) and
// hands its reply to on_reply. Nothing is allocated for the call itself.
kl_return_t write_one(kl_client *client, Route route, Command cmd, OnReply on_reply);
kl_return_t read_one(kl_client *client, Route route, Command cmd, OnReply on_reply);

// `name key args...` on the route's server in every group. With ttl > 0 it
// runs as one script that makes the write and then sets the TTL on every key in
// `keys` (the main key first, then its companions), so a refused write
// (wrong type) leaves the TTL alone. on_reply sees the command's own reply.
kl_return_t write_keyed(kl_client *client, Route route, std::initializer_list<std::string_view> keys,
                        std::string_view name, size_t ttl, AppendArgs append, OnReply on_reply);

// `script` with KEYS: each key followed by all its companion keys; ARGV may
// be appended. The keys must outlive the command (their names are not copied).
Command script_with_companions(Script &script, std::initializer_list<std::reference_wrapper<const Key>> keys);

// A script whose first KEYS are `keys` and whose ARGV are appended by append.
Command script_command(Script &script, std::initializer_list<std::string_view> keys);
Command script_command(Script &script, std::initializer_list<std::string_view> keys,
                       AppendArgs append);

}  // namespace keyloom
