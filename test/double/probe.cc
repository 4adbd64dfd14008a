// libkeyloom.so.1 test double: every function of keyloom.h that the addon calls,
// logging its arguments (probe_log.h) and returning a canned result.
//  - kl_return_t functions return $KEYLOOM_PROBE_RESULT (default 0);
//  - kl_client_create / kl_group_client return a fresh distinct client (null
//    with KEYLOOM_PROBE_NULL=1), kl_client_destroy frees one it made;
//  - kl_get_version / kl_strerror return fixed texts (null with
//    KEYLOOM_PROBE_NULL_TEXT=1);
//  - kl_get_result / kl_is_dirty / kl_check_result compute as the library does.
// The probe never writes through a pointer it is given.
#include <cstdint>
#include <cstdlib>
#include <set>

#include "keyloom.h"
#include "probe_log.h"

// ---- parameter lists from type lists: (T1, T2) -> (T1 a2, T2 a1) / (a2, a1).
// The names count down from the front; only their consistency matters.
#define KLP_CAT(a, b) KLP_CAT_(a, b)
#define KLP_CAT_(a, b) a##b
#define KLP_NARGS(...) KLP_NARGS_(__VA_ARGS__, 18, 17, 16, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1)
#define KLP_NARGS_(_1, _2, _3, _4, _5, _6, _7, _8, _9, _10, _11, _12, _13, _14, _15, _16, _17, _18, N, ...) N

#define KLP_P1(t) t a1
#define KLP_N1 a1
#define KLP_P2(t, ...) t a2, KLP_P1(__VA_ARGS__)
#define KLP_N2 a2, KLP_N1
#define KLP_P3(t, ...) t a3, KLP_P2(__VA_ARGS__)
#define KLP_N3 a3, KLP_N2
#define KLP_P4(t, ...) t a4, KLP_P3(__VA_ARGS__)
#define KLP_N4 a4, KLP_N3
#define KLP_P5(t, ...) t a5, KLP_P4(__VA_ARGS__)
#define KLP_N5 a5, KLP_N4
#define KLP_P6(t, ...) t a6, KLP_P5(__VA_ARGS__)
#define KLP_N6 a6, KLP_N5
#define KLP_P7(t, ...) t a7, KLP_P6(__VA_ARGS__)
#define KLP_N7 a7, KLP_N6
#define KLP_P8(t, ...) t a8, KLP_P7(__VA_ARGS__)
#define KLP_N8 a8, KLP_N7
#define KLP_P9(t, ...) t a9, KLP_P8(__VA_ARGS__)
#define KLP_N9 a9, KLP_N8
#define KLP_P10(t, ...) t a10, KLP_P9(__VA_ARGS__)
#define KLP_N10 a10, KLP_N9
#define KLP_P11(t, ...) t a11, KLP_P10(__VA_ARGS__)
#define KLP_N11 a11, KLP_N10
#define KLP_P12(t, ...) t a12, KLP_P11(__VA_ARGS__)
#define KLP_N12 a12, KLP_N11
#define KLP_P13(t, ...) t a13, KLP_P12(__VA_ARGS__)
#define KLP_N13 a13, KLP_N12
#define KLP_P14(t, ...) t a14, KLP_P13(__VA_ARGS__)
#define KLP_N14 a14, KLP_N13
#define KLP_P15(t, ...) t a15, KLP_P14(__VA_ARGS__)
#define KLP_N15 a15, KLP_N14
#define KLP_P16(t, ...) t a16, KLP_P15(__VA_ARGS__)
#define KLP_N16 a16, KLP_N15
#define KLP_P17(t, ...) t a17, KLP_P16(__VA_ARGS__)
#define KLP_N17 a17, KLP_N16
#define KLP_P18(t, ...) t a18, KLP_P17(__VA_ARGS__)
#define KLP_N18 a18, KLP_N17
#define KLP_PARAMS(...) KLP_CAT(KLP_P, KLP_NARGS(__VA_ARGS__))(__VA_ARGS__)
#define KLP_NAMES(...) KLP_CAT(KLP_N, KLP_NARGS(__VA_ARGS__))

// A library function that returns a code: log, then answer $KEYLOOM_PROBE_RESULT.
#define KLP_CODE(name, ...)                                \
  kl_return_t name(KLP_PARAMS(__VA_ARGS__)) {              \
    probe::log_call(#name, KLP_NAMES(__VA_ARGS__));        \
    return probe::result_code();                           \
  }

#include "probe_functions.h"

// ---- the functions whose result is not a plain code -----------------------

namespace {
// Clients handed out and not yet destroyed; held by a never-freed set so that
// a client a test never destroys is still reachable (not a leak).
std::set<void *> &live_clients() {
  static auto *clients = new std::set<void *>;
  return *clients;
}

kl_client *new_client() {
  if (probe::null_clients()) return nullptr;
  void *c = std::malloc(64);
  live_clients().insert(c);
  return static_cast<kl_client *>(c);
}

constexpr int dirty_bit = 128;
}  // namespace

kl_client *kl_client_create(kl_hash hash, kl_server_distribution distribution, kl_mm_t *mm,
                            unsigned int flags) {
  probe::log_call("kl_client_create", hash, distribution, mm, flags);
  return new_client();
}

kl_client *kl_group_client(kl_client *client) {
  probe::log_call("kl_group_client", client);
  return new_client();
}

void kl_client_destroy(kl_client *client) {
  probe::log_call("kl_client_destroy", client);
  if (live_clients().erase(client) == 1) std::free(client);
}

char const *kl_get_version(void) {
  probe::log_call("kl_get_version");
  return probe::null_texts() ? nullptr : "1.0.0-probe";
}

// U+2713 CHECK MARK at the end: the text crosses as UTF-8.
char const *kl_strerror(kl_return_t result) {
  probe::log_call("kl_strerror", result);
  return probe::null_texts() ? nullptr : "probe error text \xe2\x9c\x93";
}

kl_return_t kl_get_result(kl_return_t result) {
  probe::log_call("kl_get_result", result);
  return static_cast<kl_return_t>(static_cast<int>(result) & ~dirty_bit);
}

uint8_t kl_is_dirty(kl_return_t result) {
  probe::log_call("kl_is_dirty", result);
  return (static_cast<int>(result) & dirty_bit) ? 1 : 0;
}

uint8_t kl_check_result(kl_return_t result, kl_return_t expected) {
  probe::log_call("kl_check_result", result, expected);
  return (static_cast<int>(result) & ~dirty_bit) == static_cast<int>(expected) ? 1 : 0;
}
