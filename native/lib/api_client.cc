// Client lifecycle and configuration.
#include <cstring>
#include <new>

#include "connection.h"
#include "exchange.h"
#include "failures.h"
#include "hash.h"
#include "internal.h"
#include "log.h"

using namespace keyloom;

namespace {

Group *find_or_add_group(kl_client *client, const std::string &name) {
  for (auto &g : client->groups)
    if (g->name == name) return g.get();
  client->groups.push_back(std::make_unique<Group>());
  client->groups.back()->name = name;
  client->groups.back()->continuum.set_hash_tag(client->hash_tag[0], client->hash_tag[1]);
  return client->groups.back().get();
}

void close_all(kl_client *client) {
  for (auto &g : client->groups)
    for (auto &s : g->servers) {
      disconnect_server(s.get());
      s->down = false;
    }
}

// A setting of the client, changed under its lock.
template <class Change>
kl_return_t change_setting(kl_client *client, Change change) {
  KL_REQUIRE_CLIENT(client);
  CallScope lock(client);
  if (!lock.ok()) return KL_PTHREAD_OP_FAILURE;
  change();
  return KL_SUCCESS;
}

}  // namespace

kl_client *kl_client_create(kl_hash hash, kl_server_distribution distribution, kl_mm_t *mm,
                            unsigned int flags) {
  kl_client *client = new (std::nothrow) kl_client();
  if (!client) return nullptr;
  client->hash = hash_kind_valid(hash) ? hash : KL_HASH_DEFAULT;
  client->distribution = distribution;
  if (mm) {
    client->mm = *mm;
    client->custom_mm = true;
  }
  client->flags = flags;
  if (!client->mutex.init((flags & KL_FLAG_SHARED) != 0, (flags & KL_FLAG_RECURSIVE) != 0)) {
    delete client;
    return nullptr;
  }
  return client;
}

void kl_client_destroy(kl_client *client) {
  if (!client) return;
  {
    CallScope lock(client);
    close_all(client);
  }
  delete client;
}

kl_client *kl_group_client(kl_client *client) {
  if (!client) return nullptr;
  CallScope lock(client);
  if (!lock.ok()) return nullptr;
  kl_client *copy = kl_client_create(client->hash, client->distribution,
                                     client->custom_mm ? &client->mm : nullptr, client->flags);
  if (!copy) return nullptr;
  copy->version = client->version;
  copy->connect_timeout_ms = client->connect_timeout_ms;
  copy->reconnect_timeout_ms = client->reconnect_timeout_ms;
  copy->has_password = client->has_password;
  copy->password = client->password;
  copy->db = client->db;
  copy->prefixes = client->prefixes;
  copy->prefix = client->prefix;
  copy->tls = client->tls;
  copy->hash_tag[0] = client->hash_tag[0];
  copy->hash_tag[1] = client->hash_tag[1];
  copy->log_levels = client->log_levels;
  for (auto &g : client->groups) {
    auto group = std::make_unique<Group>();
    group->name = g->name;
    for (auto &s : g->servers) {
      auto server = std::make_unique<Server>();
      server->host = s->host;
      server->port = s->port;
      server->name = s->name;
      group->servers.push_back(std::move(server));
    }
    group->continuum = g->continuum;
    copy->groups.push_back(std::move(group));
  }
  return copy;
}

kl_return_t kl_set_client_version(kl_client *client, kl_client_version version) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(version == CLIENT_VERSION_1 || version == CLIENT_VERSION_2 ||
             version == CLIENT_VERSION_AUTO);
  return change_setting(client, [&] { client->version = version; });
}

kl_return_t kl_client_connection_timeout(kl_client *client, unsigned int timeout_ms) {
  // Open connections take the new time-out on their next exchange.
  return change_setting(client, [&] {
    client->connect_timeout_ms = timeout_ms ? timeout_ms : kDefaultConnectTimeoutMs;
  });
}

kl_return_t kl_client_reconnect_attempt_timeout(kl_client *client, unsigned int timeout_ms) {
  return change_setting(client, [&] { client->reconnect_timeout_ms = timeout_ms; });
}

kl_return_t kl_client_max_reply_size(kl_client *client, size_t bytes) {
  return change_setting(client, [&] {
    client->max_reply_bytes = bytes ? bytes : kDefaultMaxReplyBytes;
    for (auto &group : client->groups)
      for (auto &server : group->servers) server->budget.limit = client->max_reply_bytes;
  });
}

