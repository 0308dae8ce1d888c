// Bridges as the kernel has them afterwards.
#include <net/if.h>

#include "kernel/bridge.h"
#include "kernel_world.h"

using namespace kernel_world;
using testing::ElementsAre;

namespace {

struct Bridge : Devices {
    void SetUp() override {
        Devices::SetUp();
        EXPECT_EQ(br_addbr("nwbr") | br_addbr("nwbr2"), 0);
    }
    void TearDown() override {
        run("for b in $(ls /sys/class/net | grep nwbr); do ip link del $b; done");
        Devices::TearDown();
    }
};

/// One member of what `ip` tells of a link.
std::string told(const std::string& ifname, const std::string& member) {
    return lines_of("ip -j -d link show " + ifname + " | jq -r '.[0]." + member + "'").at(0);
}

TEST_F(Bridge, IsCreatedDownAndDeletedWithItsPortsReleased) {
    const unsigned int ifindex = if_nametoindex("nwbr");
    EXPECT_EQ(told("nwbr", "linkinfo.info_kind + .[0].operstate"), "bridgeDOWN");
    EXPECT_EQ(br_addbr("nwbr") | br_addbr("nw0"), 0) << "taken for a change of what is there";
    EXPECT_EQ(if_nametoindex("nwbr"), ifindex);
    EXPECT_EQ(br_addif("nwbr2", "nw0") | br_delbr("nwbr2"), 0);
    EXPECT_EQ(if_nametoindex("nwbr2"), 0U);
    EXPECT_EQ(told("nw0", "linkinfo.info_kind + .[0].master"), "veth");
    EXPECT_EQ(br_delbr("nwbr2"), -1108);
    EXPECT_EQ(br_addbr("nwbr2-of-fiftee"), 0);
    for (const auto& [change, refusal] : {std::pair(br_addbr, -1107), std::pair(br_delbr, -1108)}) {
        EXPECT_EQ(change("nwbr2-of-fifteen"), refusal);
        EXPECT_NE(if_nametoindex("nwbr2-of-fiftee"), 0U) << "a longer name is nobody's";
        EXPECT_EQ(change(""), -1101) << "or the kernel would choose a name";
        EXPECT_EQ(without(its_sockets, [change = change] { return change("nwbr"); }), -1104);
        EXPECT_EQ(without(its_rights, [change = change] { return change("nwbr"); }), refusal);
    }
}

TEST_F(Bridge, TakesAndReleasesPorts) {
    EXPECT_EQ(br_addif("nwbr", "nw2") | br_addif("nwbr", "nw0") | br_addif("nwbr", "nw0"), 0);
    EXPECT_THAT(get_bridge_slaves("nwbr"), ElementsAre("nw0", "nw2"));
    EXPECT_EQ(br_addif("nwbr2", "nw0"), 0) << "a port may change its bridge";
    EXPECT_EQ(br_delif("nwbr2", "nw2") | br_delif("nwbr", "nw2"), 0) << "released wherever it is";
    EXPECT_EQ(told("nw2", "master"), "null");
    run("ip link property add dev nw0 altname nw0-by-another-name");
    run("ip link property add dev nw0 altname nw0-alt");
    for (const auto& [request, refusal] : {std::pair(&br_addif, -1109), std::pair(&br_delif, -1110)}) {
        EXPECT_EQ(request(nullptr, "nw0"), -1101);
        EXPECT_EQ(request("nw3", "nw-none"), -1102) << "missing comes before no bridge";
        EXPECT_EQ(request("nw-none", "nw0"), -1102);
        EXPECT_EQ(request("nwbr2", "nw0-alt"), -1102);
        EXPECT_EQ(request("nwbr2", "nw0-by-another-name"), -1102);
        EXPECT_EQ(request("nw3", "nw0"), -1111);
        const auto call = [request = request] { return request("nwbr2", "nw0"); };
        EXPECT_EQ(without(its_rights, call), refusal);
        EXPECT_EQ(without(its_sockets, call), -1104);
    }
    EXPECT_EQ(told("nw0", "master"), "nwbr2");
}

TEST_F(Bridge, SwitchesItsSpanningTree) {
    EXPECT_EQ(br_stp("nwbr", 1), 0);
    EXPECT_EQ(br_stp("nwbr", 2), -1111);
    EXPECT_EQ(without(its_rights, [] { return br_stp("nwbr", 0); }), -1112);
    EXPECT_EQ(told("nwbr", "linkinfo.info_data.stp_state"), "1");
    EXPECT_EQ(br_stp("nwbr", 0), 0);
    EXPECT_EQ(told("nwbr", "linkinfo.info_data.stp_state"), "0");
    EXPECT_EQ(br_stp("nw0", 1), -1112);
}

}  // namespace
