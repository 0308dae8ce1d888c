// Routes and uplink tables as the kernel has them afterwards.
#include <arpa/inet.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include "kernel/default_route.h"
#include "kernel/route.h"
#include "kernel/uplink_routing.h"
#include "kernel_world.h"

using namespace kernel_world;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

/// The routes of a table without what the kernel says about every one.
Lines routes(const std::string& family, RT_ID table) {
    return lines_of("ip -d " + family + " route show table " + std::to_string(table) +
                    " | sed 's/^unicast //; s/ proto static//; s/ scope global//; s/ pref medium//'");
}

/// An uplink with both families: swdev3 with the index 7, a VLAN device on it, and routes of others.
struct Route : Frugal {
    void SetUp() override {
        run("set -e; ip link add swdev3 index 7 type veth peer name far3; ip link set far3 up; "
            "ip link set swdev3 up; ip addr add 10.3.0.1/24 dev swdev3; "
            "ip addr add 2001:db8:3::1/64 dev swdev3 nodad; ip link add swdev3.100 type bridge; "
            "ip link set swdev3.100 up mtu 1400; ip addr add 10.4.0.1/24 dev swdev3.100; "
            "for n in 192.0.2.0/24 2001:db8:f::/48; do ip route add $n dev swdev3 table 264; done");
        vlan = if_nametoindex("swdev3.100");
    }
    void TearDown() override {
        EXPECT_EQ(routes("-4", 264).size() + routes("-6", 264).size(), 2U) << "those of others stay";
        run("ip link del swdev3; ip link del swdev3.100");
    }
    unsigned int vlan = 0;
};

/// Raw bytes for a call.
struct Raw : in6_addr {
    Raw(int family, const char* text) : in6_addr{} { EXPECT_EQ(inet_pton(family, text, this), 1); }
};
int add(RT_ID table, unsigned char family, void* dst, unsigned char prefix, void* gw,
        unsigned int metric = 0) {
    return set_route(table, family, dst, prefix, gw, 7, RTPROT_STATIC, RT_SCOPE_UNIVERSE, metric, 1);
}
int remove(RT_ID table, unsigned char family, void* dst, unsigned char prefix) {
    return set_route(table, family, dst, prefix, nullptr, 7, RTPROT_STATIC, RT_SCOPE_UNIVERSE, 0, 0);
}

TEST_F(Route, IsAddedOnceAndDeletedOnce) {
    Raw net(AF_INET, "10.9.8.77"), net6(AF_INET6, "2001:db8:9:8::77"), gw(AF_INET, "10.3.0.2");
    EXPECT_EQ(add(263, AF_INET, &net, 20, nullptr) | add(263, AF_INET, nullptr, 0, &gw, 20), 0);
    EXPECT_EQ(add(263, AF_INET, &net, 0, nullptr), 0) << "no prefix: one host, not everything";
    EXPECT_THAT(routes("-4", 263), ElementsAre("default via 10.3.0.2 dev swdev3 metric 20 mtu lock 1500",
                                               "10.9.0.0/20 dev swdev3", "10.9.8.77 dev swdev3"));
    EXPECT_EQ(add(65535, AF_INET6, &net6, 57, nullptr), 0);
    EXPECT_THAT(routes("-6", 65535), ElementsAre("2001:db8:9::/57 dev swdev3 metric 1024"));
    const Outcome again([&] { return add(263, AF_INET, &net, 20, nullptr); });
    EXPECT_EQ(again.result, -1306);
    EXPECT_EQ(again.err, "Add IPv4 static route in table 7: Object exists\n") << "263 in one byte";
    EXPECT_EQ(remove(263, AF_INET, nullptr, 0), 0) << "whatever its metric and gateway";
    EXPECT_EQ(remove(65535, AF_INET6, &net6, 57), 0);
    EXPECT_EQ(remove(65535, AF_INET6, &net6, 57), -1307);
    run("ip route change 10.9.0.0/20 dev swdev3 proto boot table 263");
    EXPECT_EQ(remove(263, AF_INET, &net, 20), -1307) << "made by another";
    EXPECT_EQ(add(263, AF_INET, &net, 33, nullptr), -1012);
    EXPECT_EQ(add(263, AF_INET6, &net, 129, nullptr), -1012);
    EXPECT_EQ(without(its_rights, [&] { return add(263, AF_INET, &net, 8, nullptr); }), -1306);
    EXPECT_EQ(without(its_sockets, [&] { return add(263, AF_INET, &net, 8, nullptr); }), -1304);
}

