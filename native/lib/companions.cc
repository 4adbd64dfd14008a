#include "companions.h"

namespace keyloom {

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

}  // namespace keyloom
