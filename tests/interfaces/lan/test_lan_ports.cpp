// LAN ports and the bridges of VLAN segments as the kernel has them afterwards. Devices that are called like
// VLAN devices stand for those here, where the kernel has none; tests/vm has the real ones.
#include <list>

#include "interfaces/lan/LanInterface.h"
#include "interfaces/lan/VlanBrif.h"
#include "stand_in.h"

using namespace fixture;

namespace {

constexpr uint32_t kAll = 63;
const std::string kSegment = "{'INTERFACE':'br_v10','VLANS':['10']";
const std::string kTrunk = "{'INTERFACE':'swdev2','DEV_TYPE':'ethernet','VLANS':";

std::string mtus(const std::string& bridge, const std::string& trunk) {
    return fact(bridge, "mtu") + " " + fact(trunk, "mtu") + " " + fact(trunk + ".10", "mtu");
}

std::string document(const std::string& segments, const std::string& ports) {
    return quoted("{'VLAN_SEG':{" + segments + "},'LAN_PORT':{" + ports + "}}");
}

/// Trunks with devices of VLANs 10, 20 and 30, and the removal of bridges.
struct Lan : testing::Test {
    Lan() {
        for (const char* name : {"swdev2", "swdev3", "swdev2.10", "swdev2.20", "swdev2.30", "swdev3.10"}) {
            devices.emplace_back(name, true, "far" + std::to_string(devices.size()));
        }
    }
    ~Lan() override { run("for b in $(ls /sys/class/net | grep br_v); do ip link del $b; done"); }

    static int trunk(int (TagLanInterface::*operation)(uint32_t), uint32_t opt,
                     const std::string& cfg = "null", const char* port = "PORT2") {
        TagLanInterface* lan = nullptr;
        EXPECT_EQ(create_LAN(&lan, port, kDeviceInfoPath, json(cfg)), 0);
        const std::unique_ptr<TagLanInterface> owner(lan);
        return (lan->*operation)(opt);
    }
    static int bridge(uint32_t act, uint32_t opt, const char* seg = "10") {
        return _setup_vlanbr(seg, act, opt, kDeviceInfoPath, Json::Value());
    }
    static std::string members() { return exec("ls /sys/class/net/br_v*/brif | grep swdev | tr '\\n' ' '"); }

