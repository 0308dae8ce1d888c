// The addressing of WAN ports: what each step of a port's life makes of the kernel, the sets, the units and
// the sessions, and what it tells the peers, in which order and with which result.
#include <vpppoe.h>

#include <optional>
#include <tuple>

#include "config/actions.h"
#include "control/setup_wan.h"
#include "fake_service.h"
#include "interfaces/WanIfaceInfo.h"
#include "interfaces/tunnel_address.h"
#include "kernel/link.h"
#include "kernel_world.h"
#include "result_codes.h"
#include "scripted_listener.h"
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
const std::string kStatic =
    "'IP4_TYPE':'STATIC','IP4_ADDR':'192.0.2.3','IP4_PREFIX':'24','IP4_GW':'192.0.2.1'";
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
        INITIALIZE_LOG("MAIN");
        id(1);
        put("/etc/hosts", "127.0.0.1 localhost\n");
        fs::remove_all("/etc/vpppoe");
        fs::create_directories("/etc/vpppoe/env");
        dialled.clear();
        dialler_says = 0;
    }
    void id(int number) {
        ncaas.reset();
        ncaas.emplace("ncaas",
                      Answers{{"get_devid", R"({"error":0,"data":)" + std::to_string(number) + "}"}});
    }
    void answer(const std::string& reply) {
        wsd.reset(), wmd.reset(), ipsec.reset();
        wsd.emplace("VelanWsd.service", Answers{{"Setup_TUN", reply}, {"Setup_TUN6", reply}});
        wmd.emplace("VelanWmd", Answers{{"Add_monitor_iface", reply}, {"Del_monitor_iface", reply}});
        ipsec.emplace("rmgmtd",
                      Answers{{"ipsec.edit_local_site", reply}, {"ipsec.edit_local_site_ip6", reply}});
    }
    /// What the commands to the peer on `socket` were; they are sent without waiting for an answer.
    Listener::Act remember(std::string& commands) {
        return [&commands](int client) {
            const Json::Value command = json(hear(client, "}"));
            commands += command["command"].asString() + command["id"].asString() +
                        command["interface"].asString() + command["path"].asString() + ";";
        };
    }
    /// Address, rules and routes, with T for the number of the table.
    static Lines state() {
        const std::string table = std::to_string(256 + get_iface_index("swdev3"));
        return lines_of("{ ip -4 -br addr show swdev3; ip -4 rule show table " + table +
                        "; ip -4 route show table " + table + "; } | tr -s ' ' | sed 's/.*:\t//; s/ " +
                        table + "$/ T/'");
    }
    static WanIfaceInfo info(const std::string& entry) { return {"swdev3", kPath, json(document(entry))}; }
    /// What the calls since the last were about, a letter each.
    static std::string steps(const Calls& calls = FakeService::take_calls()) {
        static const std::pair<const char*, char> letters[] = {{"nm-hmgr.AddWan", 'A'},
                                                               {"nm-hmgr.RemoveWan", 'R'},
                                                               {"VelanWmd.Add_monitor", '+'},
                                                               {"VelanWmd.Del_monitor", '-'},
                                                               {"systemctl <start> <nm-dh", 's'},
                                                               {"systemctl <stop> <nm-dh", 'k'},
                                                               {"pppoe.dial", 'D'},
                                                               {"pppoe.stop", 'S'},
                                                               {"VelanWsd", 'T'},
                                                               {"systemctl <stop> <nm-ml", 'T'}};
        std::string text;
        for (const std::string& call : calls) {
            for (const auto& [begin, letter] : letters) {
                text += call.rfind(begin, 0) == 0 ? std::string(1, letter) : "";
            }
        }
        return text;
    }

    using Answers = std::map<std::string, std::string>;
    const Device device{"swdev3"};
    const StandIn sets{"/usr/sbin/firewall.sh"}, dpi{"/usr/sbin/network-dpi.sh"};
    const StandIn units{"/usr/bin/systemctl"}, events{"/usr/sbin/vsyslog-cli"};
    const FakeService health{"nm-hmgr", {{"AddWan", kFine}, {"RemoveWan", "no JSON"}}};
    const FakeService log_service{"nm-grpc-handler", {{"DeviceLog", kFine}}};
    std::optional<FakeService> ncaas, wsd, wmd, ipsec;
    const File stored{kStored};
};

