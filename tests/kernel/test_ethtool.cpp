// Ethernet settings by a driver that the kernel here does not have, played behind ioctl(2). A real one is
// asked in the test machine, whose NIC knows no more than a gigabit.
#include <linux/sockios.h>
#include <sys/ioctl.h>

#include <cstdarg>

#include "kernel/ethtool_utils.h"
#include "kernel_world.h"

using namespace kernel_world;

namespace {

struct Driver {
    bool writable = true;
    uint32_t speed = 1000, duplex = DUPLEX_FULL, autoneg = AUTONEG_DISABLE;
    uint32_t supported[4] = {}, advertising[4] = {};
};
Driver* driver_of_nw2 = nullptr;

constexpr uint8_t kPhy = 9;  // a write must hand it back

int answer(Driver& driver, void* request) {
    auto& settings = *static_cast<ethtool_link_settings*>(request);
    const uint32_t cmd = settings.cmd;
    uint32_t* const masks = settings.link_mode_masks;
    if (cmd != ETHTOOL_GLINKSETTINGS && cmd != ETHTOOL_SLINKSETTINGS) {
        errno = EOPNOTSUPP;
        return -1;
    }
    if (settings.link_mode_masks_nwords != 4) {
        settings = {};
        settings.cmd = cmd, settings.link_mode_masks_nwords = -4;  // the kernel tells how many it takes
    } else if (cmd == ETHTOOL_SLINKSETTINGS) {
        errno = EINVAL;
        driver.speed = settings.speed, driver.duplex = settings.duplex, driver.autoneg = settings.autoneg;
        std::copy_n(masks + 4, 4, driver.advertising);
        return driver.writable && settings.phy_address == kPhy ? 0 : -1;
    } else {
        settings.speed = driver.speed, settings.phy_address = kPhy;
        settings.duplex = static_cast<uint8_t>(driver.duplex);
        settings.autoneg = static_cast<uint8_t>(driver.autoneg);
        std::copy_n(driver.supported, 4, masks);
        std::copy_n(driver.advertising, 4, masks + 4);
    }
    return 0;
}

}  // namespace

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    const auto* message = static_cast<const ifreq*>(argument);
    if (request == SIOCETHTOOL && driver_of_nw2 != nullptr && strcmp(message->ifr_name, "nw2") == 0) {
        return answer(*driver_of_nw2, message->ifr_data);
    }
    return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
}

namespace {

using State = std::array<int, 3>;  // speed, duplex and negotiation

struct Ethtool : Devices {
    // A speed is that of a running link, and the kernel is some time in finding that one runs.
    void SetUp() override {
        Devices::SetUp();
        run("timeout 5 sh -c 'until grep -q up /sys/class/net/nw2/operstate; do sleep 0.01; done'");
    }
    void TearDown() override {
        driver_of_nw2 = nullptr;
        Devices::TearDown();
    }
    Driver& play(const std::vector<unsigned int>& supported, bool writable = true) {
        driver = Driver();
        driver.writable = writable;
        for (const unsigned int bit : supported) {
            driver.supported[bit / 32] |= 1U << (bit % 32);
        }
        return *(driver_of_nw2 = &driver);
    }
    State read(const char* ifname) {
        EXPECT_EQ(get_physical_info(ifname, &status), 0) << ifname;
        return {status.speed, status.duplex, status.autoneg};
    }
    physical_status status{};
    Driver driver;
    char name2[8] = "nw2";
};

TEST_F(Ethtool, HasSpeedsBeyondAGigabit) {
    (void)play({40, 23, 90});
    EXPECT_EQ(get_eth_max_speed(name2), 50000);
    EXPECT_EQ(check_physical_format(56000, 0, 1), 0);
    EXPECT_EQ(check_physical_format(1, 0, 0), -1012);
    Driver& played = play({2, 3, 5, 6, 31, 41});
    EXPECT_EQ(set_physical_info("nw2", 100, 0, 1), 0);
    EXPECT_EQ(read("nw2"), (State{100, 0, 0})) << "negotiation is left as it is";
    EXPECT_EQ(status.phy_support[0], 0x8000006CU);
    EXPECT_EQ(status.phy_advertising[0], 1U << 2);
    EXPECT_EQ(set_physical_info("nw2", 1000, 1, 0), 0);
    EXPECT_EQ(played.advertising[0], 1U << 5) << "what the port supports of it";
    EXPECT_EQ(played.advertising[1], 1U << 9);
    EXPECT_EQ(set_physical_info("nw2", 2500, 1, 0), 0) << "for the driver to refuse";
    EXPECT_EQ(set_physical_info("nw2", 2500, 0, 0), -1012);
    EXPECT_EQ(played.advertising[0], 1U << 15);
    EXPECT_EQ(set_physical_info("nw2", 100000, 1, 0), 0) << "bits beyond 31";
    EXPECT_EQ(set_physical_info("nw2", 0, 1, 0), 0) << "0 turns negotiation on, whatever the others say";
    EXPECT_TRUE(std::equal(played.supported, played.supported + 4, played.advertising));
    played.speed = 100000;
    EXPECT_EQ(read("nw2"), (State{100000, 1, 1})) << "more than sixteen bits";
    played.speed = static_cast<uint32_t>(SPEED_UNKNOWN), played.duplex = DUPLEX_UNKNOWN;
    EXPECT_EQ(read("nw2"), (State{0, 0, 1}));
    (void)play({5}, false);
    EXPECT_EQ(set_physical_info("nw2", 1000, 1, 1), -1007);
}

}  // namespace
