// The addressing side of the routed kinds: what an entry becomes, which steps run, and what is in force.

#include "fake_pppoe.h"
#include "golden.h"
#include "interfaces/uplink/available_info.h"

using namespace fixture;

namespace {

/// Remembers the steps; the one that is told to fails.
struct Uplink : BaseWanIfaceInfo {
    using BaseWanIfaceInfo::BaseWanIfaceInfo;
    int step(const char* name) {
        steps += name;
        return failing == name ? -77 : 0;
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
        return portname + testing::PrintToString(std::tuple(id_, run_ifname, ip4_prefix, ip4_dns));
    }
    std::string steps;
    std::string failing;
};

TEST(UplinkEntry, IsFoundAndReadOrHasItsCode) {
    session = {};
    const std::string wan = golden("entries").toStyledString();
    const File stored("/etc/networkmanagement/stored.json", wan);
    const std::tuple<int, const char*, fs::path, std::string, int, const char*> cases[] = {
        {KIND_WAN, "swdev10", "/p", wan, 0, R"(PORT10(7, "swdev10", 16, { "a", "b" }))"},
        {KIND_WAN, "swdev1.7", stored.path, "{}", 0, R"(PORT1(1, "swdev1.7", 24, {}))"},
        {KIND_WAN, "swdev10.6", "/p", wan, 0, R"(PORT10(10, "ppp-swdev10.6", 0, {}))"},
        {KIND_WAN, "", "/p", wan, NM_ERR_NULL_ARG, ""},
        {KIND_WAN, "swdev10", "/p", "null", NM_ERR_NOT_FOUND, ""},
        {KIND_RGLINK, "swdev10", "/p", wan, NM_ERR_NO_SECTION, ""},
        {KIND_WAN, "eth0", "/p", wan, NM_ERR_NO_IFACE, ""},
        {KIND_WAN, "swdev10.5", "/p", wan, NM_ERR_BAD_FORMAT, ""},
        {9, "swdev10", "/p", wan, NM_ERR_BAD_TYPE, ""}};
    for (const auto& [kind, ifname, path, cfg, code, facts] : cases) {
        try {
            EXPECT_EQ(Uplink(kind, ifname, path, json(cfg)).facts(), facts);
            EXPECT_EQ(0, code) << ifname;
        } catch (int thrown) {
            EXPECT_EQ(thrown, code) << ifname << cfg;
        }
    }
}

TEST(UplinkSetup, RunsTheStepsThatItsKindHas) {
    constexpr uint32_t kAll = ~0U;
    const std::tuple<int, const char*, uint32_t, const char*, const char*, int> cases[] = {
        {KIND_WAN, "DHCP", kAll & ~7U, "", "", 0}, {KIND_WAN, "PPPOE", OPT_LINK | OPT_IP6, "", "6p", 0},
        {KIND_WAN, "PPPOE", kAll, "", "46", 0},    {KIND_WAN, "STATIC", OPT_LINK, "", "", 0},
        {KIND_WAN, "DHCP", kAll, "4", "4", -77},   {KIND_WAN, "PPPOE", OPT_LINK | OPT_IP6, "6", "6", -77},
        {KIND_PRIVATE, "PPPOE", kAll, "", "4", 0}, {KIND_PRIVATE, "PPPOE", OPT_LINK | OPT_IP6, "", "", 0},
        {KIND_RGLINK, "PPPOE", kAll, "", "4", 0},  {KIND_RGLINK, "PPPOE", OPT_LINK | OPT_IP6, "", "p", 0}};
    for (const auto& [kind, type, opt, failing, steps, code] : cases) {
        std::string cfg =
            "{'@_PORT':{'P':{'INTERFACE':'a','DEV_TYPE':'virtio'},'Q':{'INTERFACE':'b'}},"
            "'@_IFACE_INFO':{'a':{'IP4_TYPE':'" +
            std::string(type) + "'},'b':{'ID':'1'}}}";
        for (size_t at = 0; (at = cfg.find('@')) != cfg.npos;) {
            cfg.replace(at, 1, std::array{"WAN", "PRIVATE", "RGLINK"}.at(kind - KIND_WAN));
        }
        Uplink uplink(kind, "a", "/p", json(cfg));
        uplink.failing = failing;
        EXPECT_EQ(uplink.setup_info(opt), code) << kind << type << opt;
        EXPECT_EQ(uplink.steps, steps) << kind << type << opt;
        EXPECT_EQ(Uplink(kind, "b", "/p", json(cfg)).setup_info(opt), NM_ERR_BAD_TYPE);
    }
}

TEST(Status, IsWhatIsInForce) {
    const LogTail log;
    const Device up("swdev1", true, "far1");
    const Device leased("swdev2", false, "far2");
    const Device dialled("ppp-swdev3", false, "far3");
    run("ip addr add 203.0.113.5/28 dev swdev1; ip addr add 198.51.100.7 dev ppp-swdev3");
    const File leases("/etc/networkmanagement/dhclient/swdev2.leases",
                      "lease {\n  fixed-address 10.0.0.9;\n  option routers 10.0.0.1;\n}\n");
    const File document("/etc/networkmanagement/status.json", golden("status").toStyledString());
    std::vector<available_base_wan_status> wans;
    EXPECT_EQ(get_available_wan_info(wans, "/absent", 0), NM_ERR_NOT_FOUND);
    const auto show = [&](int comprehensive) {
        EXPECT_EQ(get_available_wan_info(wans, document.path, comprehensive), 0);
        std::string text;
        for (const Json::Value& record : nm::status_json(wans, comprehensive != 0)) {
            for (const char* key : {"ID", "PORT_NAME", "INTERFACE", "IFNAME", "UP", "IP4_TYPE", "IP4_ADDR",
                                    "IP4_PREFIX", "IP4_GW", "IP4_DNS"}) {
                text += nm::show_json(record[key]) + " ";
            }
            text += nm::show_json(record["IP6_GW"]) + "\n";
        }
        return text;
    };
    session = {1, {42, "ppp-swdev3", "198.51.100.7", "g3", "9.9.9.9", ""}};
    EXPECT_EQ(show(1), R"(7 PORT1 swdev1 swdev1 true STATIC 203.0.113.5 28 g1 ["1.1.1.1"] 
2 PORT2 swdev2 swdev2 false DHCP  0  [] 
3 PORT3 swdev3 ppp-swdev3 true PPPOE 198.51.100.7 32 g3 ["9.9.9.9"] ::1
4 PORT4 swdev4 ppp-swdev4 true PPPOE  0  [] 
)");
    EXPECT_EQ(std::to_string(wans.at(0).ifindex) + " 42",
              fact("swdev1", "ifindex") + " " + std::to_string(wans[3].ifindex));
    DHCP_INFO lease{};
    EXPECT_EQ(cast_ppp_cfg_into_dhcp_info("swdev3", lease), 0);
    EXPECT_EQ(std::string(lease.ip) + lease.netmask + lease.gateway, "198.51.100.7255.255.255.255g3");
    session = {};
    run("ip addr add 10.0.0.9/24 dev swdev2");
    const std::string text = show(0);
    EXPECT_TRUE(text.find(" DHCP 10.0.0.9 24 10.0.0.1 null ") != text.npos) << text;
    EXPECT_TRUE(text.find(" false PPPOE 198.51.100.7 32  null ::1") != text.npos) << text;
    EXPECT_TRUE(log.has("swdev3 get pppoe status failed.") && log.has("eth9 has no status, ret=-1002"));
}

}  // namespace
