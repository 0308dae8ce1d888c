// Ethernet settings: by the kernel's own devices, and by two drivers that the kernel here does not have,
// played behind ioctl(2): one of today that can be set, and one that knows the old request only.
#include <linux/sockios.h>
#include <sys/ioctl.h>

#include <cstdarg>

#include "kernel/ethtool_utils.h"
#include "kernel_world.h"

using namespace kernel_world;

namespace {

struct Driver {
    bool today = true, writable = true;
    uint32_t speed = 1000, duplex = DUPLEX_FULL, autoneg = AUTONEG_DISABLE;
    uint32_t supported[4] = {}, advertising[4] = {};
    std::vector<uint32_t> requests;
};
Driver* driver_of_nw2 = nullptr;

constexpr uint8_t kPhy = 9;  // a write must hand it back

/// The requests' fields have the same names, at other places.
template <class Request>
int answer(Driver& driver, Request& request, uint32_t* masks, int words) {
    if (request.cmd == ETHTOOL_SLINKSETTINGS || request.cmd == ETHTOOL_SSET) {
        errno = EINVAL;
        driver.speed = request.speed, driver.duplex = request.duplex, driver.autoneg = request.autoneg;
        std::copy_n(masks + words, words, driver.advertising);
        return driver.writable && request.phy_address == kPhy ? 0 : -1;
    }
    request.speed = static_cast<decltype(request.speed)>(driver.speed), request.phy_address = kPhy;
    request.duplex = static_cast<uint8_t>(driver.duplex);
    request.autoneg = static_cast<uint8_t>(driver.autoneg);
    std::copy_n(driver.supported, words, masks);
    std::copy_n(driver.advertising, words, masks + words);
    return 0;
}

int answer(Driver& driver, void* request) {
    const uint32_t cmd = *static_cast<uint32_t*>(request);
    driver.requests.push_back(cmd);
    if (driver.today && (cmd == ETHTOOL_GLINKSETTINGS || cmd == ETHTOOL_SLINKSETTINGS)) {
        auto& settings = *static_cast<ethtool_link_settings*>(request);
        if (settings.link_mode_masks_nwords == 4) {
            return answer(driver, settings, settings.link_mode_masks, 4);
        }
        settings = {};
        settings.cmd = cmd, settings.link_mode_masks_nwords = -4;  // the kernel tells how many it takes
        return 0;
    }
    if (!driver.today && (cmd == ETHTOOL_GSET || cmd == ETHTOOL_SSET)) {
        auto& settings = *static_cast<ethtool_cmd*>(request);
        const int result = answer(driver, settings, static_cast<uint32_t*>(request) + 1, 1);
        cmd == ETHTOOL_GSET ? ethtool_cmd_speed_set(&settings, driver.speed)
                            : void(driver.speed = ethtool_cmd_speed(&settings));
        return result;
    }
    errno = EOPNOTSUPP;
    return -1;
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
    void SetUp() override {
        Devices::SetUp();
        settle("nw0", "up");
        settle("nw2", "up");
    }
    void TearDown() override {
        driver_of_nw2 = nullptr;
        Devices::TearDown();
    }
    /// The kernel looks at links when it has time.
    static void settle(const std::string& ifname, const std::string& state) {
        run("timeout 5 sh -c 'until grep -qx " + state + " /sys/class/net/" + ifname +
            "/operstate; do :; done'");
    }
    Driver& play(bool today, const std::vector<unsigned int>& supported, bool writable = true) {
        driver = Driver();
        driver.today = today, driver.writable = writable;
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
    char name[8] = "nw0", none[8] = "nw-none", name2[8] = "nw2", driver_name[32] = "";
};

TEST_F(Ethtool, WritesByTheGenerationThatItReadsBy) {
    (void)play(true, {40, 23, 90});
    EXPECT_EQ(get_eth_max_speed(name2), 50000);
    EXPECT_EQ(check_physical_format(56000, 0, 1), 0);
    EXPECT_EQ(check_physical_format(1, 0, 0), -1012);
    for (const bool today : {true, false}) {
        const uint32_t get = today ? ETHTOOL_GLINKSETTINGS : ETHTOOL_GSET;
        const uint32_t set = today ? ETHTOOL_SLINKSETTINGS : ETHTOOL_SSET;
        Driver& played = play(today, {2, 3, 5, 6, 31, 41});
        EXPECT_EQ(set_physical_info("nw2", 100, 0, 1), 0);
        EXPECT_EQ(played.requests, (std::vector<uint32_t>{ETHTOOL_GLINKSETTINGS, get, set}));
        EXPECT_EQ(read("nw2"), (State{100, 0, 0})) << "negotiation is left as it is";
        EXPECT_EQ(status.phy_support[0], 0x8000006CU);
        EXPECT_EQ(status.phy_advertising[0], 1U << 2);
        EXPECT_EQ(set_physical_info("nw2", 1000, 1, 0), 0);
        EXPECT_EQ(played.advertising[0], 1U << 5) << "what the port supports of it";
        EXPECT_EQ(played.advertising[1], today ? 1U << 9 : 0U);
        EXPECT_EQ(set_physical_info("nw2", 2500, 1, 0), 0) << "for the driver to refuse";
        EXPECT_EQ(played.advertising[0], 1U << 15);
        EXPECT_EQ(set_physical_info("nw2", 2500, 0, 0), -1012);
        EXPECT_EQ(set_physical_info("nw2", 20000, 1, 0), -1012);
        EXPECT_EQ(played.advertising[0], 1U << 15);
        EXPECT_EQ(set_physical_info("nw2", 100000, 1, 0), today ? 0 : -1012) << "bits beyond 31";
        EXPECT_EQ(set_physical_info("nw2", 0, 1, 0), 0) << "0 turns negotiation on, whatever the others say";
        EXPECT_TRUE(std::equal(played.supported, played.supported + (today ? 4 : 1), played.advertising));
        played.speed = 100000;
        EXPECT_EQ(read("nw2"), (State{100000, 1, 1})) << "more than sixteen bits";
        played.speed = static_cast<uint32_t>(SPEED_UNKNOWN), played.duplex = DUPLEX_UNKNOWN;
        EXPECT_EQ(read("nw2"), (State{0, 0, 1}));
        (void)play(today, {5}, false);
        EXPECT_EQ(set_physical_info("nw2", 1000, 1, 1), -1007);
    }
}

TEST_F(Ethtool, CallsLeaveNothing) {
    Driver& old = play(false, {5});
    expect_nothing_is_left(850, [&] {
        old.requests.clear();
        EXPECT_EQ(get_physical_info("nw0", &status) | set_physical_info("nw2", 1000, 1, 1), 0);
        EXPECT_EQ(set_physical_info("nw2", 20000, 1, 1), -1012);
        EXPECT_EQ(get_iface_driver(name, driver_name) | get_physical_info("lo", &status), -1007);
        EXPECT_EQ(set_eth_gro("nw-none", 1), -1007);
    });
}

}  // namespace