TEST_F(WanInfo, LivesAStaticLife) {
    answer(kFine);
    std::string wanipd_heard, ncsid_heard;
    const Listener wanipd(remember(wanipd_heard), "/var/run/network/wanipd.sock");
    const Listener ncsid(remember(ncsid_heard), "/var/run/network/ncsid.sock");
    const auto hosts = [] { return exec("grep -c '#swdev3$' /etc/hosts"); };
    const auto request = [](int act, int opt, const std::string& path) {
        std::string text = quoted("{'swdev3':{'act':" + std::to_string(act) +
                                  ",'ops':" + std::to_string(opt) + ",'path':'" + path + "'}}");
        return Setup_waninfo(text.data());
    };
    const auto expect_state = [&](const std::string& ip, const std::string& network, const std::string& gw) {
        const Lines expected{"swdev3@far UP " + ip + "/24",
                             "from " + ip + " fwmark 0/0xf lookup T",
                             "from all fwmark 0/0xf oif swdev3 lookup T",
                             "from all fwmark 0x1003/0x100f lookup T",
                             "from all fwmark 0x2003/0x200f lookup T",
                             "default via " + gw + " dev swdev3 proto static mtu lock 1500",
                             network + " dev swdev3 proto static"};
        EXPECT_EQ(state(), expected);
    };
    run("ip link set far up");
    const File other("/etc/networkmanagement/new.json", quoted(document(kStatic + kNoIp6)));
    FakeService::take_calls();

    EXPECT_EQ(request(ACT_ADD, 15, other.path), 0);
    const Calls added{
        R"(nm-hmgr.AddWan {"id":3,"info":{"iface_type":"ethernet","ifname":"swdev3","ip4_type":"static",)"
        R"("ip6_type":"disabled","rx_rate":300,"tx_rate":200}})",
        "firewall.sh <edit_ipset> <add> <localip> <192.0.2.3>",
        "firewall.sh <edit_ipset> <add> <WANIFSET> <192.0.2.3,swdev3>",
        "ncaas.get_devid ",
        R"(VelanWsd.service.Setup_TUN {"conf":"/etc/networkmanagement/new.json","dev":"swdev3","op":"0"})",
        "network-dpi.sh <setup_dpi> <WAN> <ENABLE> <tun3>",
        "systemctl <start> <nm-mlmd@swdev3.service>",
        "network-dpi.sh <setup_dpi> <WAN> <ENABLE> <swdev3>",
        R"(VelanWmd.Add_monitor_iface {"bandwidth":200,"gateway":"192.0.2.1","id":3,"ifname":"swdev3"})",
        "ncaas.get_devid ",
        R"(rmgmtd.ipsec.edit_local_site {"ifname":"swdev3","ip":"192.0.2.3","op":"add","tun":"198.19.0.2"})"};
    EXPECT_EQ(FakeService::take_calls(), added);
    expect_state("192.0.2.3", "192.0.2.0/24", "192.0.2.1");
    EXPECT_EQ(hosts(), "1\n");
    EXPECT_EQ(slurp("/var/run/network/.nm-mlmd@swdev3.env"), "PATH=/etc/networkmanagement/new.json");

    put(kStored, quoted(document(kStatic + kNoIp6)));
    put(other.path,
        quoted(document("'IP4_TYPE':'STATIC','IP4_ADDR':'198.51.100.9','IP4_GW':'198.51.100.1'" + kNoIp6)));
    EXPECT_EQ(request(ACT_ALT, 1, other.path), 0);
    Calls altered{
        "firewall.sh <edit_ipset> <del> <localip> <192.0.2.3>",
        "firewall.sh <edit_ipset> <del> <WANIFSET> <192.0.2.3,swdev3>",
        R"(VelanWmd.Del_monitor_iface {"id":3,"ifname":"swdev3"})",
        "ncaas.get_devid ",
        R"(VelanWsd.service.Setup_TUN {"conf":"/etc/networkmanagement/device_info.json","dev":"swdev3","op":"1"})",
        "network-dpi.sh <setup_dpi> <WAN> <DISABLE> <tun3>",
        "systemctl <stop> <nm-mlmd@swdev3.service>",
        "network-dpi.sh <setup_dpi> <WAN> <DISABLE> <swdev3>",
        R"(rmgmtd.ipsec.edit_local_site {"ifname":"swdev3","op":"del"})"};
    Calls calls = FakeService::take_calls();
    calls.resize(altered.size());
    EXPECT_EQ(calls, altered);
    expect_state("198.51.100.9", "198.51.100.0/24", "198.51.100.1");
    EXPECT_EQ(hosts(), "1\n");

    fs::copy_file(other.path, kStored, fs::copy_options::overwrite_existing);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(request(ACT_DEL, 15, other.path), 0) << round;
        const Calls removed = FakeService::take_calls();
        EXPECT_EQ(removed.size(), round == 0 ? altered.size() + 1 : altered.size() - 1)
            << "sets are left alone";
        EXPECT_EQ(removed.back(), R"(nm-hmgr.RemoveWan {"id":3})");
        EXPECT_EQ(state(), Lines{}) << round;
        EXPECT_EQ(hosts(), "0\n");
    }
    for (int i = 0; i < 100 && (wanipd_heard.size() < 200 || ncsid_heard.size() < 200); ++i) {
        usleep(20000);
    }
    const std::string swdev3 = "3swdev3/etc/networkmanagement/";
    const std::string set_up = "update" + swdev3 + "new.json;",
                      forgotten = "remove" + swdev3 + "device_info.json;";
    EXPECT_EQ(wanipd_heard, set_up + forgotten + set_up + forgotten + forgotten);
    EXPECT_EQ(ncsid_heard, wanipd_heard);
}

