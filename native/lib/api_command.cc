// Any command: kl_command sends a request the caller wrote (a RESP array of
// bulk strings) and hands back the server's reply re-written as RESP.
#include <cctype>
#include <charconv>
#include <cstring>
#include <string>
#include <string_view>

#include "command_kit.h"
#include "exchange.h"
#include "failures.h"

namespace keyloom {

namespace {

// A RESP integer line at p ("123\r\n"), advancing p; false when malformed.
bool read_count(const char *&p, const char *end, size_t *out) {
  const char *line_end = static_cast<const char *>(std::memchr(p, '\r', static_cast<size_t>(end - p)));
  if (!line_end || line_end + 1 >= end || line_end[1] != '\n' || line_end == p) return false;
  auto [stop, err] = std::from_chars(p, line_end, *out);
  if (err != std::errc() || stop != line_end) return false;
  p = line_end + 2;
  return true;
}

// The arguments of request, "*N\r\n" then N "$len\r\n<bytes>\r\n", pointing
// into it; false unless request is exactly that.
bool parse_request(const char *request, size_t len, Command *cmd) {
  const char *p = request;
  const char *end = request + len;
  size_t count = 0;
  if (p == end || *p++ != '*' || !read_count(p, end, &count) || count == 0) return false;
  cmd->reserve(count);
  for (size_t i = 0; i < count; ++i) {
    size_t n = 0;
    if (p == end || *p++ != '$' || !read_count(p, end, &n)) return false;
    if (static_cast<size_t>(end - p) < n + 2 || p[n] != '\r' || p[n + 1] != '\n') return false;
    cmd->arg(p, n);
    p += n + 2;
  }
  return p == end;
}

// reply as RESP, appended to out.
void write_resp(const redisReply *reply, std::string *out) {
  switch (reply->type) {
    case REDIS_REPLY_STRING:
      *out += '$';
      *out += std::to_string(reply->len);
      *out += "\r\n";
      out->append(reply->str, reply->len);
      *out += "\r\n";
      return;
    case REDIS_REPLY_STATUS:
    case REDIS_REPLY_ERROR:
      *out += reply->type == REDIS_REPLY_STATUS ? '+' : '-';
      // A line of its own: a line break inside would end it early.
      for (size_t i = 0; i < reply->len; ++i) *out += (reply->str[i] == '\r' || reply->str[i] == '\n') ? ' ' : reply->str[i];
      *out += "\r\n";
      return;
    case REDIS_REPLY_INTEGER:
      *out += ':';
      *out += std::to_string(reply->integer);
      *out += "\r\n";
      return;
    case REDIS_REPLY_ARRAY:
      *out += '*';
      *out += std::to_string(reply->elements);
      *out += "\r\n";
      for (size_t i = 0; i < reply->elements; ++i) write_resp(reply->element[i], out);
      return;
    default:  // nil
      *out += "$-1\r\n";
  }
}

// The route's keys of a script call (EVAL script numkeys key ...): every one
// must be on the route's server in each group.
bool keys_meet(kl_client *client, const Command &cmd, Route route, std::string *why) {
  Command &c = const_cast<Command &>(cmd);
  if (c.argc() < 3) return true;
  size_t numkeys = 0;
  const char *n = c.argv()[2];
  auto [stop, err] = std::from_chars(n, n + c.argvlen()[2], numkeys);
  if (err != std::errc() || stop != n + c.argvlen()[2] || numkeys > static_cast<size_t>(c.argc() - 3)) {
    *why = "the number of keys is not a count of the keys that follow";
    return false;
  }
  for (auto &g : client->groups) {
    if (g->servers.empty()) continue;
    const size_t home = g->continuum.server_for(route.data, route.len);
    for (size_t i = 0; i < numkeys; ++i) {
      const size_t at = 3 + i;
      if (g->continuum.server_for(c.argv()[at], c.argvlen()[at]) != home) {
        *why = "keys " + std::string(route.data, route.len) + " and " + std::string(c.argv()[at], c.argvlen()[at]) +
               " are on different servers (a hash tag keeps keys together)";
        return false;
      }
    }
  }
  return true;
}

// At most this many caller scripts are kept per client; later ones run as sent.
constexpr size_t kMaxCallerScripts = 256;

bool named(const Command &cmd, size_t i, std::string_view name) {
  Command &c = const_cast<Command &>(cmd);
  if (static_cast<size_t>(c.argc()) <= i || c.argvlen()[i] != name.size()) return false;
  for (size_t k = 0; k < name.size(); ++k)
    if (std::toupper(static_cast<unsigned char>(c.argv()[i][k])) != name[k]) return false;
  return true;
}

// The kept script of source (kept now, when there is room), or null.
Script *keep_script(kl_client *client, std::string_view source) {
  if (source.find('\0') != std::string_view::npos) return nullptr;  // the protocol's EVAL retry takes C text
  CallerScript entry;
  entry.source.assign(source);
  entry.script = std::make_unique<Script>(Script{entry.source.c_str(), {}});
  const std::string sha = script_digest(*entry.script);
  auto found = client->caller_scripts.find(sha);
  if (found != client->caller_scripts.end()) return found->second.script.get();
  if (client->caller_scripts.size() >= kMaxCallerScripts) return nullptr;
  auto &kept = client->caller_scripts[sha] = std::move(entry);
  kept.script->source = kept.source.c_str();  // the string moved with its entry
  return kept.script.get();
}

Script *known_script(kl_client *client, std::string_view sha) {
  std::string lower(sha);
  for (char &ch : lower) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
  auto found = client->caller_scripts.find(lower);
  return found == client->caller_scripts.end() ? nullptr : found->second.script.get();
}

// EVAL and EVALSHA of a script the client knows go as EVALSHA, loaded ahead
// on each connection and run as EVAL on a server that lost it; SCRIPT LOAD
// makes a script known.
void use_known_scripts(kl_client *client, Command *cmd) {
  Command &c = *cmd;
  if (named(c, 0, "SCRIPT") && named(c, 1, "LOAD") && c.argc() == 3) {
    keep_script(client, std::string_view(c.argv()[2], c.argvlen()[2]));
    return;
  }
  const bool eval = named(c, 0, "EVAL");
  if ((!eval && !named(c, 0, "EVALSHA")) || c.argc() < 3) return;
  const std::string_view text(c.argv()[1], c.argvlen()[1]);
  Script *script = eval ? keep_script(client, text) : known_script(client, text);
  if (!script) return;
  Command rewritten;
  rewritten.reserve(static_cast<size_t>(c.argc()));
  rewritten.set_script(script, 0);
  rewritten.arg("EVALSHA").arg(script_digest(*script));
  for (int i = 2; i < c.argc(); ++i) rewritten.arg(c.argv()[i], c.argvlen()[i]);
  *cmd = std::move(rewritten);
}

}  // namespace

}  // namespace keyloom

