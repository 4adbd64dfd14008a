// TLS for a client's connections, over the OpenSSL the process already has.
//
// The library links no OpenSSL of its own: inside Node.js the functions come
// from the node executable, which exports its OpenSSL, so a TLS connection
// uses the same library (and version) as the rest of the process. Elsewhere
// (a C program, the C++ tests) they come from whatever libssl the program
// linked, or, failing that, from libssl.so.3 loaded on first use.
#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace keyloom {

// A client's TLS settings, shared by the clients made from it (group clients).
class TlsConfig;
// One connection's TLS session.
class TlsSession;

struct TlsOptions {
  std::string_view ca;          // PEM certificates to trust; empty: the system's
  std::string_view cert;        // PEM client certificate (chain), or empty
  std::string_view key;         // PEM private key of cert, or empty
  std::string_view servername;  // name checked and sent as SNI; empty: each server's host
  bool verify = true;           // false: the server's certificate is not checked
};

// Settings made from options, or null with *error saying why (OpenSSL
// missing, a PEM that does not parse, a key that does not match).
std::shared_ptr<TlsConfig> make_tls_config(const TlsOptions &options, std::string *error);

// The handshake on fd, a connected blocking socket whose time-outs bound each
// wait. host is the server's host (checked unless the settings name a
// server). Null with *error saying why (certificate refused, not TLS, ...).
TlsSession *tls_open(const TlsConfig &config, int fd, std::string_view host, std::string *error);
void tls_close(TlsSession *session);

// Result of one read or write: bytes moved (> 0), or one of these.
enum TlsIo : long { kTlsTimedOut = -1, kTlsFailed = -2, kTlsClosed = -3 };
// Writes up to len bytes (OpenSSL writes a whole record at a time).
long tls_write(TlsSession *session, const char *data, size_t len, std::string *error);
// Reads what is there, up to cap bytes, waiting at most the socket's time-out.
long tls_read(TlsSession *session, char *buf, size_t cap, std::string *error);
// Reads without waiting: the bytes of application data that were ready
// (0 when only protocol records, such as session tickets, were there), or
// kTlsClosed / kTlsFailed.
long tls_read_ready(TlsSession *session, char *buf, size_t cap, std::string *error);
// Decrypted bytes held by the session, not yet read.
bool tls_has_buffered(const TlsSession *session);

}  // namespace keyloom
