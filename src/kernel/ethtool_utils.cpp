// Ethernet settings of a port, by the two generations of the SIOCETHTOOL ioctl.
#include "kernel/ethtool_utils.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <iterator>
#include <string>

#include "kernel/link.h"
#include "log.h"
#include "result_codes.h"
#include "utils/call_notes.h"
#include "utils/device_facts.h"
#include "utils/handles.h"

namespace {

/// The first 64 link modes, of which every port that this appliance comes with has some.
template <class... Bits>
constexpr uint64_t modes(Bits... bits) {
    return ((uint64_t{1} << bits) | ...);
}

struct SpeedRow {
    int speed;
    int duplex;
    uint64_t modes;
};

/// The link modes of each speed, in ascending order of speed.
constexpr SpeedRow kSpeeds[] = {
    {10, DUPLEX_HALF, modes(0)},
    {10, DUPLEX_FULL, modes(1)},
    {100, DUPLEX_HALF, modes(2)},
    {100, DUPLEX_FULL, modes(3)},
    {1000, DUPLEX_HALF, modes(4)},
    {1000, DUPLEX_FULL, modes(5, 17, 41)},
    {2500, DUPLEX_FULL, modes(15, 47)},
    {5000, DUPLEX_FULL, modes(48)},
    {10000, DUPLEX_FULL, modes(12, 18, 19, 42, 43, 44, 45, 46)},
    {20000, DUPLEX_FULL, modes(21, 22)},
    {25000, DUPLEX_FULL, modes(31, 32, 33)},
    {40000, DUPLEX_FULL, modes(23, 24, 25, 26)},
    {50000, DUPLEX_FULL, modes(34, 35, 40)},
    {56000, DUPLEX_FULL, modes(27, 28, 29, 30)},
    {100000, DUPLEX_FULL, modes(36, 37, 38, 39)},
};

/// A speed of backplanes alone, which no port can be set to.
constexpr int kNotSettable = 20000;

const char* duplex_name(int duplex) {
    return duplex == DUPLEX_FULL ? "FULL" : "HALF";
}

/// ETHTOOL_xLINKSETTINGS as the kernel takes it: three masks of as many words as it says follow the head.
class LinkSettingsRequest {
public:
    ethtool_link_settings& head() { return *reinterpret_cast<ethtool_link_settings*>(words_.data()); }
    uint32_t* supported() { return words_.data() + kHeadWords; }
    uint32_t* advertising() { return supported() + head().link_mode_masks_nwords; }

private:
    static constexpr size_t kHeadWords = sizeof(ethtool_link_settings) / sizeof(uint32_t);
    std::array<uint32_t, kHeadWords + std::size_t{3} * LINK_MODE_WORDS> words_{};
};

/// The settings of a device and the request that brought them, which a change goes back in, so that all that
/// is not changed stays as it was.
struct DeviceSettings {
    ethtool_link_usettings values{};
    bool by_link_settings = true;
    LinkSettingsRequest request;
    ethtool_cmd old_request{};
};

int send_ethtool(const cmd_ctx& ctx, void* request) {
    ifreq message{};
    memcpy(message.ifr_name, ctx.devname, sizeof(ctx.devname));
    message.ifr_data = static_cast<char*>(request);
    const nm::Step step("ioctl", "SIOCETHTOOL", message.ifr_name);
    return ioctl(ctx.fd, SIOCETHTOOL, &message);
}

/// The first request offers no words, and the kernel answers how many it wants, as a negative number; the
/// second is the real one.
bool read_link_settings(const cmd_ctx& ctx, DeviceSettings& settings) {
    LinkSettingsRequest& request = settings.request;
    ethtool_link_settings& head = request.head();
    head.cmd = ETHTOOL_GLINKSETTINGS;
    if (send_ethtool(ctx, &request) != 0 || head.link_mode_masks_nwords >= 0) {
        return false;
    }
    const int words = -head.link_mode_masks_nwords;
    head.cmd = ETHTOOL_GLINKSETTINGS;
    head.link_mode_masks_nwords = static_cast<__s8>(words);
    if (words > static_cast<int>(LINK_MODE_WORDS) || send_ethtool(ctx, &request) != 0 ||
        head.link_mode_masks_nwords != words) {
        return false;
    }
    settings.values.speed = head.speed;
    settings.values.duplex = head.duplex;
    settings.values.autoneg = head.autoneg;
    std::copy_n(request.supported(), words, settings.values.supported);
    std::copy_n(request.advertising(), words, settings.values.advertising);
    return true;
}

bool write_link_settings(const cmd_ctx& ctx, DeviceSettings& settings) {
    LinkSettingsRequest& request = settings.request;
    ethtool_link_settings& head = request.head();
    head.cmd = ETHTOOL_SLINKSETTINGS;
    head.speed = settings.values.speed;
    head.duplex = settings.values.duplex;
    head.autoneg = settings.values.autoneg;
    std::copy_n(settings.values.advertising, head.link_mode_masks_nwords, request.advertising());
    return send_ethtool(ctx, &request) == 0;
}

bool read_old_settings(const cmd_ctx& ctx, DeviceSettings& settings) {
    ethtool_cmd& command = settings.old_request;
    command.cmd = ETHTOOL_GSET;
    if (send_ethtool(ctx, &command) != 0) {
        return false;
    }
    settings.by_link_settings = false;
    // Drivers that know only the lower half of the field say "unknown" in 16 bits.
    const uint32_t speed = ethtool_cmd_speed(&command);
    settings.values.speed = speed == UINT16_MAX ? static_cast<uint32_t>(SPEED_UNKNOWN) : speed;
    settings.values.duplex = command.duplex;
    settings.values.autoneg = command.autoneg;
    settings.values.supported[0] = command.supported;
    settings.values.advertising[0] = command.advertising;
    return true;
}

bool write_old_settings(const cmd_ctx& ctx, DeviceSettings& settings) {
    ethtool_cmd& command = settings.old_request;
    command.cmd = ETHTOOL_SSET;
    ethtool_cmd_speed_set(&command, settings.values.speed);
    command.duplex = settings.values.duplex;
    command.autoneg = settings.values.autoneg;
    command.advertising = settings.values.advertising[0];
    return send_ethtool(ctx, &command) == 0;
}

bool read_settings(const cmd_ctx& ctx, DeviceSettings& settings) {
    if (read_link_settings(ctx, settings)) {
        return true;
    }
    NM_LOG(Debug) << "do_ioctl_glinksettings failed, try do_ioctl_gset.";
    return read_old_settings(ctx, settings);
}

int write_settings(const cmd_ctx& ctx, DeviceSettings& settings) {
    if (settings.by_link_settings) {
        NM_LOG(Debug) << "do_ioctl_slinksettings.";
        if (!write_link_settings(ctx, settings)) {
            NM_LOG(Error) << "do_ioctl_slinksettings failed.";
            return NM_ERR_IOCTL;
        }
        return NM_OK;
    }
    NM_LOG(Debug) << "do_ioctl_sset.";
    if (!write_old_settings(ctx, settings)) {
        NM_LOG(Error) << " do_ioctl_sset failed.";
        return NM_ERR_IOCTL;
    }
    return NM_OK;
}

/// Drivers refuse a mask with a mode that they don't support, and one speed has a mode for each kind of
/// medium. If nothing is left it is for the driver to refuse.
void keep_supported(const uint32_t* supported, uint32_t* advertised) {
    std::array<uint32_t, LINK_MODE_WORDS> both{};
    std::transform(supported, supported + LINK_MODE_WORDS, advertised, both.begin(), std::bit_and<>());
    if (std::any_of(both.begin(), both.end(), [](uint32_t word) { return word != 0; })) {
        std::copy(both.begin(), both.end(), advertised);
    }
}

/// A datagram socket and the device for one request. 0 or NM_ERR_SOCKET.
template <class Request>
int with_device(const char* ifname, Request request) {
    // A name that does not fit belongs to no device. Cutting it could hit another one.
    if (strlen(ifname) >= IFNAMSIZ) {
        NM_LOG(Error) << "ioctl(ethtool) fail. Interface: " << ifname;
        return NM_ERR_IOCTL;
    }
    const nm::FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket) {
        NM_LOG(Error) << "Socket open failed.";
        return NM_ERR_SOCKET;
    }
    cmd_ctx ctx{};
    strncpy(ctx.devname, ifname, sizeof(ctx.devname) - 1);
    ctx.fd = socket.get();
    return request(ctx);
}

