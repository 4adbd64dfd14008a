// Server-side scripts of the sorted-set family (see collection_scripts.h).
#pragma once

#include "internal.h"

namespace keyloom {

// KEYS: the sorted set, its values hash. ARGV: score, member, value, ttl.
// Adds the member, or raises its score when the new one is higher, and then
// sets its value (an empty value drops it). Returns 1 when written, 0 when
// the member already had a score at least as high (nothing changes).
inline Script zadd_value_max{R"lua(
local current = redis.call('ZSCORE', KEYS[1], ARGV[2])
if current and tonumber(current) >= tonumber(ARGV[1]) then return 0 end
if redis.call('EXISTS', KEYS[1]) == 0 then redis.call('DEL', KEYS[2]) end
redis.call('ZADD', KEYS[1], ARGV[1], ARGV[2])
if ARGV[3] == '' then redis.call('HDEL', KEYS[2], ARGV[2])
else redis.call('HSET', KEYS[2], ARGV[2], ARGV[3]) end
if ARGV[4] ~= '0' then
  for _, key in ipairs(KEYS) do redis.call('EXPIRE', key, ARGV[4]) end
end
return 1
)lua", {}};

// KEYS: the sorted set, its values hash. ARGV: score, member, lowest,
// highest, ttl. Removes the other members scored in [lowest, highest] (with
// their values), then adds member at score. Returns the first member removed
// (lowest score) or nil.
inline Script zadd_displacing{R"lua(
local near = redis.call('ZRANGEBYSCORE', KEYS[1], ARGV[3], ARGV[4])
if redis.call('EXISTS', KEYS[1]) == 0 then redis.call('DEL', KEYS[2]) end
local first = false
for _, member in ipairs(near) do
  if member ~= ARGV[2] then
    redis.call('ZREM', KEYS[1], member)
    redis.call('HDEL', KEYS[2], member)
    if not first then first = member end
  end
end
redis.call('ZADD', KEYS[1], ARGV[1], ARGV[2])
if ARGV[5] ~= '0' then
  for _, key in ipairs(KEYS) do redis.call('EXPIRE', key, ARGV[5]) end
end
return first
)lua", {}};

}  // namespace keyloom
