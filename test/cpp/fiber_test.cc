// Fibers: what a switch keeps (callee-saved registers, the floating-point
// control modes), the guard pages under the stacks, many fibers at once, the
// stack pool, and which switch a process picks. Every switch built here is
// tested: the hand-written one (x86-64) and ucontext.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cfenv>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "fiber.h"

using keyloom::Fiber;
using keyloom::FiberSwitch;

namespace {

// Every switch this build has: ucontext always, the hand-written one where
// the process would use it.
std::vector<FiberSwitch> built_switches() {
  std::vector<FiberSwitch> all{FiberSwitch::kUcontext};
  if (keyloom::fiber_switch() == FiberSwitch::kAssembly) all.push_back(FiberSwitch::kAssembly);
  return all;
}

std::string switch_name(const testing::TestParamInfo<FiberSwitch> &info) {
  return info.param == FiberSwitch::kAssembly ? "Assembly" : "Ucontext";
}

class FiberSwitchTest : public testing::TestWithParam<FiberSwitch> {
 protected:
  // Prepares `fiber` with the switch under test and checks it took it.
  void prepare(Fiber &fiber, Fiber::Entry entry, void *arg) {
    ASSERT_TRUE(fiber.prepare(entry, arg, GetParam()));
    ASSERT_EQ(fiber.how(), GetParam());
  }
};

INSTANTIATE_TEST_SUITE_P(Switches, FiberSwitchTest, testing::ValuesIn(built_switches()), switch_name);

void suspend_fiber(void *) { Fiber::suspend(); }
void resume_fiber(void *fiber) { static_cast<Fiber *>(fiber)->resume(); }

// ---- Callee-saved registers ----

#if defined(__x86_64__)
// hold_callee_saved(values, fn, arg): loads values[0..5] into rbx, rbp,
// r12..r15, calls fn(arg), and returns a bit for each of those registers
// that no longer holds its value (0: all kept). The registers are restored
// for the caller as the ABI requires.
extern "C" uint32_t hold_callee_saved(const uint64_t values[6], void (*fn)(void *), void *arg);
asm(R"(
  .text
  .p2align 4
  .type hold_callee_saved,@function
hold_callee_saved:
  pushq %rbp
  pushq %rbx
  pushq %r12
  pushq %r13
  pushq %r14
  pushq %r15
  pushq %rdi
  movq %rsi, %r11
  movq %rdi, %rax
  movq %rdx, %rdi
  movq 0(%rax), %rbx
  movq 8(%rax), %rbp
  movq 16(%rax), %r12
  movq 24(%rax), %r13
  movq 32(%rax), %r14
  movq 40(%rax), %r15
  call *%r11
  movq (%rsp), %rcx
  xorl %eax, %eax
  cmpq 0(%rcx), %rbx
  je 1f
  orl $1, %eax
1:
  cmpq 8(%rcx), %rbp
  je 2f
  orl $2, %eax
2:
  cmpq 16(%rcx), %r12
  je 3f
  orl $4, %eax
3:
  cmpq 24(%rcx), %r13
  je 4f
  orl $8, %eax
4:
  cmpq 32(%rcx), %r14
  je 5f
  orl $16, %eax
5:
  cmpq 40(%rcx), %r15
  je 6f
  orl $32, %eax
6:
  addq $8, %rsp
  popq %r15
  popq %r14
  popq %r13
  popq %r12
  popq %rbx
  popq %rbp
  ret
  .size hold_callee_saved,.-hold_callee_saved
  .section .note.GNU-stack,"",@progbits
  .text
)");

// Values that differ for each side, register and round.
void side_values(uint64_t side, int round, uint64_t out[6]) {
  for (uint64_t r = 0; r < 6; ++r) out[r] = (side << 56) | (r << 32) | static_cast<uint64_t>(round);
}

constexpr int kRegisterRounds = 100;

struct RegisterSides {
  uint32_t fiber_lost = 0;  // bits of registers the fiber's side lost
};

void fiber_holds_registers(void *arg) {
  auto *sides = static_cast<RegisterSides *>(arg);
  for (int round = 0; round < kRegisterRounds; ++round) {
    uint64_t values[6];
    side_values(0xB0, round, values);
    sides->fiber_lost |= hold_callee_saved(values, &suspend_fiber, nullptr);
  }
}

TEST_P(FiberSwitchTest, CalleeSavedRegistersSurviveASwitchBothWays) {
  // Each side loads its own values, switches to the other (which loads
  // others) and checks its own on return.
  RegisterSides sides;
  Fiber fiber;
  prepare(fiber, &fiber_holds_registers, &sides);
  uint32_t caller_lost = 0;
  for (int round = 0; !fiber.finished(); ++round) {
    uint64_t values[6];
    side_values(0xA0, round, values);
    caller_lost |= hold_callee_saved(values, &resume_fiber, &fiber);
  }
  EXPECT_EQ(caller_lost, 0u) << "bits: rbx rbp r12 r13 r14 r15 lost on the caller's side";
  EXPECT_EQ(sides.fiber_lost, 0u) << "bits: rbx rbp r12 r13 r14 r15 lost on the fiber's side";
}
#endif

// Many values live across a switch, wherever the compiler keeps them
// (callee-saved registers or the stack); any architecture.
__attribute__((noinline)) uint64_t mix_across(uint64_t seed, void (*fn)(void *), void *arg) {
  uint64_t a = seed * 3, b = seed ^ 0x5555, c = seed + 7, d = seed * seed, e = ~seed, f = seed << 3;
  uint64_t g = seed >> 1, h = seed * 11, i = seed ^ 0xF0F0, j = seed + 0x1234, k = seed * 13, l = seed - 9;
  asm volatile("" : "+r"(a), "+r"(b), "+r"(c), "+r"(d), "+r"(e), "+r"(f));
  asm volatile("" : "+r"(g), "+r"(h), "+r"(i), "+r"(j), "+r"(k), "+r"(l));
  fn(arg);
  asm volatile("" : "+r"(a), "+r"(b), "+r"(c), "+r"(d), "+r"(e), "+r"(f));
  asm volatile("" : "+r"(g), "+r"(h), "+r"(i), "+r"(j), "+r"(k), "+r"(l));
  return a ^ (b << 1) ^ (c << 2) ^ (d << 3) ^ (e << 4) ^ (f << 5) ^ (g << 6) ^ (h << 7) ^ (i << 8) ^ (j << 9) ^
         (k << 10) ^ (l << 11);
}
void nothing(void *) {}

struct MixSides {
  int rounds = 0;
  int fiber_mismatches = 0;
};

void fiber_mixes(void *arg) {
  auto *sides = static_cast<MixSides *>(arg);
  for (int r = 0; r < sides->rounds; ++r) {
    const uint64_t seed = 0xB000 + static_cast<uint64_t>(r);
    if (mix_across(seed, &suspend_fiber, nullptr) != mix_across(seed, &nothing, nullptr)) ++sides->fiber_mismatches;
  }
}

TEST_P(FiberSwitchTest, ValuesLiveAcrossASwitchAreKeptOnBothSides) {
  MixSides sides;
  sides.rounds = 100;
  Fiber fiber;
  prepare(fiber, &fiber_mixes, &sides);
  int caller_mismatches = 0;
  for (uint64_t r = 0; !fiber.finished(); ++r) {
    const uint64_t seed = 0xA000 + r;
    if (mix_across(seed, &resume_fiber, &fiber) != mix_across(seed, &nothing, nullptr)) ++caller_mismatches;
  }
  EXPECT_EQ(caller_mismatches, 0);
  EXPECT_EQ(sides.fiber_mismatches, 0);
}

// ---- Floating-point control modes ----

struct FloatModes {
  int rounding;
#if defined(__x86_64__)
  uint32_t mxcsr;
  uint16_t x87_control;
#endif
  bool operator==(const FloatModes &) const = default;
};

// The control modes only: the MXCSR's exception flags (bits 0-5) change
// with any arithmetic and are left out.
FloatModes float_modes() {
  FloatModes modes{};
  modes.rounding = fegetround();
#if defined(__x86_64__)
  asm volatile("stmxcsr %0" : "=m"(modes.mxcsr));
  asm volatile("fnstcw %0" : "=m"(modes.x87_control));
  modes.mxcsr &= ~0x3Fu;
#endif
  return modes;
}

void print_to(const FloatModes &m, std::ostream *os) {
  *os << "rounding " << m.rounding;
#if defined(__x86_64__)
  *os << std::hex << " mxcsr 0x" << m.mxcsr << " x87 0x" << m.x87_control << std::dec;
#endif
}
void PrintTo(const FloatModes &m, std::ostream *os) { print_to(m, os); }

#if defined(__x86_64__)
// Flush-to-zero: an MXCSR control bit that fesetround leaves alone.
void set_flush_to_zero(bool on) {
  uint32_t mxcsr;
  asm volatile("stmxcsr %0" : "=m"(mxcsr));
  mxcsr = on ? (mxcsr | 0x8000u) : (mxcsr & ~0x8000u);
  asm volatile("ldmxcsr %0" : : "m"(mxcsr));
}
#else
void set_flush_to_zero(bool) {}
#endif

struct ModeSides {
  FloatModes at_start{};        // what the fiber found when it began
  FloatModes own{};             // what it set for itself
  FloatModes after_switches{};  // what it found after being resumed
};

void fiber_sets_modes(void *arg) {
  auto *sides = static_cast<ModeSides *>(arg);
  sides->at_start = float_modes();
  fesetround(FE_UPWARD);
  set_flush_to_zero(true);
  sides->own = float_modes();
  Fiber::suspend();
  Fiber::suspend();
  sides->after_switches = float_modes();
}

TEST_P(FiberSwitchTest, EachSideKeepsItsOwnRoundingModeAndControlWords) {
  // The fiber starts with the modes of the thread when it was prepared.
  ASSERT_EQ(fesetround(FE_TOWARDZERO), 0);
  const FloatModes when_prepared = float_modes();
  ModeSides sides;
  Fiber fiber;
  prepare(fiber, &fiber_sets_modes, &sides);
  ASSERT_EQ(fesetround(FE_TONEAREST), 0);
  const FloatModes caller = float_modes();

  fiber.resume();  // the fiber sets its own modes and suspends
  EXPECT_EQ(sides.at_start, when_prepared);
  EXPECT_EQ(sides.own.rounding, FE_UPWARD);
  EXPECT_EQ(float_modes(), caller) << "the fiber's modes leaked to the caller";

  ASSERT_EQ(fesetround(FE_DOWNWARD), 0);  // the caller changes its own
  const FloatModes caller_changed = float_modes();
  fiber.resume();
  EXPECT_EQ(float_modes(), caller_changed);
  fiber.resume();  // the fiber reads its modes and ends
  ASSERT_TRUE(fiber.finished());
  EXPECT_EQ(sides.after_switches, sides.own) << "the caller's modes leaked into the fiber";
  EXPECT_EQ(float_modes(), caller_changed);
  fesetround(FE_TONEAREST);
}

// ---- Guard pages ----

const char *guard_low = nullptr;  // the guard pages of the fiber that overflows
const char *guard_high = nullptr;
volatile int recursion_limit = 1 << 30;

__attribute__((noinline)) int recurse(int depth) {
  volatile char frame[512];
  frame[511] = static_cast<char>(depth);
  frame[0] = static_cast<char>(depth);
  if (depth >= recursion_limit) return frame[0];
  return recurse(depth + 1) + frame[511];
}

void overflow(void *) { recurse(0); }

// Reports where the fault was and ends the process: run on a stack of its
// own, the overflowing one has no room left.
void on_fault(int, siginfo_t *info, void *) {
  const char *at = static_cast<const char *>(info->si_addr);
  const char *say = at >= guard_low && at < guard_high ? "fault in the guard pages\n" : "fault elsewhere\n";
  ssize_t ignored = write(STDERR_FILENO, say, __builtin_strlen(say));
  (void)ignored;
  _exit(3);
}

void overflow_a_fiber(FiberSwitch how) {
  static char alternate[64 << 10];
  stack_t alt{};
  alt.ss_sp = alternate;
  alt.ss_size = sizeof alternate;
  sigaltstack(&alt, nullptr);
  struct sigaction action {};
  action.sa_sigaction = &on_fault;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
  sigaction(SIGSEGV, &action, nullptr);
  Fiber fiber;
  if (!fiber.prepare(&overflow, nullptr, how)) _exit(4);
  guard_high = static_cast<const char *>(fiber.stack_base());
  guard_low = guard_high - keyloom::kFiberGuardBytes;
  fiber.resume();
}

using FiberSwitchDeathTest = FiberSwitchTest;
INSTANTIATE_TEST_SUITE_P(Switches, FiberSwitchDeathTest, testing::ValuesIn(built_switches()), switch_name);

TEST_P(FiberSwitchDeathTest, AStackOverflowFaultsInTheGuardPages) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(overflow_a_fiber(GetParam()), testing::ExitedWithCode(3), "fault in the guard pages");
}

