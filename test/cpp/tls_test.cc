// TLS connections: the library against redis-server's TLS port, with
// certificates made for the test by the openssl command.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

#include "keyloom.h"
#include "support/redis_server.h"
#include "support/test_cluster.h"

using keyloom::test::free_port;
using keyloom::test::mut;
using keyloom::test::RedisServer;

namespace {

std::string read_file(const std::filesystem::path &path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// A CA, a server certificate for 127.0.0.1 signed by it, and an unrelated CA.
class Certificates {
 public:
  Certificates() {
    char pattern[] = "/tmp/keyloom-tls-cpp-XXXXXX";
    dir_ = mkdtemp(pattern);
    const std::string ec = " -algorithm EC -pkeyopt ec_paramgen_curve:prime256v1";
    run("genpkey" + ec + " -out ca.key");
    run("req -x509 -new -key ca.key -subj /CN=ca -days 2 -out ca.crt -addext basicConstraints=critical,CA:TRUE");
    run("genpkey" + ec + " -out other.key");
    run("req -x509 -new -key other.key -subj /CN=other -days 2 -out other.crt -addext basicConstraints=critical,CA:TRUE");
    run("genpkey" + ec + " -out server.key");
    run("req -new -key server.key -subj /CN=localhost -out server.csr");
    std::ofstream(dir_ / "server.ext") << "subjectAltName=IP:127.0.0.1,DNS:localhost\n";
    run("x509 -req -in server.csr -CA ca.crt -CAkey ca.key -CAcreateserial -days 2 -out server.crt -extfile server.ext");
  }
  ~Certificates() { std::filesystem::remove_all(dir_); }

  std::string path(const char *name) const { return (dir_ / name).string(); }
  std::string pem(const char *name) const { return read_file(dir_ / name); }

 private:
  void run(const std::string &args) {
    const std::string command = "cd " + dir_.string() + " && openssl " + args + " >/dev/null 2>&1";
    if (std::system(command.c_str()) != 0) throw std::runtime_error("openssl " + args + " failed");
  }
  std::filesystem::path dir_;
};

class Tls : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    certs_ = new Certificates();
    tls_port_ = free_port();
    server_ = new RedisServer({"--tls-port", std::to_string(tls_port_), "--tls-cert-file", certs_->path("server.crt"),
                               "--tls-key-file", certs_->path("server.key"), "--tls-ca-cert-file",
                               certs_->path("ca.crt"), "--tls-auth-clients", "no"});
  }
  static void TearDownTestSuite() {
    delete server_;
    delete certs_;
  }

  // A client of the TLS port trusting ca, checking servername.
  kl_client *client(const std::string &ca, const std::string &servername = "", int verify = 1) {
    kl_client *c = kl_client_create(KL_HASH_DEFAULT, KL_DISTRIBUTION_CONSISTENT, nullptr, KL_FLAG_NONE);
    kl_client_connection_timeout(c, 1000);
    std::string ca_copy = ca, name_copy = servername;
    EXPECT_EQ(kl_client_set_tls(c, ca_copy.data(), ca_copy.size(), nullptr, 0, nullptr, 0, name_copy.data(),
                                name_copy.size(), verify),
              KL_SUCCESS);
    EXPECT_EQ(kl_server_add(c, mut("127.0.0.1"), tls_port_, nullptr), KL_SUCCESS);
    clients_.emplace_back(c, kl_client_destroy);
    return c;
  }

  static Certificates *certs_;
  static RedisServer *server_;
  static unsigned tls_port_;
  std::vector<std::unique_ptr<kl_client, void (*)(kl_client *)>> clients_;
};

Certificates *Tls::certs_ = nullptr;
RedisServer *Tls::server_ = nullptr;
unsigned Tls::tls_port_ = 0;

TEST_F(Tls, WritesAndReadsOverTls) {
  kl_client *c = client(certs_->pem("ca.crt"));
  ASSERT_EQ(kl_set(c, mut("tls-key"), 7, mut("value"), 5, 0), KL_SUCCESS);
  char *value = nullptr;
  size_t len = 0;
  ASSERT_EQ(kl_get_whole(c, mut("tls-key"), 7, &value, &len, nullptr, 0), KL_SUCCESS);
  EXPECT_EQ(std::string(value, len), "value");
  free(value);
  // A large value crosses many TLS records both ways.
  std::string large(3 << 20, 'x');
  ASSERT_EQ(kl_set(c, mut("large"), 5, large.data(), large.size(), 0), KL_SUCCESS);
  ASSERT_EQ(kl_get_whole(c, mut("large"), 5, &value, &len, nullptr, 0), KL_SUCCESS);
  EXPECT_EQ(len, large.size());
  free(value);
}

