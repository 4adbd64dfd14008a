#include "tls.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <mutex>

namespace keyloom {

namespace {

// Every OpenSSL function the library calls, found in the process at run time.
#define KEYLOOM_OPENSSL_FUNCTIONS(X)                                                            \
  X(TLS_client_method) X(SSL_CTX_new) X(SSL_CTX_free) X(SSL_CTX_set_verify)                    \
  X(SSL_CTX_set_default_verify_paths) X(SSL_CTX_get_cert_store) X(SSL_CTX_set_options)         \
  X(SSL_CTX_ctrl) X(SSL_CTX_use_certificate) X(SSL_CTX_use_PrivateKey)                          \
  X(SSL_CTX_check_private_key) X(X509_STORE_add_cert) X(BIO_new_mem_buf) X(BIO_free)           \
  X(PEM_read_bio_X509) X(PEM_read_bio_PrivateKey) X(X509_free) X(EVP_PKEY_free) X(SSL_new)     \
  X(SSL_free) X(SSL_set_fd) X(SSL_ctrl) X(SSL_set1_host) X(SSL_get0_param)                      \
  X(X509_VERIFY_PARAM_set1_ip_asc) X(SSL_connect) X(SSL_read) X(SSL_write) X(SSL_get_error)    \
  X(SSL_pending) X(SSL_shutdown) X(SSL_get_verify_result) X(X509_verify_cert_error_string)     \
  X(ERR_get_error) X(ERR_peek_last_error) X(ERR_reason_error_string) X(ERR_clear_error)

struct OpenSsl {
#define KEYLOOM_DECLARE(name) decltype(&::name) name = nullptr;
  KEYLOOM_OPENSSL_FUNCTIONS(KEYLOOM_DECLARE)
#undef KEYLOOM_DECLARE
};

// The process's OpenSSL, or null with *error naming what is missing. The
// process's own copy comes first (Node.js exports its OpenSSL); libssl.so.3
// is loaded only when the process has none.
const OpenSsl *openssl(std::string *error) {
  static OpenSsl functions;
  static std::string missing;
  static std::once_flag once;
  std::call_once(once, [] {
    void *scope = RTLD_DEFAULT;  // a null handle: the process's global symbols
    if (!dlsym(scope, "SSL_new")) {
      scope = dlopen("libssl.so.3", RTLD_NOW | RTLD_LOCAL);
      if (!scope) {
        missing = "no OpenSSL in this process and libssl.so.3 could not be loaded";
        return;
      }
    }
#define KEYLOOM_FIND(name)                                                 \
  functions.name = reinterpret_cast<decltype(&::name)>(dlsym(scope, #name)); \
  if (!functions.name && missing.empty()) missing = "OpenSSL lacks " #name;
    KEYLOOM_OPENSSL_FUNCTIONS(KEYLOOM_FIND)
#undef KEYLOOM_FIND
  });
  if (!missing.empty()) {
    *error = missing;
    return nullptr;
  }
  return &functions;
}

// The reason of the newest OpenSSL error ("wrong version number"), the queue cleared.
std::string last_reason(const OpenSsl &ssl, const char *fallback) {
  const unsigned long code = ssl.ERR_peek_last_error();
  const char *reason = code ? ssl.ERR_reason_error_string(code) : nullptr;
  std::string text = reason ? reason : fallback;
  ssl.ERR_clear_error();
  return text;
}

bool is_ip_address(const std::string &host) {
  unsigned char addr[16];
  return inet_pton(AF_INET, host.c_str(), addr) == 1 || inet_pton(AF_INET6, host.c_str(), addr) == 1;
}

}  // namespace

class TlsConfig {
 public:
  TlsConfig(const OpenSsl &ssl, SSL_CTX *ctx, std::string servername, bool verify)
      : ssl(ssl), ctx(ctx), servername(std::move(servername)), verify(verify) {}
  ~TlsConfig() { ssl.SSL_CTX_free(ctx); }
  TlsConfig(const TlsConfig &) = delete;
  TlsConfig &operator=(const TlsConfig &) = delete;

  const OpenSsl &ssl;
  SSL_CTX *const ctx;
  const std::string servername;
  const bool verify;
};

class TlsSession {
 public:
  TlsSession(const OpenSsl &ssl, SSL *session, int fd) : ssl(ssl), session(session), fd(fd) {}
  ~TlsSession() { ssl.SSL_free(session); }
  TlsSession(const TlsSession &) = delete;
  TlsSession &operator=(const TlsSession &) = delete;

  const OpenSsl &ssl;
  SSL *const session;
  const int fd;
};

namespace {

// Adds every certificate of pem to the context's trusted store.
bool trust_certificates(const OpenSsl &ssl, SSL_CTX *ctx, std::string_view pem, std::string *error) {
  BIO *bio = ssl.BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()));
  if (!bio) return *error = "out of memory", false;
  X509_STORE *store = ssl.SSL_CTX_get_cert_store(ctx);
  int added = 0;
  while (X509 *cert = ssl.PEM_read_bio_X509(bio, nullptr, nullptr, nullptr)) {
    const int ok = ssl.X509_STORE_add_cert(store, cert);
    ssl.X509_free(cert);
    if (!ok) {
      ssl.BIO_free(bio);
      *error = "ca: " + last_reason(ssl, "certificate not accepted");
      return false;
    }
    ++added;
  }
  ssl.ERR_clear_error();  // the end of the text reads as "no start line"
  ssl.BIO_free(bio);
  if (added == 0) return *error = "ca: no PEM certificate in it", false;
  return true;
}

// The client certificate (its chain after it) and its private key.
bool use_identity(const OpenSsl &ssl, SSL_CTX *ctx, std::string_view cert_pem, std::string_view key_pem,
                  std::string *error) {
  if (cert_pem.empty() != key_pem.empty())
    return *error = "cert and key go together: give both or neither", false;
  if (cert_pem.empty()) return true;
  BIO *bio = ssl.BIO_new_mem_buf(cert_pem.data(), static_cast<int>(cert_pem.size()));
  if (!bio) return *error = "out of memory", false;
  X509 *leaf = ssl.PEM_read_bio_X509(bio, nullptr, nullptr, nullptr);
  bool ok = leaf && ssl.SSL_CTX_use_certificate(ctx, leaf) == 1;
  if (leaf) ssl.X509_free(leaf);
  if (!ok) {
    ssl.BIO_free(bio);
    return *error = "cert: " + last_reason(ssl, "no PEM certificate in it"), false;
  }
  // The rest of the text: intermediate certificates, sent with the leaf.
  while (X509 *extra = ssl.PEM_read_bio_X509(bio, nullptr, nullptr, nullptr)) {
    if (ssl.SSL_CTX_ctrl(ctx, SSL_CTRL_EXTRA_CHAIN_CERT, 0, extra) != 1) {  // takes extra on success
      ssl.X509_free(extra);
      ssl.BIO_free(bio);
      return *error = "cert: " + last_reason(ssl, "chain certificate not accepted"), false;
    }
  }
  ssl.ERR_clear_error();
  ssl.BIO_free(bio);

  bio = ssl.BIO_new_mem_buf(key_pem.data(), static_cast<int>(key_pem.size()));
  if (!bio) return *error = "out of memory", false;
  EVP_PKEY *key = ssl.PEM_read_bio_PrivateKey(bio, nullptr, nullptr, nullptr);
  ssl.BIO_free(bio);
  ok = key && ssl.SSL_CTX_use_PrivateKey(ctx, key) == 1;
  if (key) ssl.EVP_PKEY_free(key);
  if (!ok) return *error = "key: " + last_reason(ssl, "no PEM private key in it"), false;
  if (ssl.SSL_CTX_check_private_key(ctx) != 1)
    return *error = "key: " + last_reason(ssl, "does not match the certificate"), false;
  return true;
}

// Why a handshake failed, in words a person can act on.
std::string handshake_failure(const OpenSsl &ssl, SSL *session, int rc) {
  const long verdict = ssl.SSL_get_verify_result(session);
  if (verdict != X509_V_OK) {
    ssl.ERR_clear_error();
    return std::string("certificate refused: ") + ssl.X509_verify_cert_error_string(verdict);
  }
  switch (ssl.SSL_get_error(session, rc)) {
    case SSL_ERROR_WANT_READ:
    case SSL_ERROR_WANT_WRITE:
      ssl.ERR_clear_error();
      return "no answer to the TLS handshake in time (is the server speaking TLS on this port?)";
    case SSL_ERROR_ZERO_RETURN:
      ssl.ERR_clear_error();
      return "connection closed during the TLS handshake";
    case SSL_ERROR_SYSCALL:
      if (errno != 0) {
        ssl.ERR_clear_error();
        const char *name = strerrorname_np(errno);
        return std::string("TLS handshake: ") + (name ? name : "system error");
      }
      return "connection closed during the TLS handshake";
    default: {
      std::string reason = last_reason(ssl, "handshake failed");
      if (reason == "wrong version number" || reason == "packet length too long")
        reason += " (is the server speaking TLS on this port?)";
      return "TLS handshake: " + reason;
    }
  }
}

// One read or write's result, as a TlsIo code when nothing was moved.
long io_result(const OpenSsl &ssl, SSL *session, int rc, std::string *error) {
  if (rc > 0) return rc;
  switch (ssl.SSL_get_error(session, rc)) {
    case SSL_ERROR_WANT_READ:
    case SSL_ERROR_WANT_WRITE:
      ssl.ERR_clear_error();
      errno = EAGAIN;
      return kTlsTimedOut;
    case SSL_ERROR_ZERO_RETURN:
      ssl.ERR_clear_error();
      return kTlsClosed;
    case SSL_ERROR_SYSCALL:
      ssl.ERR_clear_error();
      if (errno == 0) return kTlsClosed;
      *error = std::string("TLS: ") + (strerrorname_np(errno) ? strerrorname_np(errno) : "system error");
      return kTlsFailed;
    default:
      *error = "TLS: " + last_reason(ssl, "connection failed");
      return kTlsFailed;
  }
}

}  // namespace

std::shared_ptr<TlsConfig> make_tls_config(const TlsOptions &options, std::string *error) {
  const OpenSsl *ssl = openssl(error);
  if (!ssl) return nullptr;
  if (options.ca.size() > INT_MAX || options.cert.size() > INT_MAX || options.key.size() > INT_MAX)
    return *error = "a certificate or key of over 2 GiB", nullptr;
  SSL_CTX *ctx = ssl->SSL_CTX_new(ssl->TLS_client_method());
  if (!ctx) return *error = last_reason(*ssl, "could not make a TLS context"), nullptr;
  auto config = std::make_shared<TlsConfig>(*ssl, ctx, std::string(options.servername), options.verify);
  ssl->SSL_CTX_ctrl(ctx, SSL_CTRL_SET_MIN_PROTO_VERSION, TLS1_2_VERSION, nullptr);
  ssl->SSL_CTX_ctrl(ctx, SSL_CTRL_MODE, SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER | SSL_MODE_AUTO_RETRY, nullptr);
  // A server that closes without a TLS goodbye (killed, restarted) reads as
  // a closed connection, as it does without TLS.
  ssl->SSL_CTX_set_options(ctx, SSL_OP_IGNORE_UNEXPECTED_EOF);
  ssl->SSL_CTX_set_verify(ctx, options.verify ? SSL_VERIFY_PEER : SSL_VERIFY_NONE, nullptr);
  if (options.ca.empty()) {
    if (options.verify && ssl->SSL_CTX_set_default_verify_paths(ctx) != 1)
      return *error = "ca: " + last_reason(*ssl, "the system's certificates could not be read"), nullptr;
  } else if (!trust_certificates(*ssl, ctx, options.ca, error)) {
    return nullptr;
  }
  if (!use_identity(*ssl, ctx, options.cert, options.key, error)) return nullptr;
  return config;
}

TlsSession *tls_open(const TlsConfig &config, int fd, std::string_view host, std::string *error) {
  const OpenSsl &ssl = config.ssl;
  ssl.ERR_clear_error();
  SSL *session = ssl.SSL_new(config.ctx);
  if (!session) return *error = last_reason(ssl, "out of memory"), nullptr;
  auto owned = std::make_unique<TlsSession>(ssl, session, fd);
  const std::string name = config.servername.empty() ? std::string(host) : config.servername;
  const bool ip = is_ip_address(name);
  if (ssl.SSL_set_fd(session, fd) != 1) return *error = last_reason(ssl, "could not use the socket"), nullptr;
  // SNI is for names only; an address is checked against the certificate's IP entries.
  if (!ip) ssl.SSL_ctrl(session, SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name, const_cast<char *>(name.c_str()));
  if (config.verify) {
    const int named = ip ? ssl.X509_VERIFY_PARAM_set1_ip_asc(ssl.SSL_get0_param(session), name.c_str())
                         : ssl.SSL_set1_host(session, name.c_str());
    if (named != 1) return *error = "servername " + name + " cannot be checked", nullptr;
  }
  errno = 0;
  const int rc = ssl.SSL_connect(session);
  if (rc != 1) return *error = handshake_failure(ssl, session, rc), nullptr;
  return owned.release();
}

void tls_close(TlsSession *session) {
  if (!session) return;
  // A goodbye the server may never read: the socket is closed right after,
  // so it must not wait.
  const int flags = fcntl(session->fd, F_GETFL);
  if (flags != -1 && fcntl(session->fd, F_SETFL, flags | O_NONBLOCK) != -1) session->ssl.SSL_shutdown(session->session);
  session->ssl.ERR_clear_error();
  delete session;
}

long tls_write(TlsSession *session, const char *data, size_t len, std::string *error) {
  const OpenSsl &ssl = session->ssl;
  ssl.ERR_clear_error();
  errno = 0;
  const int rc = ssl.SSL_write(session->session, data, static_cast<int>(std::min<size_t>(len, INT_MAX)));
  return io_result(ssl, session->session, rc, error);
}

long tls_read(TlsSession *session, char *buf, size_t cap, std::string *error) {
  const OpenSsl &ssl = session->ssl;
  ssl.ERR_clear_error();
  errno = 0;
  const int rc = ssl.SSL_read(session->session, buf, static_cast<int>(std::min<size_t>(cap, INT_MAX)));
  return io_result(ssl, session->session, rc, error);
}

long tls_read_ready(TlsSession *session, char *buf, size_t cap, std::string *error) {
  const int flags = fcntl(session->fd, F_GETFL);
  if (flags == -1 || fcntl(session->fd, F_SETFL, flags | O_NONBLOCK) == -1) return 0;
  long n = tls_read(session, buf, cap, error);
  fcntl(session->fd, F_SETFL, flags);
  return n == kTlsTimedOut ? 0 : n;
}

bool tls_has_buffered(const TlsSession *session) { return session->ssl.SSL_pending(session->session) > 0; }

}  // namespace keyloom
