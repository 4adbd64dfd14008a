#include "continuum.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>

#include "hash.h"
#include "md5.h"

namespace keyloom {
namespace {

constexpr unsigned kDefaultPort = 11211;
constexpr unsigned kConsistentPoints = 100;

// Appends "-i" to buf, which holds "base" plus whatever the last call added.
void set_index(std::string &buf, size_t base_len, unsigned i) {
  char digits[16];
  const auto res = std::to_chars(digits, digits + sizeof digits, i);
  buf.resize(base_len);
  buf.push_back('-');
  buf.append(digits, res.ptr);
}

}  // namespace

std::string point_base(std::string_view host, unsigned port) {
  std::string base(host);
  if (port != kDefaultPort) {
    char digits[16];
    const auto res = std::to_chars(digits, digits + sizeof digits, port);
    base.push_back(':');
    base.append(digits, res.ptr);
  }
  return base;
}

unsigned ketama_digests(unsigned weight, unsigned long long total_weight, size_t servers,
                        DigestRule rule) {
  if (total_weight == 0 || servers == 0) return 0;
  const float pct = static_cast<float>(weight) / static_cast<float>(total_weight);
  float digests;
  if (rule == DigestRule::double_product) {
    digests = static_cast<float>(pct * 40.0 * static_cast<double>(servers));
  } else {
    // Each step is rounded to float on purpose: that rounding decides 39 vs 40.
    const float points = pct * 160.0f;
    const float per_digest = points / 4.0f;
    digests = per_digest * static_cast<float>(servers);
  }
  // The 1e-10 other clients add before flooring; kept to mirror them exactly.
  return static_cast<unsigned>(std::floor(static_cast<double>(digests) + 1e-10));
}

uint32_t digest_point(const unsigned char digest[16], unsigned j) {
  const unsigned char *p = digest + 4 * j;
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

void Continuum::finish(std::vector<Point> &points) {
  // Equal values are ordered by server index, so lookups are deterministic.
  std::sort(points.begin(), points.end(), [](const Point &a, const Point &b) {
    return a.value != b.value ? a.value < b.value : a.server < b.server;
  });
  values_.resize(points.size());
  owners_.resize(points.size());
  for (size_t i = 0; i < points.size(); ++i) {
    values_[i] = points[i].value;
    owners_[i] = points[i].server;
  }
}

void Continuum::build_pending() {
  stale_ = false;
  build(pending_distribution_, pending_hash_, bases_);
}

void Continuum::build(kl_server_distribution distribution, kl_hash hash,
                      const std::vector<std::string> &servers) {
  stale_ = false;
  if (&servers != &bases_) {
    bases_ = servers;
    weights_.assign(bases_.size(), 1);
  }
  if (distribution == KL_DISTRIBUTION_CONSISTENT_KETAMA) {
    build_weighted(hash, bases_, weights_);
    return;
  }
  hash_ = hash;
  servers_ = servers.size();
  values_.clear();
  owners_.clear();
  if (distribution != KL_DISTRIBUTION_CONSISTENT) {
    distribution_ = KL_DISTRIBUTION_MODULA;
    return;
  }
  distribution_ = KL_DISTRIBUTION_CONSISTENT;
  std::vector<Point> points;
  points.reserve(servers.size() * kConsistentPoints);
  std::string buf;
  for (size_t s = 0; s < servers.size(); ++s) {
    buf = servers[s];
    const size_t base_len = buf.size();
    for (unsigned i = 0; i < kConsistentPoints; ++i) {
      set_index(buf, base_len, i);
      points.push_back({hash_key(hash, buf.data(), buf.size()), static_cast<uint32_t>(s)});
    }
  }
  finish(points);
}

void Continuum::build_weighted(kl_hash hash, const std::vector<std::string> &servers,
                               const std::vector<unsigned> &weights, DigestRule rule) {
  stale_ = false;
  if (&servers != &bases_) bases_ = servers;
  if (&weights != &weights_) weights_ = weights;
  weights_.resize(bases_.size(), 0);
  distribution_ = KL_DISTRIBUTION_CONSISTENT_KETAMA;
  hash_ = hash;
  servers_ = servers.size();
  unsigned long long total = 0;
  for (size_t s = 0; s < servers.size(); ++s) total += s < weights.size() ? weights[s] : 0;
  std::vector<Point> points;
  points.reserve(servers.size() * 160);
  std::string buf;
  unsigned char digest[16];
  for (size_t s = 0; s < servers.size(); ++s) {
    const unsigned weight = s < weights.size() ? weights[s] : 0;
    const unsigned digests = ketama_digests(weight, total, servers.size(), rule);
    buf = servers[s];
    const size_t base_len = buf.size();
    for (unsigned i = 0; i < digests; ++i) {
      set_index(buf, base_len, i);
      md5(buf.data(), buf.size(), digest);
      for (unsigned j = 0; j < 4; ++j)
        points.push_back({digest_point(digest, j), static_cast<uint32_t>(s)});
    }
  }
  finish(points);
}

size_t Continuum::point_for_hash(uint32_t h) const {
  refresh();
  const auto it = std::lower_bound(values_.begin(), values_.end(), h);
  return it == values_.end() ? 0 : static_cast<size_t>(it - values_.begin());
}

size_t Continuum::server_for(const char *key, size_t len) const {
  refresh();
  if (servers_ <= 1) return 0;
  if (tag_open_ != '\0') {
    // The first open, then the first close after it, something between.
    const void *open = std::memchr(key, tag_open_, len);
    if (open) {
      const char *start = static_cast<const char *>(open) + 1;
      const size_t rest = len - static_cast<size_t>(start - key);
      const void *close = std::memchr(start, tag_close_, rest);
      if (close && close != start) {
        len = static_cast<size_t>(static_cast<const char *>(close) - start);
        key = start;
      }
    }
  }
  const uint32_t h = hash_key(hash_, key, len);
  if (distribution_ == KL_DISTRIBUTION_MODULA) return h % servers_;
  if (values_.empty()) return 0;  // every weight 0: nothing to choose from
  return owners_[point_for_hash(h)];
}

}  // namespace keyloom
