// The client record behind the opaque kl_client: settings, groups of servers
// with their continuum, and one connection per server.
#pragma once

#include <hiredis/hiredis.h>

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "continuum.h"
#include "keyloom.h"
#include "lock.h"
#include "reply_reader.h"
#include "tls.h"

namespace keyloom {

struct Script;
class Connector;
// Deletes a connector (connector.cc), so that Server can hold one without its
// definition.
struct ConnectorDeleter {
  void operator()(Connector *connector) const;
};

// A script a caller sent (EVAL, SCRIPT LOAD): kept so that its EVALSHA can be
// loaded ahead on each connection and retried as EVAL where a server lost it.
struct CallerScript {
  std::string source;
  std::unique_ptr<Script> script;  // its source points into `source`
};

using Clock = std::chrono::steady_clock;

constexpr unsigned kDefaultConnectTimeoutMs = 1000;
constexpr unsigned kDefaultReconnectTimeoutMs = 1000;
// As much as a server may hold in one value (its own proto-max-bulk-len).
constexpr size_t kDefaultMaxReplyBytes = size_t{512} << 20;

// The first failure a call met (kl_last_failure_*).
struct CallFailure {
  int kind = KL_FAILURE_NONE;
  std::string server;  // "host:port"
  std::string text;
};

// One library call in progress: the client it is on, the time it must return
// by, and the first failure it met. The call's outermost CallScope makes it,
// on the call's own stack; the batches of the call's exchanges carry it to
// the connection code. When the call ends, its failure becomes the client's
// last one.
struct CallContext {
  kl_client *client = nullptr;
  Clock::time_point deadline{};
  CallFailure failure;
};

// Where library calls run on this thread: the thread's own site, or the one
// a pipeline sets up for each call of its round while the call runs on its
// fiber.
struct CallSite {
  kl_client *round_client = nullptr;  // a round's call: the round holds this client's lock and makes its exchanges
  unsigned budget_ms = 0;             // the call's own time budget (0: the client's)
  CallContext *call = nullptr;        // the call in progress here, which a nested call joins
};

// The site of the calls made now on this thread.
CallSite &current_call_site();
// Makes site the current one (null: the thread's own) and returns the one
// it replaces.
CallSite *enter_call_site(CallSite *site);

struct Server {
  std::string host;
  unsigned port = 0;
  std::string name;  // "host:port", how kl_config_get/set address it
  redisContext *ctx = nullptr;
  TlsSession *tls = nullptr;     // over ctx's socket, when the client uses TLS
  bool down = false;            // failed; not retried before down_until
  Clock::time_point down_until;
  int version_major = 0;        // from INFO at connect (0: unknown)
  int version_minor = 0;
  unsigned io_timeout_ms = 0;   // the socket's current time-out (0: not set)
  std::vector<const Script *> loaded_scripts;  // SCRIPT LOADed on this connection
  ReplyBudget budget;           // what the reply being read may still cost
  std::string failure;          // why it was marked down, told to calls that skip it
  unsigned long exchange_round = 0;  // the last exchange round that queued on it
  // The connection being made beside a round (connector.h). Last, so that
  // it is destroyed first: its thread uses the rest.
  std::unique_ptr<Connector, ConnectorDeleter> connector;
};

struct Group {
  std::string name;
  std::vector<std::unique_ptr<Server>> servers;  // in the order added
  Continuum continuum;
};

}  // namespace keyloom

struct kl_client {
  kl_hash hash = KL_HASH_DEFAULT;
  kl_server_distribution distribution = KL_DISTRIBUTION_MODULA;
  kl_mm_t mm{};            // the caller's record, copied
  bool custom_mm = false;  // false: the C library's allocator
  unsigned flags = KL_FLAG_NONE;
  keyloom::ClientMutex mutex;
  kl_client_version version = CLIENT_VERSION_AUTO;
  unsigned connect_timeout_ms = keyloom::kDefaultConnectTimeoutMs;
  unsigned reconnect_timeout_ms = keyloom::kDefaultReconnectTimeoutMs;
  size_t max_reply_bytes = keyloom::kDefaultMaxReplyBytes;  // one reply's cost at most
  bool has_password = false;
  std::string password;  // "password", or "user\0password" for an ACL user
  int db = 0;                              // the selected database
  std::map<size_t, std::string> prefixes;  // logical-database key prefixes
  std::string prefix;                      // the selected database's prefix
  std::shared_ptr<keyloom::TlsConfig> tls;  // null: connections without TLS
  char hash_tag[2] = {'\0', '\0'};        // open and close of hash tags ('\0': off)
  std::map<std::string, keyloom::CallerScript, std::less<>> caller_scripts;  // by SHA-1
  unsigned log_levels = 0;
  std::vector<std::unique_ptr<keyloom::Group>> groups;  // in creation order
  keyloom::CallFailure last_failure;    // of the last call that ended
  unsigned long exchange_round = 0;     // counts exchanges, so a round knows a server's first batch
};

namespace keyloom {

// The prefix of the selected database is kept in client->prefix.
void refresh_prefix(kl_client *client);

// Every server, in group order then server order.
size_t server_count(const kl_client *client);

// One library call on a client: holds the client's lock and makes the call's
// context (a call in a pipeline's round takes no lock: the round holds it).
// A call made while another call on the same client is in progress here (a
// nested call) joins that call's context. However many servers and groups a
// call visits, it waits on them for at most one connect time-out plus one
// reply time-out in all (the time-out serves as both; a pipeline job may
// bring its own budget), plus kBudgetPerCommand for each command it sends and
// kBudgetPerArgument for each argument (exchange.h).
class CallScope {
 public:
  explicit CallScope(kl_client *client);
  ~CallScope();
  CallScope(const CallScope &) = delete;
  CallScope &operator=(const CallScope &) = delete;
  bool ok() const { return lock_.ok(); }
  // The call's context (only when ok()).
  CallContext &call() { return *call_; }

 private:
  kl_client *client_;
  CallSite &site_;
  ClientLock lock_;
  CallContext own_;
  CallContext *call_ = nullptr;       // own_, or the enclosing call's
  CallContext *enclosing_ = nullptr;  // the site's call before this one
};

}  // namespace keyloom
