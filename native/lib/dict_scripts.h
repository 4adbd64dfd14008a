// Server-side scripts of the dictionary family. A dictionary <key> is a
// sorted set of its words, all at score 0 so that they sort in byte order and
// ZRANGEBYLEX finds a prefix, plus two hashes beside it:
// <key>::keyloom:dvals (word -> value) and <key>::keyloom:dwts (word -> weight).
#pragma once

#include "internal.h"

namespace keyloom {

// KEYS: index, values, weights. ARGV: ttl, weight, then word/value pairs.
// Returns how many words were new. Hashes left over from a dictionary that no
// longer exists (deleted, expired) are cleared first.
inline Script dict_add{R"lua(
if redis.call('EXISTS', KEYS[1]) == 0 then redis.call('DEL', KEYS[2], KEYS[3]) end
local added = 0
for i = 3, #ARGV, 2 do
  added = added + redis.call('ZADD', KEYS[1], 0, ARGV[i])
  redis.call('HSET', KEYS[2], ARGV[i], ARGV[i + 1])
  redis.call('HSET', KEYS[3], ARGV[i], ARGV[2])
end
if ARGV[1] ~= '0' then
  for _, key in ipairs(KEYS) do redis.call('EXPIRE', key, ARGV[1]) end
end
return added
)lua", {}};

}  // namespace keyloom
