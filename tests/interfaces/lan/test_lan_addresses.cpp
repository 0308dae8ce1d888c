// The addressing of LANs: the address in the kernel and all that is told of it, in which order, and that a
// removal takes all of it back.

#include "fake_service.h"
#include "networkinterface.h"
#include "stand_in.h"
#include "utils/run_scope.h"

using namespace fixture;

namespace {

const std::string kStatic = "'IP4_TYPE':'STATIC','IP4_ADDR':'192.168.12.1'";

Json::Value document(const std::string& entry, const std::string& ifname = "br_v12") {
    Json::Value doc;
    doc["LAN_IFACE_INFO"][ifname] = json("{" + entry + "}");
    return doc;
}

LanIfaceInfo info(const std::string& entry, const std::string& ifname = "br_v12") {
    return LanIfaceInfo(ifname, "/p", document(entry, ifname));
}

std::string addresses(const std::string& ifname) {
    return exec(("ip -4 -o addr show " + ifname + " | awk '{printf \"%s \", $4}'").c_str());
}

/// The lines of /etc/hosts that name an interface or the management host.
std::string hosts() {
    return exec("grep -E '#|local.appliance' /etc/hosts | tr '\\n' ';'");
}

/// What is told of an address, commands and calls to services in their order.
std::string told(const std::string& word, const std::string& network) {
    const std::string begin = "firewall.sh <edit_ipset> <" + word + "> ";
    return begin + "<localip> <192.168.12.1>\n" + begin + "<LANIFSET> <" + network + ",br_v12>\n" + begin +
           "<lan> <" + network + ">\nDnsmasqMgr." + (word == "add" ? "Add" : "Del") +
           "_addr {\"addr\":\"192.168.12.1\"}";
}

std::string calls() {
    return vector_into_string(FakeService::take_calls(), "", "\n");
}

struct LanAddress : testing::Test {
    LanAddress() {
        put("/etc/hosts", "127.0.0.1  localhost\n");
        fs::remove("/etc/networkmanagement/dhcp_service.json");
        fs::create_directories("/var/lib/dhcpd");
    }
    const FakeService names{"DnsmasqMgr", {{"Add_addr", R"({"error":0})"}, {"Del_addr", R"({"error":0})"}}};
    const StandIn sets{"/usr/sbin/firewall.sh"};
};

TEST_F(LanAddress, ComesAndGoesWithAllThatIsToldOfIt) {
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"24", "192.168.12.1/24 ", "192.168.12.0/24"},
        {"32", "192.168.12.1/32 ", "192.168.12.1/32"},
        {"1", "192.168.12.1/1 ", "128.0.0.0/1"}};
    for (const auto& [prefix, address, network] : cases) {
        const Device device("br_v12");
        LanIfaceInfo lan = info(kStatic + ",'IP4_PREFIX':'" + prefix + "'");
        EXPECT_EQ(lan.add_info(31), 0) << prefix;
        EXPECT_EQ(addresses("br_v12"), address);
        EXPECT_EQ(fact("br_v12", "flags"), "0x1003") << "up";
        EXPECT_EQ(calls(), told("add", network));
        EXPECT_EQ(hosts(), "192.168.12.1  sandbox  sandbox  #br_v12;");
        EXPECT_EQ(lan.del_info(31), 0);
        EXPECT_EQ(addresses("br_v12") + hosts(), "");
        EXPECT_EQ(calls(), told("del", network));
    }
}

