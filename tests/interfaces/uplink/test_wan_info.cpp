// The addressing of WAN ports: what each step of a port's life makes of the kernel, the sets, the units and
// the sessions, and what it tells the peers, in which order and with which result.

#include "fake_pppoe.h"
#include "fake_service.h"
#include "kernel_world.h"
#include "networkinterface.h"
#include "stand_in.h"

using namespace kernel_world;

namespace {

/// The dialler as the library calls it, with one configuration at most.
std::string dialled;
int dialler_says = 0;

int dialler(const std::string& call, int result) {
    FakeService::note("pppoe." + call + (is_lock_free("swdev3") ? "" : " locked"));
    return result;
}

}  // namespace

extern "C" int is_interface_pppoe_cfg_exist(const char* ifname) {
    return dialled == ifname ? VPPPOE_SUCCESS : VPPPOE_ERR_NO_SESSION;
}
extern "C" int nm_add_pppoe_and_run(const char* ifname, const char* user, const char* password, int ip6) {
    EXPECT_STREQ(password, "canary");
    dialled = ifname;
    return dialler(std::string("dial ") + user + " " + std::to_string(ip6), dialler_says);
}
extern "C" int stop_interface_pppoe(const char* ifname) {
    EXPECT_EQ(std::system("ip link del ppp-swdev3 2>/dev/null || true"), 0);
    session = {};
    return dialler(std::string("stop ") + ifname, dialler_says);
}
extern "C" int del_interface_pppoe_cfg(const char* ifname) {
    dialled.clear();
    return dialler(std::string("del ") + ifname, 0);
}

namespace {

const std::string kFine = R"({"error":0,"data":{"error":0}})";
const std::string kPath = "/new/path";
const std::string kStored = "/etc/networkmanagement/device_info.json";
const std::string kStatic = "'IP4_TYPE':'STATIC','IP4_ADDR':'192.0.2.3','IP4_GW':'192.0.2.1'";
const std::string kPppoe = "'IP4_TYPE':'PPPOE','USERNAME':'me','PASSWORD':'canary'";
const std::string kNoIp6 = ",'IP6_TYPE':'DISABLED'";

/// A document of one interface whose entry is given, texts written with ' for ".
std::string document(const std::string& entry, const std::string& ifname = "swdev3") {
    return "{'WAN_PORT':{'PORT3':{'INTERFACE':'" + ifname +
           "','DEV_TYPE':'virtio','PRIO':'7','RX_RATE':'300','TX_RATE':'200'}},'WAN_IFACE_INFO':{'" + ifname +
           "':{" + entry + "}}}";
}

/// Commands and peers that only record, and the device swdev3 that is down.
struct WanInfo : testing::Test {
    WanInfo() {
        id(1);
        answer(kFine);
        put("/etc/hosts", "127.0.0.1 localhost\n");
        fs::remove_all("/etc/vpppoe");
        fs::create_directories("/etc/vpppoe/env");
        dialled.clear();
        dialler_says = 0;
    }
    using Answers = std::map<std::string, std::string>;
    static void serve(std::optional<FakeService>& service, const char* name, const Answers& answers) {
        service.reset();
        service.emplace(name, answers);
    }
    void id(int number) {
        serve(ncaas, "ncaas", {{"get_devid", R"({"error":0,"data":)" + std::to_string(number) + "}"}});
    }
    void answer(const std::string& reply) {
        serve(wsd, "VelanWsd.service", {{"Setup_TUN", reply}, {"Setup_TUN6", reply}});
        serve(wmd, "VelanWmd", {{"Add_monitor_iface", reply}, {"Del_monitor_iface", reply}});
        serve(ipsec, "rmgmtd", {{"ipsec.edit_local_site", reply}, {"ipsec.edit_local_site_ip6", reply}});
    }
    /// Address, rules and routes, with T for the number of the table, and the count of host lines.
    static Lines state() {
        const std::string table = std::to_string(256 + get_iface_index("swdev3"));
        return lines_of("{ ip -4 -br addr show swdev3; ip -4 rule show table " + table +
                        "; ip -4 route show table " + table + "; grep -c '#swdev3$' /etc/hosts; } | " +
                        "tr -s ' ' | sed 's/.*:\t//; s/ " + table + "$/ T/'");
    }
    static WanIfaceInfo info(const std::string& entry) { return {"swdev3", kPath, json(document(entry))}; }
    /// What the calls since the last were about, a letter each.
    static std::string steps(const Calls& calls = FakeService::take_calls()) {
        std::string text;
        for (const std::string& call : calls) {
            std::istringstream letters(
                "A nm-hmgr.AddWan|R nm-hmgr.RemoveWan|+ VelanWmd.Add_monitor|- VelanWmd.Del_monitor|D "
                "pppoe.dial|"
                "S pppoe.stop|s systemctl <start> <nm-dhcl|k systemctl <stop> <nm-dhcl|T VelanWsd|M "
                "systemctl "
                "<stop> <nm-m");
            for (std::string row; std::getline(letters, row, '|');) {
                text += call.rfind(row.substr(2), 0) == 0 ? row.substr(0, 1) : "";
            }
        }
        return text;
    }

