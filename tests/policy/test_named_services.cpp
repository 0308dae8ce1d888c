// Rules and forwards that name services of the registry.
#include "golden.h"
#include "policy/common/named_services.h"
#include "policy/dnat/dnat.h"
#include "policy/firewall/firewall_rule.h"

using namespace fixture;

namespace {

struct NamedServices : testing::Test {
    const File registry{"/etc/networkmanagement/servicePort.json",
                        golden("service_registry").toStyledString()};
};

TEST_F(NamedServices, StandForThePortsOfARule) {
    std::unordered_map<std::string, std::string> hostnames;
    Json::Value device;
    for (const Json::Value& row : golden("service_rules")) {  // the services of a denying rule, its lines
        Json::Value rule = row[0];
        rule["ACTION"] = "DENY";
        EXPECT_EQ(gen_firewall_rule(rule, device, hostnames, "FIREWALL"), row[1].asString()) << row;
    }
}

TEST_F(NamedServices, StandForThePortsOfAForward) {
    nm::NamedServices services;
    for (const Json::Value& row : golden("service_forwards")) {  // as stored, as applied or null
        const std::optional<Json::Value> plain = nm::with_forward_ports(row[0], services);
        EXPECT_EQ(plain.value_or(Json::Value()), row[1]) << row;
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
