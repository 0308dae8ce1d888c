// Drift: what of two worlds is compared, whose a difference is, and the form of the report.
#include "conforms.h"
#include "inspect/drift.h"
#include "inspect/drift_view.h"
#include "inspect/world.h"
#include "kernel_world.h"
#include "result_codes.h"
#include "utils/json_text.h"

using namespace kernel_world;
using nm::Domain;
using nm::Lines;
using nm::World;

namespace {

struct Drift : Frugal {};

/// The classes and names of what one world comes to beside the other.
std::string classes(const World& described, const World& running) {
    const nm::OwnersView owners(nm::library_claims());
    nm::DriftView view(owners, {"eth1"});
    Json::Value changes(Json::arrayValue);
    nm::append_differences(described, running, changes);
    std::string text;
    for (const Json::Value& change : changes) {
        view.judge(change);
    }
    for (const Json::Value& list : {view.findings(), view.outside()}) {
        for (const Json::Value& row : list) {
            text += row["class"].asString() + " " + row["name"].asString() + " of " +
                    row["owner"].asString() + ";";
        }
    }
    return text;
}

TEST(DriftClasses, FollowFromWhatIsMissingAndWhoseTheRestIs) {
    Lines many(2500, "a");  // too many for the order to be shown
    many.insert(many.begin(), "b");
    const Lines reordered(many.rbegin(), many.rend());
    const struct {
        Domain domain;
        std::string name;
        Lines described, running;
        std::string found;
    } rows[] = {
        {Domain::Link, "eth1", {"up"}, {"down"}, "changed eth1 of network configuration;"},
        {Domain::Link, "eth7", {"down"}, {"up"}, "outside eth7 of nobody;"},
        {Domain::Address, "eth1.10", {}, {"10.0.0.1/8"}, "foreign eth1.10 of network configuration;"},
        {Domain::Address, "ppp-eth1", {}, {"10.0.0.1/8"}, "foreign ppp-eth1 of network configuration;"},
        {Domain::Address, "eth10", {}, {"10.0.0.1/8"}, "outside eth10 of nobody;"},
        {Domain::Route,
         "IPv4 table main",
         {"a dev eth7"},
         {"b dev eth1", "c dev eth7"},
         "changed IPv4 table main of kernel;outside IPv4 table main of nobody;"},
        {Domain::Route, "IPv6 table 300", {}, {"a dev eth7"}, "foreign IPv6 table 300 of uplinks;"},
        {Domain::Route, "IPv4 table 100", {}, {"a dev eth1"}, "outside IPv4 table 100 of nobody;"},
        {Domain::Rule,
         "IPv6 rules",
         {"33: from a", "34: from b"},
         {"33: from c", "70: from d"},
         "changed IPv6 rule 33 of uplinks;lost IPv6 rule 34 of uplinks;foreign IPv6 rule 70 of uplinks;"},
        {Domain::Set,
         "seg-a",
         {"type hash:net", "10.0.0.0/8"},
         {"type hash:net"},
         "lost seg-a of packet policy;"},
        {Domain::Chain,
         "IPv4 mangle POLICY-x",
         {},
         {"-j RETURN"},
         "foreign IPv4 mangle POLICY-x of packet policy;"},
        {Domain::Chain, "IPv4 mangle STEER-x", many, reordered,
         "changed IPv4 mangle STEER-x of packet policy;"},
        {Domain::Chain, "IPv4 filter INPUT", {"a"}, {"a", "b"}, "outside IPv4 filter INPUT of nobody;"},
        {Domain::File, "/run/network/a.curr", {"x"}, {"y"}, "changed /run/network/a.curr of documents;"},
        {Domain::File,
         "/run/network/odd/b",
         {},
         {"y"},
         "foreign /run/network/odd/b of network configuration;"},
        {Domain::Unit, "nm-radvd.service", {"active"}, {}, "lost nm-radvd.service of services;"},
    };
    for (const auto& row : rows) {
        World described;
        World running;
        row.described.empty() ? void() : void(described[row.domain][row.name] = row.described);
        row.running.empty() ? void() : void(running[row.domain][row.name] = row.running);
        EXPECT_EQ(classes(described, running), row.found) << row.name;
    }
    World bare;
    bare[Domain::Chain]["IPv4 mangle STEER-x"];
    EXPECT_EQ(classes(bare, {}), "lost IPv4 mangle STEER-x of packet policy;");
    EXPECT_EQ(classes({}, bare), "foreign IPv4 mangle STEER-x of packet policy;");
}

TEST(DriftLevel, IndexesAreThoseOfTheDeviceAndWhatMovesDoesNotCount) {
    World described;
    described[Domain::Route]["IPv6 table 264"] = {"default dev eth1"};
    described[Domain::Rule]["IPv6 rules"] = {"12: from a lookup 251", "129: from a lookup 264",
                                             "144: from b lookup 265", "32766: from all lookup main"};
    described[Domain::Set] = {{"rlan", {"type hash:net"}}, {"lan", {"type hash:net", "1"}}};
    described[Domain::Setting] = {{"ipv4/conf/all/x", {"0"}},
                                  {"ipv4/conf/eth1/x", {"0"}},
                                  {"ipv4/conf/eth2/promote_secondaries", {"0"}},
                                  {"core/y", {"1"}}};
    described[Domain::Unit] = {{"nm-dhcpcd@eth2.service", {"active"}},
                               {"nm-6relayd@br_v1.service", {"active"}}};
    described[Domain::File]["/etc/hosts"] = {"b", "a"};
    World running;
    running[Domain::Route]["IPv6 table 265"] = {"default dev eth1"};
    running[Domain::Route]["IPv6 table main"] = {"fe80::/64 dev eth1 proto kernel",
                                                 "2001:db8::7 dev br_v1 proto 106 metric 1024",
                                                 "::/0 via a proto ra metric 1"};
    running[Domain::Rule]["IPv6 rules"] = {"12: from a lookup 251",
                                           "128: from b lookup 264",
                                           "145: from a lookup 265",
                                           "158: from all iif br_v1 lookup 300",
                                           "159: from all iif br_v1 lookup 300",
                                           "174: from all iif br_v2 lookup 300",
                                           "32766: from all lookup main"};
    running[Domain::Set] = {{"rlan", {"type hash:net", "9"}},
                            {"lan", {"type hash:net", "2"}},
                            {"os.x", {"type hash:ip"}},
                            {"ip6_relayed", {"type hash:net,iface", "::/0,br_v1", "::/0,br_v2"}}};
    described[Domain::Set]["ip6_relayed"] = {"type hash:net,iface"};
    running[Domain::Setting] = {{"ipv4/conf/all/x", {"1"}},
                                {"ipv4/conf/eth1/x", {"1"}},
                                {"ipv4/conf/eth2/promote_secondaries", {"1"}},
                                {"ipv6/conf/eth3/proxy_ndp", {"1"}},
                                {"core/y", {"1"}},
                                {"core/z", {"1"}}};
    described[Domain::Setting]["ipv6/conf/eth3/proxy_ndp"] = {"0"};
    running[Domain::File] = {{"/etc/hosts", {"a", "b"}},
                             {"/run/network/.boot_fin", {""}},
                             {"/etc/vpppoe/env/eth2.env", {"REDIAL_SECONDS=5"}},
                             {"/run/network/ipv6/br_v1.withdrawn", {"2001:db8::/64 on 9"}}};
    running[Domain::Address]["eth1"] = {"fe80::1/64 scope link", "febf::1 peer febf::2/64 scope link"};
    described[Domain::Address]["eth2"] = {"169.254.0.1/16 scope link", "fec0::1/64 scope site"};
    running[Domain::Unit] = described[Domain::Unit];
    running[Domain::Unit]["nm-bringup.service"] = {"active"};
    nm::level_worlds(described, {{"br_v1", 8}, {"br_v2", 9}}, running, {{"br_v1", 9}, {"br_v2", 8}});
    Json::Value changes(Json::arrayValue);
    nm::append_differences(described, running, changes);
    std::string found;
    for (const Json::Value& change : changes) {
        found += change["name"].asString() + ";";
        for (const Json::Value& line : change["added"]) {
            found += line.asString() + ";";
        }
    }
    EXPECT_EQ(changes[0]["removed"].size(), 2U) << "an address that is no link-local one of IPv6 counts";
    EXPECT_EQ(
        found,
        "eth2;IPv6 rules;174: from all iif br_v2 lookup 300;ip6_relayed;::/0,br_v2;lan;2;ipv4/conf/all/x;1;");
}

TEST(DriftLevel, WhatOnlyOneOfTwoLooksShowsIsNotKnown) {
    Json::Value first;
    Json::Value later;
    ASSERT_TRUE(nm::parse_json(
        R"([{"domain": "set", "name": "a"}, {"domain": "set", "name": "b"}, {"domain": "set", "name": "c", "added": ["1"]}])",
        first));
    ASSERT_TRUE(nm::parse_json(
        R"([{"domain": "set", "name": "a"}, {"domain": "set", "name": "c", "added": ["2"]}, {"domain": "set", "name": "d"}])",
        later));
    Json::Value unread(Json::arrayValue);
    const Json::Value kept = nm::lasting_changes(first, later, unread);
    ASSERT_EQ(kept.size(), 1U) << kept;
    EXPECT_EQ(kept[0]["name"], "a");
    std::string moving;
    for (const Json::Value& row : unread) {
        moving += row["what"].asString() + ";";
    }
    EXPECT_EQ(moving, "set b;set c;set d;");
}

TEST_F(Drift, TheReportIsWhatItsSchemaSays) {
    put("/etc/networkmanagement/firewall.json", "{");
    run("ip rule add pref 33 lookup 100; ip link add br8 type bridge; ip link set br8 up");
    const auto done = [] { return NM_OK; };
    Json::Value report;
    EXPECT_EQ(report_drift({done, done}, report), NM_ERR_NOT_FOUND);
    EXPECT_TRUE(conforms("drift.json", report)) << report;
    EXPECT_EQ(report["unread"][0]["what"], "/etc/networkmanagement/firewall.json") << report["unread"];
    EXPECT_EQ(report["outside"][0]["name"], "br8") << report["outside"];
    const std::string unread = nm::write_compact_json(report["unread"]);
    EXPECT_NE(unread.find(R"({"reason":"it is not over","what":"the boot"})"), unread.npos) << unread;
    EXPECT_EQ(report_drift({done, nullptr}, report), NM_ERR_NULL_ARG);
    EXPECT_EQ(report_drift({done, []() -> int { throw 7; }}, report), NM_ERR_NOT_FOUND);
    EXPECT_EQ(report["unread"][0]["reason"], "the request was left with the code 7");
    EXPECT_TRUE(conforms("drift.json", report)) << report;
    run("ip link del br8; ip rule del pref 33; rm /etc/networkmanagement/firewall.json");
}

}  // namespace