    const Device device{"swdev3"};
    const StandIn sets{"/usr/sbin/firewall.sh", 0,
                       "ip -4 -br addr show swdev3 | grep -q '/' && echo -n ' up'"};
    const StandIn dpi{"/usr/sbin/network-dpi.sh"};
    const StandIn units{"/usr/bin/systemctl"}, events{"/usr/sbin/vsyslog-cli"};
    const FakeService health{"nm-hmgr", {{"AddWan", kFine}, {"RemoveWan", "no JSON"}}};
    const FakeService log_service{"nm-grpc-handler", {{"DeviceLog", kFine}}};
    std::optional<FakeService> ncaas, wsd, wmd, ipsec;
    const File stored{kStored};
};

TEST_F(WanInfo, LeavesTheDeviceBeforeTheSets) {
    run("ip link set far up");
    put(kStored, quoted(document(kStatic + kNoIp6)));
    const auto expect_commands = [](uint32_t act, const Calls& commands) {
        FakeService::take_calls();
        EXPECT_EQ(_setup_waninfo("swdev3", act, 15, kStored, {}), 0) << act;
        EXPECT_EQ(FakeService::take_calls({"firewall.sh <edit_ipset> ", "network-dpi.sh <setup_dpi> "}),
                  commands)
            << act;
    };
    expect_commands(ACT_ADD, {"<add> <localip> <192.0.2.3> up", "<add> <WANIFSET> <192.0.2.3,swdev3> up",
                              "<WAN> <ENABLE> <tun3>", "<WAN> <ENABLE> <swdev3>"});
    for (int round = 0; round < 2; ++round) {  // also for what a killed setup left in the sets
        expect_commands(ACT_DEL, {"<del> <localip> <192.0.2.3>", "<del> <WANIFSET> <192.0.2.3,swdev3>",
                                  "<WAN> <DISABLE> <tun3>", "<WAN> <DISABLE> <swdev3>"});
    }
}

TEST_F(WanInfo, TakesTheStoredStateDownFirst) {
    id(0);
    const std::string dhcp = "'IP4_TYPE':'DHCP'" + kNoIp6, fixed = kStatic + kNoIp6, ppp = kPppoe + kNoIp6;
    const std::string ppp6 = kPppoe + ",'IP6_TYPE':'PPPOEV6'", off = "'IP4_TYPE':'DISABLED'" + kNoIp6;
    const std::tuple<std::string, std::string, uint32_t, int, std::string, const char*> cases[] = {
        {fixed, fixed, OPT_LINK, 0, "", "Skip setup_pppoe, ip4_type is not PPPOE."},
        {dhcp, dhcp, OPT_IP4, 0, "k-s", "mode: 2"},
        {off, fixed, OPT_IP4 | OPT_LINK, 0, "-+", ""},
        {fixed, ppp, OPT_IP4, 0, "-D", "swdev3: do nm_add_pppoe_and_run."},
        {fixed, ppp, OPT_LINK, 0, "-RD", ""},
        {ppp, ppp, OPT_IP4, 0, "S-D", "Missing ifindex. Skip delete sourceroute."},
        {ppp, ppp, OPT_LINK, 0, "S-RD", "swdev3 does not enable IPv6."},
        {ppp, ppp, OPT_IP6, 0, "D", ""},
        {ppp6, ppp, OPT_IP6, 0, "SD", ""},
        {ppp6, fixed, OPT_IP4 | OPT_LINK, 0, "S-R+", "'s PPPoE cfg is not existed; skip stop service."},
        {"'IP4_TYPE':'STATIC','IP6_TYPE':'SLAAC'", fixed, OPT_IP6, 0, "", "DHCP act: 2"}};
    for (const auto& [before, after, opt, code, made, words] : cases) {
        const LogTail log;
        put(kStored, quoted(document(before)));
        dialled = before == ppp || before == ppp6 ? "swdev3" : "";
        steps();
        EXPECT_EQ(_setup_waninfo("swdev3", ACT_ALT, opt, kPath, json(document(after))), code) << after;
        EXPECT_EQ(steps(), made) << before << after << opt;
        EXPECT_TRUE(log.has(words)) << words;
    }
    put(kStored, quoted(document(fixed, "swdev4")));
    EXPECT_EQ(_setup_waninfo("swdev3", ACT_ALT, 1, kPath, json(document(fixed))), NM_ERR_NO_SECTION);
    EXPECT_EQ(steps(), "");
}

TEST_F(WanInfo, DialsAndStopsSessionsUnderTheLock) {
    const std::string env = "/etc/vpppoe/env/swdev3.env";
    const LogTail log;
    for (const auto& [says, added, removed] : {std::tuple{0, 0, 0}, {-3, -1705, -1705}, {-2, -1704, 0}}) {
        dialler_says = says;
        put(kStored, quoted(document(kPppoe + (says == 0 ? ",'IP6_TYPE':'PPPOEV6'" : kNoIp6))));
        EXPECT_EQ(_setup_waninfo("swdev3", ACT_ADD, 15, kStored, {}), added) << says;
        EXPECT_EQ(_setup_waninfo("swdev3", ACT_DEL, 15, kStored, {}), removed) << says;
        EXPECT_EQ(slurp(env), "STOP_FLAG=\"1\"\n");
        fs::remove(env);
    }
    const Calls calls = FakeService::take_calls();
    const Calls first{"pppoe.dial me 1 locked", "pppoe.stop swdev3 locked",
                      "systemctl <stop> <nm-dhcpcd@ppp-swdev3.service>"};
    EXPECT_EQ((Calls{calls.begin() + 2, calls.begin() + 5}), first);
    EXPECT_EQ(calls[9], "pppoe.del swdev3 locked") << "after what belonged to the session's IPv6";
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "pppoe.dial me 0 locked"), 2);
    EXPECT_NE(calls[0].find(R"("ifname":"ppp-swdev3")"), calls[0].npos);
    EXPECT_EQ(calls[1].rfind("nm-grpc-handler.DeviceLog {\"msg_id\":255,", 0), 0U) << calls[1];
    EXPECT_FALSE(log.has("canary"));
    EXPECT_EQ(info("'IP4_TYPE':'PPPOE'").setup_pppoe(0), NM_ERR_EMPTY);
    EXPECT_EQ(info(kStatic).setup_pppoe_service(0), NM_ERR_BAD_TYPE);
    dialler_says = -3;
    // A name is text to the shell, and no way to another file.
    for (const auto& [name, written] : {std::pair{"$(date);x", true}, {"../swdev3", false}}) {
        dialled = name;
        EXPECT_EQ(WanIfaceInfo(name, kPath, json(document(kPppoe, name))).disable_ipv4(0), -1705) << name;
        EXPECT_EQ(fs::exists(std::string("/etc/vpppoe/env/") + name + ".env"), written) << name;
    }
}

