#include "cidr.h"

#include <vector>

namespace keyloom::cidr {
namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }

int hex_value(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// A decimal number of 1..max_digits digits, no sign, no leading zero (so
// "010" is refused instead of being read as octal by some tools and decimal
// by others), at most `limit`.
std::optional<int> parse_decimal(std::string_view text, size_t max_digits, int limit) {
  if (text.empty() || text.size() > max_digits) return std::nullopt;
  if (text.size() > 1 && text[0] == '0') return std::nullopt;
  int value = 0;
  for (char c : text) {
    if (!is_digit(c)) return std::nullopt;
    value = value * 10 + (c - '0');
  }
  if (value > limit) return std::nullopt;
  return value;
}

bool parse_ipv4(std::string_view text, uint8_t *out) {
  for (int part = 0; part < 4; ++part) {
    size_t dot = text.find('.');
    bool last = part == 3;
    if (last != (dot == std::string_view::npos)) return false;
    auto octet = parse_decimal(text.substr(0, dot), 3, 255);
    if (!octet) return false;
    out[part] = static_cast<uint8_t>(*octet);
    if (!last) text.remove_prefix(dot + 1);
  }
  return true;
}

// Colon-separated groups of 1..4 hex digits; when `may_end_in_ipv4`, the last
// piece may be a dotted quad worth two groups. An empty text has no groups.
bool parse_groups(std::string_view text, bool may_end_in_ipv4, std::vector<uint16_t> &groups) {
  if (text.empty()) return true;
  while (true) {
    size_t colon = text.find(':');
    std::string_view piece = text.substr(0, colon);
    bool last = colon == std::string_view::npos;
    if (piece.find('.') != std::string_view::npos) {
      uint8_t quad[4];
      if (!last || !may_end_in_ipv4 || !parse_ipv4(piece, quad)) return false;
      groups.push_back(static_cast<uint16_t>(quad[0] << 8 | quad[1]));
      groups.push_back(static_cast<uint16_t>(quad[2] << 8 | quad[3]));
      return true;
    }
    if (piece.empty() || piece.size() > 4) return false;
    unsigned value = 0;
    for (char c : piece) {
      int digit = hex_value(c);
      if (digit < 0) return false;
      value = value << 4 | static_cast<unsigned>(digit);
    }
    groups.push_back(static_cast<uint16_t>(value));
    if (last) return true;
    text.remove_prefix(colon + 1);
  }
}

bool parse_ipv6(std::string_view text, uint8_t *out) {
  std::vector<uint16_t> head, tail;
  size_t gap = text.find("::");
  if (gap == std::string_view::npos) {
    if (!parse_groups(text, true, head) || head.size() != 8) return false;
  } else {
    std::string_view after = text.substr(gap + 2);
    if (after.find("::") != std::string_view::npos) return false;
    // ":::" and a lone ':' beside the gap leave an empty piece: refused there.
    if (!parse_groups(text.substr(0, gap), false, head) || !parse_groups(after, true, tail))
      return false;
    if (head.size() + tail.size() > 7) return false;
    head.resize(8 - tail.size(), 0);
    head.insert(head.end(), tail.begin(), tail.end());
  }
  for (int i = 0; i < 8; ++i) {
    out[2 * i] = static_cast<uint8_t>(head[i] >> 8);
    out[2 * i + 1] = static_cast<uint8_t>(head[i]);
  }
  return true;
}

bool is_ipv4_mapped(const Address &addr) {
  if (!addr.v6) return false;
  for (int i = 0; i < 10; ++i)
    if (addr.bytes[i] != 0) return false;
  return addr.bytes[10] == 0xff && addr.bytes[11] == 0xff;
}

bool prefix_matches(const uint8_t *net, const uint8_t *addr, int prefix) {
  int whole = prefix / 8;
  for (int i = 0; i < whole; ++i)
    if (net[i] != addr[i]) return false;
  int rest = prefix % 8;
  if (rest == 0) return true;
  uint8_t mask = static_cast<uint8_t>(0xff << (8 - rest));
  return (net[whole] & mask) == (addr[whole] & mask);
}

}  // namespace

std::optional<Address> parse_address(std::string_view text) {
  Address addr;
  if (text.find(':') != std::string_view::npos) {
    addr.v6 = true;
    if (!parse_ipv6(text, addr.bytes.data())) return std::nullopt;
  } else if (!parse_ipv4(text, addr.bytes.data())) {
    return std::nullopt;
  }
  return addr;
}

std::optional<Network> parse_network(std::string_view text) {
  size_t slash = text.find('/');
  auto addr = parse_address(text.substr(0, slash));
  if (!addr) return std::nullopt;
  Network net{*addr, addr->bits()};
  if (slash != std::string_view::npos) {
    auto prefix = parse_decimal(text.substr(slash + 1), 3, addr->bits());
    if (!prefix) return std::nullopt;
    net.prefix = *prefix;
  }
  for (int bit = net.prefix; bit < net.base.bits(); ++bit)
    net.base.bytes[bit / 8] &= static_cast<uint8_t>(~(0x80 >> (bit % 8)));
  return net;
}

bool contains(const Network &net, const Address &addr) {
  if (net.base.v6 == addr.v6) return prefix_matches(net.base.bytes.data(), addr.bytes.data(), net.prefix);
  if (!net.base.v6 && is_ipv4_mapped(addr))
    return prefix_matches(net.base.bytes.data(), addr.bytes.data() + 12, net.prefix);
  return false;
}

int specificity(const Network &net, const Address &addr) {
  return (!net.base.v6 && addr.v6) ? 96 + net.prefix : net.prefix;
}

}  // namespace keyloom::cidr
