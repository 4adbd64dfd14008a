// Dictionary commands (words with values and weights, prefix completion)
// against a real server.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "keyloom.h"
#include "support/reply_arrays.h"
#include "support/test_cluster.h"

using namespace keyloom::test;

namespace {

using Strings = std::vector<std::string>;

class Dictionaries : public ::testing::Test {
 protected:
  kl_client *c() { return cluster.client(); }
  kl_return_t add(const std::string &word, const std::string &value, unsigned weight,
                  size_t ttl = 0, const std::string &key = "d") {
    return kl_dadd(c(), mut(key), key.size(), mut(word), word.size(), mut(value), value.size(),
                   weight, ttl);
  }
  // "word=value" per entry, in the order the library gives.
  Strings close(const std::string &prefix, const std::string &key = "d") {
    size_t count = 0, *wlens = nullptr, *vlens = nullptr;
    char **words = nullptr, **values = nullptr;
    kl_return_t r = prefix.empty()
                        ? kl_dgetall(c(), mut(key), key.size(), &count, &words, &wlens, &values, &vlens)
                        : kl_dclose(c(), mut(key), key.size(), mut(prefix), prefix.size(), &count,
                                    &words, &wlens, &values, &vlens);
    if (r != KL_SUCCESS) return {kl_strerror(r)};
    Strings w = take_strings(words, count, wlens), v = take_strings(values, count, vlens);
    for (size_t i = 0; i < count; ++i) w[i].append("=").append(v[i]);
    return w;
  }
  std::string get(const std::string &word, const std::string &key = "d") {
    char *value = nullptr;
    size_t len = 0;
    kl_return_t r = kl_dget(c(), mut(key), key.size(), mut(word), word.size(), &value, &len);
    return r == KL_SUCCESS ? take_value(value, len) : failed(r);
  }
  TestCluster cluster;
};

}  // namespace

TEST_F(Dictionaries, CompletionIsHeaviestFirstThenByteOrder) {
  ASSERT_EQ(add("apple", "A", 5), KL_SUCCESS);
  ASSERT_EQ(add("apricot", "B", 9), KL_SUCCESS);
  ASSERT_EQ(add("apex", "C", 5), KL_SUCCESS);
  ASSERT_EQ(add("ap", "D", 1), KL_SUCCESS);
  ASSERT_EQ(add("banana", "E", 100), KL_SUCCESS);
  ASSERT_EQ(add("aq", "F", 50), KL_SUCCESS);
  EXPECT_EQ(close("ap"), (Strings{"apricot=B", "apex=C", "apple=A", "ap=D"}));
  EXPECT_EQ(close("apr"), (Strings{"apricot=B"}));
  EXPECT_EQ(close("c"), Strings{kl_strerror(KL_NOTFOUND)});
  EXPECT_EQ(close(""), (Strings{"banana=E", "aq=F", "apricot=B", "apex=C", "apple=A", "ap=D"}));
  size_t count = 0;
  char **words = nullptr, **values = nullptr;
  size_t *wlens = nullptr, *vlens = nullptr;
  ASSERT_EQ(kl_dclose_whole(c(), lit("d"), 1, lit("b"), 1, &count, &words, &wlens, nullptr, nullptr,
                            lit("d"), 1),
            KL_SUCCESS);
  EXPECT_EQ(take_strings(words, count, wlens), Strings{"banana"});
  ASSERT_EQ(kl_dgetall_whole(c(), lit("d"), 1, &count, &words, &wlens, &values, &vlens, "d", 1), KL_SUCCESS);
  EXPECT_EQ(count, 6u);
  take_strings(words, count, wlens);
  take_strings(values, count, vlens);
}

TEST_F(Dictionaries, PrefixesWithHighBytesFindEveryWord) {
  std::string p("a\xff", 2);
  ASSERT_EQ(add(p, "1", 1), KL_SUCCESS);
  ASSERT_EQ(add(p + "\xff\x01", "2", 2), KL_SUCCESS);
  ASSERT_EQ(add("b", "3", 3), KL_SUCCESS);
  EXPECT_EQ(close(p), (Strings{p + "\xff\x01=2", p + "=1"}));
  EXPECT_EQ(close("\xff"), Strings{kl_strerror(KL_NOTFOUND)});
}

TEST_F(Dictionaries, GetRemoveAndReplace) {
  ASSERT_EQ(add("w", "first", 1), KL_SUCCESS);
  EXPECT_EQ(get("w"), "first");
  ASSERT_EQ(add("w", "second", 7), KL_SUCCESS);
  EXPECT_EQ(get("w"), "second");
  char *value = nullptr;
  size_t len = 0;
  ASSERT_EQ(kl_dget_whole(c(), lit("d"), 1, lit("w"), 1, &value, &len, lit("x"), 0), KL_SUCCESS);
  EXPECT_EQ(take_value(value, len), "second");
  EXPECT_EQ(get("nope"), "<not found>");
  EXPECT_EQ(kl_drem(c(), lit("d"), 1, lit("w"), 1), KL_SUCCESS);
  EXPECT_EQ(kl_drem(c(), lit("d"), 1, lit("w"), 1), KL_NOTFOUND);
  EXPECT_EQ(get("w"), "<not found>");
  EXPECT_EQ(cluster.dbsize(0), 0);  // the hashes beside the index went with the last word
}

