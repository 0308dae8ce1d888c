// The pieces of a packet's way: what is sent, what the kernel reports, which rule of the policy routing is
// meant, where generated rules come from; and a whole report.
#include <arpa/inet.h>
#include <endian.h>
#include <libmnl/libmnl.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>

#include "conforms.h"
#include "inspect/packet_flow.h"
#include "inspect/packet_routing.h"
#include "inspect/packet_steps.h"
#include "inspect/packet_way.h"
#include "kernel_world.h"
#include "policy/common/rule_sources.h"
#include "utils/json_text.h"

using namespace kernel_world;

namespace {

struct PacketWay : Frugal {};

nm::Flow flow_of(const packet_question& question) {
    nm::Flow flow;
    EXPECT_EQ(nm::read_flow(question, flow), "");
    return flow;
}

Json::Value parsed(const std::string& text) {
    Json::Value value;
    EXPECT_TRUE(nm::parse_json(text, value)) << text;
    return value;
}

/// The sum of RFC 1071 over all of it, which is 0xffff where its own checksum is right.
uint32_t sum_of(const std::string& bytes) {
    uint32_t sum = 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
        sum += uint32_t(uint8_t(bytes[i])) << (i % 2 == 0 ? 8 : 0);
    }
    return (sum & 0xffff) + (sum >> 16);
}

TEST_F(PacketWay, PacketsSayWhatWasAskedFor) {
    const packet_question questions[] = {{"10.0.0.2", "10.9.0.1", "tcp", "1025", "65535", ""},
                                         {"10.0.0.2", "10.9.0.1", "UDP", "", "53", ""},
                                         {"10.0.0.2", "10.9.0.1", "", "", "", ""},
                                         {"2001:db8::2", "2001:db8:1::9", "6", "", "443", ""},
                                         {"2001:db8::2", "2001:db8:1::9", "icmp", "", "", ""},
                                         {"10.0.0.2", "10.9.0.1", "50", "", "", ""}};
    for (const packet_question& question : questions) {
        const nm::Flow flow = flow_of(question);
        const std::string packet = nm::packet_bytes(flow);
        const bool is_ip6 = flow.family() == AF_INET6;
        nm::Flow read;
        ASSERT_TRUE(nm::parse_packet(packet, read));
        EXPECT_EQ(read.report(), flow.report());
        EXPECT_FALSE(nm::parse_packet(packet.substr(0, 19), read));
        EXPECT_TRUE(is_ip6 || sum_of(packet.substr(0, 20)) == 0xffff) << "header";
        const std::string message = packet.substr(is_ip6 ? 40 : 20);
        const std::string addresses = is_ip6 ? packet.substr(8, 32) : packet.substr(12, 8);
        const std::string pseudo = flow.protocol == IPPROTO_ICMP
                                       ? ""
                                       : addresses + std::string(1, 0) + char(flow.protocol) +
                                             std::string(1, 0) + char(message.size());
        EXPECT_TRUE(flow.protocol == IPPROTO_ESP || sum_of(pseudo + message) == 0xffff) << question.protocol;
    }
}

TEST_F(PacketWay, NetworksEndAtTheirPrefix) {
    const std::tuple<const char*, const char*, unsigned, bool> rows[] = {
        {"10.0.1.255", "10.0.0.0", 23, true},        {"10.0.2.0", "10.0.0.0", 23, false},
        {"10.0.2.0", "192.0.2.1", 0, true},          {"10.0.2.0", "10.0.2.1", 32, false},
        {"2001:db8::8000", "2001:db8::", 112, true}, {"2001:db8::1:0", "2001:db8::", 112, false},
        {"10.0.0.1", "2001:db8::", 0, false},        {"10.0.0.1", "10.0.0.1", 33, false}};
    for (const auto& [address, network, prefix, is_in] : rows) {
        nm::PacketAddress one, other;
        ASSERT_TRUE(nm::parse_address(address, one) && nm::parse_address(network, other));
        EXPECT_EQ(nm::is_in_network(one, other, prefix), is_in) << address << " " << network << "/" << prefix;
    }
}