// ---- Many fibers ----

constexpr size_t kManyFibers = 1024;
constexpr int kManySwitches = 50;

struct Worker {
  size_t id = 0;
  std::vector<size_t> *log = nullptr;  // ids in the order the fibers ran
  int kept = 0;                        // rounds its stack-held value survived
};

void worker_entry(void *arg) {
  auto *worker = static_cast<Worker *>(arg);
  volatile size_t mine = worker->id * 7919;  // on the fiber's own stack
  for (int round = 0; round < kManySwitches; ++round) {
    worker->log->push_back(worker->id);
    Fiber::suspend();
    if (mine == worker->id * 7919) ++worker->kept;
  }
}

TEST_P(FiberSwitchTest, AThousandLiveFibersEachSwitchedManyTimesAllFinish) {
  std::vector<Worker> workers(kManyFibers);
  std::vector<Fiber> fibers(kManyFibers);
  std::vector<size_t> log;
  log.reserve(kManyFibers * kManySwitches);
  for (size_t i = 0; i < kManyFibers; ++i) {
    workers[i].id = i;
    workers[i].log = &log;
    prepare(fibers[i], &worker_entry, &workers[i]);
  }
  EXPECT_GE(keyloom::fiber_stacks_mapped() - keyloom::fiber_stacks_pooled(), kManyFibers);
  // Round robin until every one has ended.
  for (int round = 0; round <= kManySwitches; ++round)
    for (Fiber &fiber : fibers) {
      ASSERT_FALSE(fiber.finished());
      fiber.resume();
      ASSERT_EQ(Fiber::current(), nullptr);
    }
  for (size_t i = 0; i < kManyFibers; ++i) {
    EXPECT_TRUE(fibers[i].finished()) << "fiber " << i;
    EXPECT_EQ(workers[i].kept, kManySwitches) << "fiber " << i;
  }
  ASSERT_EQ(log.size(), kManyFibers * kManySwitches);
  for (size_t at = 0; at < log.size(); ++at) ASSERT_EQ(log[at], at % kManyFibers) << "at " << at;
}

