// The library's internal interface: what every command family builds on.
//
// A command family (strings, lists, sets, ...) turns its arguments into one or
// more Commands, hands them to run_write() / run_read() / run_multi() with the
// key (or routing string) that picks the server, and interprets the replies in
// a callback. Connections, fail-over across groups, the dirty bit, locking and
// logging all live behind these calls.
#pragma once

#include <hiredis/hiredis.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "keyloom.h"

namespace keyloom {

// ---- Commands ------------------------------------------------------------

struct Script;

// A non-owning reference to a callable: no allocation and no copy of the
// callable, which must outlive the call it is passed to (a lambda written in
// the argument list does).
template <typename Signature>
class FunctionRef;
template <typename R, typename... Args>
class FunctionRef<R(Args...)> {
 public:
  template <typename F, typename = std::enable_if_t<
                            !std::is_same_v<std::decay_t<F>, FunctionRef> &&
                            std::is_invocable_r_v<R, F &, Args...>>>
  FunctionRef(F &&f) {  // NOLINT: converts from any callable, like std::function
    using Callable = std::remove_reference_t<F>;
    if constexpr (std::is_function_v<Callable>) {
      // A plain function: its address is the object (POSIX lets it pass as void *).
      object_ = reinterpret_cast<void *>(&f);
      call_ = [](void *object, Args... args) -> R {
        return reinterpret_cast<Callable *>(object)(std::forward<Args>(args)...);
      };
    } else {
      object_ = const_cast<void *>(static_cast<const void *>(std::addressof(f)));
      call_ = [](void *object, Args... args) -> R {
        return (*static_cast<Callable *>(object))(std::forward<Args>(args)...);
      };
    }
  }
  R operator()(Args... args) const { return call_(object_, std::forward<Args>(args)...); }

 private:
  void *object_;
  R (*call_)(void *, Args...);
};

// One command as an argument vector. Views passed to arg() are borrowed and
// must outlive the run_* call; numbers are formatted into storage the command
// owns. Short commands (the common case) live entirely in the object: no heap
// allocation unless there are more than kInlineArgs arguments or owned
// arguments overflow the inline text buffer.
class Command {
 public:
  Command() = default;
  explicit Command(std::string_view name) { arg(name); }
  // Copies and moves point their owned arguments at their own storage.
  Command(const Command &other);
  Command &operator=(const Command &other);
  Command(Command &&other) noexcept;
  Command &operator=(Command &&other) noexcept;
  Command &arg(const char *data, size_t len) {
    if (argc_ < kInlineArgs && !spilled_) {
      argv_inline_[argc_] = data;
      argvlen_inline_[argc_] = len;
    } else {
      push_spilled(data, len);
    }
    ++argc_;
    return *this;
  }
  Command &arg(std::string_view s) { return arg(s.data(), s.size()); }
  Command &arg_int(long long v);   // decimal text
  Command &arg_double(double v);   // "%.17g", "inf", "-inf"
  Command &arg_owned(std::string s);  // a copy the command keeps
  // Room for n arguments in all (avoids regrowth for long commands).
  void reserve(size_t n);
  int argc() const { return argc_; }
  const char **argv() { return spilled_ ? argv_heap_.data() : argv_inline_; }
  const size_t *argvlen() const { return spilled_ ? argvlen_heap_.data() : argvlen_inline_; }
  // Set by script_call(): the script this command runs, and the index of its
  // EVALSHA argument (the digest follows it).
  void set_script(const Script *script, int evalsha_index) {
    script_ = script;
    script_index_ = evalsha_index;
  }
  const Script *script() const { return script_; }
  int script_index() const { return script_index_; }
  // The same command in the form of Redis 6.2 and later, sent instead to the
  // servers that take it (CLIENT_VERSION_2, or AUTO and a new enough server).
  // Borrowed: must outlive the run_* call. Its replies have the same shape.
  void set_newer(Command *newer) { newer_ = newer; }
  Command *newer() const { return newer_; }

