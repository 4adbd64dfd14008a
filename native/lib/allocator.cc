#include "allocator.h"

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <unordered_map>

namespace keyloom {

namespace {

std::mutex registry_mutex;
std::unordered_map<void *, void (*)(void *)> *registry = nullptr;  // never destroyed
std::atomic<size_t> recorded{0};  // lets the common case skip the lock

}  // namespace

void remember_allocation(void *ptr, void (*free_fn)(void *)) {
  if (!ptr) return;
  std::lock_guard<std::mutex> lock(registry_mutex);
  if (!registry) registry = new std::unordered_map<void *, void (*)(void *)>();
  (*registry)[ptr] = free_fn;
  recorded.store(registry->size(), std::memory_order_release);
}

void release_allocation(void *ptr) {
  if (!ptr) return;
  void (*free_fn)(void *) = std::free;
  if (recorded.load(std::memory_order_acquire) > 0) {
    std::lock_guard<std::mutex> lock(registry_mutex);
    auto it = registry->find(ptr);
    if (it != registry->end()) {
      free_fn = it->second;
      registry->erase(it);
      recorded.store(registry->size(), std::memory_order_release);
    }
  }
  free_fn(ptr);
}

}  // namespace keyloom
