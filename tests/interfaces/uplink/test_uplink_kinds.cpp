// Private ports and RGLinks where they differ from WAN ports: what they refuse, whom they tell what, and what
// becomes of sessions. What all kinds do alike is in test_wan_info.cpp and in tests/system.
#include <vpppoe.h>

#include "fake_pppoe.h"
#include "fake_service.h"
#include "golden.h"
#include "kernel_world.h"
#include "networkinterface.h"
#include "stand_in.h"

using namespace kernel_world;

// The rest of the dialler is in test_wan_info.cpp.
static int start_says = 0;
extern "C" int start_interface_pppoe(const char* ifname) {
    FakeService::note(std::string("pppoe.start ") + ifname);
    return start_says;
}

namespace {

const std::string kFine = R"({"error":0,"data":{"error":0}})";
const std::string kPath = "/new/path";
const std::string kStatic = "'IP4_TYPE':'STATIC','IP4_ADDR':'192.0.2.3','IP4_GW':'192.0.2.1'";
const std::string kPppoe = "'IP4_TYPE':'PPPOE','USERNAME':'me','PASSWORD':'canary'";
const std::string kPort =
    "'INTERFACE':'swdev3','DEV_TYPE':'virtio','RX_RATE':'300','TX_RATE':'200','PRIVATE_GROUP_ID':'g'";

std::string document(const std::string& kind, const std::string& info, const std::string& port = kPort) {
    return "{'" + kind + "_PORT':{'PORT3':{" + port + "}},'" + kind + "_IFACE_INFO':{'swdev3':{" + info +
           "}}}";
}

/// Commands and peers that only record, the device swdev3 that is down, and no session.
struct UplinkKinds : testing::Test {
    UplinkKinds() {
        session = {};
        start_says = 0;
        fs::create_directories("/etc/vpppoe/env");
        put("/etc/hosts", "127.0.0.1 localhost\n");
        (void)del_interface_pppoe_cfg("swdev3");
        FakeService::take_calls();
    }
    /// The calls since the last to these services, or to all of them, without their names.
    static Calls told(const Lines& services = {"nm-hmgr.", "VelanWmd.", "VelanWsd.service.", "pppoe."}) {
        return FakeService::take_calls(services);
    }
    static PrivateIfaceInfo circuit(const std::string& info, const std::string& port = kPort) {
        return {"swdev3", kPath, json(document("PRIVATE", info, port))};
    }
    static RGLinkIfaceInfo link(const std::string& info) {
        return {"swdev3", kPath, json(document("RGLINK", info))};
    }

