// Addresses, lists and names; and what needs devices to be seen.
#include <arpa/inet.h>

#include "utils_support.h"

using namespace fixture;

namespace {

TEST(UtilsIp, MasksAndPrefixes) {
    for (int prefix = 1; prefix <= 32; ++prefix) {
        in_addr mask = {static_cast<in_addr_t>(prefix_to_network(static_cast<unsigned char>(prefix)))};
        EXPECT_EQ(ntohl(mask.s_addr), static_cast<in_addr_t>(~0ULL << (32 - prefix))) << prefix;
        EXPECT_EQ(mask_to_prefix(inet_ntoa(mask)), prefix);
    }
    EXPECT_EQ(prefix_to_network(0), -1);
    EXPECT_EQ(prefix_to_network(33), -1);
    EXPECT_EQ(mask_to_prefix("255.0.255.0"), 16);
    EXPECT_EQ(mask_to_prefix("0.0.0.0"), 0);
    EXPECT_EQ(mask_to_prefix("24"), NM_ERR_BAD_IP);
}

TEST(UtilsIp, NetworksAndTheirRanges) {
    char ip[] = "192.168.77.201";
    char mask[] = "255.255.255.192";
    char bad[] = "192.168.77";
    char out[16] = "untouched";
    EXPECT_EQ(network_addr(bad, mask, out), NM_ERR_BAD_IP);
    EXPECT_STREQ(out, "untouched");
    EXPECT_EQ(network_addr(ip, mask, out), 0);
    EXPECT_STREQ(out, "192.168.77.192");
    for (const char* inside : {"192.168.77.192", "192.168.77.255"}) {
        EXPECT_TRUE(is_ip_in_netaddr(inside, ip, mask)) << inside;
    }
    for (const char* outside : {"192.168.77.191", "192.168.78.0", "200.77.168.192"}) {
        EXPECT_FALSE(is_ip_in_netaddr(outside, ip, mask)) << outside;
    }
    EXPECT_TRUE(is_ip_in_netaddr("255.255.255.255", "0.0.0.0", "0.0.0.0"));
}

TEST(UtilsContainers, JoiningSplittingComparing) {
    EXPECT_EQ(vector_into_string({"a", "", "b"}, "x:", ", "), "x:a, , b");
    EXPECT_EQ(vector_into_string(Texts{}, "x:", ", "), "");
    Texts pieces = {"kept"};
    for (const char* text : {",,a,b c,,d", ",", ""}) {
        split_into_vector(text, ',', pieces);
        EXPECT_EQ(pieces, (Texts{"kept", "a", "b c", "d"})) << text;
    }
    std::vector<int> old_vlans = {30, 4, 100};
    std::vector<int> new_vlans = {100, 5, 4};
    std::vector<int> added;
    std::vector<int> removed = {77};
    EXPECT_EQ(vector_diff(old_vlans, new_vlans, added, removed), 0);
    EXPECT_EQ(added, std::vector<int>{5});
    EXPECT_EQ(removed, std::vector<int>{30});
}

TEST(UtilsDeviceFacts, PortNumbers) {
    const std::pair<const char*, int> ports[] = {{"swdev4", 4}, {"ppp-swdev12", 12}, {"swdev4.100", 4},
                                                 {"br_v12", 2}, {"eth10", 0},        {"eth0", 0},
                                                 {"lo", 0},     {"ppp-eth", 0},      {nullptr, 0}};
    for (const auto& [ifname, port] : ports) {
        EXPECT_EQ(get_port_num(ifname), port) << port;
    }
}

TEST(UtilsMac, ReadSetAndDerive) {
    const Device device("swmac1");
    char mac[] = "00:11:22:33:44:55";
    char text[18] = {};
    EXPECT_EQ(set_mac_addr("swmac1", mac), 0);
    EXPECT_EQ(fact("swmac1", "address"), mac);
    EXPECT_EQ(xor_mac_addr("swmac1", 0), 0);
    EXPECT_EQ(get_mac_addr("swmac1", text), 0);
    EXPECT_STREQ(text, "02:11:22:33:44:55") << "the local bit is set for any key";
    EXPECT_EQ(xor_mac_addr("swmac1", 0xff01), 0);
    EXPECT_EQ(fact("swmac1", "address"), "02:ee:23:33:44:55");

    char broken[] = "00:11:22:33:44";
    char group[] = "01:00:5e:00:00:01";
    EXPECT_EQ(set_mac_addr("swmac1", broken), NM_ERR_BAD_FORMAT);
    EXPECT_EQ(set_mac_addr("swmac1", group), NM_ERR_IOCTL);
    EXPECT_EQ(xor_mac_addr("none", 1), NM_ERR_IOCTL);
}

TEST(UtilsLocalAddresses, OfADeviceAndOfAll) {
    const Device device("swadr1", true, "swadr2");
    put("/proc/sys/net/ipv6/conf/swadr1/disable_ipv6", "0");
    run("ip addr add 10.9.8.7/30 dev swadr1 && ip addr add 10.9.9.1/32 dev swadr2 && "
        "ip -6 addr add 2001:db8::7/61 nodad dev swadr1");
    EXPECT_EQ(listAddresses("swadr1", AF_INET, true), Texts{"10.9.8.7/30"});
    EXPECT_EQ(listAddresses("swadr1", AF_INET6, true), Texts{"2001:db8::7/61"}) << "without link-local";
    EXPECT_THAT(listAddresses("", AF_INET, false), testing::IsSupersetOf({"10.9.8.7", "10.9.9.1"}));
}

}  // namespace
