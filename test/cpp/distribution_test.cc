// Server distribution: the published key -> server tables, the digest-count
// rule, the continuum's structure and lookup, evenness and key movement.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <set>
#include <string>
#include <vector>

#include "continuum.h"
#include "hash.h"
#include "md5.h"
#include "support/json_reader.h"

using keyloom::Continuum;
using keyloom::DigestRule;
using keyloom::hash_key;
using keyloom::point_base;
using keyloom::test::Json;

namespace {

const Json &ketama_vectors() {
  static const Json doc = Json::load(keyloom::test::vector_path("ketama_vectors.json"));
  return doc;
}

size_t server_of(const Continuum &c, const std::string &key) {
  return c.server_for(key.data(), key.size());
}

uint32_t hash_of(kl_hash kind, const std::string &key) {
  return hash_key(kind, key.data(), key.size());
}

// Servers "10.0.0.1:6379", "10.0.0.2:6379", ... as point bases.
std::vector<std::string> redis_servers(size_t n) {
  std::vector<std::string> out;
  for (size_t i = 0; i < n; ++i) out.push_back(point_base("10.0.0." + std::to_string(i + 1), 6379));
  return out;
}

std::vector<std::string> test_keys(size_t n) {
  std::vector<std::string> keys;
  keys.reserve(n);
  for (size_t i = 0; i < n; ++i) keys.push_back("user:" + std::to_string(i));
  return keys;
}

// The weighted server list of the published ketama tables: bases made by
// `base` from each host/port, weights as listed.
template <typename MakeBase>
void weighted_servers(const Json &table, MakeBase base, std::vector<std::string> *bases,
                      std::vector<unsigned> *weights, std::vector<std::string> *hosts) {
  for (const Json &s : table["servers"].array()) {
    bases->push_back(base(s["host"].str(), s["port"].u32()));
    weights->push_back(s["weight"].u32());
    hosts->push_back(s["host"].str());
  }
}

}  // namespace

TEST(PointBase, PortLeftOutOnlyForTheMemcachedDefault) {
  EXPECT_EQ(point_base("10.0.1.1", 11211), "10.0.1.1");
  EXPECT_EQ(point_base("127.0.0.1", 6379), "127.0.0.1:6379");
  EXPECT_EQ(point_base("cache.example", 11212), "cache.example:11212");
  EXPECT_EQ(point_base("::1", 0), "::1:0");
}

TEST(DigestCount, SinglePrecisionGives39ForSomeServerCounts) {
  std::vector<size_t> with39;
  for (size_t n = 1; n <= 1000; ++n) {
    const unsigned d = keyloom::ketama_digests(1, n, n);
    ASSERT_TRUE(d == 40 || d == 39) << "n " << n << ": " << d;
    if (d == 39) with39.push_back(n);
  }
  EXPECT_EQ(with39.size(), 103u);
  const std::vector<size_t> first(with39.begin(), with39.begin() + 9);
  EXPECT_EQ(first, (std::vector<size_t>{25, 47, 50, 55, 61, 71, 94, 100, 107}));
}

TEST(DigestCount, DoubleProductRule) {
  std::vector<size_t> with39;
  for (size_t n = 1; n <= 200; ++n) {
    const unsigned d = keyloom::ketama_digests(1, n, n, DigestRule::double_product);
    ASSERT_TRUE(d == 40 || d == 39) << "n " << n << ": " << d;
    if (d == 39) with39.push_back(n);
  }
  EXPECT_EQ(with39, (std::vector<size_t>{61, 122}));
}

TEST(DigestCount, Degenerate) {
  EXPECT_EQ(keyloom::ketama_digests(0, 3, 3), 0u);
  EXPECT_EQ(keyloom::ketama_digests(1, 0, 3), 0u);
  EXPECT_EQ(keyloom::ketama_digests(1, 1, 0), 0u);
}

TEST(KetamaPoints, FourPointsPerDigest) {
  // Published point values: MD5("server1-8"), points 0 and 3.
  for (const Json &c : ketama_vectors()["digest_point_values"]["cases"].array()) {
    const std::string &s = c["point_string"].str();
    unsigned char d[16];
    keyloom::md5(s.data(), s.size(), d);
    EXPECT_EQ(keyloom::digest_point(d, c["alignment"].u32()), c["value"].u32()) << s;
  }
  EXPECT_EQ(ketama_vectors()["digest_point_values"]["cases"].size(), 2u);
}