    const Device device{"swdev3"};
    const StandIn sets{"/usr/sbin/firewall.sh"}, dpi{"/usr/sbin/network-dpi.sh"}, units{"/usr/bin/systemctl"};
    const FakeService ncaas{"ncaas", {{"get_devid", R"({"error":0,"data":1})"}}};
    const FakeService wsd{"VelanWsd.service", {{"Setup_PRIVATE", kFine}, {"Setup_RGLINK", kFine}}};
    const FakeService wmd{"VelanWmd", {{"Add_monitor_iface", kFine}, {"Del_monitor_iface", kFine}}};
    const FakeService health{"nm-hmgr",
                             {{"AddPrivate", kFine},
                              {"AddDomainLink", "no JSON"},
                              {"RemoveDomainLink", kFine},
                              {"UpdateRGLinkInfo", kFine}}};
    const File stored{kDeviceInfoPath};
};

TEST_F(UplinkKinds, AreMadeByNumberAndByName) {
    const LogTail log;
    const auto made = [](int number, const std::string& kind) {
        BaseIfaceInfo* created = nullptr;
        const int ret = create_INFO(&created, number, "swdev3", kPath, json(document(kind, kStatic)));
        const std::unique_ptr<BaseIfaceInfo> info(created);
        return ret != 0 ? ret
                        : 1 * (dynamic_cast<WanIfaceInfo*>(created) != nullptr) +
                              4 * (dynamic_cast<PrivateIfaceInfo*>(created) != nullptr) +
                              5 * (dynamic_cast<RGLinkIfaceInfo*>(created) != nullptr);
    };
    EXPECT_EQ((std::array{made(1, "WAN"), made(4, "PRIVATE"), made(5, "RGLINK"), made(3, "RGLINK"),
                          made(5, "PRIVATE")}),
              (std::array{1, 4, 5, NM_ERR_BAD_TYPE, NM_ERR_NO_SECTION}));
    PrivateInterface itf("PORT3", kPath, json(document("PRIVATE", kStatic)));
    RGLinkInterface rglink("PORT3", kPath, json(document("RGLINK", kStatic)));
    PrivateInterface* no_place = &itf;
    RGLinkInterface* no_place_either = &rglink;
    EXPECT_EQ(create_PRIVATE_ITF(&no_place, "PORT3.7", kPath, {}), NM_ERR_NOT_NULL);
    EXPECT_EQ(create_RGLINK(&no_place_either, "PORT3.7", kPath, {}), NM_ERR_NOT_NULL);
    EXPECT_TRUE(log.has("private interface is not NULL") && log.has("rglink is not NULL"));
    EXPECT_EQ(itf.get_pgid() + itf.get_ip4_type() + rglink.get_ip4_type(), "gSTATICSTATIC");
}

TEST(NewPorts, HaveTheDefaultsOfTheirKindAndModel) {
    const File ports("/etc/networkmanagement/hw_port_info.json", R"({"PORT3":{"INTERFACE":"lan7"}})");
    const Json::Value models = golden("default_uplinks");
    for (const std::string& model : models.getMemberNames()) {
        const LogTail log;
        EXPECT_EQ(generate_default_rglink_port("PORT3", model), models[model]) << model;
        EXPECT_EQ(log.has("Model [" + model + "] is not support!"), models[model].isNull()) << model;
        EXPECT_EQ(generate_default_private_port("PORT3", model), generate_default_wan_port("PORT3", model));
    }
    EXPECT_EQ(generate_default_private_port("PORT3", "VSola-321")["INTERFACE"], "lan7");
}

TEST_F(UplinkKinds, APrivatePortIsStaticOnly) {
    const LogTail log;
    PrivateIfaceInfo dynamic = circuit("'IP4_TYPE':'DHCP'"), dialled = circuit(kPppoe);
    EXPECT_EQ(dynamic.setup_info(15), NM_ERR_BAD_TYPE);
    EXPECT_EQ(dialled.add_info(15), NM_ERR_BAD_TYPE);
    EXPECT_EQ(dynamic.setup_ipv4_dhcp(1) + dynamic.setup_pppoe(4) + dynamic.setup_ipv6(2) +
                  dynamic.disable_ipv6(0) + dynamic.disable_ipv4(0) + dynamic.setup_ipsec(1, ""),
              0);
    EXPECT_EQ(dynamic.setup_tun(1), NM_ERR_BAD_TYPE);
    put(kDeviceInfoPath, quoted(document("PRIVATE", kStatic)));
    told();
    EXPECT_EQ(dialled.alt_info(OPT_LINK), 0);
    EXPECT_EQ(told(), Calls{}) << "without sessions the link settings take nothing down";
    EXPECT_TRUE(log.has("No such ip4_type: DHCP") && log.has("No such ip4_type: PPPOE") &&
                log.has("Wrong type for setting up tunnel, type: DHCP"));
    EXPECT_EQ(StandIn::take().find("dhclient"), std::string::npos);
}

TEST_F(UplinkKinds, APrivatePortIsKnownByAllOfItsLink) {
    const std::string no_device = "'INTERFACE':'swdev3','MTU':['1']";
    const std::string no_rate = "'INTERFACE':'swdev3','DEV_TYPE':'virtio'";
    const std::string whole = R"({"bandwidth":200,"gateway":"192.0.2.1","ifname":"swdev3","type":"PRIVATE"})";
    const std::string gateless = R"({"bandwidth":200,"gateway":"","ifname":"swdev3","type":"PRIVATE"})";
    const std::string rateless = R"({"gateway":"192.0.2.1","ifname":"swdev3","type":"PRIVATE"})";
    const std::tuple<std::string, std::string, int, int, Calls> cases[] = {
        {kStatic, kPort, 1, 0, {"Add_monitor_iface " + whole}},
        {kStatic, kPort, 0, 0, {"Del_monitor_iface " + whole}},
        {kStatic, no_rate, 1, NM_ERR_NO_IFACE, {}},
        {kStatic, no_device, 1, NM_ERR_NO_IFACE, {}},
        {kStatic, no_device, 0, 0, {"Del_monitor_iface " + rateless}},
        {"'IP4_TYPE':'DISABLED'", kPort, 1, NM_ERR_BAD_TYPE, {}},
        {"'IP4_TYPE':'DISABLED'", kPort, 0, 0, {"Del_monitor_iface " + gateless}},
        {"'IP4_TYPE':'STATIC'", kPort, 1, NM_ERR_BAD_IP, {}},
        {"'IP4_TYPE':'STATIC'", kPort, 0, 0, {"Del_monitor_iface " + gateless}}};
    for (const auto& [info, port, on, code, calls] : cases) {
        EXPECT_EQ(circuit(info, port).setup_private_monitor(on), code) << info << port << on;
        EXPECT_EQ(told(), calls) << info << port << on;
    }
    const LogTail log;
    EXPECT_EQ(circuit(kStatic, no_device).setup_hmgr(1), NM_ERR_NO_IFACE);
    EXPECT_EQ(told(), Calls{});
    EXPECT_TRUE(log.has("Get PrivateInterface failed.") && log.has("Get bandwidth failed.") == false);
    EXPECT_EQ(circuit(kStatic).setup_hmgr(1), 0);
    EXPECT_EQ(told(), Calls{R"(AddPrivate {"info":{"IFNAME":"swdev3","IP4_ADDR":"192.0.2.3",)"
                            R"("IP4_GW":"192.0.2.1","IP4_PREFIX":24,"PRIVATE_GROUP_ID":"g","RX_RATE":300,)"
                            R"("TX_RATE":200},"portname":"PORT3"})"});
    EXPECT_NE(circuit(kStatic).setup_hmgr(0), 0) << "nobody answers to this method";
}

TEST_F(UplinkKinds, AnRGLinkTellsItsAddress) {
    const File leases("/etc/networkmanagement/dhclient/swdev3.leases",
                      "lease {\n  fixed-address 192.0.2.9;\n  option subnet-mask 255.255.255.128;\n}\n");
    const auto call = [](const std::string& address, int prefix) {
        return Calls{R"(UpdateRGLinkInfo {"ip4_addr":")" + address + R"(","ip4_prefix":)" +
                     std::to_string(prefix) + R"(,"portname":"PORT3"})"};
    };
    const std::tuple<std::string, int, bool, int, Calls, const char*> cases[] = {
        {kStatic + ",'IP4_PREFIX':'29'", 1, false, 0, call("192.0.2.3", 29), ""},
        {kStatic, 0, false, 0, call("", 0), ""},
        {"'IP4_TYPE':'DHCP'", 1, false, 0, call("192.0.2.9", 25), ""},
        {kPppoe, 1, true, 0, call("192.0.2.77", 32), ""},
        {kPppoe, 1, false, kNoSession - 1702, {}, "swdev3 failed to get PPPoE info!"},
        {"'IP4_TYPE':'DISABLED'", 1, true, NM_ERR_BAD_TYPE, {}, "bad IPv4_TYPE DISABLED"}};
    for (const auto& [info, on, runs, code, calls, words] : cases) {
        const LogTail log;
        session = {};
        session.running = runs ? 1 : 0;
        runs ? void(std::string("192.0.2.77").copy(session.cfg.ip4_addr, 16)) : void();
        const int ret = link(info).update_ip_info(on);
        EXPECT_EQ(code == 0, ret == 0) << info << ret;
        EXPECT_EQ(told(), calls) << info;
        EXPECT_TRUE(log.has(words)) << words;
    }
    session = {};
    fs::remove(leases.path);
    const LogTail log;
    EXPECT_LT(link("'IP4_TYPE':'DHCP'").update_ip_info(1), 0);
    EXPECT_TRUE(log.has("swdev3 failed to get DHCP info!"));
    DHCP_INFO lease{"192.0.2.9", "255.255.255.128", "", "", "192.0.2.1", ""};
    std::string act = "add";
    run("ip link set far up && ip link set swdev3 up && ip addr add 192.0.2.9/25 dev swdev3");
    EXPECT_EQ(link("'IP4_TYPE':'DHCP'").dhcp_source_route_cb(lease, act), 0);
    EXPECT_EQ(told().back(), call("192.0.2.9", 25).front()) << "a client writes its lease down later";
    std::string("255.255.255.x").copy(lease.netmask, sizeof(lease.netmask));
    EXPECT_EQ(link("'IP4_TYPE':'DHCP'").dhcp_source_route_cb(lease, act), NM_ERR_BAD_IP);
    EXPECT_EQ(told().back().rfind("UpdateRGLinkInfo", 0), std::string::npos) << "a code is no prefix";
    // All of a document; one that cannot be told does not keep the others from it.
    Json::Value links = json(document("RGLINK", kStatic));
    links["RGLINK_IFACE_INFO"]["eth0"] = json("{'IP4_TYPE':'STATIC'}");
    const File several("/etc/networkmanagement/links.json", nm::write_compact_json(links));
    told();
    EXPECT_EQ(update_rglink_info(several.path), NM_ERR_NO_IFACE);
    EXPECT_EQ(told(), call("192.0.2.3", 24));
    EXPECT_EQ(update_rglink_info("/absent"), NM_ERR_NOT_FOUND);
    std::vector<available_base_wan_status> records;
    EXPECT_EQ(get_available_rglink_info(records, several.path, 1), 0);
    EXPECT_EQ(records.size() == 1 ? records[0].portname + records[0].ip4.gw : "", "PORT3192.0.2.1");
    EXPECT_EQ(get_available_private_info(records, several.path, 0) + static_cast<int>(records.size()), 0);
    EXPECT_EQ(get_available_rglink_info(records, "/absent", 0), NM_ERR_NOT_FOUND);
    EXPECT_TRUE(log.has("Do get_available_rglink_info from /absent failed!"));
}

TEST_F(UplinkKinds, AnRGLinkDialsWhereTheMaskSaysSo) {
    const Calls dial{"dial me 0 locked"}, start{"start swdev3"};
    const Calls stop{"stop swdev3 locked", "del swdev3 locked"}, redial{stop[0], stop[1], dial[0]};
    // act, mask, whether a configuration is there, what the dialler is asked besides the health manager.
    const std::tuple<uint32_t, uint32_t, bool, Calls> cases[] = {
        {ACT_ADD, 7, false, dial},     {ACT_ADD, 7, true, start},         {ACT_ADD, OPT_LINK, false, dial},
        {ACT_ADD, OPT_IP6, false, {}}, {ACT_ALT, OPT_LINK, true, redial}, {ACT_ALT, OPT_IP4, true, redial},
        {ACT_ALT, 0, true, start},     {ACT_DEL, 7, true, stop},          {ACT_DEL, 7, false, {}}};
    for (const auto& [act, opt, configured, expected] : cases) {
        configured ? nm_add_pppoe_and_run("swdev3", "me", "canary", 0) : del_interface_pppoe_cfg("swdev3");
        put(kDeviceInfoPath, quoted(document("RGLINK", kPppoe)));
        FakeService::take_calls();
        EXPECT_EQ(_setup_rglinkinfo("swdev3", act, opt, kDeviceInfoPath, {}), 0) << act << opt;
        EXPECT_EQ(told({"pppoe."}), expected) << act << " " << opt << configured;
    }
    const LogTail log;
    nm_add_pppoe_and_run("swdev3", "me", "canary", 0);
    start_says = -3;
    EXPECT_EQ(link(kPppoe).add_info(7), -1705);
    EXPECT_EQ(link("'IP4_TYPE':'PPPOE'").add_info(7), NM_ERR_EMPTY);
    EXPECT_TRUE(log.has("swdev3 start_interface_pppoe failed. retval: -3") &&
                log.has("Setup info failed, interface: swdev3") && log.has("swdev3 username is empty"));
}

TEST_F(UplinkKinds, ANewMtuInterruptsTheSessionOfAnRGLink) {
    const std::string big = kPort + ",'MTU':'1000000'", fits = kPort + ",'MTU':'1400'";
    const Calls again{"stop swdev3", "del swdev3", "dial me 0"}, ended{"stop swdev3", "del swdev3"};
    // stored type, new type, whether a configuration is there, the port, the result, the dialler's work.
    const std::tuple<std::string, std::string, bool, std::string, int, Calls> cases[] = {
        {kPppoe, kPppoe, true, fits, 0, again},   {kPppoe, kPppoe, true, big, NM_ERR_IOCTL, again},
        {kPppoe, kPppoe, false, fits, 0, {}},     {kPppoe, kStatic, true, fits, 0, ended},
        {kStatic, kStatic, true, fits, 0, ended}, {kStatic, kStatic, false, fits, 0, {}}};
    for (const auto& [before, after, configured, port, code, calls] : cases) {
        put(kDeviceInfoPath, quoted(document("RGLINK", before)));
        configured ? nm_add_pppoe_and_run("swdev3", "me", "canary", 0) : del_interface_pppoe_cfg("swdev3");
        run("ip addr replace 192.0.2.3/24 dev swdev3");
        FakeService::take_calls();
        EXPECT_EQ(RGLinkInterface("PORT3", kPath, json(document("RGLINK", after, port))).setup_if(OPT_LINK),
                  code);
        EXPECT_EQ(told({"pppoe."}), calls) << before << after;
        EXPECT_EQ(lines_of("ip -br -4 addr show swdev3").size(), 1U) << "what is live on the port stays";
    }
}

}  // namespace
