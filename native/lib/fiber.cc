// Fibers (a hand-written switch on x86-64, ucontext elsewhere), their stacks mapped with a guard page below and kept
// for reuse: a pipeline makes and ends thousands of them a second.
#include "fiber.h"

#include <sys/mman.h>
#include <unistd.h>

#include <vector>

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

namespace {

thread_local Fiber *running = nullptr;

size_t page_size() {
  static const size_t size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  return size;
}

// Stacks given back, per thread: a pipeline's thread reuses its own.
struct StackPool {
  std::vector<void *> free;
  ~StackPool() {
    for (void *s : free) munmap(static_cast<char *>(s) - page_size(), kFiberStackBytes + page_size());
  }
};
thread_local StackPool pool;
constexpr size_t kPooledStacks = 4096;

void *take_stack() {
  if (!pool.free.empty()) {
    void *s = pool.free.back();
    pool.free.pop_back();
    return s;
  }
  const size_t guard = page_size();
  void *base = mmap(nullptr, kFiberStackBytes + guard, PROT_READ | PROT_WRITE,
                    MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (base == MAP_FAILED) return nullptr;
  mprotect(base, guard, PROT_NONE);  // an overflow faults instead of corrupting
  return static_cast<char *>(base) + guard;
}

void give_stack(void *s) {
  if (pool.free.size() < kPooledStacks) {
    pool.free.push_back(s);
    return;
  }
  munmap(static_cast<char *>(s) - page_size(), kFiberStackBytes + page_size());
}

}  // namespace

#if defined(__x86_64__)
// keyloom_fiber_switch(void **from, void *to): pushes the callee-saved
// registers (and the SSE and x87 control words) on the running stack, stores
// the stack pointer in *from, loads `to` and pops what was saved there. A
// fresh stack is laid out (prepare) so that its first pop "returns" into
// Fiber::start. Unlike swapcontext, no system call: the signal mask is the
// thread's and stays as it is.
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

void Fiber::switch_to(void *&from, void *to) { keyloom_fiber_switch(&from, to); }
#endif

Fiber::~Fiber() {
  if (stack_) give_stack(stack_);
}

Fiber *Fiber::current() { return running; }

bool Fiber::prepare(Entry entry, void *arg) {
  if (!stack_ && !(stack_ = take_stack())) return false;
#ifdef KEYLOOM_FIBER_ASAN
  // A stack used before keeps the sanitizer's marks of frames that never
  // returned (a fiber ends by switching away): a fresh start has none.
  __asan_unpoison_memory_region(stack_, kFiberStackBytes);
#endif
#if defined(__x86_64__)
  // What keyloom_fiber_switch pops, from the lowest address: the control
  // words, r15 r14 r13 r12 rbx rbp, the address it returns to (start), and
  // a null return address for start, which never returns. start is entered
  // with the stack aligned as after a call.
  auto *top = reinterpret_cast<void **>(static_cast<char *>(stack_) + kFiberStackBytes);
  void **sp = top - 9;
  unsigned control[2];
  asm volatile("stmxcsr %0" : "=m"(control[0]));
  asm volatile("fnstcw %0" : "=m"(control[1]));
  __builtin_memcpy(&sp[0], control, sizeof control);
  for (int i = 1; i <= 6; ++i) sp[i] = nullptr;
  sp[7] = reinterpret_cast<void *>(&Fiber::start);
  sp[8] = nullptr;
  context_ = sp;
#else
  if (getcontext(&context_) != 0) return false;
  context_.uc_stack.ss_sp = stack_;
  context_.uc_stack.ss_size = kFiberStackBytes;
  context_.uc_link = nullptr;  // start never returns through it: it switches back
  makecontext(&context_, &Fiber::start, 0);
#endif
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
#if defined(__x86_64__)
  switch_to(caller_, context_);
#else
  swapcontext(&caller_, &context_);
#endif
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
#if defined(__x86_64__)
  switch_to(self->context_, self->caller_);
#else
  swapcontext(&self->context_, &self->caller_);
#endif
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
#if defined(__x86_64__)
  void *discarded = nullptr;
  switch_to(discarded, self->caller_);
#else
  setcontext(&self->caller_);
#endif
  __builtin_unreachable();
}

}  // namespace keyloom
