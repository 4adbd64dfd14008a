// Dictionary commands: words with a value and an unsigned weight, and prefix
// completion (heaviest first, then byte order). See dict_scripts.h for the
// server-side layout.
#include <algorithm>
#include <cstdlib>
#include <numeric>

#include "command_kit.h"
#include "collection_scripts.h"
#include "dict_scripts.h"
#include "reply_cells.h"

using namespace keyloom;

namespace {

struct Dict {
  Key index;
  std::string values;
  std::string weights;
  Dict(const kl_client *client, const char *key, size_t len)
      : index(client, key, len),
        values(companion(index, kDictValuesSuffix)),
        weights(companion(index, kDictWeightsSuffix)) {}
};

// The ZRANGEBYLEX bounds of the words starting with prefix: from "[prefix" to
// just before the next prefix of the same length ("(" + prefix with its last
// byte below 0xff raised by one); "-" / "+" when there is no such bound.
std::pair<std::string, std::string> prefix_bounds(std::string_view prefix) {
  if (prefix.empty()) return {"-", "+"};
  std::string low("[");
  low.append(prefix);
  std::string high("(");
  high.append(prefix);
  while (high.size() > 1 && static_cast<unsigned char>(high.back()) == 0xff) high.pop_back();
  if (high.size() == 1) return {low, "+"};
  high.back() = static_cast<char>(static_cast<unsigned char>(high.back()) + 1);
  return {low, high};
}

unsigned long weight_of(const redisReply *w) {
  if (!w || w->type != REDIS_REPLY_STRING) return 0;
  return std::strtoul(w->str, nullptr, 10);
}

struct ListCells {
  size_t *count;
  char ***words;
  size_t **word_lens;
  char ***values;
  size_t **value_lens;
};

// Words starting with prefix (all of them when empty), heaviest first, then
// in byte order.
kl_return_t list_words(kl_client *client, char *key, size_t key_len, const char *prefix,
                       size_t prefix_len, Route where, const ListCells &out) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(out.count, out.words, out.word_lens, out.values, out.value_lens);
  KL_REQUIRE(given(key) && optional_bytes(prefix, prefix_len) && given(out.count) &&
             given(out.words));
  Dict d(client, key, key_len);
  // A pair, not a structured binding: clang 14 (the fuzz build) cannot capture one.
  const auto bounds = prefix_bounds(std::string_view(prefix ? prefix : "", prefix_len));
  Command cmd = script_command(read_with_values, {d.index.view(), d.values, d.weights},
                               [&](Command &c) {
                                 c.arg("1").arg("ZRANGEBYLEX").arg(bounds.first).arg(bounds.second);
                               });
  return read_one(client, where, std::move(cmd), [&](const redisReply *r, bool fill) {
    if (kl_return_t e = expect_type(r, REDIS_REPLY_ARRAY)) return e;
    auto parts = elements_of(r);
    if (parts.size() != 3) return KL_WRONG_REPLY;
    auto words = elements_of(parts[0]);
    auto values = elements_of(parts[1]);
    auto weights = elements_of(parts[2]);
    if (words.empty()) return KL_NOTFOUND;
    if (values.size() != words.size() || weights.size() != words.size()) return KL_WRONG_REPLY;
    if (!fill) return KL_SUCCESS;
    // The index already lists words in byte order; a stable sort by weight keeps it on ties.
    std::vector<size_t> order(words.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) {
      return weight_of(weights[a]) > weight_of(weights[b]);
    });
    std::vector<const redisReply *> sorted_words, sorted_values;
    for (size_t i : order) {
      sorted_words.push_back(words[i]);
      sorted_values.push_back(values[i]);
    }
    if (kl_return_t e = put_string_array(client, sorted_words.data(), sorted_words.size(), out.words,
                                         out.count, out.word_lens))
      return e;
    if (kl_return_t e = put_string_array(client, sorted_values.data(), sorted_values.size(),
                                         out.values, nullptr, out.value_lens)) {
      release_strings(client, out.words, sorted_words.size(), out.word_lens);
      *out.count = 0;
      return e;
    }
    return KL_SUCCESS;
  });
}