TEST_F(PacketWay, RulesOfRoutingAreForWhomTheySay) {
    nm::RoutingQuestion question{flow_of({"10.0.20.2", "10.81.0.9", "udp", "", "53", ""}), 0x2002, "swdev5"};
    const std::pair<const char*, bool> rows[] = {
        {R"({"src": "all", "table": "254"})", true},
        {R"({"src": "10.0.20.0", "srclen": 24})", true},
        {R"({"src": "10.0.20.3"})", false},
        {R"({"src": "10.0.20.2"})", true},
        {R"({"src": "all", "dst": "10.81.0.0", "dstlen": 16})", true},
        {R"({"src": "all", "dst": "10.82.0.0", "dstlen": 16})", false},
        {R"({"src": "all", "fwmark": "0x2000", "fwmask": "0x2000"})", true},
        {R"({"src": "all", "fwmark": "0x2002", "fwmask": "0x200f"})", true},
        {R"({"src": "all", "fwmark": "0x2001", "fwmask": "0x200f"})", false},
        {R"({"src": "all", "fwmark": "0", "fwmask": "0xf"})", false},
        {R"({"src": "all", "fwmark": "0x2002"})", true},
        {R"({"src": "all", "iif": "swdev5"})", true},
        {R"({"src": "all", "iif": "lo"})", false},
        {R"({"src": "all", "oif": "swdev5"})", false},
        {R"({"src": "all", "ipproto": "udp", "dport": 53})", true},
        {R"({"src": "all", "ipproto": "tcp"})", false},
        {R"({"not": null, "src": "10.0.20.2"})", false},
        {R"({"not": null, "src": "10.0.20.3"})", true},
    };
    for (const auto& [rule, is_for] : rows) {
        EXPECT_EQ(nm::is_rule_for(parsed(rule), question), is_for) << rule;
    }
    question.device = "";
    EXPECT_TRUE(nm::is_rule_for(parsed(R"({"src": "all", "iif": "lo"})"), question));
}

/// A report of the trace, as the kernel sends it.
struct Report {
    alignas(nlmsghdr) char buffer[1024] = {};
    nlmsghdr* message = mnl_nlmsg_put_header(buffer);

    Report(uint32_t type, const char* chain, uint64_t handle, uint32_t mark) {
        message->nlmsg_type = NFNL_SUBSYS_NFTABLES << 8 | NFT_MSG_TRACE;
        mnl_nlmsg_put_extra_header(message, sizeof(nfgenmsg));
        mnl_attr_put_u32(message, NFTA_TRACE_TYPE, htonl(type));
        mnl_attr_put_strz(message, NFTA_TRACE_TABLE, "mangle");
        mnl_attr_put_strz(message, NFTA_TRACE_CHAIN, chain);
        mnl_attr_put_u64(message, NFTA_TRACE_RULE_HANDLE, htobe64(handle));
        mnl_attr_put_u32(message, NFTA_TRACE_MARK, htonl(mark));
    }
    Report& verdict(int code, const char* target) {
        nlattr* const nest = mnl_attr_nest_start(message, NFTA_TRACE_VERDICT);
        mnl_attr_put_u32(message, NFTA_VERDICT_CODE, htonl(uint32_t(code)));
        mnl_attr_put_strz(message, NFTA_VERDICT_CHAIN, target);
        mnl_attr_nest_end(message, nest);
        return *this;
    }
    Report& packet(uint32_t out, const std::string& bytes) {
        mnl_attr_put_u32(message, NFTA_TRACE_OIF, htonl(out));
        mnl_attr_put(message, NFTA_TRACE_NETWORK_HEADER, 20, bytes.data());
        mnl_attr_put(message, NFTA_TRACE_TRANSPORT_HEADER, bytes.size() - 20, bytes.data() + 20);
        return *this;
    }
    nm::TraceEvent event() const {
        nm::TraceEvent event;
        EXPECT_TRUE(nm::parse_trace(message, event));
        return event;
    }
};