    std::list<Device> devices;
};

TEST_F(Lan, MembersFollowTheBridgeAndTrunksAreOnlyRaised) {
    // The segment's MTU and that of both trunks; then bridge, first trunk and its member; then a new MTU of
    // the segment and what that makes of them.
    const std::tuple<const char*, const char*, const char*, const char*, const char*> cases[] = {
        {"9000", "1500", "9000 9000 9000", "1300", "1300 9000 1300"},
        {"1400", "1500", "1400 1500 1400", "1500", "1500 1500 1500"},
        {"1500", "4000", "1500 4000 1500", "4001", "4001 4001 4001"},
        {"2000", "2000", "2000 2000 2000", "70000", "2000 2000 2000"}};
    for (const auto& [mtu, trunk_mtu, joined, new_mtu, altered] : cases) {
        const std::string ports =
            "'PORT2':" + kTrunk + "['10']},'PORT3':{'INTERFACE':'swdev3','DEV_TYPE':'virtio','VLANS':[10]}";
        put(kDeviceInfoPath, document("'10':" + kSegment + ",'MTU':'" + mtu + "'}", ports));
        run(std::string("for d in swdev2 swdev3; do ip link set $d mtu ") + trunk_mtu + "; done");
        run("for d in swdev2 swdev3; do ip link set $d.10 mtu 1500; done; ip link add br_v10 type bridge");
        const LogTail first;
        EXPECT_EQ(bridge(3, 7), 0);
        EXPECT_EQ(mtus("br_v10", "swdev2"), "1500 " + std::string(trunk_mtu) + " 1500") << "it waits";
        EXPECT_EQ(trunk(&TagLanInterface::add_if, kAll), 0) << mtu;
        EXPECT_TRUE(first.has("Setup very first bridge MTU.") && !first.has("first bridge MTU failed"));
        EXPECT_EQ(mtus("br_v10", "swdev2"), joined);
        const LogTail second;
        EXPECT_EQ(trunk(&TagLanInterface::add_if, kAll, "null", "PORT3.7"), 0);
        EXPECT_FALSE(second.has("very first bridge"));
        EXPECT_EQ(mtus("br_v10", "swdev3"), joined);
        put(kDeviceInfoPath, document("'10':" + kSegment + ",'MTU':'" + new_mtu + "'}", ports));
        EXPECT_EQ(bridge(3, 2), 0);
        EXPECT_EQ(mtus("br_v10", "swdev3"), joined) << "the MTU was not what changed";
        EXPECT_EQ(bridge(3, 1), std::string(new_mtu) == "70000" ? NM_ERR_IOCTL : 0);
        EXPECT_EQ(mtus("br_v10", "swdev2") + mtus("br_v10", "swdev3"), std::string(altered) + altered);
        run("ip link del br_v10");
    }
}

TEST_F(Lan, VlansAreWorkedByTheirDifferenceFromTheStoredState) {
    const std::string wanted = document("'10':" + kSegment + "}", "'PORT2':" + kTrunk + "['30','20','20']}");
    put(kDeviceInfoPath, document("'10':" + kSegment + "}", "'PORT2':" + kTrunk + "['20','10']}"));
    constexpr auto add = &TagLanInterface::add_if;
    constexpr auto del = &TagLanInterface::del_if;
    constexpr auto alt = &TagLanInterface::alt_if;
    // Of the three VLANs one left, one stays and one came; which of them are members before and after.
    const std::tuple<int (TagLanInterface::*)(uint32_t), uint32_t, const char*, std::string> cases[] = {
        {add, 4, "10", "swdev2.10 swdev2.30 "},
        {add, kAll, "10", "swdev2.10 swdev2.20 swdev2.30 "},
        {del, 2, "10 20 30", "swdev2.20 swdev2.30 "},
        {del, kAll, "10 20 30", "swdev2.10 "},
        {alt, 2, "10", "swdev2.30 "},
        {alt, kAll, "10 20", "swdev2.20 swdev2.30 "},
        {alt, ~2U, "10", "swdev2.10 "}};
    for (const auto& [operation, opt, before, after] : cases) {
        run("for v in 10 20 30; do ip link add br_v$v type bridge; done");
        run(std::string("for v in ") + before + "; do ip link set swdev2.$v master br_v$v; done");
        (void)trunk(operation, opt, wanted);  // that of devices that only the VM can delete
        EXPECT_EQ(members(), after) << opt << " " << before;
        run("for v in 10 20 30; do ip link del br_v$v; done");
    }
    put(kDeviceInfoPath, document("'10':" + kSegment + "}", "'PORT9':" + kTrunk + "[]}"));
    EXPECT_EQ(trunk(alt, 2, wanted), NM_ERR_NO_SECTION) << "nothing to compare with";
}

TEST_F(Lan, VlanZeroIsTheTrunkItself) {
    put(kDeviceInfoPath, document("'0':{'INTERFACE':'br_v0','VLANS':['0'],'MTU':'1400'}",
                                  "'PORT2':" + kTrunk + "['0','4096']}"));
    EXPECT_EQ(bridge(1, 7, "0"), 0);
    EXPECT_EQ(members(), "") << "only its own set-up may take a trunk";
    EXPECT_EQ(trunk(&TagLanInterface::add_if, kAll), 0);
    EXPECT_EQ(members() + fact("br_v0", "mtu") + fact("swdev2", "mtu"), "swdev2 14001400");
    EXPECT_EQ(trunk(&TagLanInterface::del_if, kAll), 0);
    EXPECT_EQ(members() + fact("swdev2", "mtu"), "1400");
    const std::string mixed = "['9','4095',0,'4096','x',null,'-1','9',{}]}}}";
    EXPECT_EQ(TagLanInterface("P", "/p", json("{'LAN_PORT':{'P':" + kTrunk + mixed)).get_vlans(),
              (std::vector<int>{9, 4095, 0}));
}

TEST_F(Lan, WhatATrunkThatWasDownLeftIsHealed) {
    put(kDeviceInfoPath, document("'10':" + kSegment + "}", "'PORT2':" + kTrunk + "['10','20']}"));
    run("for d in swdev2 swdev2.10; do ip link set $d address 02:00:00:00:02:02; done; ip link set swdev2 "
        "down");
    const std::string own = fact("swdev2.20", "address");
    const StandIn inspection("/usr/sbin/network-dpi.sh", 3);
    run("ip link add br_v10 type bridge");
    const LogTail log;
    EXPECT_EQ(trunk(&TagLanInterface::add_if, kAll), 0);
    EXPECT_EQ(fact("swdev2", "flags"), "0x1003") << "up, or its VLANs would be dead";
    EXPECT_EQ(fact("swdev2.10", "address") + fact("swdev2.20", "address"), "02:00:0a:00:02:02" + own);
    EXPECT_TRUE(log.has("setup_dpi LAN ENABLE br_v10 >/dev/null 2>&1 failed, Ret: 3"));
    (void)StandIn::take();
}

TEST_F(Lan, DevicesThatCameBeforeTheirBridgeAreTakenIn) {
    put(kDeviceInfoPath, document("'10':" + kSegment + ",'MTU':'3000','STP':1}",
                                  "'PORT2':" + kTrunk + "['10']},'PORT4':" + kTrunk + "['20']}"));
    EXPECT_EQ(trunk(&TagLanInterface::add_if, kAll), 0);
    for (const char* before : {"ip link add br_v10 type bridge", "ip link del br_v10"}) {
        run(before);
        EXPECT_EQ(bridge(1, 2), 0) << before;
        EXPECT_EQ(members() + mtus("br_v10", "swdev2"), "swdev2.10 3000 3000 3000");
        EXPECT_EQ(fact("br_v10", "bridge/stp_state"), "1");
    }
    EXPECT_EQ(bridge(4, 7), NM_ERR_BAD_ACT);
    EXPECT_TRUE(fs::exists("/var/lock/network/br_v10.lck") && is_lock_free("br_v10"));
    EXPECT_EQ(bridge(2, 7), 0);
    EXPECT_EQ(fact("br_v10", "mtu"), "");
    EXPECT_EQ(bridge(2, 7), NM_ERR_IOCTL);
}

TEST(Segment, EntryIsChecked) {
    const std::tuple<const char*, int, const char*> cases[] = {
        {"{'A':1}", NM_ERR_NO_KEY, "Could not get [VLAN_SEG] in device_info."},
        {"{'VLAN_SEG':{'11':{'INTERFACE':'b'}}}", NM_ERR_NO_SUBKEY, "Could not get [10] in [VLAN_SEG]."},
        {"{'VLAN_SEG':{'10':{'MTU':'1'}}}", NM_ERR_EMPTY, "[INTERFACE] should not be empty!"},
        {"{'VLAN_SEG':{'10':{'INTERFACE':'b','STP':'2'}}}", NM_ERR_BAD_VALUE, "[STP] only accept 0/1!"},
        {"null", NM_ERR_NOT_FOUND, "instance failed, ret=-1020"}};
    for (const auto& [cfg, code, words] : cases) {
        const LogTail log;
        EXPECT_EQ(_setup_vlanbr("10", 1, 7, "/none", json(cfg)), code) << cfg;
        EXPECT_TRUE(log.has(words)) << words;
    }
}

TEST(DevicePort, IsBroughtUpUnderItsOwnName) {
    const File ports("/etc/networkmanagement/hw_port_info.json", R"({"PORT2":{"HW_PORT":"hw2"}})");
    const Device device("lan2", true, "far2");
    run("ip link add hw2.7 type veth peer name far7");
    const auto port = [](const std::string& more) {
        const std::string entry = "{'DEV_TYPE':'virtio','MTU':'1300','INTERFACE':" + more + "}";
        return PortLanInterface("PORT2", "/p", json("{'LAN_PORT':{'PORT2':" + entry + "}}"));
    };
    const LogTail log;
    EXPECT_EQ(port("'lan2','VLAN_ID':'4096'").add_if(kAll), 0);
    EXPECT_EQ(fact("lan2", "mtu"), "1300") << "the hardware port is called like its interface";
    EXPECT_EQ(port("'lan7','VLAN_ID':'7'").add_if(kAll), 0);
    EXPECT_EQ(fact("lan7", "mtu") + fact("hw2.7", "mtu"), "1300") << "an interrupted call is completed";
    const Device hardware("hw2", false, "far3");
    run("ip link set lan7 mtu 1500");
    EXPECT_EQ(port("'lan7','VLAN_ID':'7'").add_if(kAll), 0);
    EXPECT_EQ(fact("hw2", "mtu") + fact("lan7", "mtu") + fact("hw2", "flags"), "130013000x1003");
    EXPECT_FALSE(log.has("add vlan id 7 failed")) << "it is there under its interface's name";
    EXPECT_EQ(port("'none'").add_if(kAll), NM_ERR_NO_IFACE);
    EXPECT_EQ(port("'lan2','DEV_TYPE':''").add_if(kAll), NM_ERR_BAD_TYPE);
    run("ip link del lan7");
}

TEST(DevicePort, HasItsAddressBackWhenItsVlanChanged) {
    const StandIn sets("/usr/sbin/firewall.sh");
    const Device device("lan7", true, "far7");
    const std::string stored = quoted(
        "{'LAN_PORT':{'PORT2':{'DEV_TYPE':'virtio','INTERFACE':'lan7','VLAN_ID':'7'}},"
        "'LAN_IFACE_INFO':{'lan7':{'IP4_TYPE':'STATIC','IP4_ADDR':'192.168.7.1'}}}");
    put(kDeviceInfoPath, stored);
    run("ip addr add 192.168.7.1/24 dev lan7");
    EXPECT_EQ(PortLanInterface("PORT2", kDeviceInfoPath, json(stored)).alt_if(OPT_LAN_VLANS), 0);
    EXPECT_EQ(exec("ip -4 -o addr show lan7 | grep -c 192.168.7.1/24"), "1\n");
    const std::string edits = StandIn::take();
    EXPECT_LT(edits.find("<del> <lan> <192.168.7.0/24>"), edits.find("<add> <lan> <192.168.7.0/24>"));
    EXPECT_NE(edits.find("<add> <lan> <192.168.7.0/24>"), std::string::npos);
}

}  // namespace
