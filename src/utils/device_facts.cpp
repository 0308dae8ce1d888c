// What this appliance's devices are and have: names, speeds, sizes, positions, and their helper scripts.
#include "utils/device_facts.h"

#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <charconv>
#include <exception>
#include <iterator>
#include <optional>
#include <string_view>

#include "log.h"
#include "result_codes.h"
#include "utils/containers.h"
#include "utils/directories.h"
#include "utils/files.h"
#include "utils/handles.h"
#include "utils/process.h"
#include "utils/shell_text.h"
#include "utils/strings.h"

namespace {

constexpr const char* kHardwareInfo = "/var/lan_hw_info";
constexpr const char* kNetClass = "/sys/class/net/";
constexpr const char* kRoles[] = {"UNKNOWN", "WAN", "LAN", "OTHER"};
constexpr int kSpeeds[] = {10, 100, 1000, 2500, 5000, 10000, 20000, 25000, 40000, 50000, 56000, 100000};

std::optional<std::string> interface_word(const std::string& ifname) {
    // A name that begins with a dash would be taken for an option.
    std::optional<std::string> word = ifname.rfind('-', 0) == 0 ? std::nullopt : nm::shell_word(ifname);
    if (!word) {
        NM_LOG(Error) << "Bad interface name: " << ifname;
    }
    return word;
}

// A command's output for callers that report by code instead of throwing.
std::optional<std::string> output_of(const std::string& command) {
    try {
        return exec(command.c_str());
    } catch (const std::exception& error) {
        NM_LOG(Error) << error.what() << " cmd: " << command;
        return std::nullopt;
    }
}

bool is_secondary_wlan(const std::string& ifname) {
    constexpr std::string_view kWlan = "wlan";
    const std::size_t at = ifname.find(kWlan);
    if (at == std::string::npos) {
        return false;
    }
    int number = 0;
    (void)std::from_chars(ifname.data() + at + kWlan.size(), ifname.data() + ifname.size(), number);
    return number >= 1 && number <= 99;
}

int create_marker(const std::string& path) {
    // /tmp is everybody's: O_EXCL follows no link that somebody laid there.
    const auto marker = nm::FileDescriptor::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0644);
    if (!marker && errno != EEXIST) {
        NM_LOG(Error) << "Cannot open " << path;
        return NM_ERR_OPEN;
    }
    return NM_OK;
}

int max_mtu(const std::string& ifname) {
    if (!is_file_exists(kHardwareInfo)) {
        return NM_ERR_OPEN;
    }
    const std::optional<std::string> word = interface_word(ifname);
    if (!word) {
        return NM_ERR_BAD_FORMAT;
    }
    const auto output = output_of("/sbin/getcfg Max_MTU " + *word + " -d 1500 -f " + kHardwareInfo);
    if (!output) {
        return NM_ERR_SERVICE;
    }
    return output->empty() ? -1 : string_to_int(*output);
}

int admin_iface(bool on) {
    const auto model = output_of("/sbin/getcfg System \"Model\" -f /etc/networkmanagement/vLinux.conf");
    if (!model) {
        return NM_ERR_SERVICE;
    }
    if (model->find("Mastin") == std::string::npos) {
        return NM_OK;
    }
    char command[128];
    (void)snprintf(command, sizeof(command), on ? "%s setup_admin_iface" : "%s remove_admin_iface",
                   "/etc/init.d/mastin200.sh");
    return system_cmd(command);
}

// The position is read from a device path such as
// ../../devices/pci0000:00/0000:00:1c.0/0000:02:00.1/net/eth1: root, bus, function.
bool is_at_position(const std::string& device, const std::string& hex_bus, const std::string& port) {
    std::vector<std::string> pieces;
    split_into_vector(device, '/', pieces);
    const auto is_root = [](const std::string& piece) { return piece.find("pci") != std::string::npos; };
    const auto root = std::find_if(pieces.begin(), pieces.end(), is_root);
    if (pieces.end() - root < 3) {
        return false;
    }
    return root[1].find(hex_bus) != std::string::npos && std::string(1, root[2].back()) == port;
}

std::string device_path(const std::string& ifname) {
    char target[PATH_MAX] = {};
    const ssize_t length = readlink((kNetClass + ifname).c_str(), target, sizeof(target) - 1);
    return length > 0 ? target : "";
}

int run_dpi(int enable, int role, const std::string& ifname) {
    if (role < 0 || role >= static_cast<int>(std::size(kRoles))) {
        NM_LOG(Error) << "Arg. [role] is invalid or not supported. role: " << role;
        return NM_ERR_BAD_ACT;
    }
    const std::optional<std::string> word = interface_word(ifname);
    if (!word) {
        return NM_ERR_BAD_FORMAT;
    }
    const std::string command = std::string("/usr/sbin/network-dpi.sh setup_dpi ") + kRoles[role] +
                                (enable != 0 ? " ENABLE " : " DISABLE ") + *word + " >/dev/null 2>&1";
    const int ret = system_cmd(command.c_str());
    if (ret != NM_OK) {
        NM_LOG(Error) << command << " failed, Ret: " << ret;
    }
    return ret;
}

}  // namespace

int get_port_num(const char* ifname) {
    if (ifname == nullptr) {
        return 0;
    }
    const std::size_t offset = strstr(ifname, "ppp-") != nullptr ? 9 : 5;
    return strlen(ifname) < offset ? 0 : atoi(ifname + offset);
}

int check_speed_format(int speed) {
    return std::find(std::begin(kSpeeds), std::end(kSpeeds), speed) != std::end(kSpeeds) ? 1 : -1;
}

std::vector<std::string> remove_invalid_wlan(std::vector<std::string> ifnames) {
    ifnames.erase(std::remove_if(ifnames.begin(), ifnames.end(), is_secondary_wlan), ifnames.end());
    return ifnames;
}

int get_eth_max_mtu(char* ifname) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(ifname != nullptr ? max_mtu(ifname) : NM_ERR_NULL_ARG);
}

int vorn_skip_watchdog(const char* ifname, const char* state) {
    NM_LOG(Debug) << "Enter";
    if (ifname == nullptr || state == nullptr) {
        return NM_EXIT(NM_ERR_NULL_ARG);
    }
    const std::string name = ifname;
    if (name.compare(0, 3, "eth") != 0 || name.find('/') != std::string::npos) {
        return NM_EXIT(NM_OK);
    }
    const std::string marker = "/tmp/." + name;
    if (strcmp(state, "down") == 0) {
        return NM_EXIT(create_marker(marker));
    }
    if (strcmp(state, "up") == 0) {
        (void)unlink(marker.c_str());  // It need not be there.
    }
    return NM_EXIT(NM_OK);
}

int setup_mastin200_client(unsigned int on) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(admin_iface(on != 0));
}

std::string hex_dev_bus_find_ifname(std::string hex_bus, std::string port, std::string bus_path) {
    for (const std::string& ifname : scandir_filter(kNetClass, nullptr)) {
        const std::string device = device_path(ifname);
        const bool matches = bus_path.empty() ? is_at_position(device, hex_bus, port)
                                              : device.find(bus_path) != std::string::npos;
        if (matches) {
            return ifname;
        }
    }
    return {};
}

int setup_dpi(int enable, int role, std::string& ifname) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(run_dpi(enable, role, ifname));
}
