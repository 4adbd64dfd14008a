// libFuzzer target: reply handling. Arbitrary bytes go through hiredis's reply
// reader, with the library's budgeted reply objects, as a server would send them; every reply it produces is handed to the
// library's reply helpers (put_reply_string, put_string_array, expect_type,
// reply_integer, reply_double), and what they put in the caller's cells is read
// back and released as a caller would.
#include <hiredis/hiredis.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "internal.h"
#include "keyloom.h"
#include "reply_reader.h"

#define CHECK(cond) \
  do {              \
    if (!(cond)) __builtin_trap(); \
  } while (0)

static kl_client *client() {
  static kl_client *c = kl_client_create(KL_HASH_DEFAULT, KL_DISTRIBUTION_CONSISTENT, nullptr, KL_FLAG_NONE);
  return c;
}

static void use_reply(const redisReply *r, int depth) {
  kl_client *c = client();
  char *out = nullptr;
  size_t len = 12345;
  kl_return_t code = keyloom::put_reply_string(c, r, &out, &len);
  if (code == KL_SUCCESS) {
    CHECK(out != nullptr);
    CHECK(out[len] == '\0');  // every text reply is NUL-terminated
    if (r->type == REDIS_REPLY_STRING || r->type == REDIS_REPLY_STATUS) CHECK(std::memcmp(out, r->str, len) == 0);
    kl_free_php_reply_p(&out);
    CHECK(out == nullptr);
    kl_free_php_reply_p(&out);  // twice is harmless
  } else {
    CHECK(code == KL_NOTFOUND || code == KL_SERVER_ERROR || code == KL_WRONG_REPLY || code == KL_MEMORY_FAILURE);
  }
  // outputs may be null: nothing is written then
  (void)keyloom::put_reply_string(c, r, nullptr, nullptr);
  (void)keyloom::expect_type(r, REDIS_REPLY_ARRAY);
  (void)keyloom::expect_type(r, REDIS_REPLY_STRING);
  long long ll;
  (void)keyloom::reply_integer(r, &ll);
  double d;
  (void)keyloom::reply_double(r, &d);
  if (r->type == REDIS_REPLY_ARRAY) {
    char **values = nullptr;
    size_t count = 0;
    size_t *lens = nullptr;
    code = keyloom::put_string_array(c, r->element, r->elements, &values, &count, &lens);
    if (code == KL_SUCCESS && values) {
      CHECK(count == r->elements);
      for (size_t i = 0; i < count; i++) {
        if (values[i] == nullptr) CHECK(lens == nullptr || lens[i] == SIZE_MAX);
        else if (lens) CHECK(values[i][lens[i]] == '\0');
      }
      kl_free_php_reply_pp(&values, static_cast<unsigned>(count));
      CHECK(values == nullptr);
      if (lens) kl_free_php_reply_p(reinterpret_cast<char **>(&lens));
    }
    (void)keyloom::put_string_array(c, r->element, r->elements, nullptr, nullptr, nullptr);
    if (depth < 8)
      for (size_t i = 0; i < r->elements; i++) use_reply(r->element[i], depth + 1);
  }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  redisReader *reader = redisReaderCreate();
  // The library's reply objects, under a limit well inside the fuzzer's memory.
  keyloom::ReplyBudget budget;
  budget.limit = size_t{64} << 20;
  keyloom::attach_reply_budget(reader, &budget);
  // feed in two pieces at a point chosen by the first byte: replies split across reads
  size_t cut = size ? data[0] % (size + 1) : 0;
  redisReaderFeed(reader, reinterpret_cast<const char *>(data), cut);
  for (int round = 0; round < 2; round++) {
    for (int n = 0; n < 64; n++) {
      void *reply = nullptr;
      if (redisReaderGetReply(reader, &reply) != REDIS_OK) break;
      if (!reply) break;
      use_reply(static_cast<redisReply *>(reply), 0);
      freeReplyObject(reply);
      budget.used = 0;
    }
    if (round == 0) redisReaderFeed(reader, reinterpret_cast<const char *>(data) + cut, size - cut);
  }
  redisReaderFree(reader);
  return 0;
}