TEST_F(WanInfo, EndsASessionOfAnEarlierTypeAlone) {
    run("ip link set far up");
    const std::string fixed = document(kStatic + kNoIp6);
    put(kStored, quoted(fixed));
    EXPECT_EQ(_setup_waninfo("swdev3", ACT_ADD, 15, kStored, {}), 0);
    const Lines alone = state();
    const std::string removed = "firewall.sh <edit_ipset> <del> ";
    const Calls own{removed + "<WANIFSET> <192.0.2.40,ppp-swdev3> up", removed + "<localip> <192.0.2.40> up"};
    // The address of the session is the port's own by now, or it is nobody's.
    for (const auto& [address, sets] :
         {std::pair{"192.0.2.40", own}, {"192.0.2.3", {removed + "<WANIFSET> <192.0.2.3,ppp-swdev3> up"}}}) {
        run(std::string("ip link add ppp-swdev3 type veth peer name far2 && ip addr add ") + address +
            " dev ppp-swdev3");
        session = {1, {get_iface_index("ppp-swdev3"), "ppp-swdev3", "", "", "", ""}};
        std::string(address).copy(session.cfg.ip4_addr, 15);
        dialled = "swdev3";
        FakeService::take_calls();
        EXPECT_EQ(WanInterface("PORT3", kPath, json(fixed)).setup_if(OPT_LINK), 0);
        Calls calls = FakeService::take_calls();
        EXPECT_EQ(steps(calls), "S-");
        EXPECT_EQ(dialled + slurp("/etc/vpppoe/env/swdev3.env"), "STOP_FLAG=\"1\"\n");
        EXPECT_EQ(Calls(calls.end() - sets.size(), calls.end()), sets);
        EXPECT_EQ(state(), alone);
        fs::remove("/etc/vpppoe/env/swdev3.env");
    }
    // One whose port the store still knows as that of a session goes with all that it has.
    put(kStored, quoted(document(kPppoe + kNoIp6)));
    dialled = "swdev3";
    EXPECT_EQ(WanInterface("PORT3", kPath, json(fixed)).setup_if(OPT_LINK), 0);
    EXPECT_EQ(steps(), "S-TMR");
}

