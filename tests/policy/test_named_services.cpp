// Rules and forwards that name services of the registry.
#include "policy/common/named_services.h"
#include "policy/dnat/dnat.h"
#include "policy/firewall/firewall_rule.h"
#include "sandbox_fixture.h"

using namespace fixture;

namespace {

const std::string kManyPorts = "1,3,5,7,9,11,13,15,17,19,20001,20003,20005,20007,20009,20011";

struct NamedServices : testing::Test {
    const File registry{
        "/etc/networkmanagement/servicePort.json",
        quoted("{'dbversion':'0.0.3','PREDEFINED':[{'service':'Web Server','protocol':'All',"
               "'ports':'80, 8081'},{'service':'SQL Server','protocol':'TCP','ports':'3306'}],"
               "'USER_DEFINED':[{'service':'Media','protocol':'UDP','ports':'5000~5010'},"
               "{'service':'Many','protocol':'TCP','ports':'" +
               kManyPorts +
               "'},"
               "{'service':'Broken','protocol':'TCP','ports':'$(id)'}]}")};
};

TEST_F(NamedServices, StandForThePortsOfARule) {
    const std::string head = "-A FIREWALL -p ", end = " -j VTARGET --set-xmark 2048/3072 --return\n";
    const std::string web = " -m multiport --dports 80,8081";
    const std::pair<std::string, std::string> cases[] = {
        {"'DST_SERVICE':'web server'", head + "tcp" + web + end + head + "udp" + web + end},
        {"'DST_SERVICE':'Web Server','PROTOCOL':'UDP'", head + "udp" + web + end},
        {"'DST_SERVICE':'SQL Server','PROTOCOL':'all'", head + "tcp -m tcp --dport 3306" + end},
        {"'SRC_SERVICE':'Media','DST_PORT':'7'",
         head + "udp -m udp --sport 5000:5010 -m udp --dport 7" + end},
        {"'DST_SERVICE':'Media','DST_PORT':'7','PROTOCOL':'tcp'", head + "tcp -m tcp --dport 7" + end},
        {"'DST_SERVICE':'','DST_PORT':''", "-A FIREWALL" + end},
        {"'SRC_SERVICE':'SQL Server','DST_SERVICE':'Media'", ""},
        {"'DST_SERVICE':'Media','PROTOCOL':'tcp'", ""},
        {"'DST_SERVICE':'SQL Server','PROTOCOL':'icmp'", ""},
        {"'DST_SERVICE':'nothing'", ""},
        {"'DST_SERVICE':['SQL Server']", ""},
        {"'DST_SERVICE':3306", ""},
        {"'DST_SERVICE':'Many'", ""},
        {"'DST_SERVICE':'Broken'", ""},
    };
    std::unordered_map<std::string, std::string> hostnames;
    Json::Value device;
    for (const auto& [members, lines] : cases) {
        Json::Value rule = json("{'ACTION':'DENY'," + members + "}");
        EXPECT_EQ(gen_firewall_rule(rule, device, hostnames, "FIREWALL"), lines.empty() ? "" : lines)
            << members;
    }
}

TEST_F(NamedServices, StandForThePortsOfAForward) {
    nm::NamedServices services;
    const std::pair<std::string, std::string> cases[] = {
        {"{'WAN_SERVICE':'Web Server','X':1}",
         "{'WAN_SERVICE':'Web Server','X':1,'TCP_WAN_PORT':'80,8081','UDP_WAN_PORT':'80,8081'}"},
        {"{'WAN_SERVICE':'Media'}", "{'WAN_SERVICE':'Media','UDP_WAN_PORT':'5000-5010'}"},
        {"{'WAN_SERVICE':'Media','TCP_WAN_PORT':'1'}", "{'WAN_SERVICE':'Media','TCP_WAN_PORT':'1'}"},
        {"{'WAN_SERVICE':'nothing'}", ""},
        {"{}", "{}"}};
    for (const auto& [before, after] : cases) {
        const std::optional<Json::Value> plain = nm::with_forward_ports(json(before), services);
        EXPECT_EQ(plain.has_value(), !after.empty()) << before;
        EXPECT_TRUE(!plain || *plain == json(after)) << *plain;
    }
    const LogTail log;
    const File device(kDeviceInfoPath, "{}");
    Json::Value none, list = json("[{'TYPE':'foo'},{'WAN_SERVICE':'nothing'}]");
    std::string error;
    EXPECT_EQ(setup_dnat(none, list, error, kDeviceInfoPath), NM_ERR_SERVICE);
    EXPECT_EQ(error, "PORT_FORWARDING rule2 failed.");
    EXPECT_TRUE(log.has("A rule names a service that is not known: nothing"));
}

}  // namespace
