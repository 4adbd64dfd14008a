// A fiber: a call stack of its own on which a library call can stop halfway
// (waiting for its replies) and be resumed later on the same thread. The
// pipeline runs many calls this way so that their commands share one write
// per server.
#pragma once

#include <cstddef>

#if !defined(__x86_64__)
#include <ucontext.h>
#endif

namespace keyloom {

class Fiber {
 public:
  using Entry = void (*)(void *arg);

  Fiber() = default;
  ~Fiber();
  Fiber(const Fiber &) = delete;
  Fiber &operator=(const Fiber &) = delete;

  // Makes the fiber ready to run entry(arg) from its start; false when no
  // stack could be had.
  bool prepare(Entry entry, void *arg);
  // Runs the fiber until it suspends itself or entry returns. Only from the
  // thread's own stack, never from another fiber.
  void resume();
  // From inside the fiber: back to whoever resumed it.
  static void suspend();
  // The fiber running now, or null on the thread's own stack.
  static Fiber *current();

  bool finished() const { return finished_; }

 private:
  static void start();
  // Saves the running context in *from and continues the one in to.
  static void switch_to(void *&from, void *to);

  // x86-64: the stack pointers of the two sides, each pointing at the
  // registers saved there. Elsewhere: ucontext records.
#if defined(__x86_64__)
  void *context_ = nullptr;
  void *caller_ = nullptr;
#else
  ucontext_t context_{};
  ucontext_t caller_{};
#endif
  void *stack_ = nullptr;  // the usable part, above the guard page
  Entry entry_ = nullptr;
  void *arg_ = nullptr;
  bool finished_ = true;
  // The sanitizer's view of the stacks being switched (unused otherwise).
  void *fake_stack_ = nullptr;
  const void *caller_bottom_ = nullptr;
  size_t caller_size_ = 0;
};

// The size of a fiber's stack: enough for any library call, name resolution
// included. Only the pages a call touches are ever backed by memory.
constexpr size_t kFiberStackBytes = size_t{256} << 10;

}  // namespace keyloom
