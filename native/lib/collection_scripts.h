// Server-side scripts shared by the set, sorted-set and dictionary families:
// a collection and the hashes beside it (member values, word weights) change
// together in one atomic step. A script raises on the first error reply
// (wrong type), before anything is written.
#pragma once

#include "internal.h"

namespace keyloom {

// KEYS: the set or sorted set, its values hash.
// ARGV: ttl, 'SADD' or 'ZADD', '1' when values follow (else '0'), then per
// member: [score,] member[, value]. An empty value means "no value" and drops
// any old one; without values, existing values stay. A values hash left over
// from a collection that no longer exists (deleted, expired) is cleared
// first. Returns how many members were new.
inline Script add_with_values{R"lua(
local width = ARGV[2] == 'ZADD' and 2 or 1
local with_values = ARGV[3] == '1'
if redis.call('EXISTS', KEYS[1]) == 0 then redis.call('DEL', KEYS[2]) end
local added = 0
for i = 4, #ARGV, width + (with_values and 1 or 0) do
  added = added + redis.call(ARGV[2], KEYS[1], unpack(ARGV, i, i + width - 1))
  if with_values then
    local member, value = ARGV[i + width - 1], ARGV[i + width]
    if value == '' then redis.call('HDEL', KEYS[2], member)
    else redis.call('HSET', KEYS[2], member, value) end
  end
end
if ARGV[1] ~= '0' then
  for _, key in ipairs(KEYS) do redis.call('EXPIRE', key, ARGV[1]) end
end
return added
)lua", {}};

// KEYS: the collection, then the hashes holding data per member.
// ARGV: 'SREM' or 'ZREM', the members. Returns how many were members.
inline Script remove_with_values{R"lua(
local removed = 0
for i = 2, #ARGV, 1000 do
  local last = math.min(i + 999, #ARGV)
  removed = removed + redis.call(ARGV[1], KEYS[1], unpack(ARGV, i, last))
  for k = 2, #KEYS do redis.call('HDEL', KEYS[k], unpack(ARGV, i, last)) end
end
return removed
)lua", {}};

// KEYS: the sorted set, its values hash.
// ARGV: ttl, 'ZRANGE' or 'ZRANGEBYSCORE', the two bounds. Removes the
// members in that range with their values; returns how many.
inline Script remove_range_with_values{R"lua(
local doomed = redis.call(ARGV[2], KEYS[1], ARGV[3], ARGV[4])
for i = 1, #doomed, 1000 do
  local last = math.min(i + 999, #doomed)
  redis.call('ZREM', KEYS[1], unpack(doomed, i, last))
  redis.call('HDEL', KEYS[2], unpack(doomed, i, last))
end
if ARGV[1] ~= '0' then
  for _, key in ipairs(KEYS) do redis.call('EXPIRE', key, ARGV[1]) end
end
return #doomed
)lua", {}};

// KEYS: the collection, then hashes to read per member.
// ARGV: stride, a range command, its arguments after the key.
// Returns {range reply, values from KEYS[2], values from KEYS[3], ...}, the
// values aligned with the members (every stride-th element of the range,
// so that member/score replies work too); nil where a hash has no entry.
inline Script read_with_values{R"lua(
local range = redis.call(ARGV[2], KEYS[1], unpack(ARGV, 3))
local members = {}
for i = 1, #range, tonumber(ARGV[1]) do members[#members + 1] = range[i] end
local result = {range}
for k = 2, #KEYS do
  local values = {}
  for i = 1, #members, 1000 do
    local part = redis.call('HMGET', KEYS[k], unpack(members, i, math.min(i + 999, #members)))
    for j = 1, #part do values[#values + 1] = part[j] end
  end
  result[#result + 1] = values
end
return result
)lua", {}};

// Whole-key commands that carry the companion keys along, so that deleting
// or expiring a collection leaves no values hash behind.

// KEYS: the key, then its companion keys. Returns 1 when the key existed
// (DEL's count for the key alone).
inline Script del_with_companions{R"lua(
local existed = redis.call('DEL', KEYS[1])
redis.call('DEL', unpack(KEYS, 2))
return existed
)lua", {}};

// KEYS: the key, then its companion keys. ARGV[1]: seconds, or '0' to remove
// the time to live. Returns 0 (and changes nothing) when the key does not
// exist, else 1.
inline Script expire_with_companions{R"lua(
if redis.call('EXISTS', KEYS[1]) == 0 then return 0 end
for _, key in ipairs(KEYS) do
  if ARGV[1] == '0' then redis.call('PERSIST', key) else redis.call('EXPIRE', key, ARGV[1]) end
end
return 1
)lua", {}};

// KEYS: the source key and its companion keys, then the destination key and
// its companion keys (as many). ARGV[1]: 'RENAME' or 'RENAMENX'. Answers as
// that command does; the companions follow the key, and a destination's own
// companions go when the source has none to replace them.
inline Script rename_with_companions{R"lua(
local n = #KEYS / 2
local reply = redis.pcall(ARGV[1], KEYS[1], KEYS[n + 1])
if type(reply) == 'table' and reply.err then return reply end
if reply == 0 then return 0 end
for i = 2, n do
  if redis.call('EXISTS', KEYS[i]) == 1 then redis.call('RENAME', KEYS[i], KEYS[n + i])
  else redis.call('DEL', KEYS[n + i]) end
end
return reply
)lua", {}};

// KEYS: the key, then its companion keys. ARGV[1]: the target database.
// Returns -1 when the key does not exist, 0 when the target database already
// holds it (nothing moves), else 1. The companions travel as DUMP/RESTORE
// with REPLACE, so that ones left in the target database by a collection
// that is gone there are replaced, and the script never has to SELECT its
// way back.
inline Script move_with_companions{R"lua(
if redis.call('EXISTS', KEYS[1]) == 0 then return -1 end
if redis.call('MOVE', KEYS[1], ARGV[1]) == 0 then return 0 end
local dumped = {}
for i = 2, #KEYS do
  local payload = redis.call('DUMP', KEYS[i])
  if payload then
    dumped[i] = {payload, math.max(redis.call('PTTL', KEYS[i]), 0)}
    redis.call('DEL', KEYS[i])
  end
end
redis.call('SELECT', ARGV[1])
for i = 2, #KEYS do
  if dumped[i] then redis.call('RESTORE', KEYS[i], dumped[i][2], dumped[i][1], 'REPLACE')
  else redis.call('DEL', KEYS[i]) end
end
return 1
)lua", {}};

}  // namespace keyloom