/// One plain request on a device.
int ethtool_request(const char* ifname, void* request) {
    return with_device(ifname, [&](const cmd_ctx& ctx) {
        if (send_ethtool(ctx, request) == 0) {
            return NM_OK;
        }
        NM_LOG(Error) << "ioctl(ethtool) fail. Interface: " << ifname;
        return NM_ERR_IOCTL;
    });
}

bool is_running(const char* ifname) {
    unsigned int flags = 0;
    const int ret = get_iface_flags(ifname, &flags);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Get interface running state fail. Interface: " << ifname;
        NM_LOG(Error) << "get_iface_flags, ret: " << ret;
        return false;
    }
    if ((flags & IFF_RUNNING) == 0) {
        NM_LOG(Debug) << ifname << " is not running state";
        return false;
    }
    return true;
}

int physical_info(const char* ifname, physical_status* status) {
    if (ifname == nullptr || status == nullptr) {
        NM_LOG(Error) << "No input interface_name or phy_status";
        NM_LOG(Error) << "(speed, duplex, autoneg, phy_support, phy_advertising)";
        return NM_ERR_NULL_ARG;
    }
    return with_device(ifname, [status](cmd_ctx& ctx) { return do_gset(&ctx, status); });
}

}  // namespace

int dump_link_usettings(const char* ifname, ethtool_link_usettings* settings, physical_status* status) {
    NM_LOG(Debug) << ifname << " auto-negotiation: " << (settings->autoneg == AUTONEG_ENABLE ? "on" : "off");
    *status = {};
    status->autoneg = settings->autoneg == AUTONEG_ENABLE ? 1 : 0;
    std::copy_n(settings->supported, LINK_MODE_WORDS, status->phy_support);
    std::copy_n(settings->advertising, LINK_MODE_WORDS, status->phy_advertising);
    const bool known = settings->speed != static_cast<uint32_t>(SPEED_UNKNOWN);
    if (!known) {
        NM_LOG(Debug) << ifname << " has unknown speed.";
    }
    if (!is_running(ifname)) {
        NM_LOG(Debug) << "Set speed = 0, duplex = 0";
    } else {
        status->speed = known ? static_cast<int>(settings->speed) : 0;
        status->duplex = settings->duplex == DUPLEX_FULL ? 1 : 0;
    }
    NM_LOG(Debug) << ifname << " has speed: " << status->speed << ", duplex: " << duplex_name(status->duplex);
    return NM_OK;
}

