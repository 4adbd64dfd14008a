// Key hashes: every published vector, the MD5 and CRC-32 reference values,
// and keys with bytes >= 0x80 (read sign-extended where the kind says so).
#include <gtest/gtest.h>

#include <cstdio>
#include <stdexcept>
#include <string>

#include "hash.h"
#include "md5.h"
#include "support/json_reader.h"

using keyloom::hash_key;
using keyloom::test::Json;

namespace {

std::string hex(const unsigned char *d, size_t n) {
  std::string out;
  char buf[3];
  for (size_t i = 0; i < n; ++i) {
    std::snprintf(buf, sizeof buf, "%02x", d[i]);
    out += buf;
  }
  return out;
}

std::string md5_hex(const std::string &s) {
  unsigned char d[16];
  keyloom::md5(s.data(), s.size(), d);
  return hex(d, 16);
}

uint32_t hash_of(kl_hash kind, const std::string &key) {
  return hash_key(kind, key.data(), key.size());
}

struct Kind {
  const char *name;
  kl_hash kind;
};
constexpr Kind kKinds[] = {
    {"DEFAULT", KL_HASH_DEFAULT},   {"MD5", KL_HASH_MD5},         {"CRC", KL_HASH_CRC},
    {"FNV1_64", KL_HASH_FNV1_64},   {"FNV1A_64", KL_HASH_FNV1A_64}, {"FNV1_32", KL_HASH_FNV1_32},
    {"FNV1A_32", KL_HASH_FNV1A_32}, {"HSIEH", KL_HASH_HSIEH},     {"MURMUR", KL_HASH_MURMUR},
};

}  // namespace

