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

TEST_F(Vlan, RefusalsAreToldWordForWord) {
    const std::string trying = "ERROR: trying to ", long_name(17, 'v'), sixteen(16, 'v');
    const std::string too_long = "ERROR:  dev must be 16 characters or less.\n";
    struct Case {
        std::function<int()> call;
        int result;
        std::string err, log;
    };
    put("/var/log/network/bootup.log", "");  // each case searches it
    for (const Case& c : std::initializer_list<Case>{
             {[] { return add_vlan("nw0", 0); }, -1201, "", ""},
             {[] { return add_vlan("nw0", 4096); }, -1201, "", ""},
             {[] { return edit_vlan_egress_prio("nw0", 8, 0); }, -1201, "", ""},
             {[&] { return add_vlan(long_name.c_str(), 5); }, -1205, too_long, ""},
             {[&] { return add_vlan(sixteen.c_str(), 4095); }, -1203,
              trying + "add VLAN #4095 to IF -:" + sixteen + ":-  error: ", ""},
             {[] { return add_vlanif("nw-none", 12); }, -1203, trying, "nw-none add vlan id 12 failed.\n"},
             {[] { return del_vlanif("nw0.5"); }, -1203, trying, "remove vlan nw0.5 fail\n"},
             {[] { return edit_vlanif_prio("nw0.5", 3, 6); }, -1203, trying,
              "nw0.5 edit vlan qos, skb[6] to qos[3] failed.\n"},
         }) {
        const LogTail log;
        const Outcome outcome(c.call);
        const bool warned = c.result != -1201 && !fs::exists("/proc/net/vlan/config");
        EXPECT_EQ(outcome.result, c.result) << c.err << c.log;
        EXPECT_THAT(outcome.err, StartsWith((warned ? kWarning : "") + c.err));
        EXPECT_EQ(outcome.err.empty(), c.err.empty()) << outcome.err;
        EXPECT_TRUE(log.has(c.log)) << c.log;
        EXPECT_EQ(log.has(">>> "), !c.log.empty());
    }
    const Outcome starved([] { return add_vlan("nw0", 5); }, its_sockets);
    EXPECT_EQ(starved.result, -1202);
    EXPECT_THAT(starved.err, HasSubstr("FATAL:  Couldn't open a socket..go figure!\n"));
}

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