TEST_F(PacketWay, ReportsOfTheTraceBecomeSteps) {
    const nm::Flow sent = flow_of({"10.0.0.2", "10.9.0.1", "tcp", "1025", "80", ""});
    nm::Flow translated = sent;
    translated.destination_port = 8080;
    const nm::TraceEvents events = {
        Report(NFT_TRACETYPE_RULE, "PREROUTING", 3, 0)
            .verdict(NFT_JUMP, "STEER")
            .packet(0, nm::packet_bytes(sent))
            .event(),
        Report(NFT_TRACETYPE_RULE, "STEER", 7, 0x2002).verdict(NFT_CONTINUE, "").event(),
        Report(NFT_TRACETYPE_RETURN, "STEER", 0, 0x2002).event(),
        Report(NFT_TRACETYPE_POLICY, "PREROUTING", 0, 0x2002).verdict(NF_ACCEPT, "").event(),
        Report(NFT_TRACETYPE_POLICY, "FORWARD", 0, 0x2002)
            .verdict(NF_DROP, "")
            .packet(9, nm::packet_bytes(translated))
            .event(),
    };
    const nm::Steps steps = nm::make_steps(events, sent, {});
    ASSERT_EQ(steps.list.size(), 3U) << steps.list;
    EXPECT_EQ(steps.list[0]["target"], "STEER");
    EXPECT_EQ(steps.list[1]["writes"].size(), 2U);
    EXPECT_EQ(steps.list[1]["writes"][0]["after"], 2U);
    EXPECT_EQ(steps.drop["text"], "policy DROP");
    EXPECT_EQ(steps.states.front().mark, 0x2002U) << "as the hook has left it";
    EXPECT_EQ(steps.states.back().flow.destination_port, 8080);
    EXPECT_EQ(steps.states.back().out, 9U);
    EXPECT_EQ(nm::make_steps({events[1]}, sent, {}).list.size(), 0U) << "without a packet there is no place";
    nm::TraceEvent event;
    Report cut(NFT_TRACETYPE_RULE, "STEER", 1, 0);
    cut.message->nlmsg_len = NLMSG_LENGTH(sizeof(nfgenmsg)) + 6;
    EXPECT_FALSE(nm::parse_trace(cut.message, event));
    cut.message->nlmsg_type = NFNL_SUBSYS_NFTABLES << 8 | NFT_MSG_NEWRULE;
    EXPECT_FALSE(nm::parse_trace(cut.message, event));
}

TEST_F(PacketWay, MarksAreNamedFieldByField) {
    EXPECT_EQ(nm::mark_fields(0), Json::Value(Json::arrayValue));
    const Json::Value fields = nm::mark_fields(0x2945);
    ASSERT_EQ(fields.size(), 4U) << fields;
    EXPECT_EQ(fields[1]["bits"], "0x3c0");
    EXPECT_EQ(fields[1]["value"], 5U);
    EXPECT_EQ(nm::mark_changes(0x4000, 0)[0]["field"], "nobody's bits");
    const Json::Value sets = nm::sets_of(
        "-m set ! --match-set lan dst -m comment --comment \"--match-set no src\" -m set --match-set os.x "
        "src,src -j DROP");
    ASSERT_EQ(sets.size(), 2U) << sets;
    EXPECT_TRUE(sets[0]["is_negated"].asBool() && !sets[1]["is_negated"].asBool());
    EXPECT_EQ(sets[1]["directions"], "src,src");
}

TEST_F(PacketWay, RulesCarryTheirSourcesOnlyForWhoListens) {
    const std::string lines = "-F A\n-A A -s 10.0.0.1 -j DROP\n-A A\n";
    EXPECT_EQ(nm::from_source({"", "/RULES/0"}, lines), lines);
    const nm::RuleSources sources;
    (void)nm::from_source({"", "/RULES/0"}, lines);
    EXPECT_EQ(nm::from_source({"f.json", "/RULES/1", "swdev1"}, lines),
              "-F A\n-A A -m comment --comment nm-source-1 -s 10.0.0.1 -j DROP\n-A A\n");
    const std::tuple<std::string, std::string, const char*> rows[] = {
        {"-s 10.0.0.1/32 -m comment --comment nm-source-1 -j DROP", "-s 10.0.0.1/32 -j DROP", "/RULES/1"},
        {"-m comment --comment nm-source-0 -j DROP", "-j DROP", "/RULES/0"},
        {"-m comment --comment nm-source-7 -j DROP", "-j DROP", nullptr},
        {"-m comment --comment mine -j DROP", "-m comment --comment mine -j DROP", nullptr}};
    for (auto [rule, rest, pointer] : rows) {
        const nm::RuleSource* const source = sources.take(rule);
        EXPECT_EQ(rule, rest);
        EXPECT_EQ(source == nullptr ? "" : source->pointer, pointer == nullptr ? "" : pointer);
    }
}