TEST(Md5, Rfc1321TestSuite) {
  EXPECT_EQ(md5_hex(""), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(md5_hex("a"), "0cc175b9c0f1b6a831c399e269772661");
  EXPECT_EQ(md5_hex("abc"), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(md5_hex("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
  EXPECT_EQ(md5_hex("abcdefghijklmnopqrstuvwxyz"), "c3fcd3d76192e4007dfb496cca67e13b");
  EXPECT_EQ(md5_hex("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
            "d174ab98d277d9f5a5611c2c9f419d9f");
  EXPECT_EQ(md5_hex("1234567890123456789012345678901234567890123456789012345678901234567890"
                    "1234567890"),
            "57edf4a22be3c955ac49da2e2107b67a");
  EXPECT_EQ(md5_hex("The quick brown fox jumps over the lazy dog"),
            "9e107d9d372bb6826bd81d3542a419d6");
}

TEST(Md5, IncrementalEqualsOneShotAcrossBlockBoundaries) {
  std::string data;
  for (int i = 0; i < 300; ++i) data.push_back(static_cast<char>(i * 7 + 3));
  // Lengths around the 56- and 64-byte padding edges, split at every offset.
  for (size_t len : {0u, 1u, 55u, 56u, 57u, 63u, 64u, 65u, 119u, 120u, 128u, 300u}) {
    unsigned char whole[16];
    keyloom::md5(data.data(), len, whole);
    for (size_t cut = 0; cut <= len; cut += (len > 70 ? 13 : 1)) {
      keyloom::Md5 m;
      m.update(data.data(), cut);
      m.update(data.data() + cut, len - cut);
      unsigned char parts[16];
      m.finish(parts);
      ASSERT_EQ(hex(parts, 16), hex(whole, 16)) << "len " << len << " cut " << cut;
    }
  }
}

TEST(Crc32, CheckValues) {
  EXPECT_EQ(keyloom::crc32_checksum("123456789", 9), 0xCBF43926u);
  EXPECT_EQ(keyloom::crc32_checksum("", 0), 0u);
  // The full CRC-32 of "apple" as published next to the hash vectors.
  EXPECT_EQ(keyloom::crc32_checksum("apple", 5), 2838417488u);
  // The CRC kind keeps bits 16..30.
  EXPECT_EQ(hash_of(KL_HASH_CRC, "apple"), (2838417488u >> 16) & 0x7FFF);
}

TEST(HashVectors, EveryPublishedValue) {
  const Json doc = Json::load(keyloom::test::vector_path("hash_vectors.json"));
  const auto &keys = doc["keys"].array();
  ASSERT_EQ(keys.size(), 26u);
  size_t checked = 0;
  for (const Kind &k : kKinds) {
    const auto &values = doc["hashes"][k.name]["values"].array();
    ASSERT_EQ(values.size(), keys.size()) << k.name;
    for (size_t i = 0; i < keys.size(); ++i) {
      EXPECT_EQ(hash_of(k.kind, keys[i].str()), values[i].u32())
          << k.name << " key \"" << keys[i].str() << "\"";
      ++checked;
    }
  }
  EXPECT_EQ(checked, 9u * 26u);
  EXPECT_EQ(doc["hashes"].size(), 9u) << "a hash kind in the vectors is not tested";
}

TEST(HashKey, UnknownKindHashesAsDefault) {
  const std::string key = "The quick brown fox jumps over the lazy dog";
  EXPECT_EQ(hash_of(static_cast<kl_hash>(99), key), hash_of(KL_HASH_DEFAULT, key));
  EXPECT_EQ(hash_of(static_cast<kl_hash>(-1), key), hash_of(KL_HASH_DEFAULT, key));
  EXPECT_TRUE(keyloom::hash_kind_valid(KL_HASH_MURMUR));
  EXPECT_FALSE(keyloom::hash_kind_valid(9));
  EXPECT_FALSE(keyloom::hash_kind_valid(-1));
}

TEST(HashKey, EmptyKey) {
  const uint32_t expected[9] = {0, 0xd98c1dd4, 0, 0x84222325, 0x84222325,
                                0x811c9dc5, 0x811c9dc5, 0, 0};
  for (size_t i = 0; i < 9; ++i) {
    EXPECT_EQ(hash_key(kKinds[i].kind, nullptr, 0), expected[i]) << kKinds[i].name;
    EXPECT_EQ(hash_key(kKinds[i].kind, "", 0), expected[i]) << kKinds[i].name;
  }
}

// Keys with bytes >= 0x80 and NUL bytes. The expected values come from a
// separate implementation written from the same definitions (DEFAULT, the
// FNV kinds and the HSIEH 3-byte tail read such bytes sign-extended).
TEST(HashKey, HighAndNulBytes) {
  struct Case {
    std::string key;
    uint32_t v[9];
  };
  const Case cases[] = {
      {std::string("\x80", 1),
       {0xc31d4e27, 0x7edd398d, 0x00003fba, 0x79fe485f, 0x79fdec5f, 0xfaf3a29f, 0x04f3b29f,
        0xd6f4cb32, 0x90556245}},
      {std::string("\xff", 1),
       {0xae65a494, 0xd44f5900, 0x00007f00, 0x79fe4820, 0x79fe466e, 0xfaf3a2e0, 0xf9f3a14e,
        0x02a6dba8, 0xdb530a9c}},
      {std::string("a\xe9" "b", 3),
       {0xf4184700, 0x9209594d, 0x00001a54, 0x94502ecb, 0xfbae49e7, 0xa763afab, 0xf4e78cc7,
        0x3fd7beb3, 0x13244f8e}},
      {std::string("caf\xc3\xa9", 5),
       {0xd99c709e, 0xe47f1107, 0x000018ad, 0x8a06fef1, 0xcef6bb89, 0xd682f171, 0x7572c049,
        0xde3f8855, 0xda11981f}},
      {std::string("\xff\xfe\xfd", 3),
       {0x475549b8, 0xc24e6789, 0x000008ea, 0x93edf087, 0x8f0e92d7, 0x914c9107, 0xbf6d4517,
        0xd989515e, 0xc2e4b7ff}},
      {std::string("abcd\x80\x81\x82", 7),
       {0xc72dc5b9, 0x88424d12, 0x00005f5c, 0x93d37556, 0x5117a590, 0x6aa65d36, 0xbb689250,
        0x809f1b78, 0x37442c04}},
      {std::string("\x00\x01\x7f\x80", 4),
       {0x8a826be9, 0x4c8fb12d, 0x00006599, 0x62340481, 0x66fa248d, 0xa36c2ec1, 0x0f3513cd,
        0xb6ecd957, 0xa1accb00}},
  };
  for (const Case &c : cases)
    for (size_t i = 0; i < 9; ++i)
      EXPECT_EQ(hash_of(kKinds[i].kind, c.key), c.v[i])
          << kKinds[i].name << " key of " << c.key.size() << " bytes";
}

TEST(HashKey, CrcIsFifteenBits) {
  for (int i = 0; i < 2000; ++i) {
    std::string key = "k";
    key += std::to_string(i);
    EXPECT_LE(hash_of(KL_HASH_CRC, key), 0x7FFFu);
  }
}

TEST(JsonReader, ParsesWhatTheVectorsUse) {
  const Json j = Json::parse(
      R"( {"a": [1, 4294967295, -2.5e1], "s": "x\"\\\/\n\u00e9\ud83d\ude00", "t": true,
          "f": false, "n": null, "o": {}} )");
  EXPECT_EQ(j["a"].size(), 3u);
  EXPECT_EQ(j["a"][1].u32(), 4294967295u);
  EXPECT_EQ(j["a"][2].number(), -25.0);
  EXPECT_EQ(j["s"].str(), "x\"\\/\n\xc3\xa9\xf0\x9f\x98\x80");
  EXPECT_TRUE(j["t"].boolean());
  EXPECT_FALSE(j["f"].boolean());
  EXPECT_TRUE(j["n"].is(Json::Type::null));
  EXPECT_EQ(j["o"].size(), 0u);
  EXPECT_FALSE(j.has("missing"));
  EXPECT_THROW(j["missing"], std::runtime_error);
  EXPECT_THROW(j["a"][2].u32(), std::runtime_error);
  EXPECT_THROW(Json::parse("[1, 2"), std::runtime_error);
  EXPECT_THROW(Json::parse("{\"a\" 1}"), std::runtime_error);
  EXPECT_THROW(Json::parse("[1] x"), std::runtime_error);
}