TEST_F(LanAddress, IsRefusedWithItsCode) {
    const Device device("br_v12");
    const std::tuple<const char*, const char*, int, const char*> cases[] = {
        {"br_v12", "'IP4_TYPE':'STATIC','IP4_ADDR':'10.0.0.1\\u0000\\nx'", -1009, "Bad IP address: 10.0.0.1"},
        {"br_v12", "'IP4_TYPE':'STATIC','IP4_ADDR':'10.0.0.1','IP4_PREFIX':'0'", -1009, "Bad prefix."},
        {"br_v12", "'IP4_TYPE':'STATIC','IP4_ADDR':'10.0.0.1','IP4_PREFIX':'33'", -1009, "Bad prefix."},
        {"none", "'IP4_TYPE':'STATIC','IP4_ADDR':'10.0.0.1'", -1002, "Get ifindex failed. Interface: none"},
        {"br_v12", "'IP4_ADDR':'10.0.0.1'", -1008, "No such ip4_type: "},
        {"br_v12", "'IP4_TYPE':'DISABLED','IP6_TYPE':'SLAAC'", -1008, "SLAAC is not supported now!"}};
    for (const auto& [ifname, entry, code, words] : cases) {
        const LogTail log;
        EXPECT_EQ(info(entry, ifname).add_info(3), code) << entry;
        EXPECT_TRUE(log.has(words) && log.has("Setup info failed, interface: ")) << words;
        EXPECT_EQ(addresses("br_v12") + hosts() + calls(), "") << entry;
    }
    BaseIfaceInfo* lan = nullptr;
    EXPECT_EQ(create_INFO(&lan, 2, "br_v12", "/p", json("{'A':1}")), NM_ERR_NO_SECTION);
    EXPECT_EQ(create_INFO(nullptr, 2, "br_v12", "/p", document(kStatic)), NM_ERR_NULL_ARG);
    EXPECT_EQ(create_INFO(&lan, 3, "br_v12", "/p", document(kStatic)), NM_ERR_BAD_TYPE);
}

TEST_F(LanAddress, IsAlteredFromWhatIsStored) {
    const StandIn units("/usr/bin/systemctl");
    const Device device("br_v12");
    const std::string dhcp = "'IP4_TYPE':'DHCP'";
    // Stored and new type, and what the client is told.
    const std::tuple<std::string, std::string, const char*, std::string> cases[] = {
        {dhcp, dhcp, "mode: 2", ""},
        {dhcp, kStatic, "mode: 0", "192.168.12.1/24 "},
        {kStatic, "'IP4_TYPE':'STATIC','IP4_ADDR':'192.168.13.1'", "", "192.168.13.1/24 "}};
    for (const auto& [before, after, mode, address] : cases) {
        put(kDeviceInfoPath, nm::write_compact_json(document(before)));
        EXPECT_EQ(info(before).add_info(OPT_IP4), 0);
        (void)calls();
        const LogTail log;
        EXPECT_EQ(info(after).alt_info(OPT_IP6 | OPT_IP6_SERVICE), 0) << "IPv4 is not what changed";
        EXPECT_EQ(calls(), "");
        EXPECT_EQ(info(after).alt_info(OPT_IP4), 0);
        EXPECT_TRUE(log.has(mode)) << before << after;
        EXPECT_EQ(addresses("br_v12"), address) << before << after;
        const std::string all = calls();
        EXPECT_EQ(all.find("<start> <nm-dhclient@br_v12.service>") != std::string::npos, after == dhcp);
        EXPECT_EQ(all.find("<stop> <nm-dhclient@br_v12.service>") != std::string::npos, *mode != '\0');
        (void)info(after).del_info(0);
    }
    put(kDeviceInfoPath, nm::write_compact_json(document(kStatic, "other")));
    EXPECT_EQ(info(kStatic).alt_info(OPT_IP4), NM_ERR_NO_SECTION);
}