// Read without taking the lock or starting a call: that would clear them.
int kl_last_failure_kind(kl_client *client) {
  return client ? client->last_failure.kind : KL_FAILURE_NONE;
}

const char *kl_last_failure_server(kl_client *client) {
  if (!client || client->last_failure.kind == KL_FAILURE_NONE) return nullptr;
  return client->last_failure.server.c_str();
}

const char *kl_last_failure_text(kl_client *client) {
  if (!client || client->last_failure.kind == KL_FAILURE_NONE) return nullptr;
  return client->last_failure.text.c_str();
}

kl_return_t kl_server_add(kl_client *client, char *host, unsigned int port, char *group) {
  return kl_server_add_weighted(client, host, port, group, 1);
}

kl_return_t kl_server_add_weighted(kl_client *client, char *host, unsigned int port, char *group,
                                   unsigned int weight) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(host && *host && port > 0 && port <= 65535 && weight > 0);
  // Only the weighted MD5 continuum has weights to give.
  KL_REQUIRE(weight == 1 || client->distribution == KL_DISTRIBUTION_CONSISTENT_KETAMA);
  CallScope lock(client);
  if (!lock.ok()) return KL_PTHREAD_OP_FAILURE;
  std::string name = (group && *group) ? group : "default";
  std::string address = std::string(host) + ":" + std::to_string(port);
  for (auto &g : client->groups)
    if (g->name == name)
      for (auto &s : g->servers)
        if (s->name == address) return KL_ALREADY_EXISTS;
  Group *g = find_or_add_group(client, name);
  auto server = std::make_unique<Server>();
  server->host = host;
  server->port = port;
  server->name = address;
  g->servers.push_back(std::move(server));
  // Built on the next routing, once for any number of additions.
  g->continuum.add_server(client->distribution, client->hash, point_base(host, port), weight);
  log_event(client, KL_LEVEL_EVENT, "server %s added to group %s", address.c_str(), name.c_str());
  return KL_SUCCESS;
}

kl_return_t kl_enable_syslog(kl_client *client, unsigned int levels) {
  return change_setting(client, [&] { client->log_levels = levels; });
}

kl_return_t kl_disable_log(kl_client *client) {
  return change_setting(client, [&] { client->log_levels = 0; });
}

char const *kl_get_version(void) {
#define KL_STR2(x) #x
#define KL_STR(x) KL_STR2(x)
  return KL_STR(KEYLOOM_VERSION_MAJOR) "." KL_STR(KEYLOOM_VERSION_MINOR) "." KL_STR(
      KEYLOOM_VERSION_PATCH);
#undef KL_STR
#undef KL_STR2
}

kl_return_t kl_client_set_hash_tag(kl_client *client, char *delimiters, size_t len) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(len == 0 || (len == 2 && delimiters && delimiters[0] != '\0' && delimiters[1] != '\0'));
  return change_setting(client, [&] {
    client->hash_tag[0] = len ? delimiters[0] : '\0';
    client->hash_tag[1] = len ? delimiters[1] : '\0';
    for (auto &g : client->groups) g->continuum.set_hash_tag(client->hash_tag[0], client->hash_tag[1]);
  });
}

kl_return_t kl_client_set_tls(kl_client *client, char *ca, size_t ca_len, char *cert, size_t cert_len,
                              char *key, size_t key_len, char *servername, size_t servername_len,
                              int verify) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE((ca || ca_len == 0) && (cert || cert_len == 0) && (key || key_len == 0) &&
             (servername || servername_len == 0));
  CallScope lock(client);
  if (!lock.ok()) return KL_PTHREAD_OP_FAILURE;
  TlsOptions options;
  options.ca = std::string_view(ca, ca_len);
  options.cert = std::string_view(cert, cert_len);
  options.key = std::string_view(key, key_len);
  options.servername = std::string_view(servername, servername_len);
  options.verify = verify != 0;
  std::string why;
  auto config = make_tls_config(options, &why);
  if (!config) {
    note_failure(lock.call(), nullptr, KL_FAILURE_CONNECTION, "TLS settings refused: " + why);
    return KL_INVALID_PARAMETER;
  }
  close_all(client);
  client->tls = std::move(config);
  return KL_SUCCESS;
}

