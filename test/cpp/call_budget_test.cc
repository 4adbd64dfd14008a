// A call's time budget: the setup of a connection is bounded by it like any
// other exchange (the state replayed at connect, AUTH, SELECT, INFO, is read
// within what the call has left, and a host name is resolved within the
// connect time-out), and it grows with the work a call sends, so a large
// batch to a healthy server is not mistaken for a server that is down.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>

#include "keyloom.h"
#include "resolve.h"
#include "support/test_cluster.h"
#include <vector>

using keyloom::test::Clock;
using keyloom::test::ms_since;
using keyloom::test::mut;

namespace {

// A server that accepts one connection and answers whatever it gets with a
// reply that never ends, one byte every 50 ms: each byte arrives well within
// a socket time-out, so only the call's own deadline can end the wait.
class DripServer {
 public:
  DripServer() {
    listener_ = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(listener_, reinterpret_cast<sockaddr *>(&addr), sizeof addr);
    listen(listener_, 4);
    socklen_t len = sizeof addr;
    getsockname(listener_, reinterpret_cast<sockaddr *>(&addr), &len);
    port_ = ntohs(addr.sin_port);
    thread_ = std::thread([this] { serve(); });
  }
  ~DripServer() {
    stopping_ = true;
    shutdown(listener_, SHUT_RDWR);
    close(listener_);
    thread_.join();
  }
  unsigned port() const { return port_; }

 private:
  void serve() {
    int conn = accept(listener_, nullptr, nullptr);
    if (conn < 0) return;
    char buf[512];
    if (read(conn, buf, sizeof buf) > 0) {
      const std::string header = "$100000\r\n";
      for (size_t i = 0; !stopping_ && i < 200; ++i) {  // at most 10 s, so a failing run ends too
        const char byte = i < header.size() ? header[i] : 'x';
        if (write(conn, &byte, 1) != 1) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
      }
    }
    close(conn);
  }

  int listener_ = -1;
  unsigned port_ = 0;
  std::atomic<bool> stopping_{false};
  std::thread thread_;
};

TEST(CallBudget, TheStateReplayedAtConnectIsReadWithinTheCallsTime) {
  DripServer server;
  kl_client *c = kl_client_create(KL_HASH_DEFAULT, KL_DISTRIBUTION_MODULA, nullptr, KL_FLAG_NONE);
  kl_client_connection_timeout(c, 300);  // the version is asked for with INFO at connect
  kl_server_add(c, mut("127.0.0.1"), server.port(), nullptr);
  const auto start = Clock::now();
  EXPECT_NE(kl_exists(c, mut("k"), 1), KL_SUCCESS);
  // Twice the 300 ms time-out; reading INFO's reply a byte at a time took 10 s.
  EXPECT_LT(ms_since(start), 2000);
  kl_client_destroy(c);
}

// A lookup that does not answer for 3 s.
bool stalled_resolver(const std::string &, std::string *, std::string *) {
  std::this_thread::sleep_for(std::chrono::seconds(3));
  return false;
}

TEST(CallBudget, ANameIsResolvedWithinTheTimeGiven) {
  std::string address, error;
  const auto start = Clock::now();
  EXPECT_FALSE(keyloom::resolve_within("stalled.example", 200, &address, &error, &stalled_resolver));
  EXPECT_LT(ms_since(start), 1500);
  EXPECT_EQ(error, "resolving stalled.example took longer than 200 ms");
}

TEST(CallBudget, AddressesNeedNoLookupAndLocalhostIsFound) {
  std::string address, error;
  EXPECT_TRUE(keyloom::resolve_within("10.1.2.3", 0, &address, &error, &stalled_resolver));
  EXPECT_EQ(address, "10.1.2.3");
  EXPECT_TRUE(keyloom::resolve_within("::1", 0, &address, &error, &stalled_resolver));
  EXPECT_EQ(address, "::1");
  EXPECT_TRUE(keyloom::resolve_within("localhost", 5000, &address, &error));
  EXPECT_EQ(address, "127.0.0.1");
}

TEST(CallBudget, ALargeBatchToAHealthyServerIsNotTakenForAServerDown) {
  keyloom::test::TestCluster cluster(1);
  kl_client *c = cluster.client();
  ASSERT_EQ(kl_client_connection_timeout(c, 100), KL_SUCCESS);  // a 200 ms budget before the work
  const size_t n = 300000;
  std::vector<std::string> names(n);
  std::vector<char *> keys(n);
  std::vector<size_t> lens(n);
  for (size_t i = 0; i < n; ++i) {
    names[i] = std::string("big:").append(std::to_string(i));
    keys[i] = names[i].data();
    lens[i] = names[i].size();
  }
  std::vector<char *> values(n, mut("v"));
  std::vector<size_t> value_lens(n, 1);
  ASSERT_EQ(kl_mset(c, const_cast<const char **>(keys.data()), n, lens.data(), values.data(), value_lens.data()),
            KL_SUCCESS);
  int deleted = 0;
  EXPECT_EQ(kl_mdel(c, keys.data(), n, lens.data(), &deleted), KL_SUCCESS);
  EXPECT_EQ(deleted, static_cast<int>(n));
  EXPECT_EQ(cluster.dbsize(0), 0);
}

}  // namespace
