// IP addresses and CIDR networks, parsed strictly from text: what
// kl_svalfromip matches an address against. Nothing here allocates or throws;
// bad text is simply "no value".
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace keyloom::cidr {

// An IPv4 or IPv6 address in network byte order (IPv4 uses bytes 0..3).
struct Address {
  bool v6 = false;
  std::array<uint8_t, 16> bytes{};
  int bits() const { return v6 ? 128 : 32; }
};

// A network: its base address with the host bits cleared, and the prefix length.
struct Network {
  Address base;
  int prefix = 0;
};

// Dotted-quad IPv4 (no leading zeros) or IPv6 (RFC 4291 text forms, with "::"
// and a trailing dotted quad; no zone index). No surrounding spaces.
std::optional<Address> parse_address(std::string_view text);

// "address/prefix" or a bare address (a network of that one address). Host
// bits set in the address are cleared, as most tools accept "10.1.2.3/8".
std::optional<Network> parse_network(std::string_view text);

// Whether addr lies in net. An IPv4-mapped IPv6 address (::ffff:a.b.c.d) also
// lies in the IPv4 networks that hold a.b.c.d.
bool contains(const Network &net, const Address &addr);

// How specific net is as a match for addr, in bits of addr's own family, so
// that an IPv4 /24 and a mapped IPv6 /120 rank alike. Larger is narrower.
int specificity(const Network &net, const Address &addr);

}  // namespace keyloom::cidr