TEST_F(WanInfo, FollowsTheLease) {
    run("ip link set far up && ip link set swdev3 up && ip addr add 192.0.2.30/25 dev swdev3");
    const DHCP_INFO lease{"192.0.2.30", "255.255.255.128", "", "", "192.0.2.1", ""};
    const DHCP_INFO no_router{"192.0.2.30", "255.255.255.128", "", "", "", ""};
    const DHCP_INFO no_mask{"192.0.2.30", "", "", "", "192.0.2.1", ""};
    FakeService::take_calls();
    const std::string event = "vsyslog-cli <C002> <311> <3> <192.0.2.30>";
    const std::tuple<DHCP_INFO, std::string, int, size_t, std::string, const char*> cases[] = {
        {lease, "add", 0, 6, "T+", "IP4_TPYE: DHCP's gateway [192.0.2.1]."},
        {no_mask, "add", NM_ERR_EMPTY, 0, "T+", "IP[192.0.2.30], MASK[], GW[192.0.2.1]"},
        {lease, "add", 0, 6, "T+", "set_dhcp_source_route OK."},
        {no_router, "add", NM_ERR_EMPTY, 0, "T", "Bad gateway address [] for Monitor."},
        {lease, "renew", NM_ERR_BAD_ACT, 0, "TM-", "Unknown act: renew"},
        {lease, "add", 0, 6, "T+", ""},
        {lease, "del", 0, 0, "TM-", "Del swdev3's ipsec configuration."}};
    for (const auto& [given, word, code, lines, made, words] : cases) {
        const LogTail log;
        DHCP_INFO info_given = given;
        std::string act = word;
        EXPECT_EQ(info("'IP4_TYPE':'DHCP'").dhcp_source_route_cb(info_given, act), code) << words;
        const Calls calls = FakeService::take_calls();
        EXPECT_EQ(std::count(calls.begin(), calls.end(), event), word == "add" ? 1 : 0) << words;
        EXPECT_EQ(steps(calls), made) << words;
        EXPECT_EQ(state().size() - 2, lines) << words;
        EXPECT_TRUE(log.has(words)) << words;
    }
    // A lease that came while the delete waited for its lock, and one that a killed delete left in the sets.
    run("ip addr flush dev swdev3");
    WanIfaceInfo waiting = info("'IP4_TYPE':'DHCP'");
    run("ip addr add 192.0.2.31/25 dev swdev3");
    const File leases("/etc/networkmanagement/dhclient/swdev3.leases",
                      "lease {\n  fixed-address 192.0.2.32;\n}\n");
    const auto removed_by = [](WanIfaceInfo&& uplink) {
        EXPECT_EQ(uplink.del_info(15), 0);
        return FakeService::take_calls().at(1);
    };
    const std::string removed = "firewall.sh <edit_ipset> <del> <localip> ";
    EXPECT_EQ(removed_by(std::move(waiting)), removed + "<192.0.2.31>");
    EXPECT_EQ(removed_by(info("'IP4_TYPE':'DHCP'")), removed + "<192.0.2.32>");
    // A session lies on the port's table, and its device is gone when the table is emptied.
    run("ip link add ppp-swdev3 type veth peer name far2 && ip link set far2 up && ip link set ppp-swdev3 up "
        "&& ip addr add 192.0.2.40 peer 192.0.2.41 dev ppp-swdev3");
    DHCP_INFO session{"192.0.2.40", "255.255.255.255", "", "", "192.0.2.41", ""};
    std::string act = "add";
    EXPECT_EQ(info(kPppoe).dhcp_source_route_cb(session, act), 0);
    const Calls calls = FakeService::take_calls();
    EXPECT_EQ(calls[1], "firewall.sh <edit_ipset> <add> <WANIFSET> <192.0.2.40,ppp-swdev3>");
    EXPECT_EQ(calls.back(), "vsyslog-cli <C002> <310> <3> <192.0.2.40>");
    dialled = "swdev3";
    EXPECT_EQ(info(kPppoe).disable_ipv4(0), 0);
    EXPECT_EQ(state(), Lines{"0"});
    const std::string resolv = "/var/run/network/resolv.dnsmasq";
    put(resolv, "");
    EXPECT_EQ(info(kPppoe + ",'IP4_DNS':['192.0.2.53']").add_dns4(), 0);
    EXPECT_EQ(slurp(resolv), "nameserver 192.0.2.53 #ID=ppp-swdev3\n");
    EXPECT_EQ(info(kPppoe).del_dns4(), 0);
    EXPECT_EQ(slurp(resolv), "");
    const StandIn sets6{"/usr/sbin/firewall6.sh", 5};
    EXPECT_EQ(info(kPppoe).setup_ip6_ipset("add", "2001:db8::1"), 5);
    EXPECT_EQ(info(kPppoe).setup_ip6_ipset("add", ""), 0) << "there is nothing to add";
    EXPECT_EQ(StandIn::take(), "firewall6.sh <edit_ip6_ipset> <add> <ip6_localip> <2001:db8::1>\n");
    put("/usr/bin/systemctl", "#!/bin/sh\nexit 3\n");
    EXPECT_EQ(info("'IP4_TYPE':'DHCP'").disable_ipv4(0), 3);
    EXPECT_EQ(info("'IP4_TYPE':'DHCP'").setup_ipv4(1), NM_ERR_SERVICE);
}

