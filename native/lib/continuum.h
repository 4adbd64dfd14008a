// Server distribution: which server of a group a key belongs to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "keyloom.h"

namespace keyloom {

// The name of a server on the continuum: "host:port", or "host" for port 11211
// (the memcached default port, left out for compatibility with other clients).
std::string point_base(std::string_view host, unsigned port);

// How the digest count of a weighted server is rounded.
enum class DigestRule {
  // floor(((w / W) * 160 / 4) * n), every step in single precision (the
  // common rule; 39 instead of 40 digests for some n with equal weights).
  single_precision,
  // floor(float(float(w / W) * 40.0 * n)), the product in double (the
  // original ketama implementation).
  double_product,
};

// MD5 digests (4 points each) for a server of weight w among n servers whose
// weights add up to total_weight.
unsigned ketama_digests(unsigned weight, unsigned long long total_weight, size_t servers,
                        DigestRule rule = DigestRule::single_precision);

// Point j (0..3) of an MD5 digest: bytes 4j .. 4j+3 read little-endian.
uint32_t digest_point(const unsigned char digest[16], unsigned j);

// Which server of a group a key belongs to. Build once per server-list change;
// lookups are const, allocation-free and safe from several threads at once.
// Servers added with add_server() are only recorded: the continuum is built
// once, on the first lookup after them (callers serialize that lookup with
// the additions, as the client lock does), so adding n servers costs O(n)
// and not n rebuilds.
class Continuum {
 public:
  // Records one more server (its point base and, for the weighted MD5
  // continuum, its weight) for a later build(distribution, hash, every server
  // recorded so far).
  void add_server(kl_server_distribution distribution, kl_hash hash, std::string base, unsigned weight = 1) {
    pending_distribution_ = distribution;
    pending_hash_ = hash;
    bases_.push_back(std::move(base));
    weights_.push_back(weight);
    stale_ = true;
  }

  // Hash tags: with open and close set, a key holding open, then close
  // later, with something between, is routed by that part alone, so keys
  // sharing it ("{user42}:cart", "{user42}:profile") share a server. '\0'
  // for both: whole keys.
  void set_hash_tag(char open, char close) {
    tag_open_ = open;
    tag_close_ = close;
  }
  bool hash_tagged() const { return tag_open_ != '\0'; }
  char hash_tag_open() const { return tag_open_; }
  char hash_tag_close() const { return tag_close_; }

  // Rebuilds for these servers (point bases in the order they were added).
  // MODULA keeps no points; CONSISTENT has 100 points per server, each the
  // key hash of "base-i"; CONSISTENT_KETAMA is build_weighted() with the
  // weights recorded by add_server() (every weight 1 for servers given
  // here). An unknown distribution is taken as MODULA.
  void build(kl_server_distribution distribution, kl_hash hash,
             const std::vector<std::string> &servers);
  // The weighted MD5 continuum: ketama_digests() digests of "base-i" per
  // server, 4 points each; keys hashed with `hash`. weights has one entry per
  // server.
  void build_weighted(kl_hash hash, const std::vector<std::string> &servers,
                      const std::vector<unsigned> &weights,
                      DigestRule rule = DigestRule::single_precision);

  // Index (in the order added) of the server for key (its hash tag only,
  // when tags are on and it has one); 0 without hashing when there is one
  // server; must not be called with no servers (answers 0).
  size_t server_for(const char *key, size_t len) const;
  size_t servers() const {
    refresh();
    return servers_;
  }

  kl_server_distribution distribution() const {
    refresh();
    return distribution_;
  }
  kl_hash hash() const {
    refresh();
    return hash_;
  }
  // The sorted continuum (empty for MODULA): point i's value and server.
  size_t points() const {
    refresh();
    return values_.size();
  }
  uint32_t point_value(size_t i) const {
    refresh();
    return values_[i];
  }
  size_t point_server(size_t i) const {
    refresh();
    return owners_[i];
  }
  // The point a key hash lands on: the first point >= h, else point 0.
  // Requires points() > 0.
  size_t point_for_hash(uint32_t h) const;

 private:
  struct Point {
    uint32_t value;
    uint32_t server;
  };
  void finish(std::vector<Point> &points);
  // Builds what add_server() recorded, if anything.
  void refresh() const {
    if (stale_) const_cast<Continuum *>(this)->build_pending();
  }
  void build_pending();

  kl_server_distribution distribution_ = KL_DISTRIBUTION_MODULA;
  kl_hash hash_ = KL_HASH_DEFAULT;
  size_t servers_ = 0;
  // Parallel arrays, sorted by value then server: the binary search touches
  // only the values.
  std::vector<uint32_t> values_;
  std::vector<uint32_t> owners_;
  // The servers of the last build plus those added since (point bases).
  std::vector<std::string> bases_;
  std::vector<unsigned> weights_;  // one per base
  bool stale_ = false;
  char tag_open_ = '\0';
  char tag_close_ = '\0';
  kl_server_distribution pending_distribution_ = KL_DISTRIBUTION_MODULA;
  kl_hash pending_hash_ = KL_HASH_DEFAULT;
};

}  // namespace keyloom
