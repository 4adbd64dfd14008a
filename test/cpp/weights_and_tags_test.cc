// Server weights and hash tags through the library's interface: servers added
// with kl_server_add_weighted place the published weighted ketama keys as the
// table says, and kl_client_set_hash_tag routes a key by its tag alone.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "client.h"
#include "keyloom.h"
#include "support/json_reader.h"
#include "support/test_cluster.h"

using keyloom::test::Json;
using keyloom::test::mut;

namespace {

const Json &ketama_vectors() {
  static const Json doc = Json::load(keyloom::test::vector_path("ketama_vectors.json"));
  return doc;
}

// The server a key is routed to in the client's first group.
size_t routed(const kl_client *client, const std::string &key) {
  return client->groups[0]->continuum.server_for(key.data(), key.size());
}

kl_client *ketama_client(kl_hash hash) {
  return kl_client_create(hash, KL_DISTRIBUTION_CONSISTENT_KETAMA, nullptr, KL_FLAG_NONE);
}

TEST(ServerWeights, WeightedServersPlaceThePublishedKeys) {
  const Json &t = ketama_vectors()["weighted_compat"];
  kl_client *c = ketama_client(KL_HASH_MD5);
  std::vector<std::string> hosts;
  for (const Json &s : t["servers"].array()) {
    hosts.push_back(s["host"].str());
    ASSERT_EQ(kl_server_add_weighted(c, mut(s["host"].str()), s["port"].u32(), nullptr, s["weight"].u32()),
              KL_SUCCESS);
  }
  size_t checked = 0;
  for (const Json &row : t["cases"].array()) {
    EXPECT_EQ(hosts[routed(c, row["key"].str())], row["server"].str()) << row["key"].str();
    ++checked;
  }
  EXPECT_EQ(checked, 99u);
  kl_client_destroy(c);
}

TEST(ServerWeights, AServersShareOfKeysFollowsItsWeight) {
  kl_client *c = ketama_client(KL_HASH_DEFAULT);
  const unsigned weights[] = {1, 3};
  ASSERT_EQ(kl_server_add_weighted(c, mut("10.0.0.1"), 6379, nullptr, weights[0]), KL_SUCCESS);
  ASSERT_EQ(kl_server_add_weighted(c, mut("10.0.0.2"), 6379, nullptr, weights[1]), KL_SUCCESS);
  size_t on_heavy = 0;
  const size_t n = 20000;
  for (size_t i = 0; i < n; ++i) on_heavy += routed(c, "key:" + std::to_string(i));
  EXPECT_NEAR(static_cast<double>(on_heavy) / n, 0.75, 0.05);
  kl_client_destroy(c);
}

TEST(ServerWeights, WeightsAreRefusedWhereTheyCannotBeHonoured) {
  kl_client *c = ketama_client(KL_HASH_DEFAULT);
  EXPECT_EQ(kl_server_add_weighted(c, mut("10.0.0.1"), 6379, nullptr, 0), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_server_add_weighted(nullptr, mut("10.0.0.1"), 6379, nullptr, 2), KL_INVALID_CLIENT);
  kl_client_destroy(c);
  kl_client *consistent = kl_client_create(KL_HASH_DEFAULT, KL_DISTRIBUTION_CONSISTENT, nullptr, KL_FLAG_NONE);
  EXPECT_EQ(kl_server_add_weighted(consistent, mut("10.0.0.1"), 6379, nullptr, 2), KL_INVALID_PARAMETER);
  EXPECT_EQ(kl_server_add_weighted(consistent, mut("10.0.0.1"), 6379, nullptr, 1), KL_SUCCESS);
  kl_client_destroy(consistent);
}

kl_client *tagged_client(size_t servers) {
  kl_client *c = kl_client_create(KL_HASH_DEFAULT, KL_DISTRIBUTION_CONSISTENT, nullptr, KL_FLAG_NONE);
  for (size_t i = 0; i < servers; ++i) kl_server_add(c, mut("10.0.0." + std::to_string(i + 1)), 6379, nullptr);
  EXPECT_EQ(kl_client_set_hash_tag(c, mut("{}"), 2), KL_SUCCESS);
  return c;
}

TEST(HashTags, AKeyIsRoutedByItsTagAlone) {
  kl_client *c = tagged_client(8);
  // The tag is what lies between the first '{' and the next '}'.
  EXPECT_EQ(routed(c, "{user42}:cart"), routed(c, "user42"));
  EXPECT_EQ(routed(c, "{user42}:profile"), routed(c, "user42"));
  EXPECT_EQ(routed(c, "x{user42}y{other}"), routed(c, "user42"));
  EXPECT_EQ(routed(c, "a}b{c}"), routed(c, "c"));
  EXPECT_EQ(routed(c, "{a}{b}"), routed(c, "a"));
  // No tag: an empty one, no closing brace after the opening one, no braces.
  kl_client *plain = kl_client_create(KL_HASH_DEFAULT, KL_DISTRIBUTION_CONSISTENT, nullptr, KL_FLAG_NONE);
  for (size_t i = 0; i < 8; ++i) kl_server_add(plain, mut("10.0.0." + std::to_string(i + 1)), 6379, nullptr);
  for (const char *key : {"{}x", "a{b", "}a{", "plain", "{}{x}"}) EXPECT_EQ(routed(c, key), routed(plain, key)) << key;
  kl_client_destroy(plain);
  kl_client_destroy(c);
}

TEST(HashTags, GroupsAddedLaterAndGroupClientsKeepTheSetting) {
  kl_client *c = tagged_client(4);
  for (size_t i = 0; i < 4; ++i) kl_server_add(c, mut("10.0.1." + std::to_string(i + 1)), 6379, mut("replica"));
  kl_client *copy = kl_group_client(c);
  for (const kl_client *client : {static_cast<const kl_client *>(c), static_cast<const kl_client *>(copy)}) {
    for (const auto &g : client->groups) {
      const std::string a = "{same}:1", b = "{same}:2";
      EXPECT_EQ(g->continuum.server_for(a.data(), a.size()), g->continuum.server_for(b.data(), b.size()));
    }
  }
  kl_client_destroy(copy);
  // Turned off, keys are routed whole again.
  ASSERT_EQ(kl_client_set_hash_tag(c, nullptr, 0), KL_SUCCESS);
  EXPECT_FALSE(c->groups[0]->continuum.hash_tagged());
  EXPECT_EQ(kl_client_set_hash_tag(c, mut("{"), 1), KL_INVALID_PARAMETER);
  kl_client_destroy(c);
}

TEST(HashTags, TaggedKeysOfOneCommandMeetOnOneServer) {
  keyloom::test::TestCluster cluster(3);
  kl_client *c = cluster.client();
  ASSERT_EQ(kl_client_set_hash_tag(c, mut("{}"), 2), KL_SUCCESS);
  std::vector<std::string> keys;
  for (int i = 0; i < 30; ++i) keys.push_back("{cart7}:item" + std::to_string(i));
  for (const std::string &k : keys) ASSERT_EQ(kl_set(c, mut(k), k.size(), mut("v"), 1, 0), KL_SUCCESS);
  // Every key is stored (whole) on the tag's server.
  const size_t home = routed(c, "cart7");
  for (size_t s = 0; s < 3; ++s) {
    kl_client *one = kl_client_create(KL_HASH_DEFAULT, KL_DISTRIBUTION_CONSISTENT, nullptr, KL_FLAG_NONE);
    kl_server_add(one, mut("127.0.0.1"), cluster.server(s).port(), nullptr);
    char *value = nullptr;
    size_t len = 0;
    const kl_return_t rc = kl_get_whole(one, mut(keys[0]), keys[0].size(), &value, &len, nullptr, 0);
    EXPECT_EQ(rc, s == home ? KL_SUCCESS : KL_NOTFOUND) << s;
    if (value) kl_free_php_reply_p(&value);
    kl_client_destroy(one);
  }
}

}  // namespace
