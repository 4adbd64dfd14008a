// Command argument storage and keys with the logical-database prefix.
#include <cmath>
#include <cstdio>

#include "client.h"
#include "internal.h"

namespace keyloom {

Command::Command(const Command &other)
    : argv_(other.argv_),
      argvlen_(other.argvlen_),
      owned_(other.owned_),
      owned_args_(other.owned_args_),
      script_(other.script_),
      script_index_(other.script_index_) {
  for (size_t k = 0; k < owned_args_.size(); ++k) argv_[owned_args_[k]] = owned_[k].data();
}

Command &Command::operator=(const Command &other) {
  if (this != &other) {
    Command copy(other);
    *this = std::move(copy);
  }
  return *this;
}

Command &Command::arg_owned(std::string s) {
  owned_args_.push_back(argc());
  owned_.push_back(std::move(s));
  return arg(owned_.back().data(), owned_.back().size());
}

Command &Command::arg_int(long long v) {
  char text[24];
  int n = std::snprintf(text, sizeof text, "%lld", v);
  return arg_owned(std::string(text, static_cast<size_t>(n)));
}

Command &Command::arg_double(double v) {
  if (std::isinf(v)) return arg_owned(v > 0 ? "inf" : "-inf");
  char text[32];
  int n = std::snprintf(text, sizeof text, "%.17g", v);
  return arg_owned(std::string(text, static_cast<size_t>(n)));
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
