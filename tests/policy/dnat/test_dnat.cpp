// Port forwards: the lines of each entry, the scripts as they reach the restore commands, and what a refused
// line leaves. Packets through them are shown in the test machine.

#include "control/edge_entries.h"
#include "golden.h"
#include "kernel_world.h"
#include "policy/dnat/dnat.h"
#include "stand_in.h"

using namespace kernel_world;

namespace {

constexpr const char* kDevice = "/etc/networkmanagement/device_info.json";

Json::Value device_document() {
    return json(
        "{'WAN_PORT':{'PORT2':{'INTERFACE':'swdev2','DEV_TYPE':'ethernet'},'PORT3':{'INTERFACE':'swdev3',"
        "'DEV_TYPE':'ethernet'}},'WAN_IFACE_INFO':{'swdev2':{'IP4_TYPE':'STATIC','IP4_ADDR':'192.0.2.2'},"
        "'swdev3':{'IP4_TYPE':'PPPOE'}}}");
}

std::string forward(const std::string& members) {
    return "{'TYPE':'port_forwarding','ACTION':'ENABLE','WAN_PORTNAME':'PORT2','LAN_IP':'10.0.0.5'," +
           members + "}";
}

TEST(Forward, HasTheLinesOfItsKind) {
    Json::Value device = device_document();
    std::vector<available_base_wan_status> wans(2);
    wans[0].ifname = "swdev2", wans[0].ip4.addr = "192.0.2.2", wans[1].ifname = "ppp-swdev3";
    for (const Json::Value& row : golden("forward_lines")) {  // the entry, then lines of sets, nat and mangle
        Json::Value rule = row[0];
        std::string sets, nat, mangle;
        gen_dnat_rule(rule, device, sets, nat);
        gen_dnat_prerouting_rule(rule, device, wans, mangle);
        EXPECT_EQ(sets, row[1].asString()) << row;
        EXPECT_EQ(nat, row[2].asString()) << row;
        EXPECT_EQ(mangle, row[3].asString()) << row;
    }
}

/// The device swdev2 with its address, and the restore commands replaced by recorders.
struct Forwards : Frugal {
    void SetUp() override {
        run("ip link add swdev2 type veth peer name far2; ip addr add 192.0.2.2/24 dev swdev2");
        put(kDevice, nm::write_compact_json(device_document()));
    }
    void TearDown() override {
        run("ip link del swdev2; rm -f " + std::string(kDevice) + " /etc/networkmanagement/firewall.json");
    }
    std::string error;
    Json::Value none;
};

TEST_F(Forwards, AreLoadedAsThreeScripts) {
    const StandIn sets("/sbin/ipset"), rules("/sbin/iptables-restore", 1);
    Json::Value old = json("[{}]");
    Json::Value list = json("[" + forward("'TCP_WAN_PORT':'80','IPSET_NAME':'other'") + "," +
                            forward("'TCP_WAN_PORT':'81','ALLOWED_REMOTE_IPS':['1.2.3.4']") + "," +
                            forward("'TYPE':'foo','TCP_WAN_PORT':'82'") + ",null]");
    EXPECT_EQ(setup_dnat(old, list, error, kDevice), 0) << "only the restore command's words tell a failure";
    EXPECT_EQ(StandIn::take(), slurp(NM_TEST_DIR "/golden/forward_scripts.txt"));
    EXPECT_EQ(list[0]["IPSET_NAME"], "DNAT0");
    EXPECT_EQ(list[2]["ACTION"], "DISABLE");
    std::string args = "{}";
    EXPECT_EQ(Reload_dnat(args.data()), -1020) << "no firewall document";
    put("/etc/networkmanagement/firewall.json", "{}");
    EXPECT_EQ(Reload_dnat(args.data()), 0);
    EXPECT_EQ(StandIn::take(), "") << "no list, nothing to do";
    put("/etc/networkmanagement/firewall.json", "{\"PORT_FORWARDING\":[]}");
    EXPECT_EQ(Reload_dnat(args.data()), 0);
    EXPECT_NE(StandIn::take().find("*nat\n-F PORT_FORWARDING\n"), std::string::npos);
    put("/etc/networkmanagement/firewall.json", "{\"PORT_FORWARDING\":{}}");
    EXPECT_EQ(Reload_dnat(args.data()), -1012);
    EXPECT_TRUE(log.has("setup_dnat fail. ret = -1012"));
}

TEST_F(Forwards, AreRefusedBeforeAnythingIsTouched) {
    const StandIn sets("/sbin/ipset"), rules("/sbin/iptables-restore");
    const std::string web = forward("'TCP_WAN_PORT':'80'");
    std::string hundred;
    for (int i = 0; i < 100; ++i) {
        hundred += "{'WAN_PORTNAME':'PORT" + std::to_string(i) + "'},";
    }
    const std::tuple<std::string, int, std::string, std::string> cases[] = {
        {"{}", -1012, "conf is not arrayValue", ""},
        {"[" + hundred + "{}]", -1012, "conf size is larger than 100", ""},
        {"[" + hundred + "null]", -1012, "conf size is larger than 100", ""},
        {"[" + web + ",null," + web + "]", -1012, "conf is not valid.", ""},
        {"[" + forward("'UDP_WAN_PORT':'5'") + "," + forward("'TCP_WAN_PORT':'80','UDP_WAN_PORT':'5'") + "]",
         -1012, "conf is not valid.", ""},
        {"[{'WAN_PORTNAME':'PORT2','TYPE':'1to1NAT'},{'WAN_PORTNAME':'PORT2'}]", -1012, "conf is not valid.",
         ""},
        {"[{'WAN_PORTNAME':'PORT2'},{'WAN_PORTNAME':'PORT2','TYPE':'1to1NAT'}]", -1012, "conf is not valid.",
         ""},
        {"[" + web + "," + forward("'UDP_WAN_PORT':'1\\nx'") + "]", -1011, "",
         "PORT_FORWARDING rule2 failed."},
        {"[" + forward("'TCP_WAN_PORT':'1','ALLOWED_REMOTE_IPS':['1.2.3.4 x']") + "]", -1011, "",
         "PORT_FORWARDING rule1 failed."},
    };
    for (const auto& [text, result, words, reply] : cases) {
        Json::Value list = json(text);
        error = "";
        EXPECT_EQ(setup_dnat(none, list, error, kDevice), result) << text;
        EXPECT_TRUE(log.has(words + reply)) << words;
        EXPECT_EQ(error, reply);
    }
    Json::Value list = json("[" + web + "]");
    EXPECT_EQ(setup_dnat(none, list, error, "/absent.json"), -1020);
    EXPECT_EQ(StandIn::take(), "");
    list = json("[" + hundred.substr(0, hundred.size() - 1) + "]");
    EXPECT_EQ(setup_dnat(none, list, error, kDevice), 0) << "a hundred pass";
    list = json("[" + web + "," + forward("'TCP_WAN_PORT':'80,443'") + "," +
                forward("'WAN_PORTNAME':'PORT3','TCP_WAN_PORT':'80'") + "]");
    EXPECT_EQ(setup_dnat(none, list, error, kDevice), 0) << "whole texts and ports are compared";
    StandIn::take();
}

TEST_F(Forwards, NameTheRuleOfTheRefusedLine) {
    Json::Value list =
        json("[" + forward("'TCP_WAN_PORT':'1','UDP_WAN_PORT':'2'") + "," +
             forward("'ACTION':'DISABLE','TCP_WAN_PORT':'3'") + "," + forward("'TCP_WAN_PORT':'4'") + "]");
    const std::string flush = "NAT flush old rules failed.", first = "NAT rule1 failed.";
    for (const auto& [line, words] : std::map<std::string, std::string>{{"1", flush},
                                                                        {"2", flush},
                                                                        {"3", first},
                                                                        {"4", first},
                                                                        {"5", "NAT rule3 failed."},
                                                                        {"6", ""},
                                                                        {"x", ""}}) {
        error = "";
        const std::string script = "echo 'Error occurred at line: " + line + "'; exit 0";
        EXPECT_EQ(exec_iptables_restore(script.c_str(), list, "NAT", error), -1011);
        EXPECT_EQ(error, words) << line;
    }
    EXPECT_EQ(exec_iptables_restore("echo Refused; exit 1", list, "NAT", error), 0);
}

/// With the real commands: what is loaded, and that a refused list leaves the old rules.
TEST_F(Forwards, ReachTheKernelWholeOrNotAtAll) {
    const auto rules = [] { return exec("iptables-save | grep -v '^#' | sed 's/\\[.*//'"); };
    run("set -e; for c in PORT_FORWARDING HAIRPIN_FWD HAIRPIN_MASQ FOREIGN; do iptables -t nat -N $c; done; "
        "iptables -t mangle -N DNATPREROUTING; iptables -t nat -A FOREIGN -j RETURN");
    Json::Value list = json("[" + forward("'TCP_WAN_PORT':'80','ALLOWED_REMOTE_IPS':['198.51.100.0/24']") +
                            "," + forward("'PROTOCOL':'esp'") + "]");
    ASSERT_EQ(setup_dnat(none, list, error, kDevice), 0) << error;
    const std::string loaded = rules();
    for (const char* const line :
         {"-A PORT_FORWARDING -i swdev2 -p tcp -m set --match-set DNAT0 src",
          "-A HAIRPIN_MASQ -d 10.0.0.5/32 -p esp -j MASQUERADE", "--ctorigdst 192.0.2.2",
          "--set-xmark 0x1002/0x100f", "-A FOREIGN -j RETURN"}) {
        EXPECT_NE(loaded.find(line), std::string::npos) << line << "\n" << loaded;
    }
    EXPECT_NE(exec("ipset list DNAT0").find("198.51.100.0/24"), std::string::npos);
    // What ipset would read as two lines, the second of which empties all sets.
    const std::string cut =
        "'PROTOCOL':'esp','ALLOWED_REMOTE_IPS':['1.1.1.1/" + std::string(1003, '0') + "32flush']";
    const std::pair<std::string, const char*> refusals[] = {
        {"'TCP_WAN_PORT':'99999'", "PORT_FORWARDING: the restore command refused line 8"},
        {"'TCP_WAN_PORT':'1 -j ACCEPT'", "PORT_FORWARDING rule2 failed."},
        {"'LAN_PORT':'$(touch /tmp/run)','TCP_WAN_PORT':'1'", "PORT_FORWARDING rule2 failed."},
        {"'LAN_IP':'`touch /tmp/run`'", "PORT_FORWARDING rule2 failed."},
        {"'LAN_PORT':'1,2','TCP_WAN_PORT':'80'", "PORT_FORWARDING: the restore command refused line"},
        {"'WAN_PORTNAME':'PORT9','TCP_WAN_PORT':'80'", "PORT_FORWARDING: the restore command refused line"},
        {"'TCP_WAN_PORT':'%n'", "PORT_FORWARDING: the restore command refused line"},
        {"'TCP_WAN_PORT':'" + std::string(65536, '8') + "'", "PORT_FORWARDING: "},
        {"'TCP_WAN_PORT':'80\\nEOF\\ntouch /tmp/run'", "PORT_FORWARDING rule2 failed."},
        {cut, "PORT_FORWARDING rule2 failed."}};
    for (const auto& [bad, words] : refusals) {
        Json::Value refused = json("[" + forward("'PROTOCOL':'esp'") + "," + forward(bad) + "]");
        EXPECT_EQ(setup_dnat(list, refused, error, kDevice), -1011) << bad;
        EXPECT_TRUE(log.has(words)) << bad;
        EXPECT_EQ(rules(), loaded) << bad;
        EXPECT_NE(exec("ipset list DNAT0").find("198.51.100.0/24"), std::string::npos) << bad;
        EXPECT_FALSE(fs::exists("/tmp/run"));
    }
    Json::Value wrong =
        json("[" + forward("'TCP_WAN_PORT':'80','ALLOWED_REMOTE_IPS':['1.2.3.4','300.1.1.1']") + "," +
             forward("'TCP_WAN_PORT':'81','ALLOWED_REMOTE_IPS':['9.9.9.9','9.9.9.9','8.8.8.8']") + "]");
    EXPECT_EQ(setup_dnat(none, wrong, error, kDevice), 0);
    EXPECT_TRUE(log.has("PORT_FORWARDING rule1: its remote addresses are refused, it admits nobody."));
    EXPECT_EQ(exec("for i in 0 1; do ipset save DNAT$i | sed 1d | sort; done"),
              "add DNAT1 8.8.8.8\nadd DNAT1 9.9.9.9\n");
    run("iptables -t nat -F; iptables -t nat -X; iptables -t mangle -F; iptables -t mangle -X; ipset "
        "destroy");
}

}  // namespace