// The weighted MD5 continuum with the published weights (8 servers, port
// 11211, so the point strings are "host-i").
TEST(KetamaVectors, WeightedCompatTable) {
  const Json &t = ketama_vectors()["weighted_compat"];
  std::vector<std::string> bases, hosts;
  std::vector<unsigned> weights;
  weighted_servers(t, point_base, &bases, &weights, &hosts);
  ASSERT_EQ(bases.size(), 8u);
  Continuum c;
  c.build_weighted(KL_HASH_MD5, bases, weights);
  EXPECT_EQ(c.servers(), 8u);
  EXPECT_EQ(c.distribution(), KL_DISTRIBUTION_CONSISTENT_KETAMA);

  std::vector<uint32_t> per_server(8);
  for (size_t i = 0; i < c.points(); ++i) ++per_server[c.point_server(i)];
  std::vector<uint32_t> expected;
  for (const Json &v : t["derived_points_per_server"].array()) expected.push_back(v.u32());
  EXPECT_EQ(per_server, expected);
  EXPECT_EQ(c.points(), t["derived_total_points"].u32());

  size_t checked = 0;
  for (const Json &row : t["cases"].array()) {
    const std::string &key = row["key"].str();
    const uint32_t h = hash_of(KL_HASH_MD5, key);
    EXPECT_EQ(h, row["key_hash"].u32()) << key;
    EXPECT_EQ(c.point_value(c.point_for_hash(h)), row["continuum_point"].u32()) << key;
    EXPECT_EQ(hosts[server_of(c, key)], row["server"].str()) << key;
    ++checked;
  }
  EXPECT_EQ(checked, 99u);

  // A hash above the last point wraps to the first.
  const Json &wrap = t["wraparound_check"];
  const std::string &key = wrap["key"].str();
  char hex[9];
  std::snprintf(hex, sizeof hex, "%08x", hash_of(KL_HASH_MD5, key));
  EXPECT_EQ(hex, wrap["key_hash_hex"].str());
  EXPECT_GT(hash_of(KL_HASH_MD5, key), c.point_value(c.points() - 1));
  EXPECT_EQ(c.point_value(c.points() - 1), 0xfffbdf7fu);
  EXPECT_EQ(c.point_for_hash(hash_of(KL_HASH_MD5, key)), 0u);
  EXPECT_EQ(server_of(c, key), c.point_server(0));
  EXPECT_EQ(hosts[server_of(c, key)], wrap["derived_server"].str());
}

// Not one of our distributions, but the same continuum with "/host:port"
// bases; it pins the point string ("base-i", i from 0) down further.
TEST(KetamaVectors, SlashHostPortTable) {
  const Json &t = ketama_vectors()["slash_host_port_compat"];
  std::vector<std::string> bases, hosts;
  std::vector<unsigned> weights;
  weighted_servers(
      t, [](const std::string &host, unsigned port) { return "/" + host + ":" + std::to_string(port); },
      &bases, &weights, &hosts);
  Continuum c;
  c.build_weighted(KL_HASH_MD5, bases, weights);
  size_t checked = 0;
  for (const Json &row : t["cases"].array()) {
    EXPECT_EQ(hosts[server_of(c, row["key"].str())], row["server"].str()) << row["key"].str();
    ++checked;
  }
  EXPECT_EQ(checked, 99u);
}

// The published checksum of the original ketama implementation's test program:
// keys "0".."999999", one line "<key hash> <point> <address>" each after an
// empty line, with the port kept in the point string and the double-product
// digest count.
TEST(KetamaVectors, OriginalLibraryChecksum) {
  const Json &t = ketama_vectors()["original_ketama_checksum"];
  std::vector<std::string> addresses;
  std::vector<unsigned> weights;
  for (const Json &s : t["servers"].array()) {
    addresses.push_back(s["address"].str());
    weights.push_back(s["weight"].u32());
  }
  Continuum c;
  c.build_weighted(KL_HASH_MD5, addresses, weights, DigestRule::double_product);
  keyloom::Md5 out;
  out.update("\n", 1);
  char line[96];
  for (unsigned k = 0; k < 1000000; ++k) {
    const std::string key = std::to_string(k);
    const uint32_t h = hash_of(KL_HASH_MD5, key);
    const size_t p = c.point_for_hash(h);
    ASSERT_EQ(server_of(c, key), c.point_server(p));
    const int n = std::snprintf(line, sizeof line, "%u %u %s\n", h, c.point_value(p),
                                addresses[c.point_server(p)].c_str());
    out.update(line, static_cast<size_t>(n));
  }
  unsigned char d[16];
  out.finish(d);
  char hex[33];
  for (int i = 0; i < 16; ++i) std::snprintf(hex + 2 * i, 3, "%02x", d[i]);
  EXPECT_EQ(std::string(hex), t["expected_output_md5"].str());
}