TEST_F(Dictionaries, ManyWordsCountTheNewOnes) {
  Strings words = {"x", "y", "z"}, values = {"1", "2", "3"};
  CArgs w(words), v(values);
  int added = 0;
  ASSERT_EQ(kl_dmadd(c(), lit("d"), 1, w.ptrs.data(), 3, w.lens.data(), v.ptrs.data(), v.lens.data(), 4,
                     &added, 100),
            KL_SUCCESS);
  EXPECT_EQ(added, 3);
  ASSERT_EQ(kl_dmadd(c(), lit("d"), 1, w.ptrs.data(), 2, w.lens.data(), v.ptrs.data(), v.lens.data(), 4,
                     &added, 0),
            KL_SUCCESS);
  EXPECT_EQ(added, 0);
  for (const char *key : {"d", "d::keyloom:dvals", "d::keyloom:dwts"})
    EXPECT_GT(cluster.direct(0, {"TTL", key})->integer, 90) << key;
}

TEST_F(Dictionaries, ADeletedDictionaryLeavesNothingBehind) {
  ASSERT_EQ(add("old", "v", 1), KL_SUCCESS);
  cluster.direct(0, {"DEL", "d"});
  EXPECT_EQ(get("old"), "<not found>");
  ASSERT_EQ(add("new", "v", 1), KL_SUCCESS);
  EXPECT_EQ(close(""), Strings{"new=v"});
  EXPECT_EQ(cluster.direct(0, {"HLEN", "d::keyloom:dvals"})->integer, 1);
}

TEST_F(Dictionaries, DeletingTheDictionaryDeletesItsValuesAndWeights) {
  ASSERT_EQ(add("word", "v", 3), KL_SUCCESS);
  EXPECT_EQ(cluster.dbsize(0), 3);
  ASSERT_EQ(kl_del(c(), mut("d"), 1), KL_SUCCESS);
  EXPECT_EQ(cluster.dbsize(0), 0);
}

TEST_F(Dictionaries, WrongTypeAndInvalidArguments) {
  cluster.direct(0, {"SET", "str", "x"});
  EXPECT_EQ(add("w", "v", 1, 100, "str"), KL_SERVER_ERROR);
  EXPECT_EQ(cluster.direct(0, {"TTL", "str"})->integer, -1);
  EXPECT_EQ(get("w", "str"), failed(KL_SERVER_ERROR));
  EXPECT_EQ(kl_drem(c(), lit("str"), 3, lit("w"), 1), KL_SERVER_ERROR);
  EXPECT_EQ(close("w", "str"), Strings{kl_strerror(KL_SERVER_ERROR)});

  char *value = nullptr, **words = nullptr, *word = lit("w");
  size_t len = 0, count = 0, *lens = nullptr, one = 1;
  int added = 0;
  EXPECT_EQ(kl_dadd(nullptr, lit("d"), 1, lit("w"), 1, lit("v"), 1, 1, 0), KL_INVALID_CLIENT);
  EXPECT_EQ(kl_dadd(c(), nullptr, 1, lit("w"), 1, lit("v"), 1, 1, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_dadd(c(), lit("d"), 1, nullptr, 1, lit("v"), 1, 1, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_dadd(c(), lit("d"), 1, lit("w"), 1, nullptr, 1, 1, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_dmadd(c(), lit("d"), 1, &word, 0, &one, &word, &one, 1, &added, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_dmadd(c(), lit("d"), 1, &word, 1, &one, nullptr, &one, 1, &added, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_drem(c(), lit("d"), 1, nullptr, 1), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_dget(c(), lit("d"), 1, lit("w"), 1, nullptr, &len), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_dget_whole(c(), nullptr, 1, lit("w"), 1, &value, &len, nullptr, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_dclose(c(), lit("d"), 1, nullptr, 2, &count, &words, &lens, nullptr, nullptr),
            KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_dclose(c(), lit("d"), 1, lit("w"), 1, nullptr, &words, &lens, nullptr, nullptr),
            KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_dgetall(c(), lit("d"), 1, &count, nullptr, &lens, nullptr, nullptr), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_dgetall_whole(c(), nullptr, 1, &count, &words, &lens, nullptr, nullptr, nullptr, 0),
            KL_INVALID_PARAMETER);
  EXPECT_EQ(cluster.dbsize(0), 1);  // only "str"
}