 private:
  static constexpr int kInlineArgs = 6;
  static constexpr size_t kInlineText = 48;
  void push_spilled(const char *data, size_t len);
  void spill(size_t capacity);
  // Repoints the arguments that other's storage held at this command's copy.
  void adopt(const Command &other);
  const char *store(const char *data, size_t len);

  int argc_ = 0;
  bool spilled_ = false;  // the heap vectors hold every argument
  size_t text_used_ = 0;
  const char *argv_inline_[kInlineArgs];
  size_t argvlen_inline_[kInlineArgs];
  char text_[kInlineText];  // owned arguments that fit
  std::vector<const char *> argv_heap_;
  std::vector<size_t> argvlen_heap_;
  // Owned arguments that did not fit: each string has its own allocation, so
  // its address survives moves of this vector.
  std::vector<std::unique_ptr<std::string>> owned_;
  std::vector<int> owned_args_;  // argument index of owned_[k]
  const Script *script_ = nullptr;
  int script_index_ = -1;
  Command *newer_ = nullptr;
};

struct ReplyDeleter {
  void operator()(redisReply *r) const {
    if (r) freeReplyObject(r);
  }
};
using Reply = std::unique_ptr<redisReply, ReplyDeleter>;

// The replies of one batch, one per command. A few are kept in the object
// itself, so a single-command call allocates nothing for them.
class Replies {
 public:
  Replies() = default;
  explicit Replies(size_t n) { resize(n); }
  Replies(Replies &&other) noexcept { *this = std::move(other); }
  Replies &operator=(Replies &&other) noexcept;
  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  Reply *data() { return heap_.empty() ? inline_ : heap_.data(); }
  const Reply *data() const { return heap_.empty() ? inline_ : heap_.data(); }
  Reply &operator[](size_t i) { return data()[i]; }
  const Reply &operator[](size_t i) const { return data()[i]; }
  Reply &front() { return data()[0]; }
  Reply &back() { return data()[size_ - 1]; }
  Reply *begin() { return data(); }
  Reply *end() { return data() + size_; }
  void clear() { resize(0); }
  void resize(size_t n);
  void push_back(Reply r) {
    resize(size_ + 1);
    back() = std::move(r);
  }

 private:
  static constexpr size_t kInline = 4;
  Reply inline_[kInline];
  std::vector<Reply> heap_;  // used (non-empty) once more than kInline were needed
  size_t size_ = 0;
};

// ---- Server-side scripts -------------------------------------------------

// A Lua script run with EVALSHA, falling back to EVAL (and caching) when the
// server answers NOSCRIPT. Define each as a static object next to its family.
struct Script {
  const char *source;
  std::string sha1;  // hex SHA-1 of source, computed on first use
};
// Appends EVALSHA <sha> <numkeys> keys... args... to cmd; the runner retries
// with EVAL transparently on NOSCRIPT.
// More args may be appended to cmd afterwards (they follow the keys).
Command &script_call(Command &cmd, Script &script, std::initializer_list<std::string_view> keys,
                     std::initializer_list<std::string_view> args);
// The script's hex SHA-1 (computed once, thread-safe).
const std::string &script_digest(Script &script);

// ---- Keys ----------------------------------------------------------------

// A key as sent to the server: the prefix of the selected logical database
// (kl_set_database_key) followed by the caller's bytes. No copy when there is
// no prefix.
class Key {
 public:
  Key(const kl_client *client, const char *key, size_t len);
  // Copies and moves keep pointing at their own storage (or the caller's
  // bytes when there is no prefix).
  Key(const Key &o) : storage_(o.storage_), view_(o.storage_.empty() ? o.view_ : storage_) {}
  Key(Key &&o) noexcept
      : storage_(std::move(o.storage_)), view_(storage_.empty() ? o.view_ : storage_) {}
  Key &operator=(Key o) noexcept {
    storage_ = std::move(o.storage_);
    view_ = storage_.empty() ? o.view_ : std::string_view(storage_);
    return *this;
  }
  std::string_view view() const { return view_; }
  const char *data() const { return view_.data(); }
  size_t size() const { return view_.size(); }

