// Addresses, lists and names; and what needs devices to be seen.
#include <arpa/inet.h>

#include "golden.h"
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

/// Random addresses with a length, those of the LAN and of its delegation, as Python sees them: address,
/// length, delegated length, and the prefixes of both lengths. The seed is the first line.
const char* const kPythonPrefixes = R"(python3 -c '
import ipaddress, random
seed = random.SystemRandom().randrange(1 << 32)
random.seed(seed)
print(seed)
cut = lambda number, length: ipaddress.IPv6Network((number, length), strict=False).network_address
for case in range(10000):
    number = random.getrandbits(128) & random.choice((-1, random.getrandbits(128), 0xffff << random.randrange(128)))
    lan, routing = random.randrange(129), case % 129
    print(ipaddress.IPv6Address(number), lan, routing, cut(number, lan), cut(number, routing))')";

/// As inet_ntop(3) writes an address, which some have in two forms.
std::string canonical(const std::string& text) {
    in6_addr address = {};
    char out[INET6_ADDRSTRLEN] = "no address";
    return inet_pton(AF_INET6, text.c_str(), &address) == 1 ? inet_ntop(AF_INET6, &address, out, sizeof(out))
                                                            : text;
}

TEST(UtilsIp, PrefixesAgreeWithPythonAndAddressesComeBackFromTheirParts) {
    std::istringstream lines(exec(kPythonPrefixes));
    std::string seed, ip, network, delegated;
    int length = 0, routing = 0, cases = 0;
    lines >> seed;
    RecordProperty("seed", seed);
    for (; !HasFailure() && lines >> ip >> length >> routing >> network >> delegated; ++cases) {
        const std::string what =
            "seed " + seed + ": " + ip + "/" + std::to_string(length) + " in " + delegated;
        const auto lan = static_cast<unsigned char>(length);
        IP6_ADDR_OBJ parts;
        std::string back;
        EXPECT_EQ(get_ip6_prefix_addr(ip.c_str(), lan), canonical(network)) << what;
        EXPECT_EQ(cast_ip6_addr_to_obj(ip, lan, delegated + "/" + std::to_string(routing), &parts), 0)
            << what;
        EXPECT_EQ(parts.network_prefix + " " + parts.routing_prefix,
                  canonical(network) + " " + canonical(delegated))
            << what;
        EXPECT_EQ(cast_ip6_obj_to_addr(&parts, back), 0) << what;
        EXPECT_EQ(back, canonical(ip)) << what;
    }
    printf("prefixes: seed %s, %d cases\n", seed.c_str(), cases);
    EXPECT_TRUE(HasFailure() || cases == 10000) << cases;
}

TEST(UtilsIp, AnAddressMovesToAnotherDelegation) {
    // Address in its old delegation, its words and host bits, and the address in the new delegation.
    for (const Json::Value& row : golden("moved_addresses")) {
        IP6_ADDR_OBJ parts;
        std::string now = "untouched";
        ASSERT_EQ(cast_ip6_addr_to_obj(row[0].asString(), 64, row[1].asString(), &parts), 0) << row;
        EXPECT_EQ(vector_into_string(parts.subnet_id, "", ".") + " " + parts.interface_id, row[2].asString());
        ASSERT_EQ(nm::split_ip6_prefix(row[3].asString(), parts.routing_prefix, parts.routing_prefix_len), 0);
        const int ret = cast_ip6_obj_to_addr(&parts, now);
        EXPECT_EQ(ret == 0 ? now : std::to_string(ret), row[4].asString()) << row;
    }
    for (const Json::Value& row : golden("refused_addresses")) {  // address, length, delegation, code
        IP6_ADDR_OBJ parts;
        const auto length = static_cast<unsigned char>(row[1].asInt());
        EXPECT_EQ(cast_ip6_addr_to_obj(row[0].asString(), length, row[2].asString(), &parts), row[3].asInt())
            << row;
        EXPECT_EQ(parts.prefix_len + parts.routing_prefix_len, 0) << "set on success only";
    }
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
