// Servers plus a client over them, for the library's tests: `servers` redis
// servers spread over `groups` groups ("g0", "g1", ...; one group is
// "default"), server i in group i % groups.
#pragma once

#include <hiredis/hiredis.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "keyloom.h"
#include "support/redis_server.h"

namespace keyloom::test {

class TestCluster {
 public:
  explicit TestCluster(size_t servers = 1, size_t groups = 1,
                       kl_server_distribution distribution = KL_DISTRIBUTION_CONSISTENT,
                       unsigned flags = KL_FLAG_NONE, std::vector<std::string> server_args = {});
  ~TestCluster();

  kl_client *client() const { return client_; }
  RedisServer &server(size_t i) { return *servers_[i]; }
  size_t size() const { return servers_.size(); }
  std::string group_name(size_t server_index) const;

  // A command run straight on server i, bypassing the library (null when the
  // server does not answer).
  std::unique_ptr<redisReply, void (*)(void *)> direct(size_t i, const std::vector<std::string> &args);
  // Keys on server i (DBSIZE).
  long long dbsize(size_t i);

 private:
  std::vector<std::unique_ptr<RedisServer>> servers_;
  size_t groups_;
  kl_client *client_ = nullptr;
};

using Clock = std::chrono::steady_clock;

// Milliseconds since start.
inline long long ms_since(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

// Small helpers around the C interface.
inline char *mut(const std::string &s) { return const_cast<char *>(s.c_str()); }
// A literal lives for the whole program, so its pointer may be kept (in an
// array of keys, say); the std::string overload's lives to the end of the
// full expression only.
template <size_t N>
char *mut(const char (&literal)[N]) {
  return const_cast<char *>(literal);
}

}  // namespace keyloom::test