TEST_F(Route, OfEveryKindIsFlushed) {
    // Twins that differ in their next hop, what has no next hop, several hops, other makers.
    run("set -e; r='ip route append table 263'; $r default via 10.3.0.2; $r default via 10.3.0.3; "
        "$r blackhole 10.2.0.0/16 metric 7; $r local 10.6.0.1 dev lo; $r 10.5.0.0/16 dev swdev3 proto "
        "kernel; "
        "$r 10.1.0.0/16 nexthop via 10.3.0.2 nexthop via 10.4.0.2 dev swdev3.100; r=\"ip -6 ${r#ip}\"; "
        "$r default via 2001:db8:3::2; $r default via 2001:db8:3::3; $r unreachable 2001:db8:a::/48");
    const int refused = without(its_rights, [] { return flush_route_table(AF_INET6, 263); });
    EXPECT_TRUE(-100 < refused && refused < 0) << "libnl's own code, not " << refused;
    EXPECT_EQ(flush_route_table(AF_INET, 263), 0);
    EXPECT_THAT(routes("-4", 263), IsEmpty());
    EXPECT_FALSE(routes("-6", 263).empty()) << "the other family stays";
    EXPECT_EQ(flush_route_table(AF_INET6, 263) | flush_route_table(AF_INET6, 263), 0);
    EXPECT_THAT(routes("-6", 263), IsEmpty());
    EXPECT_EQ(flush_route_table(AF_PACKET, 263), -1012);
}

TEST_F(Route, ToAllDestinationsCarriesAnMtuOnlyIfItIsKnown) {
    Raw gw(AF_INET, "10.3.0.2");
    run("for n in $(seq 300); do printf 'link property add dev swdev3 altname %0120d\\n' $n; done | ip "
        "-batch -");
    EXPECT_EQ(add(263, AF_INET, nullptr, 0, &gw), 0);
    EXPECT_THAT(routes("-4", 263), ElementsAre("default via 10.3.0.2 dev swdev3"));
    EXPECT_TRUE(log.has("MTU is not known, the default route carries none. Ifindex : 7"));
    EXPECT_EQ(flush_route_table(AF_INET, 263), 0);
}

TEST_F(Route, OfAnUplinkLiesInTheTableOfItsPort) {
    EXPECT_EQ(set_ip4_route(7, "10.3.0.1", 24, "10.3.0.2", RTM_NEWROUTE), 0);
    EXPECT_EQ(set_ip4_route(vlan, "10.4.0.1", 24, "10.4.0.2", RTM_NEWROUTE), 0);
    EXPECT_EQ(routes("-4", 263).size(), 4U) << "a VLAN lies in the table of its port";
    EXPECT_EQ(set_ip6_route(7, "2001:db8:33::1", 64, "2001:db8:77::2", 6, RTM_NEWROUTE), -1306);
    EXPECT_THAT(routes("-6", 263), ElementsAre("2001:db8:33::/64 dev swdev3 metric 6"))
        << "the gateway can't be reached, the network is written";
    EXPECT_EQ(set_ip4_route(vlan, "10.4.0.1", 24, "10.4.0.2", RTM_DELROUTE), 0);
    EXPECT_THAT(routes("-4", 263), IsEmpty()) << "all of it";

    EXPECT_EQ(nm::add_default_route(7, "10.3.0.2", 11) | nm::add_default_route(vlan, "10.4.0.2", 12), 0);
    EXPECT_EQ(nm::add_default_route(7, "10.3.0.256", 1), -1012);
    EXPECT_EQ(nm::delete_default_route(7, AF_INET), 0);
    EXPECT_EQ(nm::delete_default_route(7, AF_INET), -1307) << "that of another uplink stays";
    EXPECT_THAT(routes("-4", 253), ElementsAre(HasSubstr("via 10.4.0.2 dev swdev3.100")));
}

