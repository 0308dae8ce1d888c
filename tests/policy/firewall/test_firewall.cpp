// The firewall, policy and steering documents: the scripts as they reach the restore command, with all
// commands around them, and what becomes of an apply that fails. That the scripts load, and what their rules
// do to packets, is shown in the test machine, whose kernel has the target VTARGET.

#include "fake_service.h"
#include "networkinterface.h"
#include "stand_in.h"
#include "utils/handles.h"

using namespace fixture;

namespace {

const std::string kMap = "/var/run/network/dnsmasq.d/ipset.conf";
const std::string kGolden = NM_TEST_DIR "/firewall/golden";
const std::string kAbsent = "case $* in *absent* | 'destroy HOSTNAME1') echo; exit 1;; esac";

Json::Value document(const fs::path& path) {
    Json::Value value;
    nm::parse_json(slurp(path), value);
    return value;
}

/// What all goldens share: sets and chains called absent are not there, and the set HOSTNAME1 is in use.
struct Firewall : testing::Test {
    Firewall() {
        put(kMap, "");
        put(kDeviceInfoPath, slurp(kGolden + "/device_info.json"));
    }
    int apply(const std::string& chain, Json::Value& before, Json::Value& now) {
        error = "untouched";
        return chain == "POLICY" ? setup_firewall_policy(before, now, error)
                                 : setup_firewall(before, now, "mangle", chain, error);
    }
    const File booted{"/var/run/network/.boot_fin"};
    const FakeService dnsmasq{"DnsmasqMgr", {{"Restart", R"({"error":0})"}}};
    const StandIn ipset{"/sbin/ipset", 0, kAbsent}, iptables{"/sbin/iptables", 0, kAbsent};
    std::string error;
};

/// A directory a case: documents, map of host names and default class in; commands, scripts and what is kept
/// out.
TEST_F(Firewall, WritesTheGoldenScripts) {
    const StandIn restore("/sbin/iptables-restore");
    int cases = 0;
    for (const fs::path& test : fs::directory_iterator(kGolden)) {
        if (!fs::is_directory(test)) {
            continue;
        }
        Json::Value before = document(test / "old.json");
        Json::Value now = document(test / "new.json");
        put(kMap, slurp(test / "ipset.conf"));
        const File qos("/etc/networkmanagement/qos.json", slurp(test / "qos.json"));
        const std::string name = test.filename();
        const std::string chain = name[0] == 'f' ? "FIREWALL" : name[0] == 's' ? "STEER" : "POLICY";
        const std::string result = std::to_string(apply(chain, before, now)) + " " + error;
        const std::string taken = FakeService::take_text() + "= " + result + "\n" +
                                  nm::show_json(now["CHAIN_NAME"]) + "\n" + slurp(kMap);
        EXPECT_EQ(taken, slurp(test / "expected.txt")) << test;
        ++cases;
    }
    EXPECT_EQ(cases, 12);
}

/// Two lines count for everything that was flushed and for every rule, whatever it made.
TEST_F(Firewall, NamesTheRuleInTheRefusedLine) {
    const std::string none = "untouched";
    const std::string rules = "{'RULES':{'SITE':[1,2],'abc':[3]}}";
    const std::string changed = "{'a':'b','c':'d'}";
    const std::tuple<std::vector<std::string>, std::string, std::string, std::string> cases[] = {
        {{"1", "5"}, "{}", rules, "FIREWALL SITE rule1 failed."},
        {{"6", "7"}, "{}", rules, "FIREWALL SITE rule2 failed."},
        {{"8", "10 of 12"}, "{}", rules, "FIREWALL abc rule1 failed."},
        {{"11", "0", "-1", "x"}, "{}", rules, none},
        {{"1", "6"}, changed, rules, "FIREWALL flush old rules failed."},
        {{"7"}, changed, rules, "FIREWALL SITE rule1 failed."},
        {{"3"}, "{}", "{'RULES':{'A':{},'B':[1]}}", none},
        {{"3"}, "{}", "{'RULES':[1,2]}", none}};
    for (const auto& [lines, chains, documents, words] : cases) {
        Json::Value before = json("{'CHAIN_NAME':{'FIREWALL':" + chains + ",'STEER':{'x':'y'}}}");
        Json::Value now = json(documents);
        for (const std::string& said : lines) {
            const std::string script =
                "echo 'iptables-restore: oh'; echo 'Error occurred at line: " + said + "'";
            error = none;
            EXPECT_EQ(exec_iptables_restore(script.c_str(), before, now, "FIREWALL", error), NM_ERR_SERVICE);
            EXPECT_EQ(error, words) << said << chains << documents;
        }
        EXPECT_EQ(exec_iptables_restore("echo 'line 3 failed'; exit 3", before, now, "FIREWALL", error), 0);
    }
}

/// What a rule must not hold is refused before anything is loaded, by the rule's own number.
TEST_F(Firewall, RefusesHostileValues) {
    const StandIn restore("/sbin/iptables-restore");
    int cases = 0;
    for (const std::string value :
         {"x\nEOF\ntouch /tmp/hit", "EOF\n", "$(touch /tmp/hit)", "`touch /tmp/hit`", "x;touch /tmp/hit",
          "\"", "' ; '", "\\", "x -j ACCEPT", "1 -j ACCEPT\n-A FIREWALL", "\xc3\xbc"}) {
        for (const std::string key :
             {"SRC_IP", "DST_IP", "SRC_PORT", "DST_PORT", "PROTOCOL", "SRC_SEG", "DST_SEG", "DST_HOSTNAME",
              "CLIENT_OS", "SRC_LAN", "SRC_VLAN", "key", "list"}) {
            Json::Value before;
            Json::Value now = json("{'RULES':{'abc':[{'ACTION':'ALLOW'},{'ACTION':'DENY'}]}}");
            Json::Value device = json("{'LAN_PORT':{'PORT3':{}},'VLAN_SEG':{'10':{}}}");
            device["LAN_PORT"]["PORT3"]["INTERFACE"] = value;
            device["VLAN_SEG"]["10"]["INTERFACE"] = value;
            put(kDeviceInfoPath, nm::write_compact_json(device));
            Json::Value& rule = now["RULES"]["abc"][1];
            std::string words = "FIREWALL abc rule2 failed.";
            if (key == "key") {
                now["RULES"][value] = Json::arrayValue;
                words = "FIREWALL " + value + " failed.";
            } else if (key == "list") {
                rule["SRC_IP"].append(value);
            } else {
                rule[key] = key == "SRC_LAN" ? "PORT3" : key == "SRC_VLAN" ? "10" : value;
            }
            EXPECT_EQ(apply("FIREWALL", before, now), NM_ERR_SERVICE) << key << value;
            EXPECT_EQ(error, words) << key;
            EXPECT_EQ(FakeService::take_text().find("restore"), std::string::npos) << key << value;
            ++cases;
        }
    }
    EXPECT_EQ(cases, 11 * 13);
    EXPECT_FALSE(fs::exists("/tmp/hit"));
    EXPECT_EQ(slurp(kMap), "");
    for (const std::string rules : {"[{'ACTION':'DENY'}]", "'DENY'", "1"}) {
        Json::Value before;
        Json::Value now = json("{'RULES':" + rules + "}");
        EXPECT_EQ(apply("FIREWALL", before, now), NM_ERR_SERVICE) << rules;
        EXPECT_EQ(error, "FIREWALL RULES failed.");
    }
    for (const std::string& name :
         {std::string(64, 'a') + ".example", std::string(254, '.'), std::string("a/b")}) {
        Json::Value before;
        Json::Value now = json("{'RULES':{'SITE':[{'ACTION':'ALLOW','DST_HOSTNAME':'" + name + "'}]}}");
        EXPECT_EQ(apply("FIREWALL", before, now), NM_ERR_SERVICE) << "dnsmasq would not start on " << name;
    }
}

TEST_F(Firewall, LeavesEverythingWithoutItsDocumentOrItsLock) {
    const StandIn restore("/sbin/iptables-restore");
    Json::Value before;
    Json::Value now = json("{'RULES':{'SITE':[{'ACTION':'DENY','DST_HOSTNAME':'a'}]}}");
    {
        const nm::LockGuard held("ipset.conf");
        EXPECT_EQ(apply("POLICY", before, now), NM_ERR_LOCK);
    }
    fs::remove(kDeviceInfoPath);
    EXPECT_EQ(apply("FIREWALL", before, now), NM_ERR_NOT_FOUND);
    EXPECT_EQ(FakeService::take_text(), "");
    EXPECT_EQ(error, "untouched");
}

/// A rule that is refused leaves neither a lock nor a map that is not true.
TEST_F(Firewall, ClearsUpBehindAFailure) {
    const StandIn restore("/sbin/iptables-restore", 0, "echo 'Error occurred at line: 3' >&2");
    Json::Value before;
    Json::Value now = json("{'RULES':{'SITE':[{'ACTION':'DENY','DST_HOSTNAME':'a'}]}}");
    EXPECT_EQ(apply("FIREWALL", before, now), NM_ERR_SERVICE);
    EXPECT_EQ(error, "FIREWALL SITE rule1 failed.");
    EXPECT_THAT(FakeService::take_text(),
                testing::EndsWith("ipset <destroy> <HOSTNAME0>\nDnsmasqMgr.Restart \n"));
    EXPECT_EQ(slurp(kMap), "");
    EXPECT_TRUE(is_lock_free("ipset.conf"));
}

TEST_F(Firewall, GivesEachHostNameASetWhileThereAreSome) {
    std::unordered_map<std::string, std::string> map;
    for (int i = 0; i < 2048; ++i) {
        map["h" + std::to_string(i)] = "HOSTNAME" + std::to_string(i);
    }
    map.erase("h5");
    Json::Value config = json(
        "{'RULES':{'a':[{'DST_HOSTNAME':'x'},{'DST_HOSTNAME':'x'},{'DST_HOSTNAME':['l']}],"
        "'b':[{'DST_HOSTNAME':'y'},{'DST_HOSTNAME':'z'}],'c':{'d':{'DST_HOSTNAME':'w'}}}}");
    EXPECT_EQ(create_new_hostname_ipset(map, config), NM_ERR_BAD_VALUE);
    EXPECT_EQ(map["x"], "HOSTNAME5");
    EXPECT_EQ(map.size(), 2048U);
    EXPECT_EQ(FakeService::take_text(), "ipset <create> <HOSTNAME5> <hash:net> <--exist>\n");
}

/// The classes are loaded by what PATH finds, all else by the commands' own paths.
TEST_F(Firewall, FindsItsCommands) {
    const StandIn restore("/sbin/iptables-restore");
    const Scratch dir;
    const std::string path = getenv("PATH");
    put(dir / "iptables-restore", "#!/bin/sh\necho \"by PATH $*\" >>/tmp/stand_in\n");
    put(dir / "cat", "#!/bin/sh\n");
    run("chmod +x " + (dir / "cat") + " " + (dir / "iptables-restore"));
    setenv("PATH", (dir / "").c_str(), 1);
    Json::Value nothing;
    for (const auto& [chain, first] :
         {std::pair{"POLICY", "by PATH -n\n"}, {"STEER", "iptables-restore <-n>\n"}}) {
        EXPECT_EQ(apply(chain, nothing, nothing), 0);
        EXPECT_THAT(FakeService::take_text(), testing::StartsWith(first));
    }
    setenv("PATH", path.c_str(), 1);
}

TEST_F(Firewall, WritesRulesForOthersToo) {
    std::unordered_map<std::string, std::string> map;
    Json::Value device = json(slurp(kDeviceInfoPath));
    Json::Value rules = json(
        "[{'ACTION':'DENY','SRC_SEG':'here','DST_PORT':'53','GROUP':1},{'ACTION':'DENY','SRC_SEG':'absent'}"
        "]");
    const std::string tail =
        " --dport 53 -m set --match-set seg-here src -j VTARGET --set-xmark 2048/3072 --return\n";
    const std::string both = "-A FIREWALL-x -p tcp -m tcp" + tail + "-A FIREWALL-x -p udp -m udp" + tail;
    EXPECT_EQ(gen_firewall_rule(rules[0], device, map, "FIREWALL-x"), both);
    EXPECT_EQ(gen_firewall_chain(rules, device, map, "FIREWALL-x"), both)
        << "a rule without its set is left out";
    EXPECT_EQ(gen_firewall_chain(rules[0], device, map, "FIREWALL"), "") << "no list";
    firewall_rule rule;
    EXPECT_EQ(gen_firewall_rule_internal(map, &rule, "FIREWALL"), "") << "it sets nothing";
    firewall_jsontostruct(rules[1], device, "POLICY", &rule);
    EXPECT_EQ(rule.mark, 0U);
    rule.mark = rule.mask = 64;
    EXPECT_EQ(gen_firewall_policy_rule_internal(map, &rule, "P"),
              "-A P -j VTARGET --set-xmark 64/64 --return\n");
    const std::string classed = " --dport 53 -j VTARGET --set-xmark 64/960 --return\n";
    EXPECT_EQ(gen_firewall_policy_chain(rules, device, map, "POLICY"),
              "-A POLICY -p tcp -m tcp" + classed + "-A POLICY -p udp -m udp" + classed);
    EXPECT_EQ(gen_firewall_policy_rule(rules[1], device, map, "POLICY"), "");
}

TEST(NatRules, AreTheServices) {
    char ip[] = "10.0.0.0";
    for (const auto& [reply, result] : std::initializer_list<std::pair<std::string, int>>{
             {R"({"error":0})", 0}, {R"({"error":-1606})", 0}, {R"({"error":-5})", -5}, {"", NM_ERR_PARSE}}) {
        const FakeService service("NetworkService", {{"firewall.nat.DelNATrule", reply}});
        EXPECT_EQ(delete_nat_rule(ip, 24, "in\"", "out"), result) << reply;
        EXPECT_EQ(FakeService::take_text(),
                  "NetworkService.firewall.nat.DelNATrule {\"incomingif\":\"in\\\"\",\"ip\":"
                  "\"10.0.0.0\",\"netmask\":\"24\",\"outgoingif\":\"out\"}\n");
    }
    std::string rules = "untouched";
    EXPECT_EQ(show_nat_rule(rules), NM_ERR_BUS_CALL);
    const FakeService service("NetworkService",
                              {{"firewall.nat.ShowNATrule", R"({"error":0,"data":["r"]})"}});
    EXPECT_EQ(show_nat_rule(rules), 0);
    EXPECT_EQ(rules, "[\"r\"]\n");
    EXPECT_EQ(FakeService::take_text(), "NetworkService.firewall.nat.ShowNATrule \n");
}

}  // namespace