TEST_F(Tls, AnUnknownCaIsACertificateRefusal) {
  kl_client *c = client(certs_->pem("other.crt"));
  EXPECT_EQ(kl_set(c, mut("k"), 1, mut("v"), 1, 0), KL_SERVER_DOWN);
  EXPECT_EQ(kl_last_failure_kind(c), KL_FAILURE_CONNECTION);
  EXPECT_EQ(std::string(kl_last_failure_server(c)), "127.0.0.1:" + std::to_string(tls_port_));
  EXPECT_EQ(std::string(kl_last_failure_text(c)).rfind("certificate refused: ", 0), 0u) << kl_last_failure_text(c);
}

TEST_F(Tls, AServernameTheCertificateLacksIsRefusedAndOneItHasIsAccepted) {
  kl_client *wrong = client(certs_->pem("ca.crt"), "wrong.example");
  EXPECT_EQ(kl_set(wrong, mut("k"), 1, mut("v"), 1, 0), KL_SERVER_DOWN);
  EXPECT_STREQ(kl_last_failure_text(wrong), "certificate refused: hostname mismatch");
  kl_client *right = client(certs_->pem("ca.crt"), "localhost");
  EXPECT_EQ(kl_set(right, mut("k"), 1, mut("v"), 1, 0), KL_SUCCESS);
}

TEST_F(Tls, WithoutVerificationAnyCertificateIsAccepted) {
  kl_client *c = client("", "", 0);
  EXPECT_EQ(kl_set(c, mut("k"), 1, mut("v"), 1, 0), KL_SUCCESS);
}

TEST_F(Tls, GroupClientsShareTheSettings) {
  kl_client *c = client(certs_->pem("ca.crt"));
  kl_client *copy = kl_group_client(c);
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(kl_set(copy, mut("k"), 1, mut("v"), 1, 0), KL_SUCCESS);
  kl_client_destroy(copy);
}

TEST_F(Tls, TextsThatAreNotPemAreRefusedWithTheReason) {
  kl_client *c = kl_client_create(KL_HASH_DEFAULT, KL_DISTRIBUTION_CONSISTENT, nullptr, KL_FLAG_NONE);
  std::string junk = "not a certificate";
  EXPECT_EQ(kl_client_set_tls(c, junk.data(), junk.size(), nullptr, 0, nullptr, 0, nullptr, 0, 1),
            KL_INVALID_PARAMETER);
  EXPECT_STREQ(kl_last_failure_text(c), "TLS settings refused: ca: no PEM certificate in it");
  std::string cert = certs_->pem("server.crt");
  EXPECT_EQ(kl_client_set_tls(c, nullptr, 0, cert.data(), cert.size(), nullptr, 0, nullptr, 0, 1),
            KL_INVALID_PARAMETER);
  std::string other_key = certs_->pem("other.key");
  EXPECT_EQ(kl_client_set_tls(c, nullptr, 0, cert.data(), cert.size(), other_key.data(), other_key.size(),
                              nullptr, 0, 1),
            KL_INVALID_PARAMETER);
  EXPECT_EQ(std::string(kl_last_failure_text(c)).rfind("TLS settings refused: key: ", 0), 0u);
  EXPECT_EQ(kl_client_set_tls(nullptr, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, 1), KL_INVALID_CLIENT);
  kl_client_destroy(c);
}

TEST_F(Tls, APlainServerIsNotMistakenForTls) {
  RedisServer plain;
  kl_client *c = kl_client_create(KL_HASH_DEFAULT, KL_DISTRIBUTION_CONSISTENT, nullptr, KL_FLAG_NONE);
  kl_client_connection_timeout(c, 300);
  ASSERT_EQ(kl_client_set_tls(c, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, 0), KL_SUCCESS);
  kl_server_add(c, mut("127.0.0.1"), plain.port(), nullptr);
  EXPECT_EQ(kl_set(c, mut("k"), 1, mut("v"), 1, 0), KL_SERVER_DOWN);
  EXPECT_NE(std::string(kl_last_failure_text(c)).find("speaking TLS"), std::string::npos) << kl_last_failure_text(c);
  kl_client_destroy(c);
}

}  // namespace
