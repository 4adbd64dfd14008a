#include "resolve.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

namespace keyloom {

namespace {

bool is_numeric(const std::string &host) {
  unsigned char buf[sizeof(in6_addr)];
  return inet_pton(AF_INET, host.c_str(), buf) == 1 || inet_pton(AF_INET6, host.c_str(), buf) == 1;
}

// One lookup, shared by the caller and the thread doing it: whichever is
// last to let go frees it.
struct Lookup {
  std::mutex mutex;
  std::condition_variable done_signal;
  bool done = false;
  bool ok = false;
  std::string address;
  std::string error;
};

}  // namespace

bool system_resolve(const std::string &host, std::string *address, std::string *error) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo *found = nullptr;
  const int rc = getaddrinfo(host.c_str(), nullptr, &hints, &found);
  if (rc != 0 || !found) {
    *error = "resolve " + host + ": " + gai_strerror(rc);
    return false;
  }
  // An IPv4 address when there is one: "localhost" is often ::1 first, while
  // servers often listen on 127.0.0.1 only.
  const addrinfo *pick = found;
  for (const addrinfo *a = found; a; a = a->ai_next)
    if (a->ai_family == AF_INET) {
      pick = a;
      break;
    }
  char text[INET6_ADDRSTRLEN] = {};
  const void *raw = pick->ai_family == AF_INET
                        ? static_cast<const void *>(&reinterpret_cast<sockaddr_in *>(pick->ai_addr)->sin_addr)
                        : static_cast<const void *>(&reinterpret_cast<sockaddr_in6 *>(pick->ai_addr)->sin6_addr);
  const bool ok = inet_ntop(pick->ai_family, raw, text, sizeof text) != nullptr;
  freeaddrinfo(found);
  if (!ok) {
    *error = "resolve " + host + ": unusable address";
    return false;
  }
  *address = text;
  return true;
}

bool resolve_within(const std::string &host, unsigned ms, std::string *address, std::string *error,
                    Resolver resolver) {
  if (is_numeric(host)) {
    *address = host;
    return true;
  }
  auto lookup = std::make_shared<Lookup>();
  try {
    std::thread([lookup, host, resolver] {
      std::string found, why;
      const bool ok = resolver(host, &found, &why);
      std::lock_guard<std::mutex> lock(lookup->mutex);
      lookup->ok = ok;
      lookup->address = std::move(found);
      lookup->error = std::move(why);
      lookup->done = true;
      lookup->done_signal.notify_one();
    }).detach();
  } catch (...) {
    *error = "resolve " + host + ": no thread for the lookup";
    return false;
  }
  std::unique_lock<std::mutex> lock(lookup->mutex);
  if (!lookup->done_signal.wait_for(lock, std::chrono::milliseconds(ms), [&] { return lookup->done; })) {
    *error = "resolving " + host + " took longer than " + std::to_string(ms) + " ms";
    return false;
  }
  if (!lookup->ok) {
    *error = lookup->error;
    return false;
  }
  *address = lookup->address;
  return true;
}

}  // namespace keyloom