kl_return_t get_word(kl_client *client, char *key, size_t key_len, char *word, size_t word_len,
                     char **value, size_t *value_len, Route where) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(value, value_len);
  KL_REQUIRE(given(key) && given(word) && given(value));
  Dict d(client, key, key_len);
  // The index decides membership: a value left behind by a deleted dictionary is not a word.
  std::vector<Command> cmds(2);
  cmds[0].arg("ZSCORE").arg(d.index.view()).arg(word, word_len);
  cmds[1].arg("HGET").arg(d.values).arg(word, word_len);
  return run_read(client, where, cmds, [&](Replies &replies, bool fill) {
    if (kl_return_t e = put_reply_string(client, replies[0].get(), nullptr, nullptr)) return e;
    return reply_value(client, replies[1].get(), fill, value, value_len);
  });
}

}  // namespace

kl_return_t kl_dadd(kl_client *client, char *key, size_t key_len, char *word, size_t word_len,
                    char *value, size_t value_len, unsigned int weight, size_t ttl) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(given(word));
  return kl_dmadd(client, key, key_len, &word, 1, &word_len, &value, &value_len, weight, nullptr,
                  ttl);
}

kl_return_t kl_dmadd(kl_client *client, char *key, size_t key_len, char **words, size_t count,
                     size_t *word_lens, char **values, size_t *value_lens, unsigned int weight,
                     int *added, size_t ttl) {
  KL_REQUIRE_CLIENT(client);
  clear_cells(added);
  KL_REQUIRE(given(key) && entries_given(words, word_lens, count) &&
             values_given(values, value_lens, count) && ttl_ok(ttl));
  Dict d(client, key, key_len);
  Command cmd = script_command(dict_add, {d.index.view(), d.values, d.weights}, [&](Command &c) {
    c.arg_int(static_cast<long long>(ttl)).arg_int(weight);
    for (size_t i = 0; i < count; ++i) c.arg(words[i], word_lens[i]).arg(or_empty(values[i]), value_lens[i]);
  });
  return write_one(client, route_of(key, key_len), std::move(cmd),
                   [&](const redisReply *r, bool fill) { return reply_count(r, fill, added); });
}

kl_return_t kl_drem(kl_client *client, char *key, size_t key_len, char *word, size_t word_len) {
  KL_REQUIRE_CLIENT(client);
  KL_REQUIRE(given(key) && given(word));
  Dict d(client, key, key_len);
  Command cmd = script_command(remove_with_values, {d.index.view(), d.values, d.weights},
                               [&](Command &c) { c.arg("ZREM").arg(word, word_len); });
  return write_one(client, route_of(key, key_len), std::move(cmd),
                   [](const redisReply *r, bool) { return reply_flag(r, KL_NOTFOUND); });
}

kl_return_t kl_dget(kl_client *client, char *key, size_t key_len, char *word, size_t word_len,
                    char **value, size_t *value_len) {
  return get_word(client, key, key_len, word, word_len, value, value_len, route_of(key, key_len));
}

kl_return_t kl_dget_whole(kl_client *client, char *key, size_t key_len, char *word,
                          size_t word_len, char **value, size_t *value_len, char *route,
                          size_t route_len) {
  return get_word(client, key, key_len, word, word_len, value, value_len,
                  route_of(key, key_len, route, route_len));
}

kl_return_t kl_dclose(kl_client *client, char *key, size_t key_len, char *prefix,
                      size_t prefix_len, size_t *count, char ***words, size_t **word_lens,
                      char ***values, size_t **value_lens) {
  return list_words(client, key, key_len, prefix, prefix_len, route_of(key, key_len),
                    {count, words, word_lens, values, value_lens});
}

kl_return_t kl_dclose_whole(kl_client *client, char *key, size_t key_len, char *prefix,
                            size_t prefix_len, size_t *count, char ***words,
                            size_t **word_lens, char ***values, size_t **value_lens,
                            char *route, size_t route_len) {
  return list_words(client, key, key_len, prefix, prefix_len,
                    route_of(key, key_len, route, route_len),
                    {count, words, word_lens, values, value_lens});
}

kl_return_t kl_dgetall(kl_client *client, char *key, size_t key_len, size_t *count,
                       char ***words, size_t **word_lens, char ***values, size_t **value_lens) {
  return list_words(client, key, key_len, nullptr, 0, route_of(key, key_len),
                    {count, words, word_lens, values, value_lens});
}

kl_return_t kl_dgetall_whole(kl_client *client, char *key, size_t key_len, size_t *count,
                             char ***words, size_t **word_lens, char ***values,
                             size_t **value_lens, char const *route, size_t route_len) {
  return list_words(client, key, key_len, nullptr, 0, route_of(key, key_len, route, route_len),
                    {count, words, word_lens, values, value_lens});
}
