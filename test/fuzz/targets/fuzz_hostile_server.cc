// libFuzzer target: a hostile server. Every command of a table of the
// library's reply shapes (values, arrays, pairs, scores, integers, texts per
// server) is run against a server on a loopback port that answers whatever it
// is asked with the fuzzed bytes, then closes the connection. Whatever the
// bytes, the call must answer a code, and on success every output the code
// promises must be readable to its announced length (the address sanitizer
// stops on any read past an array) and release cleanly.
//
// Input: one byte choosing the command, then the bytes the server sends.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>

#include "keyloom.h"

#define CHECK(cond)                \
  do {                             \
    if (!(cond)) __builtin_trap(); \
  } while (0)

namespace {

// The server: one listener for the whole run; each connection is answered
// once with the current bytes, then closed.
class HostileServer {
 public:
  HostileServer() {
    listener_ = socket(AF_INET, SOCK_STREAM, 0);
    int one = 1;
    setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    CHECK(bind(listener_, reinterpret_cast<sockaddr *>(&addr), sizeof addr) == 0);
    CHECK(listen(listener_, 16) == 0);
    socklen_t len = sizeof addr;
    getsockname(listener_, reinterpret_cast<sockaddr *>(&addr), &len);
    port_ = ntohs(addr.sin_port);
    std::thread([this] { serve(); }).detach();  // lives as long as the process
  }
  unsigned port() const { return port_; }
  void answer_with(std::string bytes) {
    std::lock_guard<std::mutex> lock(mutex_);
    answer_ = std::move(bytes);
  }

 private:
  void serve() {
    for (;;) {
      int conn = accept(listener_, nullptr, nullptr);
      if (conn < 0) continue;
      char request[4096];
      if (read(conn, request, sizeof request) > 0) {
        std::string bytes;
        {
          std::lock_guard<std::mutex> lock(mutex_);
          bytes = answer_;
        }
        size_t sent = 0;
        while (sent < bytes.size()) {
          ssize_t n = write(conn, bytes.data() + sent, bytes.size() - sent);
          if (n <= 0) break;
          sent += static_cast<size_t>(n);
        }
      }
      close(conn);
    }
  }