int do_gset(cmd_ctx* ctx, physical_status* status) {
    DeviceSettings settings;
    if (!read_settings(*ctx, settings)) {
        NM_LOG(Error) << "Cannot get device: settings";
        return NM_ERR_IOCTL;
    }
    return dump_link_usettings(ctx->devname, &settings.values, status);
}

int check_physical_setting(int speed, int duplex, uint32_t* advertised, bool first_word) {
    const std::string key = std::to_string(speed) + "/" + duplex_name(duplex);
    NM_LOG(Debug) << "Check Speed/Duplex: " << key;
    std::fill_n(advertised, LINK_MODE_WORDS, 0);
    const auto* row = std::find_if(std::begin(kSpeeds), std::end(kSpeeds), [=](const SpeedRow& candidate) {
        return candidate.speed == speed &&
               candidate.duplex == (duplex == DUPLEX_FULL ? DUPLEX_FULL : DUPLEX_HALF) &&
               speed != kNotSettable;
    });
    const uint64_t wanted = row != std::end(kSpeeds) ? row->modes : 0;
    advertised[0] = static_cast<uint32_t>(wanted);
    advertised[1] = first_word ? 0 : static_cast<uint32_t>(wanted >> 32);
    if (advertised[0] == 0 && advertised[1] == 0) {
        NM_LOG(Error) << "Invalid Speed/Duplex: " << key;
        return NM_ERR_BAD_FORMAT;
    }
    return NM_OK;
}

