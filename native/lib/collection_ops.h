// What the list, set, sorted-set, hash and dictionary families share: the
// names of the companion keys that hold member values, writes that set a TTL
// in the same round trip, one-reply reads, and argument checks.
#pragma once

#include <cmath>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "internal.h"

namespace keyloom {

// Companion keys live beside the main key under these suffixes: same
// logical-database prefix, and always routed by the main key, so they share
// its server and one script can update both.
inline constexpr std::string_view kSetValuesSuffix = "::keyloom:svals";    // hash member -> value
inline constexpr std::string_view kZsetValuesSuffix = "::keyloom:zvals";   // hash member -> value
inline constexpr std::string_view kDictValuesSuffix = "::keyloom:dvals";   // hash word -> value
inline constexpr std::string_view kDictWeightsSuffix = "::keyloom:dwts";   // hash word -> weight

inline constexpr std::string_view kCompanionSuffixes[] = {kSetValuesSuffix, kZsetValuesSuffix,
                                                         kDictValuesSuffix, kDictWeightsSuffix};
inline constexpr size_t kCompanionCount = std::size(kCompanionSuffixes);

inline std::string companion(const Key &key, std::string_view suffix) {
  std::string name(key.view());
  name += suffix;
  return name;
}

// True for a companion key's name: the library's own bookkeeping, which
// listings of the user's keys (kl_keys, kl_randomkey) leave out.
inline bool is_companion_name(std::string_view name) {
  for (auto suffix : kCompanionSuffixes) {
    if (name.size() >= suffix.size() && name.substr(name.size() - suffix.size()) == suffix) return true;
  }
  return false;
}

// The key's name, then its companions' names: what a rename, a move or a
// repair carries as one unit.
std::vector<std::string> names_with_companions(const Key &key);

// Copying keys between servers or groups by DUMP/RESTORE (cross-server
// rename, read repair). The probe: DUMP and PTTL of each name, in that order;
// the commands borrow the names.
std::vector<Command> dump_commands(const std::vector<std::string> &names);
// Whether a DUMP reply holds a key (nil: there is none).
inline bool dump_holds_key(const redisReply *dump) {
  return dump && dump->type == REDIS_REPLY_STRING;
}
// Makes `name` hold what `dump` held: RESTORE name ttl_ms payload [REPLACE],
// or DEL name when the dump found no key, so that nothing stale stays.
// Returns the type of the reply the command answers with when it succeeds.
// The command borrows name and the dump's payload.
int restore_or_delete(Command &cmd, std::string_view name, const redisReply *dump, long long ttl_ms,
                      bool replace);

// Interprets the one reply that matters to a call (see run_write's `fill`).
using OnReply = std::function<kl_return_t(const redisReply *reply, bool fill)>;
// Appends a command's arguments after its key.
using AppendArgs = std::function<void(Command &cmd)>;

// A TTL the server accepts as EXPIRE seconds (it refuses values whose
// milliseconds would overflow); checked before anything is sent.
inline bool ttl_ok(size_t ttl) { return ttl <= 1'000'000'000'000'000ULL; }

// `name key args...` on the route's server in every group. With ttl > 0 it
// runs as one script that makes the write and then sets the TTL on every key in
// `keys` (the main key first, then its companions), so a refused write
// (wrong type) leaves the TTL alone. on_reply sees the command's own reply.
kl_return_t write_keyed(kl_client *client, Route route, std::initializer_list<std::string_view> keys,
                        std::string_view name, size_t ttl, const AppendArgs &append,
                        const OnReply &on_reply);

// `script` with KEYS: each key followed by all its companion keys; ARGV may
// be appended. The keys must outlive the command (their names are not copied).
Command script_with_companions(Script &script, std::initializer_list<std::reference_wrapper<const Key>> keys);

// A script whose first KEYS are `keys` and whose ARGV are appended by append.
Command script_command(Script &script, std::initializer_list<std::string_view> keys,
                       const AppendArgs &append = {});

// Runs one command (a write: every group; a read: the first group up) and
// hands its reply to on_reply.
kl_return_t write_one(kl_client *client, Route route, Command cmd, const OnReply &on_reply);
kl_return_t read_one(kl_client *client, Route route, Command cmd, const OnReply &on_reply);

// ---- Common reply shapes ---------------------------------------------------

// Any non-error reply is success.
kl_return_t reply_done(const redisReply *reply, bool fill);
// An integer into *out (when both fill and out); an error reply is KL_SERVER_ERROR.
template <class T>
kl_return_t reply_count(const redisReply *reply, bool fill, T *out) {
  long long v = 0;
  if (kl_return_t r = expect_type(reply, REDIS_REPLY_INTEGER)) return r;
  reply_integer(reply, &v);
  if (fill && out) *out = static_cast<T>(v);
  return KL_SUCCESS;
}
// 1 is success, 0 is `when_zero` (KL_NOTFOUND, KL_ALREADY_EXISTS ...).
kl_return_t reply_flag(const redisReply *reply, kl_return_t when_zero);
// One value into *out / *len; nil is KL_NOTFOUND.
kl_return_t reply_value(const kl_client *client, const redisReply *reply, bool fill, char **out,
                        size_t *len);
// An array of values into the cells; an empty array is KL_NOTFOUND (an empty
// list, set or hash does not exist on the server).
kl_return_t reply_array(const kl_client *client, const redisReply *reply, bool fill, char ***out,
                        size_t *count, size_t **lens);

// ---- Argument checks -------------------------------------------------------

// A byte string the call needs: a null pointer is refused even with length 0.
inline bool given(const void *p) { return p != nullptr; }
// An optional byte string: null is fine only with length 0.
inline bool optional_bytes(const char *p, size_t len) { return p || len == 0; }
inline const char *or_empty(const char *p) { return p ? p : ""; }
// count entries whose pointers and lengths are all there.
bool entries_given(char *const *items, const size_t *lens, size_t count);
// count values: the arrays are there; an element may be null with length 0.
bool values_given(char *const *items, const size_t *lens, size_t count);
inline bool score_ok(double v) { return !std::isnan(v); }

// Sets each output cell that is not null to its empty value (null pointer,
// zero count), so that a failed call leaves nothing stale behind.
template <class... T>
void clear_cells(T *...cells) {
  ((cells ? (void)(*cells = T{}) : (void)0), ...);
}

}  // namespace keyloom
