// A fiber: a call stack of its own on which a library call can stop halfway
// (waiting for its replies) and be resumed later on the same thread. The
// pipeline runs many calls this way so that their commands share one write
// per server.
//
// Two ways to switch: a hand-written one on x86-64 (a few pushes and pops,
// no system call) and ucontext (everywhere, and on x86-64 when shadow stacks
// are on or the build asks for it with KEYLOOM_PORTABLE_FIBERS). Either way,
// a switch keeps the callee-saved registers, the MXCSR and the x87 control
// word of each side: a fiber starts with the modes of the thread that
// prepared it, and a mode set on one side is not seen on the other.
#pragma once

#include <cstddef>
#include <memory>

namespace keyloom {

enum class FiberSwitch {
  kAssembly,  // the hand-written switch (x86-64 only)
  kUcontext,  // getcontext/makecontext/swapcontext
};

// Is a user shadow stack (Intel CET) active on the calling thread? The
// hand-written switch moves the stack pointer without moving the shadow
// stack, so its first ret would fault there.
bool shadow_stack_active();
// The switch to use given what shadow_stack_active() says: ucontext when
// shadow stacks are on (glibc's swapcontext switches them) or when the
// hand-written one is not built.
FiberSwitch choose_fiber_switch(bool shadow_stack_on);
// The switch of this process, chosen once from the first caller's thread.
FiberSwitch fiber_switch();

class Fiber {
 public:
  using Entry = void (*)(void *arg);

  Fiber();
  ~Fiber();
  Fiber(const Fiber &) = delete;
  Fiber &operator=(const Fiber &) = delete;

  // Makes the fiber ready to run entry(arg) from its start; false when no
  // stack could be had. `how` falls back to ucontext where the hand-written
  // switch is not built.
  bool prepare(Entry entry, void *arg, FiberSwitch how = fiber_switch());
  // Runs the fiber until it suspends itself or entry returns. Only from the
  // thread's own stack, never from another fiber.
  void resume();
  // From inside the fiber: back to whoever resumed it.
  static void suspend();
  // The fiber running now, or null on the thread's own stack.
  static Fiber *current();

  bool finished() const { return finished_; }
  FiberSwitch how() const { return how_; }
  // The lowest usable address of the stack (the guard pages lie below), or
  // null when the fiber holds none.
  const void *stack_base() const { return stack_; }
  // Gives the stack back to this thread's pool (the fiber must be finished);
  // the next prepare takes one again.
  void release_stack();

 private:
  struct PortableContexts;
  static void start();

  // The hand-written switch: the stack pointers of the two sides, each
  // pointing at the registers saved there.
  void *context_ = nullptr;
  void *caller_ = nullptr;
  // The ucontext records, made on first use.
  std::unique_ptr<PortableContexts> portable_;
  FiberSwitch how_ = FiberSwitch::kUcontext;
  void *stack_ = nullptr;  // the usable part, above the guard pages
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
// PROT_NONE below each stack: an overflow faults there. More than one page,
// so that a frame larger than a page cannot step over it into the next
// mapping; it costs address space only.
constexpr size_t kFiberGuardBytes = size_t{64} << 10;

// Stacks kept for reuse by the calling thread's fibers, not in use.
size_t fiber_stacks_pooled();
// Stacks mapped in the whole process (in use or pooled).
size_t fiber_stacks_mapped();
// Unmaps the calling thread's pooled stacks beyond `keep`; the kept ones
// give their pages back to the system (they stay mapped, empty).
void release_pooled_stacks(size_t keep);

}  // namespace keyloom
