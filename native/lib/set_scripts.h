// Server-side scripts of the set family (see collection_scripts.h).
#pragma once

#include "internal.h"

namespace keyloom {

// KEYS: the set, its values hash. ARGV: ttl, the members.
// Replaces the set by the members (none: the set is deleted), without values.
inline Script replace_set{R"lua(
redis.call('DEL', KEYS[1], KEYS[2])
for i = 2, #ARGV, 1000 do
  redis.call('SADD', KEYS[1], unpack(ARGV, i, math.min(i + 999, #ARGV)))
end
if ARGV[1] ~= '0' and #ARGV > 1 then redis.call('EXPIRE', KEYS[1], ARGV[1]) end
return #ARGV - 1
)lua", {}};

}  // namespace keyloom
