#include "reply_reader.h"

#include <cstdlib>
#include <cstring>

namespace keyloom {

namespace {

ReplyBudget *budget_of(const redisReadTask *task) {
  return static_cast<ReplyBudget *>(task->privdata);
}

// Charges n bytes to the reply in progress; false when that passes the limit.
bool charge(const redisReadTask *task, size_t n) {
  ReplyBudget *b = budget_of(task);
  if (!b) return true;
  if (n > b->limit || b->used > b->limit - n) {
    b->exceeded = true;
    return false;
  }
  b->used += n;
  return true;
}

// Places child in its parent's element slots, growing them up to the count the
// parent announced; false when the slots cannot grow.
bool place_in_parent(const redisReadTask *task, redisReply *child) {
  if (!task->parent) return true;
  auto *parent = static_cast<redisReply *>(task->parent->obj);
  const size_t idx = static_cast<size_t>(task->idx);
  if (idx >= parent->elements) {
    const size_t announced = static_cast<size_t>(task->parent->elements);
    size_t grown = parent->elements ? parent->elements * 2 : 16;
    if (grown > announced) grown = announced;
    if (grown <= idx) grown = idx + 1;
    const size_t added = grown - parent->elements;
    if (!charge(task, added * sizeof(redisReply *))) return false;
    auto **slots = static_cast<redisReply **>(
        std::realloc(parent->element, grown * sizeof(redisReply *)));
    if (!slots) return false;
    std::memset(slots + parent->elements, 0, added * sizeof(redisReply *));
    parent->element = slots;
    parent->elements = grown;
  }
  parent->element[idx] = child;
  return true;
}

redisReply *new_reply(const redisReadTask *task, int type, size_t extra) {
  if (!charge(task, sizeof(redisReply) + extra)) return nullptr;
  auto *r = static_cast<redisReply *>(std::calloc(1, sizeof(redisReply)));
  if (r) r->type = type;
  return r;
}

// Hands r to its parent, or frees it when it cannot be placed.
void *placed(const redisReadTask *task, redisReply *r) {
  if (!r) return nullptr;
  if (!place_in_parent(task, r)) {
    freeReplyObject(r);
    return nullptr;
  }
  return r;
}

void *create_string(const redisReadTask *task, char *str, size_t len) {
  redisReply *r = new_reply(task, task->type, len + 1);
  if (!r) return nullptr;
  r->str = static_cast<char *>(std::malloc(len + 1));
  if (!r->str) {
    freeReplyObject(r);
    return nullptr;
  }
  std::memcpy(r->str, str, len);
  r->str[len] = '\0';
  r->len = len;
  return placed(task, r);
}

// The element slots are taken as the elements arrive (place_in_parent).
void *create_array(const redisReadTask *task, int /*elements*/) {
  return placed(task, new_reply(task, REDIS_REPLY_ARRAY, 0));
}

void *create_integer(const redisReadTask *task, long long value) {
  redisReply *r = new_reply(task, REDIS_REPLY_INTEGER, 0);
  if (r) r->integer = value;
  return placed(task, r);
}

void *create_nil(const redisReadTask *task) {
  return placed(task, new_reply(task, REDIS_REPLY_NIL, 0));
}

void free_object(void *reply) { freeReplyObject(reply); }

redisReplyObjectFunctions budgeted_functions = {create_string, create_array, create_integer,
                                                create_nil, free_object};

// True when the item the reader is in the middle of would pass what is left
// of the budget. For a bulk string the reader has taken its '$' and waits at
// the announced length until the whole string is buffered, so the length is
// read there, before its bytes are kept; a status, error or integer line that
// never ends is refused once its buffered bytes pass the budget.
bool item_in_progress_too_large(const redisReader *reader, ReplyBudget *budget) {
  if (reader->ridx < 0) return false;
  const int type = reader->rstack[reader->ridx].type;
  const char *p = reader->buf + reader->pos;
  const char *end = reader->buf + reader->len;
  const size_t left = budget->limit > budget->used ? budget->limit - budget->used : 0;
  bool too_large = false;
  if (type == REDIS_REPLY_STRING) {
    unsigned long long length = 0;
    for (; p < end && *p >= '0' && *p <= '9' && length <= left; ++p)
      length = length * 10 + static_cast<unsigned>(*p - '0');
    too_large = length > left;
  } else if (type == REDIS_REPLY_STATUS || type == REDIS_REPLY_ERROR ||
             type == REDIS_REPLY_INTEGER) {
    too_large = static_cast<size_t>(end - p) > left;
  }
  if (too_large) budget->exceeded = true;
  return too_large;
}

}  // namespace

void attach_reply_budget(redisReader *reader, ReplyBudget *budget) {
  reader->fn = &budgeted_functions;
  reader->privdata = budget;
}

void start_reply(ReplyBudget *budget) {
  if (budget) {
    budget->exceeded = false;
    budget->used = 0;
  }
}

ReplyStep take_reply(redisContext *ctx, ReplyBudget *budget, void **reply) {
  *reply = nullptr;
  if (redisGetReplyFromReader(ctx, reply) != REDIS_OK) return ReplyStep::kFailed;
  if (*reply) return ReplyStep::kReply;
  if (budget && item_in_progress_too_large(ctx->reader, budget)) return ReplyStep::kFailed;
  return ReplyStep::kMore;
}

bool read_reply(redisContext *ctx, ReplyBudget *budget, void **reply,
                FunctionRef<bool()> read_more) {
  start_reply(budget);
  for (;;) {
    switch (take_reply(ctx, budget, reply)) {
      case ReplyStep::kReply: return true;
      case ReplyStep::kFailed: return false;
      case ReplyStep::kMore:
        if (!read_more()) return false;
    }
  }
}

}  // namespace keyloom