void note_current(void *arg) { *static_cast<Fiber **>(arg) = Fiber::current(); }

TEST_P(FiberSwitchTest, CurrentIsTheRunningFiberAndNullOutsideAny) {
  Fiber *seen = nullptr;
  Fiber fiber;
  prepare(fiber, &note_current, &seen);
  EXPECT_EQ(Fiber::current(), nullptr);
  fiber.resume();
  EXPECT_EQ(seen, &fiber);
  EXPECT_TRUE(fiber.finished());
  // A finished fiber is prepared again on the stack it holds.
  const void *stack = fiber.stack_base();
  seen = nullptr;
  prepare(fiber, &note_current, &seen);
  EXPECT_EQ(fiber.stack_base(), stack);
  fiber.resume();
  EXPECT_EQ(seen, &fiber);
}

// ---- The stack pool ----

void touch_stack(void *) {
  volatile char page[8 << 10];
  for (size_t i = 0; i < sizeof page; i += 512) page[i] = 1;
}

// Pages of [from, from + bytes) backed by memory now.
size_t resident_pages(const void *from, size_t bytes) {
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  std::vector<unsigned char> in((bytes + page - 1) / page);
  if (mincore(const_cast<void *>(from), bytes, in.data()) != 0) return ~size_t{0};
  size_t n = 0;
  for (unsigned char c : in) n += c & 1;
  return n;
}

