// VLAN requests as far as they need no 802.1Q in the kernel: what is refused before and by it, and how that
// is told. Devices that come to be are tested on the full kernel.
#include "kernel/vlan.h"
#include "kernel_world.h"

using namespace kernel_world;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

const std::string kWarning =
    "WARNING:  Could not open /proc/net/vlan/config. Maybe you need to load the 8021q module, or maybe you "
    "are not using PROCFS??\n";

using Vlan = Devices;

TEST_F(Vlan, OtherDevicesAreNoneAndCallsLeaveNothing) {
    EXPECT_EQ(is_vlan_interface(nullptr), -1301);
    EXPECT_EQ(without(its_sockets, [] { return is_vlan_interface("nw0"); }), -1304);
    expect_nothing_is_left(1250, [] {
        EXPECT_EQ(is_vlan_interface("nw0") | is_vlan_interface("nw-none"), 0);
        EXPECT_EQ(add_vlanif("nw-none", 5), -1203);
        EXPECT_EQ(edit_vlan_egress_prio("vvvvvvvvvvvvvvvvv", 1, 1), -1205);
    });
}

TEST(VlanSegment, GivesItsDevice) {
    const Json::Value config =
        json("{'VLAN_SEG':{'VLAN12':{'INTERFACE':'br_v12'},'VLAN13':{'INTERFACE':13}}}");
    EXPECT_EQ(get_vlan_ifname(config, "VLAN12"), "br_v12");
    EXPECT_EQ(get_vlan_ifname(config, "VLAN13") + get_vlan_ifname("text", "VLAN12"), "");
}

}  // namespace