TEST_F(WanInfo, TakesTheStoredStateDownFirst) {
    answer(kFine);
    id(0);
    const std::string dhcp = "'IP4_TYPE':'DHCP'" + kNoIp6, fixed = kStatic + kNoIp6, ppp = kPppoe + kNoIp6;
    const std::string ppp6 = kPppoe + ",'IP6_TYPE':'PPPOEV6'", off = "'IP4_TYPE':'DISABLED'" + kNoIp6;
    const std::tuple<std::string, std::string, uint32_t, int, std::string, const char*> cases[] = {
        {fixed, fixed, 0, 0, "", "opt=0"},
        {fixed, fixed, OPT_IP4, 0, "-+", "Device ID hasn't be configured."},
        {fixed, fixed, OPT_LINK, 0, "", "Skip setup_pppoe, ip4_type is not PPPOE."},
        {dhcp, dhcp, OPT_IP4, 0, "k-s", "mode: 2"},
        {dhcp, fixed, OPT_IP4, 0, "k-+", "mode: 0"},
        {fixed, dhcp, OPT_IP4, 0, "-s", "Enable dhcp"},
        {fixed, off, OPT_IP4, 0, "-", "ip4_type is DISABLED, do nothing."},
        {off, fixed, OPT_IP4 | OPT_LINK, 0, "-+", ""},
        {fixed, "'IP4_TYPE':'IPOE'", OPT_IP4, NM_ERR_BAD_TYPE, "-", "No such ip4_type: IPOE"},
        {fixed, ppp, OPT_IP4, 0, "-D", "swdev3: do nm_add_pppoe_and_run."},
        {fixed, ppp, OPT_LINK, 0, "-RD", ""},
        {ppp, ppp, OPT_IP4, 0, "SD", "Missing ifindex. Skip delete sourceroute."},
        {ppp, ppp, OPT_LINK, 0, "SRD", "swdev3 does not enable IPv6."},
        {ppp, ppp, OPT_IP6, 0, "D", ""},
        {ppp6, ppp, OPT_IP6, 0, "SD", ""},
        {ppp6, fixed, OPT_IP4 | OPT_LINK, 0, "SR+", "'s PPPoE cfg is not existed; skip stop service."},
        {ppp, dhcp, OPT_IP4, 0, "Ss", ""},
        {fixed, kStatic + ",'IP6_TYPE':'SLAAC'", OPT_IP6, NM_ERR_BAD_TYPE, "",
         "swdev3: ip6_type SLAAC is not served."},
        {"'IP4_TYPE':'STATIC','IP6_TYPE':'SLAAC'", fixed, OPT_IP6, 0, "", "DHCP act: 2"}};
    for (const auto& [before, after, opt, code, made, words] : cases) {
        const LogTail log;
        put(kStored, quoted(document(before)));
        dialled = before == ppp || before == ppp6 ? "swdev3" : "";
        steps();
        EXPECT_EQ(_setup_waninfo("swdev3", ACT_ALT, opt, kPath, json(document(after))), code)
            << before << after << opt;
        EXPECT_EQ(steps(), made) << before << after << opt;
        EXPECT_TRUE(log.has(words)) << words;
    }
    put(kStored, quoted(document(fixed, "swdev4")));
    EXPECT_EQ(_setup_waninfo("swdev3", ACT_ALT, 1, kPath, json(document(fixed))), NM_ERR_NO_SECTION);
    EXPECT_EQ(_setup_waninfo("swdev3", 7, 1, kPath, json(document(fixed))), NM_ERR_BAD_ACT);
    EXPECT_EQ(steps(), "");
}

