// Devices as the kernel has them after each link operation; sysfs is asked what became of them.
#include <arpa/inet.h>
#include <net/if.h>
#include <netpacket/packet.h>
#include <sys/mount.h>
#include <sys/socket.h>

#include <atomic>
#include <thread>

#include "kernel/link.h"
#include "kernel/link_state.h"
#include "sandbox_fixture.h"

using namespace fixture;
using namespace std::string_literals;

namespace {

const std::string kAbsent = "absent0";

unsigned int flags_of(const std::string& ifname) {
    return static_cast<unsigned int>(std::stoul(fact(ifname, "flags"), nullptr, 16));
}

using Link = Frugal;

TEST_F(Link, OnlyTheFlagsOfTheMaskChange) {
    const char* const ifname = "swdev1234567890";
    const Device device(ifname);
    const unsigned int old = flags_of(ifname);
    const std::tuple<int (*)(const char*, unsigned int), unsigned int, unsigned int> cases[] = {
        {set_iface_flags, IFF_UP | IFF_NOMULTIPATH | IFF_NOARP, old | IFF_NOARP | IFF_UP},
        {unset_iface_flags, IFF_NOARP, old | IFF_UP},
        {unset_iface_flags, IFF_UP, old}};
    for (const auto& [change, mask, expected] : cases) {
        unsigned int flags = 0;
        EXPECT_EQ(change(ifname, mask) + get_iface_flags(ifname, &flags), 0) << std::hex << mask;
        EXPECT_EQ(flags & expected, expected) << std::hex << mask;
        EXPECT_EQ(change(ifname, 0), NM_ERR_EMPTY);
        // Names that no device can have must not be cut to the device's own.
        for (const std::string& nobody : {kAbsent, ifname + "1"s, ifname + std::string(100000, '1')}) {
            int mtu = 7;
            EXPECT_EQ(change(nobody.c_str(), IFF_UP | IFF_DEBUG), NM_ERR_IOCTL);
            EXPECT_EQ(get_iface_flags(nobody.c_str(), &flags) + get_iface_mtu(nobody.c_str(), &mtu), 0);
            EXPECT_EQ(flags + mtu + get_iface_index(nobody.c_str()) + is_iface_up(nobody), 0U);
        }
        EXPECT_EQ(flags_of(ifname), expected) << std::hex << mask;
    }
}

TEST_F(Link, RenamedDeviceIsDownUnlessTold) {
    Device device("eth91", true);
    const Device other("taken", true, "far2");
    const std::tuple<const char*, const char*, unsigned int, int, const char*, bool> cases[] = {
        {"eth91", "swdev1", 0, 0, "swdev1", false},
        {"swdev1", "eth91", 1, 0, "eth91", true},
        {"eth91", "swdev1", 2, 0, "swdev1", false},
        {"swdev1", "taken", 0, 0, "swdev1", false},
        {"absent0", "swdev1", 1, NM_ERR_IOCTL, "swdev1", false}};
    for (const auto& [from, to, up, code, name, is_up] : cases) {
        EXPECT_EQ(link_rename(from, to, up), code) << name;
        device.name = name;
        EXPECT_EQ((flags_of(name) & IFF_UP) != 0, is_up) << name << up;
    }
    EXPECT_NE(flags_of("taken") & IFF_UP, 0U) << "the name's owner is not concerned";
    EXPECT_EQ(set_iface_alias("swdev1", "uplink"), 0);
    EXPECT_EQ(fact("swdev1", "ifalias"), "") << "an alias is never sent";
}

TEST_F(Link, TableOfThousandsIsReadToItsEndWhileItChanges) {
    run("seq 1001 2000 | sed 's/.*/link add far& group 42 type veth peer name lan&/' | ip -batch -");
    run("ip link set lan2000 mtu 1300 up");
    std::atomic<bool> over{false};
    std::thread churn([&over] {
        while (!over) {
            run("ip link add busy type veth && ip link del busy");
        }
    });
    for (int i = 0; i < 30; ++i) {
        int mtu = 0;
        unsigned int flags = 0;
        EXPECT_EQ(get_iface_mtu("lan2000", &mtu) | get_iface_flags("lan2000", &flags), 0);
        EXPECT_EQ(mtu, 1300);
        EXPECT_NE(flags & IFF_UP, 0U);
    }
    over = true;
    churn.join();
    EXPECT_EQ(link_rename("lan2000", "last", 0), 0);
    EXPECT_EQ(fact("last", "mtu"), "1300");
    run("ip link del group 42");
}

/// Alternative names are part of what the kernel answers about a device, which is larger than usual with
/// many.
TEST_F(Link, IsFoundUnderItsOwnNameHoweverManyOthersItHas) {
    const Device device("swdev1", true);
    const auto add_names = [](int from, int to) {
        run("for n in $(seq " + std::to_string(from) + " " + std::to_string(to) +
            "); do printf 'link property add dev swdev1 altname %0120d\\n' $n; done | ip -batch -");
    };
    run("ip link property add dev swdev1 altname other && ip link set swdev1 mtu 1300");
    add_names(1, 200);
    unsigned int flags = 0;
    int mtu = 0;
    EXPECT_EQ(get_iface_flags("swdev1", &flags) + get_iface_mtu("swdev1", &mtu) + mtu, 1300);
    EXPECT_NE(flags & IFF_UP, 0U);
    EXPECT_EQ(get_iface_mtu("other", &mtu) + mtu, 0) << "that is no name of a device";
    uint64_t counters[8] = {7, 7, 7, 7, 7, 7, 7, 7};
    EXPECT_EQ(get_iface_rxtx_stats("other", counters), 0);
    EXPECT_EQ(counters[0] + counters[7], 14U) << "untouched";
    EXPECT_EQ(get_iface_rxtx_stats("swdev1", counters), 0);
    EXPECT_EQ(std::to_string(counters[2]), fact("swdev1", "statistics/rx_bytes"));
    EXPECT_FALSE(log.has("Reading the link failed"));
    add_names(201, 300);
    EXPECT_EQ(get_iface_mtu("swdev1", &mtu) + mtu, 0);
    EXPECT_TRUE(log.has("Reading the link failed, ret=-1504. Interface : swdev1"));
}

/// sysfs with devices of any state.
struct ScriptedState : testing::Test {
    void SetUp() override { ASSERT_EQ(mount("states", "/sys/class/net", "tmpfs", 0, ""), 0); }
    void TearDown() override { EXPECT_EQ(umount("/sys/class/net"), 0); }

    static void set(const std::string& name, const std::string& operstate, const std::string& carrier) {
        put("/sys/class/net/" + name + "/operstate", operstate + "\n");
        put("/sys/class/net/" + name + "/carrier", carrier + "\n");
    }
};

TEST_F(ScriptedState, UpIsByStateOrCarrierAndTheParentsForSwitchPorts) {
    const std::tuple<std::string, const char*, const char*, int> devices[] = {
        {"swdev3", "up", "0", 1},   {"swdev3.100", "down", "0", 1},  {"swdev4.100", "up", "1", 0},
        {"eth0", "unknown", "", 0}, {"eth0.100", "dormant", "1", 1}, {"ppp-swdev3", "down", "0", 1}};
    for (const auto& [ifname, operstate, carrier, up] : devices) {
        set(ifname, operstate, carrier);
        EXPECT_EQ(is_iface_up(ifname), up) << ifname;
        EXPECT_EQ(is_interface_link_up(ifname, "ethernet"), up) << ifname;
        EXPECT_EQ(is_interface_link_up(ifname, "virtio") + is_interface_link_up(ifname, ""), 2) << ifname;
    }
}

}  // namespace
