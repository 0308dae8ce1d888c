// Requests for LAN ports: which kind of port a model has and begins with, and which document a delete reads.

#include "fake_service.h"
#include "networkinterface.h"
#include "sandbox_fixture.h"

using namespace fixture;

namespace {

const std::string kNew = "/etc/networkmanagement/new.json";
const std::string kPort = "{'INTERFACE':'swdev2','DEV_TYPE':'ethernet','MTU':'1400','VLANS':";

std::string document(const std::string& vlans) {
    return quoted("{'VLAN_SEG':{'0':{'INTERFACE':'br_v0','VLANS':['0'],'MTU':'1300'}},'LAN_PORT':{'PORT2':" +
                  kPort + vlans + "}}}");
}

int request(int act, uint32_t ops) {
    const std::string member = "{'PORT2':{'act':" + std::to_string(act) + ",'ops':" + std::to_string(ops);
    return Setup_lanif(quoted(member + ",'path':'" + kNew + "'}}").data());
}

TEST(LanPort, IsOfTheKindThatTheModelHas) {
    const File fresh(kNew, document("['0']"));
    const File stored(kDeviceInfoPath, document("['0']"));
    // A port of its own gets its MTU, a trunk that of the bridge that it joins; others stay as they are.
    const std::string common = "{'INTERFACE':'NONE','MTU':'1500','DEV_TYPE':'";
    const std::string edge = common + "ethernet','SPEED':'AUTO','VLANS':[]}";
    const std::tuple<std::string, int, const char*, std::string> cases[] = {
        {"VM", 0, "1400", common + "virtio','SEG_ID':'','VLAN_ID':'0'}"},
        {"SOLA_301W", 0, "1300", common + "ethernet','MODE':'ACCESS','SPEED':'AUTO','VLANS':['0']}"},
        {"KERO_201", 0, "1300", common + "ethernet','EDMA_BMP':'8','EDMA_VLAN_TAG':'0','VLANS':['1']}"},
        {"VSola-321", 0, "1300", edge},
        {"VSola-322", 0, "1300", edge},
        {"vm", NM_ERR_BAD_TYPE, "1500", "null"},
        {"", NM_ERR_EMPTY, "1500", "null"}};
    for (const auto& [model, code, mtu, entry] : cases) {
        EXPECT_EQ(generate_default_lan_port("PORT99", model), json(entry)) << model;
        const FakeService ncaas("ncaas", {{"get_model", R"({"error":0,"data":")" + model + "\"}"}});
        const Device device("swdev2");
        run("ip link add br_v0 type bridge");
        EXPECT_EQ(request(1, 63), code) << model;
        EXPECT_EQ(fact("swdev2", "mtu"), mtu) << model;
        run("ip link del br_v0");
    }
}

TEST(LanPort, IsDeletedWholeByTheStoredStateAndInPartByBoth) {
    const FakeService ncaas("ncaas", {{"get_model", R"({"error":0,"data":"KERO_201"})"}});
    const File stored(kDeviceInfoPath, document("['0']"));
    const std::tuple<std::string, int, uint32_t, int, bool> cases[] = {
        {R"({"A":1})", 2, 63, 0, false},
        {R"({"A":1})", 2, 2, NM_ERR_NO_SECTION, true},
        {document("['0']"), 2, 2, 0, true},
        {document("[]"), 2, 2, 0, false},
        {document("[]"), 7, 2, NM_ERR_BAD_ACT, true}};
    for (const auto& [text, act, ops, code, stays] : cases) {
        const File fresh(kNew, text);
        const Device device("swdev2");
        run("ip link add br_v0 type bridge && ip link set swdev2 master br_v0");
        EXPECT_EQ(request(act, ops), code) << text << ops;
        EXPECT_EQ(get_bridge_slaves("br_v0").size(), stays ? 1U : 0U) << text << ops;
        EXPECT_TRUE(fs::exists("/var/lock/network/swdev2.lck") && is_lock_free("swdev2"));
        run("ip link del br_v0");
    }
}

}  // namespace
