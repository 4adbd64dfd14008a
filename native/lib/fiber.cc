// Fibers: the switch (hand-written on x86-64, ucontext otherwise or when
// shadow stacks are on), and their stacks, mapped with guard pages below and
// kept per thread for reuse: a pipeline makes and ends thousands of them a
// second.
#include "fiber.h"

#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <atomic>
#include <new>
#include <vector>

#if defined(__x86_64__) && !defined(KEYLOOM_PORTABLE_FIBERS)
#define KEYLOOM_ASSEMBLY_SWITCH 1
#endif
#if defined(__x86_64__) && defined(__linux__)
#include <sys/syscall.h>
#endif

#if defined(__SANITIZE_ADDRESS__)
#define KEYLOOM_FIBER_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KEYLOOM_FIBER_ASAN 1
#endif
#endif
#ifdef KEYLOOM_FIBER_ASAN
#include <sanitizer/asan_interface.h>
#include <sanitizer/common_interface_defs.h>
#endif

namespace keyloom {

struct Fiber::PortableContexts {
  ucontext_t context;
  ucontext_t caller;
};

namespace {

thread_local Fiber *running = nullptr;

// ---- Stacks ----

std::atomic<size_t> mapped_stacks{0};
constexpr size_t kMappedBytes = kFiberGuardBytes + kFiberStackBytes;

void *map_stack() {
  void *base = mmap(nullptr, kMappedBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (base == MAP_FAILED) return nullptr;
  // Without its guard a stack could overflow into whatever lies below.
  if (mprotect(base, kFiberGuardBytes, PROT_NONE) != 0) {
    munmap(base, kMappedBytes);
    return nullptr;
  }
  mapped_stacks.fetch_add(1, std::memory_order_relaxed);
  return static_cast<char *>(base) + kFiberGuardBytes;
}

void unmap_stack(void *stack) {
#ifdef KEYLOOM_FIBER_ASAN
  // Marks left by frames that never returned would outlive the mapping and
  // be found by whatever is mapped there next.
  __asan_unpoison_memory_region(stack, kFiberStackBytes);
#endif
  munmap(static_cast<char *>(stack) - kFiberGuardBytes, kMappedBytes);
  mapped_stacks.fetch_sub(1, std::memory_order_relaxed);
}

// Stacks given back, per thread: a pipeline's thread reuses its own.
struct StackPool {
  std::vector<void *> free;
  ~StackPool() {
    for (void *s : free) unmap_stack(s);
  }
};
thread_local StackPool pool;
constexpr size_t kPooledStacks = 4096;

void *take_stack() {
  if (pool.free.empty()) return map_stack();
  void *s = pool.free.back();
  pool.free.pop_back();
  return s;
}

void give_stack(void *s) {
  if (pool.free.size() >= kPooledStacks) return unmap_stack(s);
  try {
    pool.free.push_back(s);
  } catch (const std::bad_alloc &) {
    unmap_stack(s);
  }
}

// ---- Shadow stacks ----

#if defined(__x86_64__) && defined(__linux__)
// arch_prctl(ARCH_SHSTK_STATUS) writes the thread's enabled CET features;
// bit 0 is the shadow stack. Kernels without user shadow stacks (before 6.6,
// or built without them) reject the request: none is on there.
constexpr int kArchShstkStatus = 0x5005;
constexpr unsigned long kArchShstkShstk = 1;

bool query_shadow_stack() {
  unsigned long features = 0;
  if (syscall(SYS_arch_prctl, kArchShstkStatus, &features) != 0) return false;
  return (features & kArchShstkShstk) != 0;
}
#else
bool query_shadow_stack() { return false; }
#endif

}  // namespace

bool shadow_stack_active() { return query_shadow_stack(); }

FiberSwitch choose_fiber_switch(bool shadow_stack_on) {
#ifdef KEYLOOM_ASSEMBLY_SWITCH
  return shadow_stack_on ? FiberSwitch::kUcontext : FiberSwitch::kAssembly;
#else
  (void)shadow_stack_on;
  return FiberSwitch::kUcontext;
#endif
}

FiberSwitch fiber_switch() {
  // glibc turns shadow stacks on (or not) at start-up and new threads
  // inherit the setting: one look serves the process.
  static const FiberSwitch chosen = choose_fiber_switch(shadow_stack_active());
  return chosen;
}

size_t fiber_stacks_pooled() { return pool.free.size(); }
size_t fiber_stacks_mapped() { return mapped_stacks.load(std::memory_order_relaxed); }

void release_pooled_stacks(size_t keep) {
  while (pool.free.size() > keep) {
    unmap_stack(pool.free.back());
    pool.free.pop_back();
  }
  for (void *s : pool.free) madvise(s, kFiberStackBytes, MADV_DONTNEED);
}

// ---- The switch ----

#ifdef KEYLOOM_ASSEMBLY_SWITCH
// keyloom_fiber_switch(void **from, void *to): pushes the callee-saved
// registers (and the MXCSR and x87 control word) on the running stack, stores
// the stack pointer in *from, loads `to` and pops what was saved there. A
// fresh stack is laid out (prepare) so that its first pop "returns" into
// Fiber::start. Unlike swapcontext, no system call: the signal mask is the
// thread's and stays as it is. The shadow stack is not switched: with one on,
// fiber_switch() never picks this.
extern "C" void keyloom_fiber_switch(void **from, void *to);
asm(R"(
  .text
  .p2align 4
  .type keyloom_fiber_switch,@function
keyloom_fiber_switch:
  pushq %rbp
  pushq %rbx
  pushq %r12
  pushq %r13
  pushq %r14
  pushq %r15
  subq $8, %rsp
  stmxcsr (%rsp)
  fnstcw 4(%rsp)
  movq %rsp, (%rdi)
  movq %rsi, %rsp
  ldmxcsr (%rsp)
  fldcw 4(%rsp)
  addq $8, %rsp
  popq %r15
  popq %r14
  popq %r13
  popq %r12
  popq %rbx
  popq %rbp
  ret
  .size keyloom_fiber_switch,.-keyloom_fiber_switch
  .section .note.GNU-stack,"",@progbits
  .text
)");
#endif

namespace {

// Saves the running side in `from` and continues the one in `to`, by the
// fiber's switch. `from_context`/`to_context` are the ucontext records.
void switch_sides(FiberSwitch how, void *&from, void *to, ucontext_t *from_context, ucontext_t *to_context) {
#ifdef KEYLOOM_ASSEMBLY_SWITCH
  if (how == FiberSwitch::kAssembly) return keyloom_fiber_switch(&from, to);
#else
  (void)how, (void)from, (void)to;
#endif
  swapcontext(from_context, to_context);
}

}  // namespace

Fiber::Fiber() = default;

Fiber::~Fiber() { release_stack(); }

void Fiber::release_stack() {
  if (!stack_) return;
  give_stack(stack_);
  stack_ = nullptr;
}

Fiber *Fiber::current() { return running; }

bool Fiber::prepare(Entry entry, void *arg, FiberSwitch how) {
#ifdef KEYLOOM_ASSEMBLY_SWITCH
  how_ = how;
#else
  (void)how;
  how_ = FiberSwitch::kUcontext;
#endif
  if (how_ == FiberSwitch::kUcontext && !portable_) {
    portable_.reset(new (std::nothrow) PortableContexts());
    if (!portable_) return false;
  }
  if (!stack_ && !(stack_ = take_stack())) return false;
#ifdef KEYLOOM_FIBER_ASAN
  // A stack used before keeps the sanitizer's marks of frames that never
  // returned (a fiber ends by switching away): a fresh start has none.
  __asan_unpoison_memory_region(stack_, kFiberStackBytes);
#endif
  if (how_ == FiberSwitch::kAssembly) {
    // What keyloom_fiber_switch pops, from the lowest address: the control
    // words, r15 r14 r13 r12 rbx rbp, the address it returns to (start),
    // and a null return address for start, which never returns. start is
    // entered with the stack aligned as after a call.
    auto *top = reinterpret_cast<void **>(static_cast<char *>(stack_) + kFiberStackBytes);
    void **sp = top - 9;
    unsigned control[2] = {0, 0};
#if defined(__x86_64__)
    asm volatile("stmxcsr %0" : "=m"(control[0]));
    asm volatile("fnstcw %0" : "=m"(control[1]));
#endif
    __builtin_memcpy(&sp[0], control, sizeof control);
    for (int i = 1; i <= 6; ++i) sp[i] = nullptr;
    sp[7] = reinterpret_cast<void *>(&Fiber::start);
    sp[8] = nullptr;
    context_ = sp;
  } else {
    // getcontext takes the running thread's MXCSR and x87 environment:
    // the fiber starts with them, as with the hand-written switch.
    ucontext_t &context = portable_->context;
    if (getcontext(&context) != 0) return false;
    context.uc_stack.ss_sp = stack_;
    context.uc_stack.ss_size = kFiberStackBytes;
    context.uc_link = nullptr;  // start never returns through it: it switches back
    makecontext(&context, &Fiber::start, 0);
  }
  entry_ = entry;
  arg_ = arg;
  finished_ = false;
  return true;
}

void Fiber::resume() {
  running = this;
#ifdef KEYLOOM_FIBER_ASAN
  void *fake = nullptr;
  __sanitizer_start_switch_fiber(&fake, stack_, kFiberStackBytes);
#endif
  PortableContexts *p = portable_.get();
  switch_sides(how_, caller_, context_, p ? &p->caller : nullptr, p ? &p->context : nullptr);
#ifdef KEYLOOM_FIBER_ASAN
  __sanitizer_finish_switch_fiber(fake, nullptr, nullptr);
#endif
  running = nullptr;
}

void Fiber::suspend() {
  Fiber *self = running;
#ifdef KEYLOOM_FIBER_ASAN
  __sanitizer_start_switch_fiber(&self->fake_stack_, self->caller_bottom_, self->caller_size_);
#endif
  PortableContexts *p = self->portable_.get();
  switch_sides(self->how_, self->context_, self->caller_, p ? &p->context : nullptr, p ? &p->caller : nullptr);
#ifdef KEYLOOM_FIBER_ASAN
  __sanitizer_finish_switch_fiber(self->fake_stack_, &self->caller_bottom_, &self->caller_size_);
#endif
}

void Fiber::start() {
  Fiber *self = running;
#ifdef KEYLOOM_FIBER_ASAN
  __sanitizer_finish_switch_fiber(nullptr, &self->caller_bottom_, &self->caller_size_);
#endif
  self->entry_(self->arg_);
  self->finished_ = true;
#ifdef KEYLOOM_FIBER_ASAN
  // The fiber's frames end here: nothing of them is to be kept.
  __sanitizer_start_switch_fiber(nullptr, self->caller_bottom_, self->caller_size_);
#endif
  if (self->how_ == FiberSwitch::kAssembly) {
    void *discarded = nullptr;
    switch_sides(self->how_, discarded, self->caller_, nullptr, nullptr);
  } else {
    setcontext(&self->portable_->caller);
  }
  __builtin_unreachable();
}

}  // namespace keyloom