struct PacketOnCables : Devices {};

TEST_F(PacketOnCables, TheReportIsAsItsSchemaSays) {
    run("ip addr add 10.7.0.1/24 dev nw0; ip addr add 10.8.0.1/24 dev nw2; echo 1 "
        ">/proc/sys/net/ipv4/ip_forward;"
        "ip link add br7 type bridge; ip link set nw2 master br7; ip link set br7 up; ip addr del "
        "10.8.0.1/24 dev nw2; ip addr add 10.8.0.1/24 dev br7;"
        "iptables -A FORWARD -p udp -j DROP; iptables -t nat -A POSTROUTING -p tcp -o br7 -j SNAT "
        "--to-source "
        "10.8.0.1:700");
    const std::tuple<packet_question, int, const char*> rows[] = {
        {{"10.7.0.2", "10.8.0.2", "tcp", "", "80", ""}, NM_OK, "sent"},
        {{"10.8.0.2", "10.7.0.2", "udp", "", "80", "nw2"}, NM_OK, "dropped"},
        {{"10.8.0.1", "10.7.0.2", "", "", "", ""}, NM_OK, "sent"},
        {{"10.8.0.1", "10.7.0.1", "", "", "", ""}, NM_OK, "delivered"},
        {{"10.7.0.2", "172.16.0.1", "icmp", "", "", ""}, NM_OK, "dropped"},
        {{"10.7.0.2", "10.7.0.3", "icmp", "", "", ""}, NM_ERR_BAD_VALUE, ""}};
    put("/etc/networkmanagement/device_info.json", "{}");
    for (const auto& [question, code, verdict] : rows) {
        Json::Value report;
        ASSERT_EQ(explain_packet(question, report), code) << report;
        EXPECT_TRUE(code != NM_OK || conforms("explain.json", report)) << report;
        EXPECT_EQ(report["verdict"].isNull() ? "" : report["verdict"].asString(), verdict) << report;
        EXPECT_EQ(report["left"]["source_port"].isNull() ? 0 : report["left"]["source_port"].asInt(),
                  question.protocol == "tcp" ? 700 : 0);
    }
    run("iptables -F FORWARD; iptables -t nat -F POSTROUTING; ip link del br7; rm "
        "/etc/networkmanagement/device_info.json");
}

/// What an uplink nw0 and the static routes write, and beside it what a stranger does.
struct RoutesOfStrangers : Devices {
    void SetUp() override {
        Devices::SetUp();
        run("set -e; i=$(cat /sys/class/net/nw0/ifindex); t=$((256 + i)) p=$((16 * i));"
            "ip addr add 10.7.0.1/24 dev nw0; ip addr add 10.7.0.2/24 dev nw0;"
            "ip addr add 2001:db8:1::1/64 dev nw0 nodad; via='via 10.7.0.9 dev nw0 proto static';"
            "ip route add 10.99.0.0/16 via 10.7.0.9 dev nw0; ip route add default $via table $t;"
            "ip route add 10.7.0.0/24 dev nw0 proto static table $t; ip route add 10.98.0.0/16 $via table $t;"
            "ip route add default $via table 253; ip route add 10.96.0.0/16 $via table 253;"
            "ip route add 0.0.0.0/1 via 10.7.0.8 dev nw0 proto static table 250;"
            "for n in 91 92 93; do ip route add 10.$n.0.0/16 $via metric 5 table 251; done;"
            "ip route add 10.90.0.0/16 via 10.7.0.9 dev nw0 metric 5 table 251;"
            "ip -6 route add 2001:db8:9::/48 via 2001:db8:1::9 dev nw0 proto static table 251;"
            "ip rule add pref 11 to 10.91.0.0/16 lookup 251; ip rule add pref 12 iif lo lookup 251;"
            "ip -6 rule add pref 12 iif lo lookup 251; ip rule add pref $((p + 1)) from 10.7.0.1 lookup $t;"
            "ip rule add pref $((p + 1)) from 10.7.0.2 to 10.94.0.0/16 lookup 250;"
            "ip rule add pref $((p + 2)) from 10.7.0.2 to 10.95.0.0/16 lookup $t");
        const std::string entry = R"("FAMILY": 4, "NETMASK": 16, "NEXTHOP_ADDRESS": "10.7.0.)";
        put("/etc/networkmanagement/static_route.json",
            R"({"STATIC_ROUTE": [{"ACTION": "DISABLE", "IP": "10.93.0.0", "METRIC": 5, )" + entry +
                R"(9"}, {"ACTION": "ENABLE", "IP": "10.93.0.0", "METRIC": 6, )" + entry +
                R"(9"}, {"ACTION": "ENABLE", "IP": "10.93.0.0", "METRIC": 5, )" + entry +
                R"(8"}, {"ACTION": "ENABLE", "IP": "10.93.0.0", "METRIC": 5, )" + entry +
                R"(9"}, {"ACTION": "ENABLE", "IP": "10.92.0.0", "METRIC": 5, )" + entry +
                R"(8"}, {"ACTION": "ENABLE", "IP": "10.90.0.0", "METRIC": 5, )" + entry + R"(9"}]})");
        put("/etc/networkmanagement/static_route6.json",
            R"({"staticRoute6": [{"enable": true, "destination": "2001:db8:9::", "prefixLength": 48,
                "nextHopInterface": "PORT1", "nextHopIp": "2001:db8:1::9"}]})");
    }
    void TearDown() override {
        run("p=$((16 * $(cat /sys/class/net/nw0/ifindex))); for n in 11 12 $((p + 1)) $((p + 1)) $((p + 2)); "
            "do "
            "ip rule del pref $n; done; ip -6 rule del pref 12; rm "
            "/etc/networkmanagement/static_route*.json");
        Devices::TearDown();
    }
};

