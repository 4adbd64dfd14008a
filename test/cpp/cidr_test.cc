// Parsing of IP addresses and CIDR networks, and matching of one in the other.
#include <gtest/gtest.h>

#include "cidr.h"

using namespace keyloom::cidr;

namespace {

bool in(const char *network, const char *address) {
  auto net = parse_network(network);
  auto addr = parse_address(address);
  EXPECT_TRUE(net.has_value()) << network;
  EXPECT_TRUE(addr.has_value()) << address;
  return net && addr && contains(*net, *addr);
}

}  // namespace

TEST(Cidr, ParsesIpv4) {
  auto a = parse_address("192.168.0.255");
  ASSERT_TRUE(a);
  EXPECT_FALSE(a->v6);
  EXPECT_EQ(a->bytes[0], 192);
  EXPECT_EQ(a->bytes[3], 255);
  EXPECT_TRUE(parse_address("0.0.0.0"));
}

TEST(Cidr, RefusesBadIpv4) {
  for (const char *bad : {"", "1.2.3", "1.2.3.4.5", "256.1.1.1", "1.2.3.04", "1..2.3", "1.2.3.4 ",
                          " 1.2.3.4", "1.2.3.-4", "a.b.c.d", "1.2.3.4/", "1234.1.1.1", "."})
    EXPECT_FALSE(parse_address(bad)) << bad;
}

TEST(Cidr, ParsesIpv6Forms) {
  auto full = parse_address("2001:0db8:0000:0000:0000:0000:0000:0001");
  auto compressed = parse_address("2001:db8::1");
  ASSERT_TRUE(full && compressed);
  EXPECT_TRUE(full->v6);
  EXPECT_EQ(full->bytes, compressed->bytes);
  EXPECT_TRUE(parse_address("::"));
  EXPECT_TRUE(parse_address("::1"));
  EXPECT_TRUE(parse_address("fe80::"));
  auto embedded = parse_address("::ffff:10.1.2.3");
  ASSERT_TRUE(embedded);
  EXPECT_EQ(embedded->bytes[10], 0xff);
  EXPECT_EQ(embedded->bytes[12], 10);
  EXPECT_EQ(embedded->bytes[15], 3);
}

TEST(Cidr, RefusesBadIpv6) {
  for (const char *bad : {":", ":::", "1::2::3", "1:2:3:4:5:6:7", "1:2:3:4:5:6:7:8:9", "12345::",
                          "g::1", ":1::", "1::2:", "::1.2.3", "1.2.3.4::", "::1.2.3.4:5",
                          "fe80::1%eth0", "1:2:3:4:5:6:7::8:9", "1:2:3:4:5:6:7:8::"})
    EXPECT_FALSE(parse_address(bad)) << bad;
}

TEST(Cidr, NetworksClearHostBitsAndCheckThePrefix) {
  auto net = parse_network("10.1.2.3/8");
  ASSERT_TRUE(net);
  EXPECT_EQ(net->prefix, 8);
  EXPECT_EQ(net->base.bytes[1], 0);
  auto host = parse_network("10.1.2.3");
  ASSERT_TRUE(host);
  EXPECT_EQ(host->prefix, 32);
  EXPECT_EQ(parse_network("2001:db8::/32")->prefix, 32);
  for (const char *bad : {"10.0.0.0/33", "10.0.0.0/", "10.0.0.0/08", "10.0.0.0/-1", "::/129",
                          "10.0.0.0/8/8", "/8", "10.0.0.0/x"})
    EXPECT_FALSE(parse_network(bad)) << bad;
}

TEST(Cidr, Containment) {
  EXPECT_TRUE(in("10.0.0.0/8", "10.255.1.2"));
  EXPECT_FALSE(in("10.0.0.0/8", "11.0.0.1"));
  EXPECT_TRUE(in("192.168.1.128/25", "192.168.1.200"));
  EXPECT_FALSE(in("192.168.1.128/25", "192.168.1.100"));
  EXPECT_TRUE(in("0.0.0.0/0", "8.8.8.8"));
  EXPECT_TRUE(in("2001:db8::/32", "2001:db8:ffff::1"));
  EXPECT_FALSE(in("2001:db8::/32", "2001:db9::1"));
  EXPECT_FALSE(in("10.0.0.0/8", "::a00:1"));  // not a mapped address
  EXPECT_TRUE(in("10.0.0.0/8", "::ffff:10.0.0.1"));
  EXPECT_FALSE(in("::/0", "10.0.0.1"));  // families do not mix otherwise
}

TEST(Cidr, SpecificityRanksMappedAddressesAlike) {
  auto addr = parse_address("::ffff:10.1.2.3");
  auto v4 = parse_network("10.1.2.0/24");
  auto v6 = parse_network("::ffff:10.1.0.0/112");
  ASSERT_TRUE(addr && v4 && v6);
  EXPECT_EQ(specificity(*v4, *addr), 120);
  EXPECT_EQ(specificity(*v6, *addr), 112);
}