 private:
  std::string storage_;
  std::string_view view_;
};

// The bytes that choose the server: the routing string when route_len > 0,
// else the key (without the database prefix, so a prefix never moves keys).
struct Route {
  const char *data;
  size_t len;
};
inline Route route_of(const char *key, size_t key_len, const char *route = nullptr,
                      size_t route_len = 0) {
  return (route && route_len > 0) ? Route{route, route_len} : Route{key, key_len};
}

// ---- Running commands ----------------------------------------------------

// Interprets the replies of one server (one per Command, in order; an error
// reply is a REDIS_REPLY_ERROR element, never a null). `fill` is true for
// exactly one server per call, the one whose answer the caller gets: only then
// may the callback write the caller's output cells. Returns the command's code.
using Interpret = FunctionRef<kl_return_t(Replies &replies, bool fill)>;

// Runs cmds[0..n) as one pipelined batch on the route's server in every group.
// The result is the code of the first group that answered; when another group
// failed (down, connection lost, time-out) and at least one succeeded, KL_DIRTY
// is set on it. All groups down: KL_SERVER_DOWN (one group) or
// KL_ALL_GROUP_SERVERS_DOWN (several). No server: KL_NO_SERVER_ATTACHED.
kl_return_t run_write(kl_client *client, Route route, Command *cmds, size_t n,
                      const Interpret &interpret);
inline kl_return_t run_write(kl_client *client, Route route, std::vector<Command> &cmds,
                             const Interpret &interpret) {
  return run_write(client, route, cmds.data(), cmds.size(), interpret);
}

// Runs cmds[0..n) as one pipelined batch on the route's server of the first
// group (in creation order) whose server is up; fails over to the next group on
// a connection failure. Codes as run_write, never dirty.
kl_return_t run_read(kl_client *client, Route route, Command *cmds, size_t n,
                     const Interpret &interpret);
inline kl_return_t run_read(kl_client *client, Route route, std::vector<Command> &cmds,
                            const Interpret &interpret) {
  return run_read(client, route, cmds.data(), cmds.size(), interpret);
}

// Multi-key work: item i is routed by routes[i] and sent as cmds[i]. Items are
// grouped by server, one pipelined batch per server, every batch sent before
// any reply is read. on_reply(i, reply) is called once per item with its reply
// (null when its server failed). Reads use the first group that is up per
// server (fail-over per item); writes go to every group and on_reply gets the
// first group's reply. policy: KL_NULL_ON_FAIL (any failure fails the call:
// the failure code, and on_reply is not called at all), KL_BEST_EFFORT_ON_FAIL
// (on_reply gets null for failed items; result KL_PARTIAL_RESULT when any
// failed). Writes report KL_DIRTY as run_write does.
enum class Access { read, write };
using OnItemReply = FunctionRef<void(size_t i, redisReply *reply)>;
kl_return_t run_multi(kl_client *client, Access access, const std::vector<Route> &routes,
                      std::vector<Command> &cmds, int policy, const OnItemReply &on_reply);

// Multi-key work where one command carries the keys of many items (MGET,
// MSET): the items of each server are cut into chunks of at most `chunk`
// items in the caller's order, and make(cmd, items, n) appends the command for
// one chunk (items: the caller's indices). Every server's chunks are sent
// before any reply is read. take(items, n, reply, first) gets each chunk's
// reply as soon as it is read, and the reply is freed right after, so at most
// one reply is held at a time. `first` is false for a write group's reply when
// an earlier group already answered every item of the chunk.
// Routes: route_count == count (one per item) or 1 (shared by every item).
// Fail-over, policies and codes as run_multi, except that take() may already
// have been called when the call fails: the caller drops what it gathered.
using MakeChunk = FunctionRef<void(Command &cmd, const size_t *items, size_t n)>;
using TakeChunk =
    FunctionRef<void(const size_t *items, size_t n, const redisReply *reply, bool first)>;
kl_return_t run_chunked(kl_client *client, Access access, const Route *routes,
                        size_t route_count, size_t count, size_t chunk, int policy,
                        const MakeChunk &make, const TakeChunk &take);

// Chunked reads whose replies are arrays of one string or nil per item (MGET):
// the protocol reader hands each string element straight to
// put(item, data, len), without building reply objects; nil elements call
// nothing. *refused gets the first error: an error or malformed reply, or a
// code put() returned (put() is not called again after one). Otherwise as
// run_chunked.
using PutString = FunctionRef<kl_return_t(size_t item, const char *data, size_t len)>;
kl_return_t run_chunked_strings(kl_client *client, const Route *routes, size_t route_count,
                                size_t count, size_t chunk, int policy, const MakeChunk &make,
                                const PutString &put, kl_return_t *refused);

// Per-server administration: runs cmd on every server of the named group (null
// or empty: every group, in group order; a non-empty `server` "host:port"
// narrows it to that one server). on_reply(server_index, reply) gets each
// server's reply (null when it failed). When results is not null, *results
// receives one code per server addressed (allocated with the client's memory
// manager). Returns KL_SUCCESS when every server succeeded, else the first
// failure's code (KL_PARTIAL_RESULT when some succeeded).
kl_return_t run_each_server(kl_client *client, const char *group, std::string_view server,
                            Command &cmd, kl_return_t **results,
                            const std::function<kl_return_t(size_t server_index,
                                                            redisReply *reply)> &on_reply);

// ---- Replies into the caller's cells ---------------------------------------

// Allocation with the client's memory manager (the C library's when none).
void *mm_malloc(const kl_client *client, size_t size);
void *mm_calloc(const kl_client *client, size_t count, size_t size);
void mm_free(const kl_client *client, void *ptr);

// A NUL-terminated copy of data in *out and its length in *len (either may be
// null: then nothing is written to it). KL_MEMORY_FAILURE when out of memory.
kl_return_t put_bytes(const kl_client *client, const char *data, size_t len, char **out,
                      size_t *len_out);
// The string/status/integer (as text) of reply; a nil reply gives KL_NOTFOUND
// and writes nothing; an error reply KL_SERVER_ERROR; other types
// KL_WRONG_REPLY.
kl_return_t put_reply_string(const kl_client *client, const redisReply *reply, char **out,
                             size_t *len_out);
// As put_reply_string, but a string reply's own buffer is handed over instead
// of copied when it can be freed as the caller's reply (no memory manager of
// the caller's, hiredis on the C library's allocator); the reply keeps no
// string then. For large values this saves a copy and an allocation as large.
kl_return_t take_reply_string(const kl_client *client, redisReply *reply, char **out,
                              size_t *len_out);
// An array of n values (null entries / nil elements become a null element with
// length SIZE_MAX) into *out, *lens and *count (each may be null).
kl_return_t put_string_array(const kl_client *client, const redisReply *const *elements,
                             size_t n, char ***out, size_t *count, size_t **lens);

// ---- Reply checks ----------------------------------------------------------

// KL_SERVER_ERROR for an error reply, KL_WRONG_REPLY for another type than
// expected, else KL_SUCCESS.
kl_return_t expect_type(const redisReply *reply, int type);
// Integer of an integer reply (or a numeric string reply); false otherwise.
bool reply_integer(const redisReply *reply, long long *value);
// Double of a string/double reply; false otherwise.
bool reply_double(const redisReply *reply, double *value);

}  // namespace keyloom

#include "arg_checks.h"  // KL_REQUIRE, KL_REQUIRE_CLIENT: every family's argument checks