TEST_F(WanInfo, DialsAndStopsSessionsUnderTheLock) {
    answer(kFine);
    const std::string env = "/etc/vpppoe/env/swdev3.env";
    const LogTail log;
    for (const auto& [says, added, removed] : {std::tuple{0, 0, 0}, {-3, -1705, -1705}, {-2, -1704, 0}}) {
        dialler_says = says;
        put(kStored, quoted(document(kPppoe + (says == 0 ? ",'IP6_TYPE':'PPPOEV6'" : kNoIp6))));
        EXPECT_EQ(_setup_waninfo("swdev3", ACT_ADD, 15, kStored, {}), added) << says;
        EXPECT_EQ(_setup_waninfo("swdev3", ACT_DEL, 15, kStored, {}), removed)
            << "nothing to stop is no failure";
        EXPECT_EQ(slurp(env), "STOP_FLAG=\"1\"\n");
        fs::remove(env);
    }
    const Calls calls = FakeService::take_calls();
    const std::map<std::string, int> expected{{"pppoe.dial me 1 locked", 1},
                                              {"pppoe.dial me 0 locked", 2},
                                              {"pppoe.stop swdev3 locked", 3},
                                              {"pppoe.del swdev3 locked", 3}};
    for (const auto& [call, times] : expected) {
        EXPECT_EQ(std::count(calls.begin(), calls.end(), call), times) << call;
    }
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

TEST_F(WanInfo, FollowsTheLease) {
    answer(kFine);
    run("ip link set far up && ip link set swdev3 up && ip addr add 192.0.2.30/25 dev swdev3");
    const DHCP_INFO lease{"192.0.2.30", "255.255.255.128", "", "", "192.0.2.1", ""};
    DHCP_INFO no_router = lease, no_mask = lease;
    *no_router.gateway = '\0';
    std::fill(std::begin(no_mask.netmask), std::end(no_mask.netmask), '\0');
    const std::string event = "vsyslog-cli <C002> <311> <3> <192.0.2.30>";
    const std::tuple<DHCP_INFO, std::string, int, size_t, std::string, const char*> cases[] = {
        {lease, "add", 0, 6, "T+", "set_dhcp_source_route OK."},
        {lease, "add", 0, 6, "T+", "IP4_TPYE: DHCP's gateway [192.0.2.1]."},
        {no_mask, "add", NM_ERR_EMPTY, 0, "T+", "IP[192.0.2.30], MASK[], GW[192.0.2.1]"},
        {lease, "add", 0, 6, "T+", ""},
        {no_router, "add", NM_ERR_EMPTY, 0, "T", "Bad gateway address [] for Monitor."},
        {lease, "renew", NM_ERR_BAD_ACT, 0, "TT-", "Unknown act: renew"},
        {lease, "add", 0, 6, "T+", ""},
        {lease, "del", 0, 0, "TT-", "Del swdev3's ipsec configuration."}};
    for (const auto& [given, word, code, lines, made, words] : cases) {
        const LogTail log;
        DHCP_INFO info_given = given;
        std::string act = word;
        FakeService::take_calls();
        EXPECT_EQ(info("'IP4_TYPE':'DHCP'").dhcp_source_route_cb(info_given, act), code) << words;
        const Calls calls = FakeService::take_calls();
        EXPECT_EQ(std::count(calls.begin(), calls.end(), event), word == "add" ? 1 : 0) << words;
        EXPECT_EQ(steps(calls), made) << words;
        EXPECT_EQ(state().size() - 1, lines) << words;
        EXPECT_TRUE(log.has(words)) << words;
    }
    run("ip link add ppp-swdev3 type veth peer name far2");
    DHCP_INFO session = lease;
    std::string act = "add";
    EXPECT_EQ(info(kPppoe).dhcp_source_route_cb(session, act), NM_ERR_NL_ROUTE_ADD) << "the device is down";
    const Calls calls = FakeService::take_calls();
    EXPECT_EQ(calls[1], "firewall.sh <edit_ipset> <add> <WANIFSET> <192.0.2.30,ppp-swdev3>");
    EXPECT_EQ(calls.back(), "vsyslog-cli <C002> <310> <3> <192.0.2.30>");
    run("ip link del ppp-swdev3");
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
        EXPECT_EQ(state().size(), 7U) << words;
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
    EXPECT_EQ(info(no_rate).setup_ipsec(1, "192.0.2.9"), NM_ERR_BAD_IP)
        << "a static port has its own address";
    EXPECT_EQ(info("'IP4_TYPE':'DISABLED'").setup_wan_monitor(1, "swdev3", "192.0.2.9"), NM_ERR_BAD_TYPE);
    EXPECT_EQ(WanIfaceInfo("swdev3", "/a\nB=1", json(document(no_rate))).setup_mlmd(1), NM_ERR_BAD_FORMAT);
    uint32_t prio = 0;
    EXPECT_EQ(slow.get_interface_prio(prio) + static_cast<int>(prio), 7);
    run("ip addr flush dev swdev3");
    const std::pair<std::string, int> addresses[] = {
        {"'IP4_ADDR':'192.0.2.256'", NM_ERR_BAD_IP},
        {"'IP4_ADDR':'192.0.2.3 x'", NM_ERR_BAD_IP},
        {"'IP4_ADDR':'192.0.2.3','IP4_PREFIX':'33'", NM_ERR_BAD_IP},
        {"'IP4_ADDR':''", NM_ERR_BAD_IP},
        {"'IP4_ADDR':'192.0.2.3','IP4_PREFIX':'x'", NM_ERR_BAD_IP}};
    FakeService::take_calls();
    for (const auto& [entry, code] : addresses) {
        EXPECT_EQ(info("'IP4_TYPE':'STATIC'," + entry).setup_ipv4(1), code) << entry;
    }
    EXPECT_EQ(WanIfaceInfo("absent", kPath, json(document(kStatic, "absent"))).setup_ipv4(1),
              NM_ERR_NO_IFACE);
    EXPECT_EQ(FakeService::take_calls(), Calls{}) << "nobody is told of an address that is not there";
}

TEST_F(WanInfo, TunnelsAreEditedPortByPort) {
    answer(kFine);
    Json::Value ports = json(document(kStatic));
    ports["WAN_PORT"]["PORT4"]["INTERFACE"] = "eth4";
    ports["WAN_IFACE_INFO"]["eth4"] = json("{'IP4_TYPE':'STATIC'}");
    put(kStored, nm::write_compact_json(ports));
    const auto tun = [](const std::string& family, const std::string& dev, const std::string& op) {
        return "VelanWsd.service.Setup_TUN" + family + R"( {"conf":")" + kStored + R"(","dev":")" + dev +
               R"(","op":")" + op + "\"}";
    };
    const auto edit = [&](int op) {
        FakeService::take_calls();
        EXPECT_EQ(edit_tunnels(op), 0) << op;
        Calls calls = FakeService::take_calls();
        calls.erase(std::remove(calls.begin(), calls.end(), "ncaas.get_devid "), calls.end());
        return calls;
    };
    const std::string inspect = "network-dpi.sh <setup_dpi> <WAN> ", daemon = "<nm-mlmd@eth4.service>";
    const Calls down{tun("", "eth4", "1"), inspect + "<DISABLE> <tun4>", "systemctl <stop> " + daemon,
                     tun("6", "eth4", "1"), inspect + "<DISABLE> <ip6tun4>"};
    const Calls up{tun("", "eth4", "0"), inspect + "<ENABLE> <tun4>", "systemctl <start> " + daemon,
                   tun("6", "eth4", "0"), inspect + "<ENABLE> <ip6tun4>"};
    Calls both = down;
    both.insert(both.end(), up.begin(), up.end());
    for (const auto& [op, first] : std::map<int, Calls>{{0, {}}, {-4, {}}, {2, down}, {5, up}, {3, both}}) {
        Calls calls = edit(op);
        EXPECT_EQ(calls.size(), 2 * first.size()) << op;
        calls.resize(first.size());
        EXPECT_EQ(calls, first) << op;
    }
    id(0);
    EXPECT_EQ(edit(3), Calls{});
    id(1);
    ports["WAN_IFACE_INFO"]["eth4"]["IP4_TYPE"] = "DHCP";
    put(kStored, nm::write_compact_json(ports));
    EXPECT_EQ(edit_tunnels(2), NM_ERR_NOT_FOUND) << "no lease";
    EXPECT_EQ(steps(), "TTT") << "the other port's";
    ports["WAN_IFACE_INFO"]["swdev3"]["IP4_TYPE"] = "PPPOE";
    put(kStored, nm::write_compact_json(ports));
    pppoe_status status;
    EXPECT_EQ(edit_tunnels(1), get_pppoe_status("swdev3", &status) - 1702);
    EXPECT_EQ(steps(), "");
}

TEST(TunnelAddress, FollowsFromDeviceAndPort) {
    const std::tuple<int, int, const char*> cases[] = {
        {1, 1, "198.19.0.0"},        {1, 2, "198.19.0.1"},    {2, 1, "198.19.0.8"},
        {1, 9, "198.19.0.8"},        {32, 8, "198.19.0.255"}, {33, 1, "198.19.1.0"},
        {8192, 8, "198.19.255.255"}, {8193, 1, "198.20.0.0"}, {0, 1, "197.19.0.249"},
        {1 << 21, 1, "198.18.0.249"}};
    for (const auto& [device, port, expected] : cases) {
        std::string address;
        gen_tun_addr4(device, port, address);
        EXPECT_EQ(address, expected) << device << "/" << port;
    }
}

}  // namespace
