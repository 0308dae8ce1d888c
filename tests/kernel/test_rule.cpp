// Rules and uplinks' rule blocks as the kernel has them afterwards.
#include <linux/rtnetlink.h>

#include "kernel/rule.h"
#include "kernel/uplink_routing.h"
#include "kernel_world.h"

using namespace kernel_world;
using testing::ElementsAre;
using testing::UnorderedElementsAreArray;
using namespace std::string_literals;

namespace {

const std::string kForeign = "113: from all oif eth0 999";

/// The rules of a family without the kernel's own three: "113: from 10.3.0.1 fwmark 0/0xf 263".
Lines rules(const std::string& family) {
    return lines_of("ip " + family + " rule | sed '/lookup [a-z]/d; s/ lookup//; s/ .detached.//; s/\t/ /'");
}

/// Devices with chosen indexes, and rules of others.
struct Rule : Frugal {
    void SetUp() override {
        run("set -e; for d in swdev3:7 swdev3.100:107 eth0:9 nwlast:65279 nwpast:65280; do "
            "ip link add ${d%:*} index ${d#*:} up type bridge; done; "
            "for f in -4 -6; do ip $f rule add oif eth0 pref 113 table 999; done");
    }
    void TearDown() override {
        for (const std::string family : {"-4", "-6"}) {
            EXPECT_THAT(rules(family), ElementsAre(kForeign));
            run("ip " + family + " rule del pref 113 table 999");
        }
        run("for d in swdev3 swdev3.100 eth0 nwlast nwpast; do ip link del $d; done");
    }
};

TEST_F(Rule, BlockFollowsFromIndexNameAndMark) {
    struct Case {
        unsigned int ifindex;
        int mark;
        const char* ifname;
        Lines block;  // @ is the address
    };
    const std::string lan = "116: from all fwmark 0x2003/0x200f 263";
    const Lines marked{"113: from @ fwmark 0/0xf 263", "114: from all fwmark 0/0xf oif swdev3 263",
                       "115: from all fwmark 0x1003/0x100f 263", lan};
    const Lines dial_up{"113: from @ 263", "114: from all oif ppp-swdev4 263",
                        "116: from all fwmark 0x2004/0x200f 263"};
    for (const Case& c : std::initializer_list<Case>{
             {7, 1, nullptr, marked},
             {7, 0, nullptr, {"113: from @ 263", "114: from all oif swdev3 263", lan}},
             {107, 0, nullptr, {"113: from @ 263", "114: from all oif swdev3.100 263", lan}},
             {7, 0, "ppp-swdev4", dial_up},
             {9, 1, nullptr, {"145: from @ fwmark 0/0xf 265", "146: from all fwmark 0/0xf oif eth0 265"}},
             {65279, 0, nullptr, {"1044465: from @ 65535", "1044466: from all oif nwlast 65535"}},
         }) {
        for (const auto& [family, option, address] :
             {std::tuple(AF_INET, "-4", "10.3.0.1"), std::tuple(AF_INET6, "-6", "2001:db8::1")}) {
            Lines expected = c.block;
            expected[0].replace(expected[0].find('@'), 1, address);
            expected.push_back(kForeign);
            EXPECT_EQ(set_ip_rule(c.ifindex, family, address, RTM_NEWRULE, c.mark, c.ifname), 0);
            EXPECT_THAT(rules(option), UnorderedElementsAreArray(expected));
            EXPECT_EQ(delete_routerule("x", static_cast<int>(c.ifindex), family), 0);
            EXPECT_THAT(rules(option), ElementsAre(kForeign));
        }
    }
}

TEST_F(Rule, WithWrongArgumentsIsRefused) {
    EXPECT_EQ(set_ip4_rule(7, "10.3.0.1", 24, 1), -1012);
    EXPECT_EQ(set_ip6_rule(7, "10.3.0.1", 32, 1, nullptr), -1009);
    EXPECT_EQ(set_ip4_rule(65280, nullptr, 33, 1), -1012);
    EXPECT_EQ(without(its_sockets, [] { return del_rules_by_rt(AF_INET, 999); }), -1304);
    const Outcome added([] { return set_ip4_rule(7, "10.3.0.1", 32, 1); }, its_rights);
    EXPECT_EQ(added.result, -1308);
    EXPECT_THAT(
        added.err,
        testing::AllOf(testing::StartsWith(
                           "Add IPv4 rule priority 113: source route in table 7: Operation not permitted\n"
                           "Set source rule fail. Ifindex: 7 (IPv4)\n"),
                       testing::EndsWith("Set lan to wan rule fail. Ifindex: 7, Port: 3 (IPv4)\n")))
        << "all are tried";
}

TEST_F(Rule, IsDeletedByItsTable) {
    // Twins, rules of others, and the edges of the range that a purge takes.
    run("for f in -4 -6; do for t in 254 255 256 65534 65535; do ip $f rule add pref 200 table $t; done; "
        "done");
    EXPECT_EQ(set_ip4_rule(7, "10.3.0.1", RTM_NEWRULE, 0) | set_ip4_rule(7, "10.3.0.1", RTM_NEWRULE, 0), 0);
    EXPECT_EQ(del_rules_by_rt(AF_INET, 263), 0);
    EXPECT_THAT(rules("-4"),
                ElementsAre(kForeign, "200: from all 256", "200: from all 65534", "200: from all 65535"));
    EXPECT_EQ(del_rules_by_rt(AF_INET, 0), 0);
    EXPECT_THAT(lines_of("ip rule | tr '\t' ' '"),
                ElementsAre("200: from all lookup main", "200: from all lookup 65535",
                            "32766: from all lookup main", "32767: from all lookup default"));
    EXPECT_EQ(rules("-6").size(), 4U) << "the other family stays";
    run("ip rule add pref 0 table local; ip rule add oif eth0 pref 113 table 999; "
        "for f in -4 -6; do while ip $f rule del pref 200 2>/dev/null; do :; done; done");
}

TEST_F(Rule, OfADownlinkIsWrittenWithItsRoutesAndWipedBefore) {
    run("ip addr add 2001:db8:3::1/64 dev swdev3 nodad");
    const auto set = [](unsigned int ifindex, unsigned int prefix, int act) {
        return set_ip6_routerule_by_oifindex(ifindex, 7, act == 1 ? "2001:db8:c::1" : nullptr, prefix,
                                             "2001:db8:3::2", static_cast<uint8_t>(act), 0);
    };
    EXPECT_EQ(set(107, 64, 1), 0);
    EXPECT_EQ(set(107, 64, 1), 0) << "a VLAN device has a table of its own here";
    EXPECT_THAT(rules("-6"),
                ElementsAre(kForeign, "1713: from 2001:db8:c::1/64 363", "1714: from all oif swdev3.100 363",
                            "1716: from all fwmark 0x2003/0x200f 363"));
    EXPECT_THAT(lines_of("ip -6 route show table 363 | grep -o '^.* dev [^ ]*'"),
                ElementsAre("2001:db8:c::/64 dev swdev3.100", "default via 2001:db8:3::2 dev swdev3"));
    EXPECT_EQ(set(107, 300, 1), -1010) << "not cut to 44";
    EXPECT_EQ(set(107, 0, 0), 0);
    EXPECT_THAT(lines_of("ip -6 route show table 363"), ElementsAre());
    EXPECT_EQ(set(65280, 0, 0), -1012);
}

TEST_F(Rule, DeletionTellsTheRulesResultOnly) {
    run("ip route add blackhole default table 263");
    EXPECT_EQ(without(its_rights, [] { return delete_routerule("swdev3", 7, AF_INET); }), 0);
    EXPECT_TRUE(log.has("Delete IP gateway fail. Interface : swdev3"));
    EXPECT_FALSE(log.has(" rule priority ")) << "there was none";
    EXPECT_EQ(set_ip4_rule(7, "10.3.0.1", RTM_NEWRULE, 0), 0);
    EXPECT_EQ(without(its_rights, [] { return delete_routerule("swdev3", 7, AF_INET); }), 0);
    for (const char* priority : {"113", "114", "116"}) {
        EXPECT_TRUE(log.has("Delete IPv4 rule priority "s + priority +
                            " in table 263 failed: Operation not permitted"));
    }
    EXPECT_EQ(delete_routerule("swdev3", 7, AF_INET), 0);
    EXPECT_THAT(lines_of("ip route show table 263"), ElementsAre());
}

}  // namespace
