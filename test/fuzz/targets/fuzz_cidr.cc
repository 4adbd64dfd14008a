// libFuzzer target: address and network parsing for kl_svalfromip. The input
// is split at its first '|' into a network text and an address text; both
// are parsed, and every parse result is checked for consistency: a network
// contains its own base, the prefix is within the family's bits, host bits are
// clear, a parsed address contains itself as a one-address network.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "cidr.h"

#define CHECK(cond) \
  do {              \
    if (!(cond)) __builtin_trap(); \
  } while (0)

using namespace keyloom::cidr;

static void check_network(const Network &n) {
  CHECK(n.prefix >= 0 && n.prefix <= n.base.bits());
  CHECK(contains(n, n.base));
  // host bits are cleared
  for (int bit = n.prefix; bit < n.base.bits(); bit++) CHECK(!(n.base.bytes[bit / 8] & (0x80 >> (bit % 8))));
  const int s = specificity(n, n.base);
  CHECK(s >= 0 && s <= 128);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::string_view all(reinterpret_cast<const char *>(data), size);
  const size_t bar = all.find('|');
  std::string_view net_text = all.substr(0, bar);
  std::string_view addr_text = bar == std::string_view::npos ? std::string_view() : all.substr(bar + 1);

  auto whole_addr = parse_address(all);
  if (whole_addr) {
    auto as_net = parse_network(all);
    CHECK(as_net.has_value());  // a bare address is a network of one address
    CHECK(as_net->prefix == whole_addr->bits());
    CHECK(contains(*as_net, *whole_addr));
  }
  auto net = parse_network(net_text);
  if (net) check_network(*net);
  auto addr = parse_address(addr_text);
  if (net && addr) {
    const bool in = contains(*net, *addr);
    const int s = specificity(*net, *addr);
    CHECK(s >= 0 && s <= 128);
    if (in && !addr->v6 && !net->base.v6) CHECK(s == net->prefix);
  }
  return 0;
}