TEST(ModulaVectors, Md5AndCrcModFive) {
  const Json &t = ketama_vectors()["modula_compat"];
  const Json hv = Json::load(keyloom::test::vector_path("hash_vectors.json"));
  const auto &keys = hv["keys"].array();
  std::vector<std::string> bases;
  for (const Json &s : t["servers"].array()) bases.push_back(s.str());
  ASSERT_EQ(bases.size(), 5u);
  for (const auto &[name, kind] : {std::pair{"MD5", KL_HASH_MD5}, std::pair{"CRC", KL_HASH_CRC}}) {
    Continuum c;
    c.build(KL_DISTRIBUTION_MODULA, kind, bases);
    EXPECT_EQ(c.points(), 0u);
    const auto &expected = t["expected_server_index"][name].array();
    ASSERT_EQ(expected.size(), keys.size());
    for (size_t i = 0; i < keys.size(); ++i)
      EXPECT_EQ(server_of(c, keys[i].str()), expected[i].u32()) << name << " " << keys[i].str();
  }
}

TEST(Modula, HashModServerCountForEveryKind) {
  const auto servers = redis_servers(7);
  for (int kind = KL_HASH_DEFAULT; kind <= KL_HASH_MURMUR; ++kind) {
    Continuum c;
    c.build(KL_DISTRIBUTION_MODULA, static_cast<kl_hash>(kind), servers);
    for (const std::string &key : test_keys(500))
      ASSERT_EQ(server_of(c, key), hash_of(static_cast<kl_hash>(kind), key) % 7) << kind;
  }
}

TEST(Continuum, OneServerIsAlwaysIndexZero) {
  for (auto d : {KL_DISTRIBUTION_MODULA, KL_DISTRIBUTION_CONSISTENT,
                 KL_DISTRIBUTION_CONSISTENT_KETAMA}) {
    Continuum c;
    c.build(d, KL_HASH_MD5, redis_servers(1));
    EXPECT_EQ(c.servers(), 1u);
    for (const std::string &key : test_keys(100)) EXPECT_EQ(server_of(c, key), 0u);
    EXPECT_EQ(c.server_for("", 0), 0u);
  }
}

TEST(Continuum, RebuildReplacesThePreviousServers) {
  Continuum c;
  c.build(KL_DISTRIBUTION_CONSISTENT, KL_HASH_DEFAULT, redis_servers(5));
  c.build(KL_DISTRIBUTION_CONSISTENT, KL_HASH_DEFAULT, redis_servers(2));
  EXPECT_EQ(c.servers(), 2u);
  EXPECT_EQ(c.points(), 200u);
  c.build(KL_DISTRIBUTION_MODULA, KL_HASH_DEFAULT, redis_servers(3));
  EXPECT_EQ(c.points(), 0u);
  EXPECT_EQ(c.distribution(), KL_DISTRIBUTION_MODULA);
  for (const std::string &key : test_keys(200)) EXPECT_LT(server_of(c, key), 3u);
}

// CONSISTENT: 100 points per server, point i = key hash of "base-i", sorted
// by value then server.
TEST(Consistent, PointsAreKeyHashesOfBaseDashIndex) {
  const auto servers = redis_servers(3);
  for (int kind = KL_HASH_DEFAULT; kind <= KL_HASH_MURMUR; ++kind) {
    const auto k = static_cast<kl_hash>(kind);
    Continuum c;
    c.build(KL_DISTRIBUTION_CONSISTENT, k, servers);
    ASSERT_EQ(c.points(), 300u);
    std::multiset<std::pair<uint32_t, size_t>> expected, got;
    for (size_t s = 0; s < servers.size(); ++s)
      for (int i = 0; i < 100; ++i)
        expected.insert({hash_of(k, servers[s] + "-" + std::to_string(i)), s});
    for (size_t i = 0; i < c.points(); ++i) got.insert({c.point_value(i), c.point_server(i)});
    EXPECT_EQ(got, expected) << "kind " << kind;
    for (size_t i = 1; i < c.points(); ++i) {
      ASSERT_LE(c.point_value(i - 1), c.point_value(i));
      if (c.point_value(i - 1) == c.point_value(i)) {
        ASSERT_LT(c.point_server(i - 1), c.point_server(i));
      }
    }
  }
}

