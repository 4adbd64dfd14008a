// Companion keys: the keys beside a collection's key that hold its member
// values and word weights, and carrying a key with its companions as one unit
// (rename, move, repair) by DUMP and RESTORE.
#pragma once

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

}  // namespace keyloom
