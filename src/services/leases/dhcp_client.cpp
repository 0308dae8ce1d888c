// The client for dynamic IPv4 addresses.
#include "services/leases/dhcp_client.h"

#include "log.h"
#include "utils/shell_text.h"
#include "utils/unit_names.h"
#include "utils/units.h"

int start_ipv4_dhcp(const std::string& ifname, const std::string& path) {
    const std::optional<std::string> word = nm::shell_word(path);  // units quote as shells do
    return service_start(nm::kDhcpClientUnit, ifname.c_str(), word ? ("CONF=" + *word).c_str() : "");
}

int kill_ipv4_dhcp(const std::string& ifname, int mode) {
    NM_LOG(Debug) << "Enter, mode: " << mode;
    return NM_EXIT(service_stop(nm::kDhcpClientUnit, ifname.c_str(), nullptr));
}