int do_sset(cmd_ctx* ctx, int speed, int duplex) {
    DeviceSettings settings;
    if (!read_settings(*ctx, settings)) {
        NM_LOG(Error) << "Cannot get device settings";
        return NM_ERR_IOCTL;
    }
    ethtool_link_usettings& values = settings.values;
    if (speed == 0) {
        NM_LOG(Debug) << ctx->devname
                      << " Speed is 0, skip checking speed & duplex,"
                         " just set advertised link modes to all supported.";
        values.autoneg = AUTONEG_ENABLE;
        std::copy_n(values.supported, LINK_MODE_WORDS, values.advertising);
        return write_settings(*ctx, settings);
    }
    NM_LOG(Debug) << "Speed: " << speed << ", Duplex: " << duplex_name(duplex);
    const int ret = check_physical_setting(speed, duplex, values.advertising, !settings.by_link_settings);
    if (ret != NM_OK) {
        NM_LOG(Error) << ctx->devname << " check_physical_setting failed.";
        return ret;
    }
    keep_supported(values.supported, values.advertising);
    values.speed = static_cast<uint32_t>(speed);
    values.duplex = static_cast<uint8_t>(duplex);
    return write_settings(*ctx, settings);
}

int get_physical_info(const char* ifname, physical_status* status) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(physical_info(ifname, status));
}

int set_physical_info(const char* ifname, int speed, int duplex, int /*autoneg*/) {
    NM_LOG(Debug) << "Enter";
    if (ifname == nullptr || *ifname == '\0') {
        NM_LOG(Error) << "interface_name is empty";
        return NM_EXIT(NM_ERR_NULL_ARG);
    }
    return NM_EXIT(with_device(ifname, [=](cmd_ctx& ctx) { return do_sset(&ctx, speed, duplex); }));
}

int check_physical_format(int speed, int duplex, int autoneg) {
    if (speed != 0 && check_speed_format(speed) != 1) {
        NM_LOG(Error) << "Bad speed: " << speed;
        return NM_ERR_BAD_FORMAT;
    }
    if (duplex != 0 && duplex != 1) {
        NM_LOG(Error) << "Bad duplex: " << duplex;
        return NM_ERR_BAD_FORMAT;
    }
    if (autoneg != 0 && autoneg != 1) {
        NM_LOG(Error) << "Bad autoneg: " << autoneg;
        return NM_ERR_BAD_FORMAT;
    }
    return NM_OK;
}

int reset_ethernet_physical(const char* ifname) {
    constexpr unsigned int kSettleSeconds = 3;
    NM_LOG(Debug) << "Enter";
    const int ret = set_physical_info(ifname, 0, 0, 1);
    for (unsigned int left = kSettleSeconds; left != 0;) {
        left = sleep(left);  // a signal ends a sleep early
    }
    return NM_EXIT(ret);
}

int get_iface_driver(char* ifname, char* driver) {
    NM_LOG(Debug) << "Enter";
    if (ifname == nullptr || driver == nullptr) {
        NM_LOG(Error) << "ifname is NULL.";
        return NM_EXIT(NM_ERR_NULL_ARG);
    }
    ethtool_drvinfo info{};
    info.cmd = ETHTOOL_GDRVINFO;
    const int ret = ethtool_request(ifname, &info);
    if (ret != NM_OK) {
        return NM_EXIT(ret);
    }
    info.driver[sizeof(info.driver) - 1] = '\0';
    std::copy_n(info.driver, strlen(info.driver) + 1, driver);
    NM_LOG(Debug) << "Interface: " << ifname << ", driver: " << driver;
    return NM_EXIT(NM_OK);
}

int get_eth_max_speed(char* ifname) {
    NM_LOG(Debug) << "Enter";
    physical_status status{};
    const int ret = get_physical_info(ifname, &status);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Get " << (ifname != nullptr ? ifname : "") << " physical info failed";
        return NM_EXIT(ret);
    }
    const uint64_t supported = status.phy_support[0] | uint64_t{status.phy_support[1]} << 32;
    const auto row = std::find_if(std::rbegin(kSpeeds), std::rend(kSpeeds), [=](const SpeedRow& candidate) {
        return (candidate.modes & supported) != 0;
    });
    return NM_EXIT(row != std::rend(kSpeeds) ? row->speed : 0);
}

int set_eth_gro(const char* ifname, int on) {
    NM_LOG(Debug) << "Enter";
    if (ifname == nullptr) {
        NM_LOG(Error) << "ifname is NULL.";
        return NM_EXIT(NM_ERR_NULL_ARG);
    }
    ethtool_value value{};
    value.cmd = ETHTOOL_SGRO;
    value.data = on != 0 ? 1 : 0;
    const int ret = ethtool_request(ifname, &value);
    if (ret == NM_OK) {
        NM_LOG(Debug) << "Interface: " << ifname << ", gro: " << on;
    }
    return NM_EXIT(ret);
}