using namespace keyloom;

kl_return_t kl_command(kl_client *client, int mode, char const *route, size_t route_len, char const *request,
                       size_t request_len, char **reply, size_t *reply_len) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(request && reply && reply_len && (route || route_len == 0));
  *reply = nullptr;
  *reply_len = 0;
  Command cmd;
  const int kind = mode & ~KL_COMMAND_SCRIPT_KEYS;
  KL_REQUIRE(parse_request(request, request_len, &cmd));
  KL_REQUIRE(kind == KL_COMMAND_READ || kind == KL_COMMAND_WRITE || kind == KL_COMMAND_SERVER);
  const Route where{route ? route : "", route_len};
  {
    CallScope lock(client);
    if (!lock.ok()) return KL_PTHREAD_OP_FAILURE;
    std::string why;
    if ((mode & KL_COMMAND_SCRIPT_KEYS) && !keys_meet(client, cmd, where, &why)) {
      note_failure(lock.call(), nullptr, KL_FAILURE_CONNECTION, why);
      return KL_INVALID_PARAMETER;
    }
    use_known_scripts(client, &cmd);
  }
  // The reply the caller gets, as RESP; an error reply is one too.
  auto take = [&](redisReply *r) -> kl_return_t {
    if (!r) return KL_SERVER_DOWN;
    std::string resp;
    write_resp(r, &resp);
    const kl_return_t stored = put_bytes(client, resp.data(), resp.size(), reply, reply_len);
    if (stored != KL_SUCCESS) return stored;
    return r->type == REDIS_REPLY_ERROR ? KL_SERVER_ERROR : KL_SUCCESS;
  };
  if (kind == KL_COMMAND_SERVER) {
    bool taken = false;
    kl_return_t code = KL_SUCCESS;
    const kl_return_t ran = run_each_server(client, nullptr, std::string_view(where.data, where.len), cmd, nullptr,
                                            [&](size_t, redisReply *r) -> kl_return_t {
                                              if (taken) return r ? KL_SUCCESS : KL_SERVER_DOWN;
                                              taken = true;
                                              return code = take(r);
                                            });
    return ran == KL_INVALID_PARAMETER ? ran : (taken ? code : ran);
  }
  auto on_reply = [&](redisReply *r, bool fill) -> kl_return_t {
    if (!fill) return r && r->type == REDIS_REPLY_ERROR ? KL_SERVER_ERROR : KL_SUCCESS;
    return take(r);
  };
  return kind == KL_COMMAND_WRITE ? write_one(client, where, std::move(cmd), on_reply)
                                  : read_one(client, where, std::move(cmd), on_reply);
}
