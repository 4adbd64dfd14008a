#include "one_command.h"

#include <chrono>
#include <climits>

#include "companions.h"

namespace keyloom {
namespace {

// KEYS: the written key, then the keys whose TTL follows it (its companions).
// ARGV: ttl, command name, the command's arguments after the key.
// Arguments go in slices of 1000 (an even number, so field/value and
// score/member pairs stay together) because unpack() has a stack limit; the
// reply is the last slice's. redis.call raises on an error reply, so a refused
// write never reaches EXPIRE.
Script write_then_expire{R"lua(
local reply
for i = 3, math.max(#ARGV, 3), 1000 do
  reply = redis.call(ARGV[2], KEYS[1], unpack(ARGV, i, math.min(i + 999, #ARGV)))
end
for _, key in ipairs(KEYS) do redis.call('EXPIRE', key, ARGV[1]) end
return reply
)lua", {}};

redisReply *first_reply(Replies &replies) {
  return replies.empty() ? nullptr : replies.front().get();
}

}  // namespace

Command script_command(Script &script, std::initializer_list<std::string_view> keys) {
  Command cmd;
  script_call(cmd, script, keys, {});
  return cmd;
}

Command script_command(Script &script, std::initializer_list<std::string_view> keys,
                       AppendArgs append) {
  Command cmd = script_command(script, keys);
  append(cmd);
  return cmd;
}

Command script_with_companions(Script &script, std::initializer_list<std::reference_wrapper<const Key>> keys) {
  Command cmd;
  cmd.set_script(&script, 0);
  cmd.arg("EVALSHA").arg(script_digest(script)).arg_int(static_cast<long long>(keys.size() * (1 + kCompanionCount)));
  for (const Key &key : keys) {
    cmd.arg(key.view());
    for (auto suffix : kCompanionSuffixes) cmd.arg_owned(companion(key, suffix));
  }
  return cmd;
}

kl_return_t write_keyed(kl_client *client, Route route, std::initializer_list<std::string_view> keys,
                        std::string_view name, size_t ttl, AppendArgs append, OnReply on_reply) {
  if (ttl == 0) {
    Command cmd(name);
    cmd.arg(*keys.begin());
    append(cmd);
    return write_one(client, route, std::move(cmd), on_reply);
  }
  Command cmd = script_command(write_then_expire, keys, [&](Command &c) {
    c.arg_int(static_cast<long long>(ttl)).arg(name);
    append(c);
  });
  return write_one(client, route, std::move(cmd), on_reply);
}

bool ttl_ok(size_t ttl) {
  const long long now_ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                               std::chrono::system_clock::now().time_since_epoch())
                               .count();
  // A minute of slack for the server's clock being ahead of ours.
  const unsigned long long limit = (static_cast<unsigned long long>(LLONG_MAX) -
                                    static_cast<unsigned long long>(now_ms) - 60'000ULL) /
                                   1000ULL;
  return ttl <= limit;
}

kl_return_t write_one(kl_client *client, Route route, Command cmd, OnReply on_reply) {
  return run_write(client, route, &cmd, 1,
                   [&](Replies &replies, bool fill) { return on_reply(first_reply(replies), fill); });
}

kl_return_t read_one(kl_client *client, Route route, Command cmd, OnReply on_reply) {
  return run_read(client, route, &cmd, 1,
                  [&](Replies &replies, bool fill) { return on_reply(first_reply(replies), fill); });
}

}  // namespace keyloom