TEST_F(RoutesOfStrangers, OnlyWhatAnOwnerWritesIsItsOwn) {
    const Json::Value document = parsed(
        R"({"WAN_PORT": {"PORT1": {"INTERFACE": "nw0"}}, "WAN_IFACE_INFO": {"nw0": {"IP4_TYPE": "STATIC",
            "IP4_ADDR": "10.7.0.1", "IP4_PREFIX": 24, "IP4_GW": "10.7.0.9", "IP6_TYPE": "DISABLED"}}})");
    const std::string uplink = "documents/WAN_IFACE_INFO/nw0";
    const std::string stranger = "not of this system";
    const std::string base = "nm-base-rules";
    const std::tuple<const char*, const char*, const char*, std::string, std::string> rows[] = {
        {"10.7.0.2", "10.7.0.77", "50", uplink, "kernel"},
        {"10.7.0.2", "10.99.0.1", "icmp", stranger, "kernel"},
        {"10.7.0.1", "203.0.113.1", "47", uplink, uplink},
        {"10.7.0.1", "10.7.0.77", "udp", uplink, uplink},
        {"10.7.0.1", "10.98.0.1", "tcp", stranger, uplink},
        {"10.7.0.2", "203.0.113.1", "tcp", uplink, stranger},
        {"10.7.0.2", "10.96.0.1", "tcp", stranger, stranger},
        {"10.7.0.2", "10.95.0.1", "tcp", uplink, stranger},
        {"10.7.0.2", "10.94.0.1", "tcp", stranger, stranger},
        {"10.7.0.2", "10.93.0.1", "tcp", "documents/STATIC_ROUTE/3", base},
        {"10.7.0.2", "10.92.0.1", "tcp", stranger, base},
        {"10.7.0.2", "10.91.0.1", "tcp", stranger, stranger},
        {"10.7.0.2", "10.90.0.1", "tcp", stranger, base},
        {"2001:db8:1::1", "2001:db8:9::1", "icmp", "documents/staticRoute6/0", base},
    };
    const auto shown = [](const Json::Value& source) {
        return source["owner"].asString() + source["pointer"].asString();
    };
    for (const auto& [source, destination, protocol, route, rule] : rows) {
        const bool has_ports = std::string(protocol) == "tcp" || std::string(protocol) == "udp";
        const Json::Value answer = nm::ask_routing(
            {flow_of({source, destination, protocol, "", has_ports ? "80" : "", ""}), 0, ""}, document);
        EXPECT_EQ(shown(answer["source"]), route) << destination << answer;
        EXPECT_EQ(shown(answer["rule"]["source"]), rule) << destination << answer;
    }
}

}  // namespace