/// What others may do to a table and its rules, one change each.
const char* const kChanges[] = {
    "route add 203.0.113.0/24 dev swdev3 table 263",
    "route del 10.3.0.0/24 dev swdev3 table 263",
    "route change default via 10.3.0.3 dev swdev3 proto static mtu lock 1500 table 263",
    "route change default via 10.3.0.2 dev swdev3 proto boot mtu lock 1500 table 263",
    "route change default via 10.3.0.2 dev swdev3 proto static mtu 1500 table 263",
    "route change default via 10.3.0.2 dev swdev3 proto static mtu lock 1500 advmss 900 table 263",
    "route append default via 10.3.0.2 dev swdev3 proto static mtu lock 1500 metric 9 table 263",
    "route change table 263 default proto static mtu lock 1500 nexthop via 10.3.0.2 nexthop via 10.3.0.3",
    "link set swdev3 mtu 1400",
    "rule add pref 30000 table 263",
    "rule del pref 116",
    "rule del pref 114; ip rule add pref 114 oif swdev3 table 263",
    "rule del pref 114; ip rule add pref 114 oif swdev3 fwmark 0/0xf suppress_prefixlength 0 table 263",
    "rule del pref 114; ip rule add pref 114 not oif swdev3 fwmark 0/0xf table 263",
    "rule del pref 113; ip rule add pref 113 from 10.3.0.1 fwmark 0/0xf table 264",
    "rule del pref 113; ip rule add pref 117 from 10.3.0.1 fwmark 0/0xf table 263",
};

TEST_F(Route, OfAnUplinkIsInForceWithItsRulesIfNothingDiffers) {
    const auto is_routed = [](unsigned char prefix = 24, const char* gw = "10.3.0.2", int mark = 1) {
        return nm::is_source_routed(AF_INET, {7, "10.3.0.1", prefix, gw, 0, mark});
    };
    EXPECT_FALSE(is_routed());
    for (const std::string change : kChanges) {
        (void)delete_routerule("swdev3", 7, AF_INET);
        (void)set_ip4_rule(7, "10.3.0.1", RTM_NEWRULE, 1);
        (void)set_ip4_route(7, "10.3.0.1", 24, "10.3.0.2", RTM_NEWROUTE);
        EXPECT_TRUE(is_routed()) << "before: " << change;
        run("ip " + change);
        EXPECT_FALSE(is_routed()) << change;
        run("ip link set swdev3 mtu 1500; ip rule del table 264 2>/dev/null || :");
    }
    EXPECT_EQ(set_ip4_rule(7, "10.3.0.1", RTM_NEWRULE, 1), 0);
    EXPECT_FALSE(is_routed()) << "rules twice";
    EXPECT_EQ(delete_routerule("swdev3", 7, AF_INET) | set_ip4_rule(7, "10.3.0.1", RTM_NEWRULE, 1), 0);
    EXPECT_EQ(set_ip4_route(7, "10.3.0.1", 24, "10.3.0.2", RTM_NEWROUTE), 0);
    EXPECT_TRUE(is_routed());
    EXPECT_FALSE(is_routed(25) || is_routed(24, "") || is_routed(24, "x") || is_routed(24, "10.3.0.2", 0));
    EXPECT_EQ(delete_routerule("swdev3", 7, AF_INET), 0);
}