TEST(FiberStacks, ReleasedStacksArePooledThenUnmappedOrEmptiedOnRequest) {
  keyloom::release_pooled_stacks(0);
  const size_t mapped_before = keyloom::fiber_stacks_mapped();
  std::vector<Fiber> fibers(10);
  std::vector<const void *> stacks;
  for (Fiber &fiber : fibers) {
    ASSERT_TRUE(fiber.prepare(&touch_stack, nullptr));
    fiber.resume();
    ASSERT_TRUE(fiber.finished());
    stacks.push_back(fiber.stack_base());
  }
  EXPECT_EQ(keyloom::fiber_stacks_mapped(), mapped_before + 10);
  EXPECT_EQ(keyloom::fiber_stacks_pooled(), 0u);
  for (Fiber &fiber : fibers) fiber.release_stack();
  EXPECT_EQ(keyloom::fiber_stacks_pooled(), 10u);
  EXPECT_EQ(keyloom::fiber_stacks_mapped(), mapped_before + 10);  // pooled, still mapped

  // The most recently given back is taken first.
  Fiber again;
  ASSERT_TRUE(again.prepare(&touch_stack, nullptr));
  EXPECT_EQ(again.stack_base(), stacks.back());
  again.resume();
  again.release_stack();

  const char *kept_top = static_cast<const char *>(stacks[1]) + keyloom::kFiberStackBytes;
  ASSERT_GT(resident_pages(kept_top - (16 << 10), 16 << 10), 0u);
  keyloom::release_pooled_stacks(2);  // the two given back first stay
  EXPECT_EQ(keyloom::fiber_stacks_pooled(), 2u);
  EXPECT_EQ(keyloom::fiber_stacks_mapped(), mapped_before + 2);
  EXPECT_EQ(resident_pages(kept_top - (16 << 10), 16 << 10), 0u) << "a kept stack still holds its pages";
  keyloom::release_pooled_stacks(0);
  EXPECT_EQ(keyloom::fiber_stacks_mapped(), mapped_before);
}

