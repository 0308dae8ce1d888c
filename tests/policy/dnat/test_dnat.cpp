// Port forwards: the lines of each entry, the scripts as they reach the restore commands, and what a refused
// line leaves. Packets through them are shown in the test machine.

#include "control/edge_entries.h"
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
    const std::string to = " -j DNAT --to-destination 10.0.0.5", masq = "-A HAIRPIN_MASQ -d 10.0.0.5";
    const std::string in = "-A PORT_FORWARDING -i swdev2", pin = "-A HAIRPIN_FWD";
    const std::string end =
        " -m conntrack --ctstate DNAT --ctorigdst 192.0.2.2 -j MARK --set-mark 4098/4111\n";
    const std::string reply = "-A DNATPREROUTING";
    const auto three = [&](const std::string& wan, const std::string& target, const std::string& lan) {
        return in + wan + to + target + "\n" + pin + wan + to + target + "\n" + masq + lan +
               " -j MASQUERADE\n";
    };
    const struct {
        std::string rule, sets, nat, mangle;
    } cases[] = {
        {forward("'TCP_WAN_PORT':'80','LAN_PORT':'8080'"), "",
         three(" -p tcp --dport 80", ":8080", " -p tcp --dport 8080"), reply + " -p tcp --sport 8080" + end},
        {forward("'TCP_WAN_PORT':80,'LAN_PORT':8080"), "",
         three(" -p tcp --dport 80", ":8080", " -p tcp --dport 8080"), reply + " -p tcp --sport 8080" + end},
        {forward("'TCP_WAN_PORT':'80','LAN_PORT':['8080']"), "", "", ""},
        {forward("'TCP_WAN_PORT':'80','ALLOWED_REMOTE_IPS':[['1.2.3.4']]"), "", "", ""},
        {forward("'UDP_WAN_PORT':'8000-8010','LAN_PORT':'9000-9010'"), "",
         three(" -p udp --dport 8000:8010", "", " -p udp --dport 9000:9010"),
         reply + " -p udp --sport 9000:9010" + end},
        {forward("'TCP_WAN_PORT':'80,443'"), "",
         three(" -p tcp -m multiport --dports 80,443", "", " -p tcp -m multiport --dports 80,443"),
         reply + " -p tcp -m multiport --sport 80,443" + end},
        {forward("'TCP_WAN_PORT':'80,81','UDP_WAN_PORT':'5','LAN_PORT':'7'"), "",
         three(" -p tcp -m multiport --dports 80,81", ":7", " -p tcp -m multiport --dports 7") +
             three(" -p udp --dport 5", ":7", " -p udp --dport 7"),
         reply + " -p tcp --sport 7" + end + reply + " -p udp --sport 7" + end},
        {forward("'PROTOCOL':'ESP'"), "",
         in + " -p esp " + to + "\n" + pin + " -p esp " + to + "\n" + masq + " -p esp -j MASQUERADE\n",
         reply + " -p esp" + end},
        {forward("'PROTOCOL':'tcp'"), "", "", ""},
        {forward(
             "'TCP_WAN_PORT':'22','IPSET_NAME':'DNAT4','ALLOWED_REMOTE_IPS':['198.51.100.0/24',7,'1.2.3.4']"),
         "flush DNAT4\nadd DNAT4 198.51.100.0/24\nadd DNAT4 7\nadd DNAT4 1.2.3.4\n",
         in + " -m set --match-set DNAT4 src -p tcp --dport 22" + to + "\n" + pin +
             " -m set --match-set DNAT4 src -p tcp --dport 22" + to + "\n" + masq +
             " -p tcp --dport 22 -j MASQUERADE\n",
         reply + " -p tcp --sport 22" + end},
        {"{'TYPE':'1to1NAT','ACTION':'ENABLE','WAN_PORTNAME':'PORT2','LAN_IP':'10.0.0.5','LAN_PORT':'1',"
         "'TCP_WAN_PORT':'2'}",
         "", in + to + "\n", reply + end},
        {"{'TYPE':'1to1NAT','ACTION':'ENABLE','WAN_PORTNAME':'PORT3','LAN_IP':'10.0.0.5'}", "",
         "-A PORT_FORWARDING -i ppp-swdev3" + to + "\n", ""},
        {forward("'TCP_WAN_PORT':'22','ACTION':'DISABLE'"), "", "", ""},
        {forward("'TCP_WAN_PORT':'22','TYPE':'foo'"), "", "", ""},
        {forward("'TCP_WAN_PORT':'1 -j ACCEPT'"), "", "", ""},
        {forward("'PROTOCOL':'esp','IPSET_NAME':'a\\nadd b','ALLOWED_REMOTE_IPS':['1.2.3.4']"), "", "", ""},
        {"7", "", "", ""},
    };
    Json::Value device = device_document();
    std::vector<available_base_wan_status> wans(2);
    wans[0].ifname = "swdev2", wans[0].ip4.addr = "192.0.2.2", wans[1].ifname = "ppp-swdev3";
    for (const auto& one : cases) {
        Json::Value rule = json("[" + one.rule + "]")[0];
        std::string sets, nat, mangle;
        gen_dnat_rule(rule, device, sets, nat);
        gen_dnat_prerouting_rule(rule, device, wans, mangle);
        EXPECT_EQ(sets, one.sets) << one.rule;
        EXPECT_EQ(nat, one.nat) << one.rule;
        EXPECT_EQ(mangle, one.mangle) << one.rule;
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
    EXPECT_EQ(
        StandIn::take(),
        "ipset <restore>\ncreate DNAT1 hash:net --exist\ncreate DNAT2 hash:net --exist\n"
        "create DNAT3 hash:net --exist\nflush DNAT1\nadd DNAT1 1.2.3.4\n"
        "iptables-restore <-n>\n*nat\n-F PORT_FORWARDING\n-F HAIRPIN_FWD\n-F HAIRPIN_MASQ\n"
        "-A PORT_FORWARDING -i swdev2 -p tcp --dport 80 -j DNAT --to-destination 10.0.0.5\n"
        "-A HAIRPIN_FWD -p tcp --dport 80 -j DNAT --to-destination 10.0.0.5\n"
        "-A HAIRPIN_MASQ -d 10.0.0.5 -p tcp --dport 80 -j MASQUERADE\n"
        "-A PORT_FORWARDING -i swdev2 -m set --match-set DNAT1 src -p tcp --dport 81 -j DNAT "
        "--to-destination 10.0.0.5\n"
        "-A HAIRPIN_FWD -m set --match-set DNAT1 src -p tcp --dport 81 -j DNAT --to-destination 10.0.0.5\n"
        "-A HAIRPIN_MASQ -d 10.0.0.5 -p tcp --dport 81 -j MASQUERADE\nCOMMIT\n"
        "iptables-restore <-n>\n*mangle\n-F DNATPREROUTING\n"
        "-A DNATPREROUTING -p tcp --sport 80 -m conntrack --ctstate DNAT --ctorigdst 192.0.2.2 -j MARK "
        "--set-mark 4098/4111\n"
        "-A DNATPREROUTING -p tcp --sport 81 -m conntrack --ctstate DNAT --ctorigdst 192.0.2.2 -j MARK "
        "--set-mark 4098/4111\n"
        "-A DNATPREROUTING -m mark --mark 4096/4096 -j ACCEPT\nCOMMIT\n");
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
    const struct {
        std::string list;
        int result;
        std::string words, error;
    } cases[] = {
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
    for (const auto& one : cases) {
        Json::Value list = json(one.list);
        error = "";
        EXPECT_EQ(setup_dnat(none, list, error, kDevice), one.result) << one.list;
        EXPECT_TRUE(log.has(one.words + one.error)) << one.words;
        EXPECT_EQ(error, one.error);
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
