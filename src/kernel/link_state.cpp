// Operational state of a device, from sysfs.
#include "kernel/link_state.h"

#include <unistd.h>

#include "kernel/device_path.h"
#include "log.h"
#include "utils/Utils.h"
#include "utils/call_notes.h"
#include "utils/file_io.h"

std::string get_pure_ifname(std::string ifname) {
    const size_t start = ifname.find("swdev");
    if (start == std::string::npos) {
        return ifname;
    }
    const std::string from_switch_port = ifname.substr(start);
    return from_switch_port.substr(0, from_switch_port.find('.'));
}

int is_iface_up(std::string ifname) {
    const std::string directory = "/sys/class/net/" + get_pure_ifname(ifname);
    const std::string operstate = readValue(directory + "/operstate", true);
    const std::string carrier = readValue(directory + "/carrier", true);
    const bool up = operstate.find("up") != std::string::npos || carrier.find('1') != std::string::npos;
    NM_LOG(Debug) << ifname << " Interface is " << (up ? "up" : "down");
    return up ? 1 : 0;
}

namespace nm {

bool has_link(const std::string& ifname) {
    const std::string name = get_pure_ifname(ifname);
    const std::string directory = "/sys/class/net/" + name;
    return !name.empty() && !leaves_directory(name) &&
           (read_file(directory + "/operstate").value_or("").rfind("up", 0) == 0 ||
            read_file(directory + "/carrier").value_or("").rfind('1', 0) == 0);
}

}  // namespace nm

int wait_for_iface_up(std::string ifname) {
    constexpr useconds_t kInterval = 500000;
    constexpr useconds_t kLimit = 20000000;
    const nm::WaitNote note("the link of " + ifname, kLimit / 1000000);
    const nm::Step step("wait", "link", ifname);
    for (useconds_t elapsed = 0; elapsed <= kLimit; elapsed += kInterval) {
        if (is_iface_up(ifname) == 1) {
            return 0;
        }
        usleep(kInterval);
    }
    return is_iface_up(ifname) == 1 ? 0 : 1;
}

int is_interface_link_up(std::string ifname, std::string dev_type) {
    if (dev_type != "ethernet") {
        NM_LOG(Debug) << "Other device type :: " << dev_type;
        return 1;
    }
    return is_iface_up(ifname);
}