// With 15-bit CRC values ties are common; a key hashing onto a tied value
// goes to the lowest server index.
TEST(Consistent, TiesGoToTheLowestServerIndex) {
  Continuum c;
  c.build(KL_DISTRIBUTION_CONSISTENT, KL_HASH_CRC, redis_servers(16));
  size_t ties = 0;
  for (size_t i = 1; i < c.points(); ++i) {
    if (c.point_value(i - 1) != c.point_value(i)) continue;
    ++ties;
    EXPECT_LT(c.point_server(i - 1), c.point_server(i));
    size_t first = i - 1;
    while (first > 0 && c.point_value(first - 1) == c.point_value(i)) --first;
    EXPECT_EQ(c.point_for_hash(c.point_value(i)), first);
  }
  EXPECT_GT(ties, 0u) << "no tie to check; pick more servers";
}

TEST(Continuum, LookupTakesTheFirstPointAtOrAboveTheHash) {
  Continuum c;
  c.build(KL_DISTRIBUTION_CONSISTENT_KETAMA, KL_HASH_MD5, redis_servers(4));
  ASSERT_EQ(c.points(), 640u);
  EXPECT_EQ(c.point_for_hash(0), 0u);
  EXPECT_EQ(c.point_for_hash(c.point_value(0)), 0u);
  for (size_t i = 1; i < c.points(); ++i) {
    if (c.point_value(i) == c.point_value(i - 1)) continue;
    EXPECT_EQ(c.point_for_hash(c.point_value(i)), i);
    EXPECT_EQ(c.point_for_hash(c.point_value(i - 1) + 1), i);
  }
  if (c.point_value(c.points() - 1) != UINT32_MAX) {  // else nothing lies above it
    EXPECT_EQ(c.point_for_hash(c.point_value(c.points() - 1) + 1), 0u);
    EXPECT_EQ(c.point_for_hash(UINT32_MAX), 0u);
  }
}

// CONSISTENT_KETAMA = the weighted continuum with every weight 1, keys hashed
// with the client's kind (not always MD5).
TEST(Ketama, EqualWeightsAndTheClientsHashKind) {
  for (size_t n : {2u, 8u, 25u}) {
    const auto servers = redis_servers(n);
    Continuum ketama, weighted;
    ketama.build(KL_DISTRIBUTION_CONSISTENT_KETAMA, KL_HASH_FNV1A_32, servers);
    weighted.build_weighted(KL_HASH_FNV1A_32, servers, std::vector<unsigned>(n, 1));
    const size_t per_server = n == 25 ? 156 : 160;
    ASSERT_EQ(ketama.points(), n * per_server);
    ASSERT_EQ(weighted.points(), ketama.points());
    for (size_t i = 0; i < ketama.points(); ++i) {
      ASSERT_EQ(ketama.point_value(i), weighted.point_value(i));
      ASSERT_EQ(ketama.point_server(i), weighted.point_server(i));
    }
    // Point values are MD5 digests of "base-i" whatever the key hash.
    unsigned char d[16];
    const std::string first = servers[0] + "-0";
    keyloom::md5(first.data(), first.size(), d);
    for (unsigned j = 0; j < 4; ++j) {
      const size_t p = ketama.point_for_hash(keyloom::digest_point(d, j));
      EXPECT_EQ(ketama.point_value(p), keyloom::digest_point(d, j));
    }
    for (const std::string &key : test_keys(2000)) {
      const size_t p = ketama.point_for_hash(hash_of(KL_HASH_FNV1A_32, key));
      ASSERT_EQ(server_of(ketama, key), ketama.point_server(p)) << key;
    }
  }
}

// CRC values are 15 bits (0..32767) while ketama points spread over 32 bits,
// so every key lands on the first point or two: the compatible definition,
// kept as is.
TEST(Ketama, CrcKeysCrowdTheStartOfTheContinuum) {
  Continuum c;
  c.build(KL_DISTRIBUTION_CONSISTENT_KETAMA, KL_HASH_CRC, redis_servers(8));
  std::set<size_t> used;
  for (const std::string &key : test_keys(10000)) used.insert(server_of(c, key));
  EXPECT_LE(used.size(), 2u);
}

// ---- Evenness and movement --------------------------------------------------
//
// A server owning p points holds a share of the ring whose relative standard
// deviation is about 1/sqrt(p): ~8% for ketama's 160 points, ~10% for the
// 100-point continuum (the 100,000 keys add only ~1.3% at 16 servers). So the
// worst of 16 servers sits around 2-2.5 deviations out; the bounds below
// (25% and 35%, about 3.2 and 3.5 deviations) hold with margin. Observed for
// these servers and keys: at most 17% (ketama) and 27% (consistent).
// Hash kinds whose values cluster on near-identical strings (FNV, CRC) are
// left out: the definitions give them uneven rings.

