// The addressing side of the routed kinds: what an entry becomes, which steps a mask runs, and what is in
// force.
#include <memory>
#include <tuple>

#include "config/actions.h"
#include "fake_pppoe.h"
#include "interfaces/available_info.h"
#include "result_codes.h"
#include "sandbox_fixture.h"

using namespace fixture;

namespace {

/// Remembers the steps; the one that is told to fails.
struct Uplink : BaseWanIfaceInfo {
    using BaseWanIfaceInfo::BaseWanIfaceInfo;
    explicit Uplink(const std::string& entry, int kind = KIND_WAN,
                    const std::string& port = "'DEV_TYPE':'ethernet'")
        : BaseWanIfaceInfo(kind, "swdev1", "/p",
                           json("{'" + word(kind) + "_PORT':{'PORT3':{'INTERFACE':'swdev1'," + port + "}},'" +
                                word(kind) + "_IFACE_INFO':{'swdev1':{" + entry + "}}}")) {}
    static std::string word(int kind) {
        return kind == KIND_WAN ? "WAN" : kind == KIND_PRIVATE ? "PRIVATE" : "RGLINK";
    }
    int step(const std::string& name) {
        steps += name;
        return name == failing ? -77 : 0;
    }
    int add_info(uint32_t) override { return 0; }
    int alt_info(uint32_t) override { return 0; }
    int del_info(uint32_t) override { return 0; }
    int dhcp_source_route_cb(DHCP_INFO&, std::string&) override { return 0; }
    int disable_ipv4(int) override { return 0; }
    int setup_ipv4(uint32_t) override { return step("4"); }
    int setup_ipv4_dhcp(int) override { return 0; }
    int setup_ipv4_static() override { return 0; }
    int setup_pppoe(uint32_t) override { return step("p"); }
    int setup_ipv6(uint32_t) override { return step("6"); }

