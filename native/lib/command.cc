// Command argument storage and keys with the logical-database prefix.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "client.h"
#include "internal.h"

namespace keyloom {

Command::Command(const Command &other)
    : argc_(other.argc_),
      spilled_(other.spilled_),
      text_used_(other.text_used_),
      argv_heap_(other.argv_heap_),
      argvlen_heap_(other.argvlen_heap_),
      owned_args_(other.owned_args_),
      script_(other.script_),
      script_index_(other.script_index_),
      newer_(other.newer_) {
  owned_.reserve(other.owned_.size());
  for (auto &s : other.owned_) owned_.push_back(std::make_unique<std::string>(*s));
  adopt(other);
}

Command &Command::operator=(const Command &other) {
  if (this != &other) {
    Command copy(other);
    *this = std::move(copy);
  }
  return *this;
}

Command::Command(Command &&other) noexcept
    : argc_(other.argc_),
      spilled_(other.spilled_),
      text_used_(other.text_used_),
      argv_heap_(std::move(other.argv_heap_)),
      argvlen_heap_(std::move(other.argvlen_heap_)),
      owned_(std::move(other.owned_)),
      owned_args_(std::move(other.owned_args_)),
      script_(other.script_),
      script_index_(other.script_index_),
      newer_(other.newer_) {
  adopt(other);
  other.argc_ = 0;
  other.spilled_ = false;
  other.text_used_ = 0;
}

Command &Command::operator=(Command &&other) noexcept {
  if (this != &other) {
    argc_ = other.argc_;
    spilled_ = other.spilled_;
    text_used_ = other.text_used_;
    argv_heap_ = std::move(other.argv_heap_);
    argvlen_heap_ = std::move(other.argvlen_heap_);
    owned_ = std::move(other.owned_);
    owned_args_ = std::move(other.owned_args_);
    script_ = other.script_;
    script_index_ = other.script_index_;
    newer_ = other.newer_;
    adopt(other);
    other.argc_ = 0;
    other.spilled_ = false;
    other.text_used_ = 0;
  }
  return *this;
}

// Called once the vectors are in place: copies the inline arrays and text,
// then repoints arguments that lived in other's inline text or owned strings.
void Command::adopt(const Command &other) {
  if (!spilled_) {
    std::copy(other.argv_inline_, other.argv_inline_ + argc_, argv_inline_);
    std::copy(other.argvlen_inline_, other.argvlen_inline_ + argc_, argvlen_inline_);
  }
  if (text_used_) std::memcpy(text_, other.text_, text_used_);
  const char **argv = this->argv();
  if (text_used_) {
    const auto from = reinterpret_cast<uintptr_t>(other.text_);
    for (int i = 0; i < argc_; ++i) {
      const auto at = reinterpret_cast<uintptr_t>(argv[i]);
      if (at >= from && at < from + kInlineText) argv[i] = text_ + (at - from);
    }
  }
  for (size_t k = 0; k < owned_args_.size(); ++k) argv[owned_args_[k]] = owned_[k]->data();
}

void Command::spill(size_t capacity) {
  argv_heap_.reserve(capacity);
  argvlen_heap_.reserve(capacity);
  if (!spilled_) {
    argv_heap_.assign(argv_inline_, argv_inline_ + argc_);
    argvlen_heap_.assign(argvlen_inline_, argvlen_inline_ + argc_);
    spilled_ = true;
  }
}

void Command::push_spilled(const char *data, size_t len) {
  if (!spilled_) spill(2 * kInlineArgs);
  argv_heap_.push_back(data);
  argvlen_heap_.push_back(len);
}

void Command::reserve(size_t n) {
  if (n > static_cast<size_t>(kInlineArgs) || spilled_) spill(n);
}

const char *Command::store(const char *data, size_t len) {
  if (len <= kInlineText - text_used_) {
    char *at = text_ + text_used_;
    if (len) std::memcpy(at, data, len);
    text_used_ += len;
    return at;
  }
  return nullptr;
}

Command &Command::arg_owned(std::string s) {
  if (const char *at = store(s.data(), s.size())) return arg(at, s.size());
  owned_args_.push_back(argc());
  owned_.push_back(std::make_unique<std::string>(std::move(s)));
  return arg(owned_.back()->data(), owned_.back()->size());
}

Command &Command::arg_int(long long v) {
  char text[24];
  int n = std::snprintf(text, sizeof text, "%lld", v);
  size_t len = static_cast<size_t>(n);
  if (const char *at = store(text, len)) return arg(at, len);
  return arg_owned(std::string(text, len));
}

Command &Command::arg_double(double v) {
  if (std::isinf(v)) return arg_owned(v > 0 ? "inf" : "-inf");
  char text[32];
  int n = std::snprintf(text, sizeof text, "%.17g", v);
  size_t len = static_cast<size_t>(n);
  if (const char *at = store(text, len)) return arg(at, len);
  return arg_owned(std::string(text, len));
}

Replies &Replies::operator=(Replies &&other) noexcept {
  if (this != &other) {
    clear();
    heap_ = std::move(other.heap_);
    for (size_t i = 0; i < kInline; ++i) inline_[i] = std::move(other.inline_[i]);
    size_ = other.size_;
    other.heap_.clear();
    other.size_ = 0;
  }
  return *this;
}

void Replies::resize(size_t n) {
  if (heap_.empty() && n <= kInline) {
    for (size_t i = n; i < size_; ++i) inline_[i].reset();
  } else {
    if (heap_.empty()) {
      heap_.reserve(n);
      for (size_t i = 0; i < size_; ++i) heap_.push_back(std::move(inline_[i]));
    }
    heap_.resize(n);
    if (n == 0) heap_.clear();
  }
  size_ = n;
}

Key::Key(const kl_client *client, const char *key, size_t len) {
  if (!client || client->prefix.empty()) {
    view_ = std::string_view(key ? key : "", key ? len : 0);
    return;
  }
  storage_.reserve(client->prefix.size() + len);
  storage_.append(client->prefix);
  if (key) storage_.append(key, len);
  view_ = storage_;
}

void refresh_prefix(kl_client *client) {
  client->prefix.clear();
  if (client->db < 0) return;
  auto it = client->prefixes.find(static_cast<size_t>(client->db));
  if (it != client->prefixes.end()) client->prefix = it->second;
}

size_t server_count(const kl_client *client) {
  size_t n = 0;
  for (auto &g : client->groups) n += g->servers.size();
  return n;
}

}  // namespace keyloom