namespace {

struct Spread {
  double worst = 0;  // largest |count - fair| / fair over the servers
};

Spread spread(const Continuum &c, const std::vector<std::string> &keys) {
  std::vector<size_t> count(c.servers());
  for (const std::string &key : keys) ++count[server_of(c, key)];
  const double fair = double(keys.size()) / double(c.servers());
  Spread s;
  for (size_t n : count) s.worst = std::max(s.worst, std::fabs(double(n) - fair) / fair);
  return s;
}

struct Moves {
  double fraction = 0;      // keys whose server changed
  size_t not_to_new = 0;    // of those, keys that went elsewhere than the new server
};

Moves add_one_server(kl_server_distribution d, kl_hash kind, size_t n,
                     const std::vector<std::string> &keys) {
  const auto all = redis_servers(n + 1);
  Continuum before, after;
  before.build(d, kind, std::vector<std::string>(all.begin(), all.begin() + n));
  after.build(d, kind, all);
  Moves m;
  size_t moved = 0;
  for (const std::string &key : keys) {
    const size_t a = server_of(before, key), b = server_of(after, key);
    if (a == b) continue;
    ++moved;
    if (b != n) ++m.not_to_new;
  }
  m.fraction = double(moved) / double(keys.size());
  return m;
}

}  // namespace

class Evenness : public ::testing::TestWithParam<std::tuple<kl_server_distribution, kl_hash>> {
 protected:
  static const std::vector<std::string> &keys() {
    static const std::vector<std::string> k = test_keys(100000);
    return k;
  }
};

TEST_P(Evenness, EveryServerNearItsFairShare) {
  const auto [d, kind] = GetParam();
  const double bound = d == KL_DISTRIBUTION_CONSISTENT_KETAMA ? 0.25 : 0.35;
  for (size_t n : {4u, 8u, 16u}) {
    Continuum c;
    c.build(d, kind, redis_servers(n));
    const Spread s = spread(c, keys());
    EXPECT_LT(s.worst, bound) << n << " servers";
  }
}

TEST_P(Evenness, AddingAServerMovesAboutItsShare) {
  const auto [d, kind] = GetParam();
  for (size_t n : {4u, 8u, 16u}) {
    const Moves m = add_one_server(d, kind, n, keys());
    const double share = 1.0 / double(n + 1);
    EXPECT_GT(m.fraction, 0.5 * share) << n << " servers";
    EXPECT_LT(m.fraction, 1.5 * share) << n << " servers";
    // Keys only ever move to the new server.
    EXPECT_EQ(m.not_to_new, 0u) << n << " servers";
  }
}

INSTANTIATE_TEST_SUITE_P(
    Rings, Evenness,
    ::testing::Values(std::tuple{KL_DISTRIBUTION_CONSISTENT_KETAMA, KL_HASH_MD5},
                      std::tuple{KL_DISTRIBUTION_CONSISTENT_KETAMA, KL_HASH_DEFAULT},
                      std::tuple{KL_DISTRIBUTION_CONSISTENT_KETAMA, KL_HASH_MURMUR},
                      std::tuple{KL_DISTRIBUTION_CONSISTENT_KETAMA, KL_HASH_FNV1A_32},
                      std::tuple{KL_DISTRIBUTION_CONSISTENT, KL_HASH_MD5},
                      std::tuple{KL_DISTRIBUTION_CONSISTENT, KL_HASH_DEFAULT},
                      std::tuple{KL_DISTRIBUTION_CONSISTENT, KL_HASH_MURMUR},
                      std::tuple{KL_DISTRIBUTION_CONSISTENT, KL_HASH_HSIEH}));

// The contrast: modula is even but moves about n/(n+1) of the keys.
TEST(ModulaMovement, AddingAServerMovesMostKeys) {
  const auto keys = test_keys(100000);
  for (size_t n : {4u, 8u, 16u}) {
    Continuum c;
    c.build(KL_DISTRIBUTION_MODULA, KL_HASH_MD5, redis_servers(n));
    EXPECT_LT(spread(c, keys).worst, 0.05) << n << " servers";
    const Moves m = add_one_server(KL_DISTRIBUTION_MODULA, KL_HASH_MD5, n, keys);
    EXPECT_GT(m.fraction, 0.9 * double(n) / double(n + 1)) << n << " servers";
    EXPECT_GT(m.not_to_new, 0u);
  }
}