  int listener_ = -1;
  unsigned port_ = 0;
  std::mutex mutex_;
  std::string answer_;
};

char *mut(const char *s) { return const_cast<char *>(s); }

void valid_code(kl_return_t r) { CHECK(static_cast<int>(r) >= 0 && static_cast<int>(r) <= (20 | 128)); }
bool ok(kl_return_t r) { return (static_cast<int>(r) & ~128) == KL_SUCCESS; }

// Reads every byte of an output array of n texts with their lengths.
void read_texts(char **texts, const size_t *lens, size_t n) {
  volatile unsigned sum = 0;
  for (size_t i = 0; i < n; ++i) {
    if (!texts[i]) continue;
    const size_t len = lens ? lens[i] : std::strlen(texts[i]);
    for (size_t j = 0; j < len; ++j) sum = sum + static_cast<unsigned char>(texts[i][j]);
  }
}

void release_lengths(size_t **lens) { kl_free_php_reply_p(reinterpret_cast<char **>(lens)); }

// One value: GET, SVAL, TYPE.
void one_value(kl_client *c, int which) {
  char *value = nullptr;
  size_t len = 0;
  kl_return_t r = which == 0   ? kl_get_whole(c, mut("k"), 1, &value, &len, nullptr, 0)
                  : which == 1 ? kl_sval_whole(c, mut("s"), 1, mut("m"), 1, &value, &len, nullptr, 0)
                               : kl_type(c, mut("k"), 1, &value);
  valid_code(r);
  if (ok(r) && value) read_texts(&value, which == 2 ? nullptr : &len, 1);
  kl_free_php_reply_p(&value);
}

// Several values with a count: MGET, LRANGE, HMGET, SUNION, CONFIG GET.
void many_values(kl_client *c, int which) {
  char **values = nullptr;
  size_t count = 0;
  size_t *lens = nullptr;
  char *keys[3] = {mut("a"), mut("b"), mut("c")};
  size_t key_lens[3] = {1, 1, 1};
  kl_return_t r;
  switch (which) {
    case 0: r = kl_mget_whole(c, keys, 3, key_lens, &values, &count, &lens, nullptr, 0, KL_NULL_ON_FAIL); break;
    case 1: r = kl_lrange_whole(c, mut("l"), 1, 0, -1, &values, &count, &lens, nullptr, 0); break;
    case 2: r = kl_hmget_whole(c, mut("h"), 1, keys, 3, key_lens, &values, &count, &lens, nullptr, 0); break;
    case 3: r = kl_sunion_whole(c, keys, 3, key_lens, &values, &count, &lens, nullptr, 0, KL_NULL_ON_FAIL); break;
    default: r = kl_config_get(c, "maxmemory", 9, "", 0, &values, &count, &lens, nullptr, nullptr); break;
  }
  valid_code(r);
  if (ok(r) && count > 0) {
    CHECK(values && lens);
    read_texts(values, lens, count);
  }
  kl_free_php_reply_pp(&values, static_cast<unsigned>(count));
  release_lengths(&lens);
}

// Pairs: HGETALL, DGETALL, DCLOSE, SMEMBERS with values.
void pairs(kl_client *c, int which) {
  size_t count = 0;
  char **first = nullptr, **second = nullptr;
  size_t *first_lens = nullptr, *second_lens = nullptr;
  kl_return_t r;
  switch (which) {
    case 0: r = kl_hgetall(c, mut("h"), 1, &count, &first, &first_lens, &second, &second_lens); break;
    case 1: r = kl_dgetall(c, mut("d"), 1, &count, &first, &first_lens, &second, &second_lens); break;
    case 2:
      r = kl_dclose_whole(c, mut("d"), 1, mut("p"), 1, &count, &first, &first_lens, &second, &second_lens, nullptr, 0);
      break;
    default:
      r = kl_smembers_whole(c, "s", 1, &first, &count, &first_lens, nullptr, 0, SET_WITH_VALUES, &second, &second_lens);
      break;
  }
  valid_code(r);
  if (ok(r) && count > 0) {
    CHECK(first && first_lens && second && second_lens);
    read_texts(first, first_lens, count);
    read_texts(second, second_lens, count);
  }
  kl_free_php_reply_pp(&first, static_cast<unsigned>(count));
  kl_free_php_reply_pp(&second, static_cast<unsigned>(count));
  release_lengths(&first_lens);
  release_lengths(&second_lens);
}

// Members with scores and values: ZRANGE WITHSCORES.
void scored(kl_client *c) {
  char **members = nullptr, **values = nullptr;
  size_t count = 0;
  size_t *member_lens = nullptr, *value_lens = nullptr;
  double *scores = nullptr;
  kl_return_t r = kl_zrange_whole(c, mut("z"), 1, 0, -1, &members, &count, &member_lens, nullptr, 0,
                                  static_cast<zSetFlags>(ZSET_WITH_SCORES | ZSET_WITH_VALUES), &scores, &values,
                                  &value_lens);
  valid_code(r);
  if (ok(r) && count > 0) {
    CHECK(members && member_lens && scores && values && value_lens);
    read_texts(members, member_lens, count);
    read_texts(values, value_lens, count);
    volatile double sum = 0;
    for (size_t i = 0; i < count; ++i) sum = sum + scores[i];
  }
  kl_free_php_reply_pp(&members, static_cast<unsigned>(count));
  kl_free_php_reply_pp(&values, static_cast<unsigned>(count));
  release_lengths(&member_lens);
  release_lengths(&value_lens);
  kl_free_php_reply_p(reinterpret_cast<char **>(&scores));
}

// Numbers: INCR, TTL, ZSCORE, ZRANK, EXISTS.
void numbers(kl_client *c, int which) {
  int n = 0;
  unsigned rank = 0;
  double score = 0;
  char *value = nullptr;
  size_t len = 0;
  kl_return_t r;
  switch (which) {
    case 0: r = kl_incr(c, mut("n"), 1, &n, 0); break;
    case 1: r = kl_get_ttl(c, mut("n"), 1, &n); break;
    case 2: r = kl_zscore(c, mut("z"), 1, mut("m"), 1, &score, &value, &len); break;
    case 3: r = kl_zrank(c, mut("z"), 1, mut("m"), 1, &rank, ZSET_DEFAULT, &value, &len); break;
    default: r = kl_exists(c, mut("k"), 1); break;
  }
  valid_code(r);
  if (ok(r) && value) read_texts(&value, &len, 1);
  kl_free_php_reply_p(&value);
}

// One text per server: INFO.
void texts_per_server(kl_client *c) {
  char **infos = nullptr;
  kl_return_t r = kl_info(c, &infos, nullptr, nullptr);
  valid_code(r);
  unsigned n = 0;
  if (infos) {
    while (infos[n]) ++n;
    read_texts(infos, nullptr, n);
  }
  kl_free_php_reply_pp(&infos, n);
}

HostileServer &server() {
  static HostileServer *s = new HostileServer();
  return *s;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 1) return 0;
  HostileServer &s = server();
  s.answer_with(std::string(reinterpret_cast<const char *>(data + 1), size - 1));
  kl_client *c = kl_client_create(KL_HASH_DEFAULT, KL_DISTRIBUTION_MODULA, nullptr, KL_FLAG_NONE);
  kl_set_client_version(c, CLIENT_VERSION_1);  // no INFO at connect: the bytes answer the command
  kl_client_connection_timeout(c, 200);
  kl_server_add(c, mut("127.0.0.1"), s.port(), nullptr);
  const int command = data[0] % 21;
  if (command < 3) one_value(c, command);
  else if (command < 8) many_values(c, command - 3);
  else if (command < 12) pairs(c, command - 8);
  else if (command < 13) scored(c);
  else if (command < 18) numbers(c, command - 13);
  else texts_per_server(c);
  kl_client_destroy(c);
  return 0;
}
