#include "collection_ops.h"

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

const redisReply *first_reply(Replies &replies) {
  return replies.empty() ? nullptr : replies.front().get();
}

}  // namespace

Command script_command(Script &script, std::initializer_list<std::string_view> keys,
                       const AppendArgs &append) {
  Command cmd;
  script_call(cmd, script, keys, {});
  if (append) append(cmd);
  return cmd;
}

std::vector<std::string> names_with_companions(const Key &key) {
  std::vector<std::string> names{std::string(key.view())};
  for (auto suffix : kCompanionSuffixes) names.push_back(companion(key, suffix));
  return names;
}

std::vector<Command> dump_commands(const std::vector<std::string> &names) {
  std::vector<Command> cmds;
  cmds.reserve(2 * names.size());
  for (const std::string &name : names) {
    cmds.emplace_back("DUMP").arg(name);
    cmds.emplace_back("PTTL").arg(name);
  }
  return cmds;
}

int restore_or_delete(Command &cmd, std::string_view name, const redisReply *dump, long long ttl_ms,
                      bool replace) {
  if (!dump_holds_key(dump)) {
    cmd.arg("DEL").arg(name);
    return REDIS_REPLY_INTEGER;
  }
  cmd.arg("RESTORE").arg(name).arg_int(ttl_ms).arg(dump->str, dump->len);
  if (replace) cmd.arg("REPLACE");
  return REDIS_REPLY_STATUS;
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
                        std::string_view name, size_t ttl, const AppendArgs &append,
                        const OnReply &on_reply) {
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

kl_return_t write_one(kl_client *client, Route route, Command cmd, const OnReply &on_reply) {
  std::vector<Command> cmds;
  cmds.push_back(std::move(cmd));
  return run_write(client, route, cmds,
                   [&](Replies &replies, bool fill) { return on_reply(first_reply(replies), fill); });
}

kl_return_t read_one(kl_client *client, Route route, Command cmd, const OnReply &on_reply) {
  std::vector<Command> cmds;
  cmds.push_back(std::move(cmd));
  return run_read(client, route, cmds,
                  [&](Replies &replies, bool fill) { return on_reply(first_reply(replies), fill); });
}

kl_return_t reply_done(const redisReply *reply, bool) {
  if (!reply) return KL_WRONG_REPLY;
  return reply->type == REDIS_REPLY_ERROR ? KL_SERVER_ERROR : KL_SUCCESS;
}

kl_return_t reply_flag(const redisReply *reply, kl_return_t when_zero) {
  long long v = 0;
  if (kl_return_t r = expect_type(reply, REDIS_REPLY_INTEGER)) return r;
  reply_integer(reply, &v);
  return v ? KL_SUCCESS : when_zero;
}

kl_return_t reply_value(const kl_client *client, const redisReply *reply, bool fill, char **out,
                        size_t *len) {
  if (!fill) return put_reply_string(client, reply, nullptr, nullptr);
  return put_reply_string(client, reply, out, len);
}

kl_return_t reply_array(const kl_client *client, const redisReply *reply, bool fill, char ***out,
                        size_t *count, size_t **lens) {
  if (kl_return_t r = expect_type(reply, REDIS_REPLY_ARRAY)) return r;
  if (reply->elements == 0) return KL_NOTFOUND;
  if (!fill) return KL_SUCCESS;
  return put_string_array(client, reply->element, reply->elements, out, count, lens);
}

bool entries_given(char *const *items, const size_t *lens, size_t count) {
  if (!items || !lens || count == 0) return false;
  for (size_t i = 0; i < count; ++i)
    if (!items[i]) return false;
  return true;
}

bool values_given(char *const *items, const size_t *lens, size_t count) {
  if (!items || !lens || count == 0) return false;
  for (size_t i = 0; i < count; ++i)
    if (!optional_bytes(items[i], lens[i])) return false;
  return true;
}

}  // namespace keyloom