TEST_F(Route, OfAnIp6UplinkAndItsDownlinkAreInForceIfNothingDiffers) {
    const auto is_routed = [](unsigned int metric) {
        return nm::is_source_routed(AF_INET6, {7, "2001:db8:3::1", 64, "2001:db8:3::2", metric, 1, "swdev3"});
    };
    const nm::DownlinkRouting downlink{vlan, 7, "2001:db8:4::1", 64, "2001:db8:3::2", 1};
    for (const unsigned int metric : {0U, 6U}) {
        EXPECT_EQ(set_ip6_rule(7, "2001:db8:3::1", RTM_NEWRULE, 1, "swdev3"), 0);
        EXPECT_EQ(set_ip6_route(7, "2001:db8:3::1", 64, "2001:db8:3::2", metric, RTM_NEWROUTE), 0);
        EXPECT_TRUE(is_routed(metric));
        EXPECT_FALSE(is_routed(5));
        EXPECT_FALSE(nm::is_downlink_routed(downlink));
        EXPECT_EQ(nm::route_downlink(downlink), 0) << "of a VLAN device, which takes the port's table away";
        EXPECT_TRUE(nm::is_downlink_routed(downlink));
        EXPECT_FALSE(is_routed(metric));
        run("ip -6 route change default via 2001:db8:3::2 dev swdev3 proto static table " +
            std::to_string(256 + vlan));
        EXPECT_FALSE(nm::is_downlink_routed(downlink)) << "no MTU";
        EXPECT_EQ(set_ip6_routerule_by_oifindex(vlan, 0, nullptr, 0, nullptr, 0, 1), 0);
    }
    // Default routes of one metric are told as one with several next hops.
    run("ip -6 addr add 2001:db8:4::1/64 dev swdev3.100 nodad; ip link set swdev3.100 mtu 1500");
    EXPECT_EQ(nm::add_default_route(7, "2001:db8:3::2", 5), 0);
    EXPECT_EQ(nm::add_default_route(vlan, "2001:db8:4::2", 5), 0);
    EXPECT_TRUE(nm::has_only_default_route6(7, "2001:db8:3::2", 5));
    EXPECT_FALSE(nm::has_only_default_route6(7, "2001:db8:3::2", 6));
    EXPECT_FALSE(nm::has_only_default_route6(7, "2001:db8:3::3", 5));
    EXPECT_FALSE(nm::has_only_default_route6(7, "", 5));
    EXPECT_EQ(nm::clear_default_routes(7, AF_INET6), 0);
    EXPECT_TRUE(nm::has_only_default_route6(7, "", 5));
    EXPECT_EQ(nm::clear_default_routes(vlan, AF_INET6), 0);
}

TEST_F(Route, WithWrongArgumentsIsRefused) {
    run("ip link add nwlast index 65279 up type bridge; ip link add nwpast index 65280 type bridge");
    EXPECT_EQ(set_ip4_route(7, "10.3.0.1", 0, nullptr, 24), -1005);
    EXPECT_EQ(set_ip4_route(7, "10.3.0.1/24", 24, nullptr, 24), -1009);
    EXPECT_EQ(set_ip4_route(7, "10.3.0.1", 24, "2001:db8::1", 24), -1009);
    EXPECT_EQ(set_ip4_route(7, "10.3.0.1", 33, nullptr, 24), -1010);
    EXPECT_EQ(set_ip4_route(4711, nullptr, 0, nullptr, 25), -1002);
    EXPECT_EQ(set_ip4_route(65280, nullptr, 0, nullptr, 25), -1012);
    EXPECT_TRUE(log.has("has exceeded allowed range for RT_ID! nwpast"));
    EXPECT_EQ(set_ip4_route(65279, "10.7.0.1", 24, nullptr, 24), 0);
    EXPECT_THAT(routes("-4", 65535), ElementsAre(HasSubstr("10.7.0.0/24 dev nwlast")));
    EXPECT_EQ(set_ip6_route(7, "::1", 64, nullptr, 0, 24), -1005) << "its first byte is zero, so it is none";
    run("ip link del nwlast; ip link del nwpast");
}

}  // namespace