TEST_F(WanInfo, ComesUpWithoutTheOverlay) {
    const std::tuple<const char*, int, int, const char*> cases[] = {
        {R"({"error":0,"data":{"error":7,"result":"no"}})", 7, 0, "Error: no"},
        {R"({"error":0,"data":{"result":"no"}})", NM_ERR_BAD_ACT, 0, "Error: no"},
        {R"({"error":-5,"data":{"error":0}})", -5, -5, "vsh rmgmtd.ipsec.edit_local_site failed, ret: -5"},
        {R"({"error":0})", NM_ERR_PARSE, 0, "Json parse failed."},
        {nullptr, NM_ERR_BUS_CALL, NM_ERR_BUS_CALL, "vsh VelanWsd.service.Setup_TUN failed."}};
    for (const auto& [reply, code, ipsec_code, words] : cases) {
        const LogTail log;
        reply != nullptr ? answer(reply) : (wsd.reset(), wmd.reset(), ipsec.reset());
        WanIfaceInfo wan = info(kStatic + kNoIp6);
        EXPECT_EQ(wan.setup_info(15), 0) << words;
        EXPECT_EQ(state().size(), 8U) << words;
        EXPECT_EQ(wan.setup_tun(1), code) << words;
        EXPECT_EQ(wan.setup_tun6(0), code) << words;
        EXPECT_EQ(wan.setup_wan_monitor(0, "swdev3", ""), code) << words;
        EXPECT_EQ(wan.setup_ipsec(0, ""), ipsec_code) << words;
        EXPECT_EQ(wan.setup_ipsec6(1, "2001:db8::1"), ipsec_code) << words;
        EXPECT_TRUE(log.has(words)) << words;
    }
    answer(kFine);
    const std::string no_rate = "'IP4_TYPE':'STATIC','IP4_GW':'192.0.2.1'";
    WanIfaceInfo slow("swdev3", kPath,
                      json(document(no_rate).replace(document(no_rate).find("200"), 3, "0")));
    EXPECT_EQ(slow.setup_wan_monitor(1, "swdev3", "192.0.2.9"), NM_ERR_NO_IFACE);
    for (const auto& [text, code, expected] : {std::tuple{"7", 0, 7U}, {"[", NM_ERR_NO_IFACE, 1U}}) {
        Json::Value ports = json(document(no_rate));
        ports["WAN_PORT"]["PORT3"]["PRIO"] = *text == '[' ? Json::Value(Json::arrayValue) : Json::Value(text);
        uint32_t prio = 0;
        EXPECT_EQ(WanIfaceInfo("swdev3", kPath, ports).get_interface_prio(prio), code);
        EXPECT_EQ(prio, expected);
    }
    EXPECT_EQ(slow.setup_ipsec(1, "192.0.2.9"), NM_ERR_BAD_IP) << "a static port has its own address";
    EXPECT_EQ(info("'IP4_TYPE':'DISABLED'").setup_wan_monitor(1, "swdev3", "192.0.2.9"), NM_ERR_BAD_TYPE);
    EXPECT_EQ(WanIfaceInfo("swdev3", "/a\nB=1", json(document(no_rate))).setup_mlmd(1), NM_ERR_BAD_FORMAT);
    EXPECT_EQ(info("'IP4_TYPE':'STATIC','IP4_ADDR':'10.1.2.3','IP4_GW':'10.1.2.1'").setup_ipv4(1), 0);
    EXPECT_EQ(state().size(), 8U) << "two addresses, but the routes of the last one only";
    FakeService::take_calls();
    EXPECT_EQ(info("'IP4_TYPE':'STATIC','IP4_ADDR':'10.1.2.3','IP4_GW':'203.0.113.1'").setup_ipv4(1),
              NM_ERR_NL_ROUTE_ADD);
    EXPECT_EQ(state().size(), 7U) << "all but the route by a gateway that is not there";
    EXPECT_EQ(steps(), "T+");
    run("ip addr flush dev swdev3");
    FakeService::take_calls();
    for (const std::string address :
         {"192.0.2.256", "192.0.2.3 x", "", "192.0.2.3','IP4_PREFIX':'33", "192.0.2.3','IP4_PREFIX':'x",
          "0.0.0.0", "127.1.2.3", "224.0.0.1", "0"}) {
        const std::string entry = "'IP4_TYPE':'STATIC','IP4_ADDR':'" + address + "'";
        EXPECT_EQ(info(entry).setup_ipv4(1), NM_ERR_BAD_IP) << entry;
    }
    EXPECT_EQ(FakeService::take_calls(), Calls{}) << "nobody is told of an address that is not there";
}