TEST_F(LanAddress, IsTheRouterOfTheDhcpServer) {
    const StandIn units("/usr/bin/systemctl");
    const Device device("br_v12");
    const std::string conf = "/etc/networkmanagement/dhcp/dhcpd_br_v12.conf";
    put("/etc/networkmanagement/dhcp_service.json",
        quoted("{'DHCP_SERVICE':{'br_v12':{'SERVICE':'SERVER','START_IP':'192.168.12.10',"
               "'END_IP':'192.168.12.20','LEASE_TIME':'600'}}}"));
    EXPECT_EQ(info(kStatic).add_info(OPT_IP4 | OPT_NO_DHCP_REFRESH), 0);
    EXPECT_EQ(calls().find("systemctl"), std::string::npos);
    EXPECT_EQ(info(kStatic).add_info(OPT_IP4), 0);
    EXPECT_NE(slurp(conf).find("option routers 192.168.12.1;"), std::string::npos);
    EXPECT_EQ(info(kStatic).del_info(0), 0);
    EXPECT_NE(calls().find("<stop> <nm-dhcpd@br_v12.service>"), std::string::npos);
    EXPECT_FALSE(fs::exists(conf));
}

TEST_F(LanAddress, OfTheManagementIsOnItsPortWhateverTheType) {
    const std::string mgmt = R"(_addr {"addr":"198.18.254.1"})";
    EXPECT_EQ(info("'IP4_TYPE':'DISABLED'", "swdev8").setup_mgmt_ip(1), NM_ERR_NO_IFACE);
    const Device device("swdev8");
    LanIfaceInfo lan = info("'IP4_TYPE':'DISABLED'", "swdev8");
    EXPECT_EQ(lan.add_info(OPT_IP4), 0);
    EXPECT_EQ(addresses("swdev8"), "198.18.254.1/30 ");
    EXPECT_EQ(hosts(), "198.18.254.1  sandbox  sandbox  #swdev8:0;198.18.254.1  local.appliance;");
    EXPECT_EQ(lan.del_info(OPT_IP4), 0);
    EXPECT_EQ(addresses("swdev8") + hosts(), "");
    EXPECT_EQ(FakeService::take_calls(), (Calls{"DnsmasqMgr.Add" + mgmt, "DnsmasqMgr.Del" + mgmt}));
}

TEST_F(LanAddress, OfGuestsIsKeptApart) {
    run("for t in iptables ip6tables; do $t -N GUESTFORWARD; done; ipset create lan list:set");
    const auto rules = [] {
        return exec(
            "for t in iptables ip6tables; do for w in 'i br_v12.* dst' 'o br_v12.* src'; do "
            "$t -S GUESTFORWARD | grep -c -- \"-$w -j DROP\"; done; done | xargs");
    };
    const std::string open = "'IP4_TYPE':'DISABLED'";
    const std::string guest = open + ",'ACCESS_TO_LOCAL':'FALSE'";
    EXPECT_EQ(info(guest).add_info(OPT_LINK), 0);
    EXPECT_EQ(rules(), "1 1 1 1\n");
    EXPECT_EQ(info(guest).disable_access_to_local() + info(open).del_info(31), 0);
    EXPECT_EQ(rules(), "2 2 2 2\n") << "equal rules are not looked for, and who has access has none";
    EXPECT_EQ(info(guest).enable_access_to_local(), 0);
    EXPECT_EQ(rules(), "0 0 0 0\n") << "every copy keeps the segment apart";
    EXPECT_EQ(info(guest).enable_access_to_local(), 1);
    EXPECT_EQ(info(guest).add_info(OPT_LINK) + info(guest).del_info(0), 0);
    EXPECT_EQ(rules(), "0 0 0 0\n");
    const nm::RunScope run;
    EXPECT_EQ(info(guest).disable_access_to_local() + info(guest).disable_access_to_local(), 0);
    EXPECT_EQ(rules(), "1 1 1 1\n") << "a run does look for them, as they are now";
    EXPECT_EQ(info(guest).enable_access_to_local() + info(guest).enable_access_to_local(), 1);
    EXPECT_EQ(rules(), "0 0 0 0\n");
    EXPECT_GT(info(guest, "a;touch /tmp/hit").disable_access_to_local(), 0);
    EXPECT_EQ(info(guest, "a\nb").disable_access_to_local(), NM_ERR_BAD_FORMAT);
    EXPECT_FALSE(fs::exists("/tmp/hit"));
}

}  // namespace