// ---- Which switch ----

// What the kernel reports for this thread: the "x86_Thread_features:" line
// of /proc/self/status lists "shstk" when a shadow stack is on; kernels
// without user shadow stacks have no such line.
bool kernel_reports_shadow_stack() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.rfind("x86_Thread_features:", 0) == 0) return line.find("shstk") != std::string::npos;
  return false;
}

TEST(FiberSelection, ShadowStacksOrAPortableBuildMeanUcontext) {
  EXPECT_EQ(keyloom::choose_fiber_switch(true), FiberSwitch::kUcontext);
#if defined(__x86_64__) && !defined(KEYLOOM_PORTABLE_FIBERS)
  EXPECT_EQ(keyloom::choose_fiber_switch(false), FiberSwitch::kAssembly);
#else
  EXPECT_EQ(keyloom::choose_fiber_switch(false), FiberSwitch::kUcontext);
  // Asked for, the hand-written switch is not there to be had.
  Fiber fiber;
  ASSERT_TRUE(fiber.prepare(&nothing, nullptr, FiberSwitch::kAssembly));
  EXPECT_EQ(fiber.how(), FiberSwitch::kUcontext);
  fiber.resume();
  EXPECT_TRUE(fiber.finished());
#endif
}

TEST(FiberSelection, TheProcessSwitchFollowsTheShadowStackDetection) {
  EXPECT_EQ(keyloom::shadow_stack_active(), kernel_reports_shadow_stack());
  EXPECT_EQ(keyloom::fiber_switch(), keyloom::choose_fiber_switch(keyloom::shadow_stack_active()));
  Fiber fiber;
  ASSERT_TRUE(fiber.prepare(&nothing, nullptr));
  EXPECT_EQ(fiber.how(), keyloom::fiber_switch());
}

}  // namespace