TEST_F(WanInfo, TunnelsAreEditedPortByPort) {
    Json::Value ports = json(document(kStatic));
    ports["WAN_PORT"]["PORT4"]["INTERFACE"] = "eth4";
    ports["WAN_IFACE_INFO"]["eth4"] = json("{'IP4_TYPE':'STATIC'}");
    put(kStored, nm::write_compact_json(ports));
    const auto edit = [&](int op) {
        FakeService::take_calls();
        EXPECT_EQ(edit_tunnels(op), 0) << op;
        Calls calls = FakeService::take_calls();
        calls.erase(std::remove(calls.begin(), calls.end(), "ncaas.get_devid "), calls.end());
        return calls;
    };
    for (const auto& [op, made] : std::map<int, std::string>{{0, ""}, {-4, ""}, {2, "TMTTMT"}, {5, "TTTT"}}) {
        EXPECT_EQ(steps(edit(op)), made) << op;
    }
    const Calls calls = edit(3);
    const std::string tun4 = R"( {"conf":"/etc/networkmanagement/device_info.json","dev":"eth4","op":")";
    const std::string inspect = "network-dpi.sh <setup_dpi> <WAN> <ENABLE> ";
    EXPECT_EQ(steps(calls), "TMTTTTMTTT");
    EXPECT_EQ(calls[0], "VelanWsd.service.Setup_TUN" + tun4 + "1\"}");
    EXPECT_EQ(calls[8], "VelanWsd.service.Setup_TUN6" + tun4 + "0\"}");
    EXPECT_EQ(calls[6] + calls[9], inspect + "<tun4>" + inspect + "<ip6tun4>");
    id(0);
    EXPECT_EQ(edit(3), Calls{});
    id(1);
    ports["WAN_IFACE_INFO"]["eth4"]["IP4_TYPE"] = "DHCP";
    put(kStored, nm::write_compact_json(ports));
    const LogTail log;
    EXPECT_EQ(steps(edit(2)), "TMTTMT") << "a tunnel may have outlived its lease";
    EXPECT_TRUE(log.has("eth4 get dhcp info failed."));
    ports["WAN_IFACE_INFO"]["swdev3"]["IP4_TYPE"] = "PPPOE";
    put(kStored, nm::write_compact_json(ports));
    pppoe_status status;
    EXPECT_EQ(edit_tunnels(2), get_pppoe_status("swdev3", &status) - 1702);
    EXPECT_EQ(steps(), "TMT") << "those of the port without a session stay";
}

TEST(TunnelAddress, FollowsFromDeviceAndPort) {
    const std::tuple<int, int, const char*> cases[] = {
        {1, 1, "198.19.0.0"},  {2, 1, "198.19.0.8"},    {1, 9, "198.19.0.8"},   {32, 8, "198.19.0.255"},
        {33, 1, "198.19.1.0"}, {8193, 1, "198.20.0.0"}, {0, 1, "197.19.0.249"}, {1 << 21, 1, "198.18.0.249"}};
    for (const auto& [device, port, expected] : cases) {
        std::string address;
        gen_tun_addr4(device, port, address);
        EXPECT_EQ(address, expected) << device << "/" << port;
    }
}

}  // namespace
