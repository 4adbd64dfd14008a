// EVALSHA calls; the runner loads scripts on each connection before first use
// and retries with EVAL when a server still answers NOSCRIPT.
#include <cstring>
#include <mutex>

#include "internal.h"
#include "sha1.h"

namespace keyloom {

namespace {
std::mutex digest_mutex;  // guards the lazy digest of shared Script objects
}

const std::string &script_digest(Script &script) {
  std::lock_guard<std::mutex> lock(digest_mutex);
  if (script.sha1.empty()) script.sha1 = sha1_hex(script.source, std::strlen(script.source));
  return script.sha1;
}

Command &script_call(Command &cmd, Script &script, std::initializer_list<std::string_view> keys,
                     std::initializer_list<std::string_view> args) {
  const std::string &sha = script_digest(script);
  cmd.set_script(&script, cmd.argc());
  cmd.arg("EVALSHA").arg(sha).arg_int(static_cast<long long>(keys.size()));
  for (auto k : keys) cmd.arg(k);
  for (auto a : args) cmd.arg(a);
  return cmd;
}

}  // namespace keyloom
