// The client's optional mutex (KL_FLAG_SHARED; recursive with
// KL_FLAG_RECURSIVE). A client made without KL_FLAG_SHARED never locks.
#pragma once

#include <pthread.h>

namespace keyloom {

class ClientMutex {
 public:
  ClientMutex() = default;
  ~ClientMutex() {
    if (enabled_) pthread_mutex_destroy(&mutex_);
  }
  ClientMutex(const ClientMutex &) = delete;
  ClientMutex &operator=(const ClientMutex &) = delete;

  // False when the mutex could not be made.
  bool init(bool shared, bool recursive) {
    if (!shared) return true;
    pthread_mutexattr_t attr;
    if (pthread_mutexattr_init(&attr) != 0) return false;
    pthread_mutexattr_settype(&attr, recursive ? PTHREAD_MUTEX_RECURSIVE
                                               : PTHREAD_MUTEX_ERRORCHECK);
    bool ok = pthread_mutex_init(&mutex_, &attr) == 0;
    pthread_mutexattr_destroy(&attr);
    enabled_ = ok;
    return ok;
  }
  bool lock() { return !enabled_ || pthread_mutex_lock(&mutex_) == 0; }
  void unlock() {
    if (enabled_) pthread_mutex_unlock(&mutex_);
  }

 private:
  pthread_mutex_t mutex_;
  bool enabled_ = false;
};

// Scoped lock; check ok() and return KL_PTHREAD_OP_FAILURE when false. With
// take false it stands for a lock held further up (ok, nothing to undo).
class ClientLock {
 public:
  explicit ClientLock(ClientMutex &m, bool take = true)
      : mutex_(m), ok_(take ? m.lock() : true), taken_(take) {}
  ~ClientLock() {
    if (ok_ && taken_) mutex_.unlock();
  }
  ClientLock(const ClientLock &) = delete;
  ClientLock &operator=(const ClientLock &) = delete;
  bool ok() const { return ok_; }

 private:
  ClientMutex &mutex_;
  bool ok_;
  bool taken_;
};

}  // namespace keyloom
