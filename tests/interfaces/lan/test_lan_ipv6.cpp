// The IPv6 side of LANs: which daemons, rules and files a configuration means, in which order they come, what
// a failure leaves, and that a removal takes all of it back.

#include "fake_service.h"
#include "golden.h"
#include "interfaces/lan/LanIfaceInfo.h"
#include "interfaces/lan/delegation.h"
#include "stand_in.h"

using namespace fixture;

namespace {

const std::string kLan = "br_v12";
const std::string kBlock = "/run/network/ipv6/br_v12.radvd.conf";
const std::string kServer = "/etc/networkmanagement/dhcp6/dhcpd6_br_v12.conf";
const std::string kOther = "'IP6_TYPE':'STATIC','IP6_ADDR':'2001:db8:9:1::1','IP6_UPLINK':'PORT1',";
const std::string kShared = "'IP6_TYPE':'STATIC','IP6_ADDR':'2001:db8:1::5','IP6_UPLINK':'PORT1',";
const std::string kSlaac = "'IP6_SERVICE_TYPE':'SLAAC_RDNSS',";
const std::string kManaged =
    "'IP6_SERVICE_TYPE':'STATEFUL','IP6_RANGE_START':'2001:db8:9:1::10','IP6_RANGE_END':'2001:db8:9:1::ff',";

Json::Value document(const std::string& entry) {
    return json(
        "{'WAN_PORT':{'PORT1':{'INTERFACE':'swdev1'}},'WAN_IFACE_INFO':{'swdev1':{'IP4_TYPE':'DISABLED',"
        "'IP6_TYPE':'STATIC','IP6_ADDR':'2001:db8:1::2','IP6_PREFIX':'64','IP6_GW':'2001:db8:1::1'}},"
        "'LAN_IFACE_INFO':{'br_v12':{" +
        entry + "'IP4_TYPE':'DISABLED'}}}");
}

/// What the kernel has of the LAN: addresses, source rules, the default route of its table.
std::string in_force() {
    return exec(
        "for w in \"$(ip -6 -o addr show dev br_v12 scope global | awk '{print $4}')\" "
        "\"$(ip -6 rule | sed -n 's/.*from \\([0-9a-f:/]*::[^ ]*\\) .*/from \\1/p')\" "
        "\"$(ip -6 route show table $((256 + $(cat /sys/class/net/br_v12/ifindex))) default 2>/dev/null "
        "| sed 's/ proto.*//')\"; do [ -z \"$w\" ] || printf '%s; ' \"$w\"; done");
}

/// The units in their order: "start nm-radvd, ..."; and what else was told.
std::string units_of(const Calls& calls) {
    std::string units;
    for (const std::string& call : calls) {
        if (call.rfind("systemctl ", 0) == 0) {
            units += call.substr(11, call.find('>') - 11) + " " +
                     call.substr(call.rfind('<') + 1, call.find(".service") - call.rfind('<') - 1) + ", ";
        }
    }
    return units;
}

struct LanIpv6 : testing::Test {
    LanIpv6() {
        run("ip link add br_v12 type veth peer name far; ip link add swdev1 type veth peer name isp; "
            "for d in br_v12 swdev1 isp far; do ip link set $d up addrgenmode none; done; "
            "ip addr add 2001:db8:1::2/64 dev swdev1 nodad; rm -f /run/network/ipv6/* /run/network/.nm-*; "
            "rm -rf /etc/networkmanagement/dhcp6; "
            "mkdir -p /etc/networkmanagement/dhcp6 /var/lib/dhcpd6");
        put("/etc/hosts", "127.0.0.1  localhost\n");
        put("/run/network/.boot_fin", "");
    }
    ~LanIpv6() override { run("rm /run/network/.boot_fin; ip link del br_v12; ip link del swdev1"); }

    static LanIfaceInfo info(const std::string& entry) { return of_document(document(entry)); }
    static LanIfaceInfo of_document(const Json::Value& doc, const std::string& ifname = kLan) {
        put("/tmp/device.json", nm::write_compact_json(doc));
        return {ifname, "/tmp/device.json", doc};
    }