kl_return_t kl_auth(kl_client *client, char *password, size_t password_len) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(password || password_len == 0);
  {
    CallScope lock(client);
    if (!lock.ok()) return KL_PTHREAD_OP_FAILURE;
    if (client->groups.empty()) return KL_NO_SERVER_ATTACHED;
    client->has_password = password_len > 0;
    client->password.assign(password ? password : "", password_len);
    if (!client->has_password) return KL_SUCCESS;
  }
  Command cmd("AUTH");
  auto [user, secret] = split_credentials(std::string_view(password, password_len));
  if (user.data()) cmd.arg(user);
  cmd.arg(secret);
  return run_each_server(client, nullptr, {}, cmd, nullptr, [](size_t, redisReply *r) {
    return r ? expect_type(r, REDIS_REPLY_STATUS) : KL_SERVER_DOWN;
  });
}

kl_return_t kl_quit(kl_client *client) {
  KL_REQUIRE_CLIENT(client);
  CallScope lock(client);
  if (!lock.ok()) return KL_PTHREAD_OP_FAILURE;
  close_all(client);
  log_event(client, KL_LEVEL_EVENT, "connections closed");
  return KL_SUCCESS;
}

kl_return_t kl_config_get(kl_client *client, char const *param, size_t param_len,
                          char const *server, size_t server_len, char ***values, size_t *count,
                          size_t **lengths, char const *group, kl_return_t **results) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(param && param_len > 0 && values && (server || server_len == 0));
  Command cmd("CONFIG");
  cmd.arg("GET").arg(param, param_len);
  bool filled = false;
  kl_return_t fill_code = KL_SUCCESS;
  kl_return_t r = run_each_server(
      client, group, std::string_view(server ? server : "", server_len), cmd, results,
      [&](size_t, redisReply *reply) -> kl_return_t {
        if (!reply) return KL_SERVER_DOWN;
        kl_return_t code = expect_type(reply, REDIS_REPLY_ARRAY);
        if (code != KL_SUCCESS || filled) return code;
        // The first server that answers gives the values.
        fill_code = put_string_array(client, reply->element, reply->elements, values, count, lengths);
        filled = fill_code == KL_SUCCESS;
        return fill_code;
      });
  if (filled && r != KL_SUCCESS && r != KL_PARTIAL_RESULT) return KL_PARTIAL_RESULT;
  return r;
}

kl_return_t kl_config_set(kl_client *client, char const *param, size_t param_len,
                          char const *value, size_t value_len, char const *server,
                          size_t server_len, char const *group, kl_return_t **results) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(param && param_len > 0 && (value || value_len == 0) && (server || server_len == 0));
  Command cmd("CONFIG");
  cmd.arg("SET").arg(param, param_len).arg(value ? value : "", value_len);
  return run_each_server(client, group, std::string_view(server ? server : "", server_len), cmd,
                         results, [](size_t, redisReply *reply) {
                           return reply ? expect_type(reply, REDIS_REPLY_STATUS) : KL_SERVER_DOWN;
                         });
}

kl_return_t kl_database_key(kl_client *client, size_t db, char const **prefix,
                            size_t const *prefix_len) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(prefix);
  CallScope lock(client);
  if (!lock.ok()) return KL_PTHREAD_OP_FAILURE;
  auto it = client->prefixes.find(db);
  *prefix = it == client->prefixes.end() ? nullptr : it->second.c_str();
  // The cell is declared const in the interface but is the caller's output.
  if (prefix_len) *const_cast<size_t *>(prefix_len) = it == client->prefixes.end() ? 0 : it->second.size();
  return KL_SUCCESS;
}

kl_return_t kl_set_database_key(kl_client *client, size_t db, char const *prefix,
                                size_t prefix_len) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(prefix || prefix_len == 0);
  CallScope lock(client);
  if (!lock.ok()) return KL_PTHREAD_OP_FAILURE;
  if (prefix_len == 0) client->prefixes.erase(db);
  else client->prefixes[db] = std::string(prefix, prefix_len);
  refresh_prefix(client);
  return KL_SUCCESS;
}

kl_return_t kl_select(kl_client *client, int db, kl_return_t **results) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(db >= 0);
  {
    CallScope lock(client);
    if (!lock.ok()) return KL_PTHREAD_OP_FAILURE;
    if (client->groups.empty()) return KL_NO_SERVER_ATTACHED;
    client->db = db;
    refresh_prefix(client);
  }
  Command cmd("SELECT");
  cmd.arg_int(db);
  return run_each_server(client, nullptr, {}, cmd, results, [](size_t, redisReply *reply) {
    return reply ? expect_type(reply, REDIS_REPLY_STATUS) : KL_SERVER_DOWN;
  });
}