    std::string facts() {
        return std::to_string(id_) + " " + portname + " " + dev_type + " " + iface_type + " " + run_ifname +
               " " + ip4_type + " " + ip4_addr + "/" + std::to_string(ip4_prefix) + " " + ip4_gw + " " +
               std::to_string(ip4_dns.size()) + " " + ip6_type + " " + ip6_addr + "/" +
               std::to_string(ip6_prefix) + " " + ip6_gw + " " + std::to_string(ip6_dns.size()) + " " +
               username + ":" + password + " " + std::to_string(int{dhcp6_pd});
    }
    std::string steps;
    std::string failing;
};

TEST(UplinkEntry, HasADefaultForEveryKey) {
    session = {};
    const std::map<std::string, std::string> cases{
        {"'MORE':1", "3 PORT3 ethernet ethernet swdev1  /24  0  /0  0 : 0"},
        {"'ID':'7','IFACE_TYPE':'lte','IP4_TYPE':'STATIC','IP4_ADDR':'1.2.3.4','IP4_PREFIX':'16','IP4_GW':'g'"
         ","
         "'IP4_DNS':['a',5,null,'b'],'IP6_TYPE':'SLAAC','IP6_ADDR':'::2','IP6_PREFIX':'64','IP6_GW':'h',"
         "'IP6_DNS':['c'],'USERNAME':'u','PASSWORD':'p','IP6_DHCP_PD':'ENABLED'",
         "7 PORT3 ethernet lte swdev1 STATIC 1.2.3.4/16 g 2 SLAAC ::2/64 h 1 u:p 1"},
        {"'ID':'0','IP4_TYPE':'PPPOE','IP4_PREFIX':'x','IP4_DNS':'a','IP6_DNS':{'a':'b'},'IP6_DHCP_PD':'on'",
         "3 PORT3 ethernet ethernet ppp-swdev1 PPPOE /0  0  /0  0 : 0"}};
    for (const auto& [entry, expected] : cases) {
        EXPECT_EQ(Uplink(entry).facts(), expected) << entry;
    }
}

TEST(UplinkEntry, IsFoundOrHasItsCode) {
    const std::string ports =
        "{'WAN_PORT':{'PORT1':{'INTERFACE':'swdev1'},'PORT10':{'INTERFACE':'swdev10'},'PORT2':"
        "{'INTERFACE':''}},'WAN_IFACE_INFO':{'swdev10':{'ID':''},'swdev1.7':{'x':1},'eth0':{'x':1},"
        "'swdev1':{},'swdev10.5':'text'}}";
    const File stored("/etc/networkmanagement/stored.json", quoted(ports));
    const std::tuple<int, const char*, fs::path, std::string, int, const char*> cases[] = {
        {KIND_WAN, "swdev10", "/p", ports, 0, "PORT10"},
        {KIND_WAN, "swdev1.7", stored.path, "{}", 0, "PORT1"},
        {KIND_WAN, "", "/p", ports, NM_ERR_NULL_ARG, ""},
        {KIND_WAN, "swdev10", "", ports, NM_ERR_NULL_ARG, ""},
        {KIND_WAN, "swdev10", "/p", "null", NM_ERR_NOT_FOUND, ""},
        {KIND_WAN, "swdev1", "/p", ports, NM_ERR_NO_SECTION, ""},
        {KIND_WAN, "swdev9", "/p", ports, NM_ERR_NO_SECTION, ""},
        {KIND_RGLINK, "swdev10", "/p", ports, NM_ERR_NO_SECTION, ""},
        {KIND_WAN, "eth0", "/p", ports, NM_ERR_NO_IFACE, ""},
        {KIND_WAN, "swdev10.5", "/p", ports, NM_ERR_BAD_FORMAT, ""},
        {KIND_WAN, "a", "/p", "{'WAN_IFACE_INFO':{'a':{'x':1}},'WAN_PORT':{}}", NM_ERR_NO_SECTION, ""},
        {KIND_WAN, "a", "/p", "{'WAN_IFACE_INFO':[],'WAN_PORT':'a'}", NM_ERR_NO_SECTION, ""},
        {9, "swdev10", "/p", ports, NM_ERR_BAD_TYPE, ""}};
    for (const auto& [kind, ifname, path, cfg, code, port] : cases) {
        int thrown = 0;
        std::string found;
        try {
            found = Uplink(kind, ifname, path, json(cfg)).get_portname();
        } catch (int failure) {
            thrown = failure;
        }
        EXPECT_EQ(thrown, code) << ifname << cfg;
        EXPECT_EQ(found, port) << ifname << cfg;
    }
}

TEST(UplinkSetup, RunsTheStepsThatItsKindHas) {
    constexpr uint32_t kAll = ~0U;
    const std::tuple<int, const char*, uint32_t, const char*, const char*, int> cases[] = {
        {KIND_WAN, "DHCP", kAll, "", "46", 0},        {KIND_WAN, "PPPOE", OPT_LINK | OPT_IP6, "", "6p", 0},
        {KIND_WAN, "PPPOE", kAll, "", "46", 0},       {KIND_WAN, "STATIC", OPT_LINK, "", "", 0},
        {KIND_WAN, "DHCP", kAll, "4", "4", -77},      {KIND_WAN, "PPPOE", OPT_LINK | OPT_IP6, "6", "6", -77},
        {KIND_WAN, "PPPOE", OPT_LINK, "p", "p", -77}, {KIND_WAN, "DHCP", kAll & ~7U, "", "", 0},
        {KIND_PRIVATE, "PPPOE", kAll, "", "4", 0},    {KIND_PRIVATE, "PPPOE", OPT_LINK | OPT_IP6, "", "", 0},
        {KIND_RGLINK, "PPPOE", kAll, "", "4", 0},     {KIND_RGLINK, "PPPOE", OPT_LINK | OPT_IP6, "", "p", 0}};
    for (const auto& [kind, type, opt, failing, steps, code] : cases) {
        Uplink uplink("'IP4_TYPE':'" + std::string(type) + "'", kind);
        uplink.failing = failing;
        EXPECT_EQ(uplink.setup_info(opt), code) << kind << type << opt;
        EXPECT_EQ(uplink.steps, steps) << kind << type << opt;
    }
    EXPECT_EQ(Uplink("'IP4_TYPE':'DHCP'", KIND_WAN, "'MTU':'1500'").setup_info(kAll), NM_ERR_BAD_TYPE);
}

TEST(Uplink, KnowsWhatItWasGiven) {
    const File leases("/etc/networkmanagement/dhclient/swdev1.leases",
                      "lease {\n  fixed-address 10.0.0.9;\n  option routers 10.0.0.1;\n}\n");
    session = {1, {42, "ppp-swdev1", "198.51.100.7", "198.51.100.1", "9.9.9.9", ""}};
    const LogTail log;
    Uplink dialled("'IP4_TYPE':'PPPOE'");
    EXPECT_EQ(dialled.get_ifindex(), 42);
    EXPECT_TRUE(log.has("ppp runtime ifindex: 42"));
    const std::map<std::string, std::string> gateways{{"STATIC", "203.0.113.1"},
                                                      {"DHCP", "10.0.0.1"},
                                                      {"PPPOE", "198.51.100.1"},
                                                      {"DISABLED", ""},
                                                      {"", ""}};
    for (const auto& [type, gateway] : gateways) {
        Uplink uplink("'IP4_GW':'203.0.113.1','IP4_TYPE':'" + type + "'");
        DHCP_INFO lease{"junk", "", "", "", "", ""};
        EXPECT_EQ(uplink.get_curr_gw(), gateway) << type;
        EXPECT_EQ(uplink.get_dhcp_info(lease), type == "DHCP" ? 0 : NM_ERR_BAD_TYPE) << type;
        EXPECT_STREQ(lease.ip, type == "DHCP" ? "10.0.0.9" : "") << type;
    }
    session = {};
    fs::remove(leases.path);
    EXPECT_EQ(Uplink("'IP4_TYPE':'PPPOE'").get_ifindex(), 0);
    EXPECT_EQ(Uplink("'IP4_TYPE':'PPPOE'").get_curr_gw() + Uplink("'IP4_TYPE':'DHCP'").get_curr_gw(), "");
    for (const char* words : {"ppp-swdev1 get ifindex failed.", "swdev1 get pppoe status failed.",
                              "swdev1 get DHCP info fail.", "swdev1 get dhcp info failed."}) {
        EXPECT_TRUE(log.has(words)) << words;
    }
    const std::map<std::string, int> codes{
        {"DHCPV6", NM_ERR_NOT_FOUND}, {"SLAAC", NM_ERR_NOT_FOUND}, {"STATIC", NM_ERR_BAD_TYPE}};
    for (const auto& [type, code] : codes) {
        DHCP6_INFO lease{"junk", "", "", "", ""};
        EXPECT_EQ(Uplink("'IP6_TYPE':'" + type + "'").get_dhcp6_info(lease), code) << type;
        EXPECT_STREQ(lease.address, "") << type;
    }
}

TEST(Status, IsWhatIsInForce) {
    session = {1, {42, "ppp-swdev3", "198.51.100.7", "198.51.100.1", "9.9.9.9", "8.8.8.8"}};
    const Device up("swdev1", true, "far1");
    const Device leased("swdev2", false, "far2");
    const Device dialled("ppp-swdev3", true, "far3");
    run("ip addr add 203.0.113.5/28 dev swdev1; ip addr add 198.51.100.7/32 dev ppp-swdev3");
    const std::string lease = "lease {\n  fixed-address 10.0.0.9;\n  option routers 10.0.0.1;\n}\n";
    const File leases("/etc/networkmanagement/dhclient/swdev2.leases", lease);
    const File document("/etc/networkmanagement/status.json",
                        quoted(R"({'WAN_PORT':{'PORT1':{'INTERFACE':'swdev1'},
        'PORT2':{'INTERFACE':'swdev2'},'PORT3':{'INTERFACE':'swdev3'}},'WAN_IFACE_INFO':{'eth9':{'IP4_TYPE':'DHCP'},
        'swdev1':{'ID':'7','IP4_TYPE':'STATIC','IP4_ADDR':'203.0.113.4','IP4_GW':'203.0.113.1','IP4_DNS':['1.1.1.1']},
        'swdev2':{'IP4_TYPE':'DHCP','IP6_TYPE':'SLAAC'},'swdev3':{'IP4_TYPE':'PPPOE','IP6_TYPE':'PPPOEV6'}}})"));
    const std::string no_ip6 = "'IP6_ADDR':'','IP6_GW':'','IP6_PREFIX':0,";
    const auto expected = [&](const char* gateway, int prefix, const std::string& address) {
        return json(
            "[{'ID':7,'PORT_NAME':'PORT1','INTERFACE':'swdev1','IFNAME':'swdev1','UP':true,'IP4_TYPE':'"
            "STATIC',"
            "'IP4_ADDR':'203.0.113.5','IP4_PREFIX':28,'IP4_GW':'203.0.113.1'," +
            no_ip6 +
            "'IP6_TYPE':''},"
            "{'ID':2,'PORT_NAME':'PORT2','INTERFACE':'swdev2','IFNAME':'swdev2','UP':false,'IP4_TYPE':'DHCP',"
            "'IP4_ADDR':'" +
            address + "','IP4_PREFIX':" + std::to_string(prefix) + ",'IP4_GW':'" + gateway + "'," + no_ip6 +
            "'IP6_TYPE':'SLAAC'},"
            "{'ID':3,'PORT_NAME':'PORT3','INTERFACE':'swdev3','IFNAME':'ppp-swdev3','UP':true,'IP4_TYPE':'"
            "PPPOE',"
            "'IP4_ADDR':'198.51.100.7','IP4_PREFIX':32,'IP4_GW':'198.51.100.1'," +
            no_ip6 + "'IP6_TYPE':'PPPOEV6'}]");
    };
    std::vector<available_base_wan_status> wans(9);
    EXPECT_EQ(get_available_wan_info(wans, "/absent", 0), NM_ERR_NOT_FOUND);
    EXPECT_EQ(wans.size(), 9U);
    const std::tuple<const char*, const char*, int, const char*> states[] = {
        {"true", "", 0, ""}, {"ip addr add 10.0.0.9/24 dev swdev2", "10.0.0.1", 24, "10.0.0.9"}};
    for (const auto& [change, gateway, prefix, address] : states) {
        run(change);
        EXPECT_EQ(get_available_wan_info(wans, document.path, 0), 0);
        Json::Value list = nm::status_json(wans, false);
        for (const int row : {0, 1, 2}) {
            list[row].removeMember("IFINDEX");
            EXPECT_EQ(std::to_string(wans[row].ifindex), fact(wans[row].ifname, "ifindex"));
        }
        EXPECT_EQ(list, expected(gateway, prefix, address)) << list;
    }
    EXPECT_EQ(get_available_wan_info(wans, document.path, 1), 0);
    const Json::Value list = nm::status_json(wans, true);
    EXPECT_EQ(list[0]["IP4_DNS"], json("['1.1.1.1']"));
    EXPECT_EQ(list[1]["IP4_DNS"], Json::arrayValue);
    EXPECT_EQ(list[2]["IP4_DNS"], json("['9.9.9.9','8.8.8.8']"));
}

}  // namespace