    const FakeService names{
        "DnsmasqMgr",
        {{"Add_addr", R"({"error":0})"}, {"Del_addr", R"({"error":0})"}, {"Restart", R"({"error":0})"}}};
    const StandIn sets{"/usr/sbin/firewall.sh"};
    const StandIn systemctl{"/usr/bin/systemctl"};
};

TEST_F(LanIpv6, ComesAndGoesWithWhatItsTypesMean) {
    const std::string address = "2001:db8:9:1::1/64; ";
    const std::string routed = address + "from 2001:db8:9:1::1/64; default via 2001:db8:1::1 dev swdev1; ";
    const std::string gone = "stop nm-6relayd@br_v12, ";
    const std::tuple<const char*, std::string, bool, std::string, std::string, std::string> rows[] = {
        {"another prefix has source rules", kOther + kSlaac, true, routed, "restart nm-radvd, ",
         "stop nm-radvd, " + gone},
        {"and a server, if it is managed", kOther + kManaged, true, routed,
         "start nm-dhcpd6@br_v12, restart nm-radvd, ", "stop nm-dhcpd6@br_v12, stop nm-radvd, " + gone},
        {"the uplink's prefix has a proxy", kShared + kSlaac, true, "2001:db8:1::5/64; ",
         "start nm-6relayd@br_v12, restart nm-radvd, ", "stop nm-radvd, " + gone},
        {"neither while booting", kOther + kManaged, false, address, "start nm-dhcpd6@br_v12, ",
         "stop nm-dhcpd6@br_v12, stop nm-radvd, " + gone},
        {"an uplink that is not there", kOther + kSlaac + "'IP6_UPLINK':'PORT2',", true, address,
         "restart nm-radvd, ", "stop nm-radvd, " + gone},
        {"no service", kOther, true, address, "", ""},
        {"a relay", "'IP6_TYPE':'RELAY','IP6_UPLINK':'PORT1'," + kSlaac, true, "",
         "start nm-6relayd@br_v12, ", gone},
        {"nothing", kSlaac, true, "", "", ""},
        {"nothing by an empty type", "'IP6_TYPE':''," + kSlaac, true, "", "", ""},
    };
    for (const auto& [what, entry, booted, force, started, stopped] : rows) {
        SCOPED_TRACE(what);
        booted ? put("/run/network/.boot_fin", "") : (void)fs::remove("/run/network/.boot_fin");
        LanIfaceInfo lan = info(entry);
        EXPECT_EQ(lan.add_info(OPT_IP6), 0);
        EXPECT_EQ(in_force(), force);
        EXPECT_EQ(units_of(FakeService::take_calls()), started);
        EXPECT_EQ(fs::exists(kServer), started.find("dhcpd6") != std::string::npos);
        EXPECT_EQ(fs::exists(kBlock), entry.find("STATIC") != std::string::npos && !stopped.empty());
        EXPECT_TRUE(!fs::exists(kServer) ||
                    std::system(("dhcpd -6 -t -q -cf " + kServer + " 2>&1").c_str()) == 0);
        EXPECT_TRUE(!fs::exists(kBlock) ||
                    std::system(("radvd -c -C " + kBlock + " 2>/dev/null").c_str()) == 0);
        EXPECT_EQ(lan.add_info(OPT_IP6), 0) << "once more";
        EXPECT_EQ(in_force(), force);
        (void)FakeService::take_calls();
        EXPECT_EQ(lan.del_info(OPT_IP6), 0);
        EXPECT_EQ(units_of(FakeService::take_calls()), stopped);
        EXPECT_EQ(
            in_force() + exec("grep '#' /etc/hosts; find /run/network/ipv6 /etc/networkmanagement/dhcp6 "
                              "/var/lib/dhcpd6 -type f ! -name '*.withdrawn'"),
            "");
        put("/run/network/.boot_fin", "");
    }
    run("ip -6 addr flush dev swdev1 scope global");
    LanIfaceInfo early = info(kOther + kSlaac);
    EXPECT_EQ(early.add_info(OPT_IP6), 0) << "before its uplink, which has a gateway by its document";
    EXPECT_EQ(in_force(), address);
    EXPECT_TRUE(fs::exists(kBlock));
    EXPECT_EQ(early.del_info(OPT_IP6), 0);
}

TEST_F(LanIpv6, KeepsNothingOfTheTypeThatItHadBefore) {
    const std::string types[] = {kOther + kSlaac, kOther + kManaged, kShared + kSlaac,
                                 "'IP6_TYPE':'RELAY','IP6_UPLINK':'PORT1',", "'IP6_TYPE':'DISABLED',"};
    std::set<std::string> running;
    const auto all = [&running] {
        std::istringstream words(units_of(FakeService::take_calls()));
        for (std::string verb, unit; words >> verb >> unit;) {
            verb == "stop" ? (void)running.erase(unit) : (void)running.insert(unit);
        }
        const std::string block = slurp(kBlock);
        return in_force() + testing::PrintToString(running) + slurp(kServer) + exec("grep '#' /etc/hosts") +
               block.substr(0, block.find("\n  };"));
    };
    const std::string nothing = all();
    for (const std::string& next : types) {
        EXPECT_EQ(info(next).add_info(OPT_IP6), 0);
        const std::string expected = all();
        EXPECT_EQ(info(next).del_info(OPT_IP6), 0);
        for (const std::string& before : types) {
            if (before == next) {
                continue;
            }
            put(kDeviceInfoPath, nm::write_compact_json(document(before)));
            EXPECT_EQ(info(before).add_info(OPT_IP6), 0);
            EXPECT_EQ(info(next).alt_info(OPT_IP6), 0);
            EXPECT_EQ(all(), expected) << before << " becomes " << next;
            EXPECT_EQ(info(next).del_info(OPT_IP6), 0);
            EXPECT_EQ(all(), nothing) << next;
        }
    }
}

TEST_F(LanIpv6, IsUntiedWhenItsUplinkTakesItsPrefix) {
    Json::Value doc =
        document("'IP6_TYPE':'STATIC','IP6_UPLINK':'PORT1','IP6_ADDR':'2001:db8:9:1::5'," + kSlaac);
    EXPECT_EQ(of_document(doc).add_info(OPT_IP6), 0);
    const std::string tied = in_force();
    EXPECT_NE(tied.find("from 2001:db8:9:1::5/64; default via 2001:db8:1::1"), tied.npos) << tied;
    EXPECT_EQ(of_document(doc).add_info(OPT_IP6), 0);
    EXPECT_EQ(in_force(), tied) << "again";
    doc["WAN_IFACE_INFO"]["swdev1"]["IP6_ADDR"] = "2001:db8:9:1::2";
    run("ip -6 addr flush dev swdev1 scope global; ip addr add 2001:db8:9:1::2/64 dev swdev1 nodad");
    EXPECT_EQ(of_document(doc).add_info(OPT_IP6), 0);
    EXPECT_EQ(in_force(), "2001:db8:9:1::5/64; ") << "the gateway is the same";
    EXPECT_EQ(of_document(doc).del_info(OPT_IP6), 0);
}

TEST_F(LanIpv6, TellsItsAddressAndItsUplink) {
    const std::string set = "firewall.sh <edit_ipset> <add> ";
    EXPECT_EQ(info(kShared + "'IP6_PREFIX':'60'," + kSlaac).add_info(OPT_IP6), 0);
    const std::string calls = FakeService::take_text();
    EXPECT_NE(calls.find(set + "<ip6_localip> <2001:db8:1::5>\n" + set + "<ip6_lan> <2001:db8:1::/60>\n" +
                         R"(DnsmasqMgr.Add_addr {"addr":"2001:db8:1::5"})"),
              std::string::npos)
        << calls;
    EXPECT_EQ(exec("grep '#' /etc/hosts"), "2001:db8:1::5  sandbox  sandbox  #br_v12\n");
    EXPECT_EQ(slurp("/proc/sys/net/ipv6/conf/br_v12/forwarding"), "1\n");
    EXPECT_EQ(slurp("/run/network/.nm-6relayd@br_v12.env"), "UPLINK=swdev1\nMODE=-N");
    EXPECT_EQ(info("'IP6_TYPE':'RELAY','IP6_UPLINK':'PORT1',").setup_ipv6(0), 0);
    EXPECT_EQ(slurp("/run/network/.nm-6relayd@br_v12.env"), "UPLINK=swdev1\nMODE=-A");
    EXPECT_EQ(info(kShared + "'IP6_PREFIX':'60'," + kSlaac).del_info(OPT_IP6), 0);
    EXPECT_NE(FakeService::take_text().find("<del> <ip6_lan> <2001:db8:1::/60>"), std::string::npos);
}

TEST_F(LanIpv6, AdvertisesWhatIsConfiguredWithTheLifetimesOfItsDelegation) {
    const std::string delegated = "'IP6_DHCP_PD':'ENABLED','IP6_PD_PREFIX':'2001:db8:9::/48',";
    const std::string dns = "'IP6_DNS_SERVERS':['2001:db8::53','x\\n};','2001:db8::54'],";
    put("/run/network/ipv6/swdev1.json",
        quoted("{'pdInfo':[{'prefix':'2001:db8:8::','length':'48','pltime':'1','vltime':'2'},"
               "{'prefix':'2001:db8:9::','length':'48','pltime':'600','vltime':'900'},"
               "{'prefix':'2001:db8:9:1::','length':'64','pltime':'7','vltime':'8'}]}"));
    const std::string flags = "  AdvManagedFlag on;\n  AdvOtherConfigFlag on;\n";
    const std::string times = "    AdvPreferredLifetime 600;\n    AdvValidLifetime 900;\n";
    const std::tuple<std::string, std::vector<std::string>, std::vector<std::string>> rows[] = {
        {kManaged, {flags, "AdvDefaultLifetime 3600;", "prefix 2001:db8:9:1::/64\n"}, {"AdvValid", "RDNSS"}},
        {kManaged + delegated + dns, {flags, times, "RDNSS 2001:db8::53 2001:db8::54\n"}, {"};\n};\n};"}},
        {kManaged + dns + "'IP6_LIFETIME':'30',", {"AdvDefaultLifetime 30;"}, {times}},
        {kSlaac + "'IP6_LIFETIME':'0',", {"AdvDefaultLifetime 0;"}, {}},
        {kSlaac + delegated + "'IP6_LIFETIME':'9000',",
         {"  AdvManagedFlag off;\n  AdvOtherConfigFlag off;\n", "AdvDefaultLifetime 9000;", times},
         {}},
        {kSlaac + "'IP6_DHCP_PD':'ENABLED','IP6_PD_PREFIX':'2001:db8:7::/48',", {"off;\n  };"}, {times}}};
    for (const auto& [entry, there, absent] : rows) {
        ASSERT_EQ(info(kOther + entry).setup_ipv6(0), 0) << entry;
        const std::string block = slurp(kBlock);
        EXPECT_EQ(std::system(("radvd -c -C " + kBlock + " 2>/dev/null").c_str()), 0) << block;
        for (const std::string& words : there) {
            EXPECT_NE(block.find(words), std::string::npos) << words << block;
        }
        for (const std::string& words : absent) {
            EXPECT_EQ(block.find(words), std::string::npos) << words << block;
        }
        if (entry.find("STATEFUL") != std::string::npos) {
            const std::string lease = entry.find("PD") != std::string::npos ? "900" : "86400";
            const std::string servers =
                entry.find("DNS") != std::string::npos ? "2001:db8::53, 2001:db8::54" : "2001:db8:9:1::1";
            EXPECT_EQ(slurp(kServer).substr(0, slurp(kServer).find("subnet6")),
                      "max-lease-time " + lease + ";\ndefault-lease-time " + lease +
                          ";\noption dhcp6.name-servers " + servers + ";\n");
        }
        EXPECT_EQ(info(kOther + entry).disable_ipv6(), 0);
    }
}

TEST_F(LanIpv6, FailsWithItsCodeAndLeavesNothing) {
    const std::tuple<std::string, int, const char*> rows[] = {
        {"'IP6_TYPE':'STATIC',", NM_ERR_BAD_IP, "Bad IPv6 address: "},
        {"'IP6_TYPE':'STATIC','IP6_ADDR':'2001:db8::1\\u0000\\nx',", NM_ERR_BAD_IP, "Bad IPv6 address: "},
        {kOther + "'IP6_PREFIX':'0',", NM_ERR_BAD_IP, "Bad prefix."},
        {kOther + "'IP6_PREFIX':'129',", NM_ERR_BAD_IP, "Bad prefix."},
        {kOther + kManaged + "'IP6_LEASE_TIME':'299',", NM_ERR_BAD_FORMAT,
         "Failed to generate br_v12 dhcpd6.conf!"},
        {kOther + kManaged + "'IP6_RANGE_END':'2001:db8:9:1::20;\\n}',", NM_ERR_BAD_PREFIX, "outof subnet6"},
        {kOther + kManaged + "'IP6_LIFETIME':'9;\\n',", NM_ERR_BAD_FORMAT, "[IP6_LIFETIME] is not a number"},
        {kOther + kManaged + "'IP6_LIFETIME':'29',", NM_ERR_BAD_FORMAT, "neither 0 nor between 30 and 9000"},
        {kOther + kSlaac + "'IP6_LIFETIME':'9001',", NM_ERR_BAD_FORMAT, "neither 0 nor between 30 and 9000"},
        {kOther + kSlaac + "'IP6_LEASE_TIME':'-1',", NM_ERR_BAD_FORMAT, "[IP6_LEASE_TIME] is not a number"},
        {"'IP6_TYPE':'RELAY',", NM_ERR_EMPTY, "Interface: br_v12 has no uplink."},
        {"'IP6_TYPE':'RELAY','IP6_UPLINK':'PORT7',", NM_ERR_NO_IFACE, "Interface: br_v12 has no uplink."},
        {"'IP6_TYPE':'SLAAC',", NM_ERR_BAD_TYPE, "SLAAC is not supported now!"}};
    for (const auto& [entry, code, words] : rows) {
        const MainLog log;
        EXPECT_EQ(info(entry).setup_ipv6(0), code) << entry;
        EXPECT_TRUE(log.has(words)) << words;
        EXPECT_TRUE(!fs::exists(kBlock) && !fs::exists(kServer) && is_lock_free("swdev1")) << entry;
        EXPECT_EQ(units_of(FakeService::take_calls()).find("start"), std::string::npos) << entry;
        (void)info(entry).disable_ipv6();
        EXPECT_EQ(in_force(), "");
    }
    EXPECT_EQ(info(kOther + kSlaac + "'IP6_ADDR':'x',").add_info(OPT_IP6_SERVICE), NM_ERR_BAD_IP);
    EXPECT_FALSE(fs::exists(kBlock)) << "a block without a prefix would be refused with all others";
    Json::Value doc = document("'IP6_TYPE':'RELAY','IP6_UPLINK':'PORT1',");
    doc["WAN_PORT"]["PORT1"]["INTERFACE"] = "swdev1\nMODE=-N";
    EXPECT_EQ(of_document(doc).setup_ipv6(0), NM_ERR_BAD_FORMAT) << "no line is added";
    doc = document(kOther);
    doc["LAN_IFACE_INFO"]["none"] = doc["LAN_IFACE_INFO"][kLan];
    EXPECT_EQ(of_document(doc, "none").setup_ipv6_static(), NM_ERR_NO_IFACE);
    const StandIn broken("/usr/bin/systemctl", 3);
    EXPECT_EQ(info("'IP6_TYPE':'RELAY','IP6_UPLINK':'PORT1',").disable_ipv6(), 3);
    put("/usr/bin/systemctl", "#!/bin/sh\ncase $* in *radvd*) exit 3 ;; esac\n");
    EXPECT_EQ(info(kOther + kManaged).setup_ipv6(0), 3);
    EXPECT_FALSE(fs::exists(kBlock) || fs::exists(kServer));
    EXPECT_EQ(in_force(), "2001:db8:9:1::1/64; ") << "nothing but the address";
}

TEST(LanDelegation, GivesTheLifetimesOfTheFirstPrefixThatHoldsTheAddress) {
    for (const Json::Value& row : golden("delegations")) {  // list, preferred and valid lifetime
        const nm::Lifetimes found = nm::delegated_lifetimes(row[0], "2001:db8:9:1::1");
        EXPECT_EQ(found.preferred, row[1].asUInt()) << row;
        EXPECT_EQ(found.valid, row[2].asUInt()) << row;
    }
    EXPECT_EQ(nm::delegated_lifetimes("x", "2001:db8:9:1::1").valid, 0U);
}

}  // namespace
