// An eventfd used as a doorbell between threads: one side rings it, the
// other polls it and, once woken, empties it.
#pragma once

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

namespace keyloom {

// A new doorbell (non-blocking, closed on exec), or -1.
inline int make_wake_fd() { return eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK); }

// Makes fd readable. A failed write can only mean the counter is full, and
// then it is readable already.
inline void ring(int fd) {
  const uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = write(fd, &one, sizeof one);
}

// Makes fd unreadable again, however often it was rung.
inline void drain(int fd) {
  uint64_t count;
  [[maybe_unused]] const ssize_t read_bytes = read(fd, &count, sizeof count);
}

}  // namespace keyloom
