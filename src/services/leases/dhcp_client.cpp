// The client for dynamic IPv4 addresses.
#include "services/leases/dhcp_client.h"

#include "log.h"
#include "utils/units.h"

int kill_ipv4_dhcp(const std::string& ifname, int mode) {
    NM_LOG(Debug) << "Enter, mode: " << mode;
    return NM_EXIT(service_stop("nm-dhclient@", ifname.c_str(), nullptr));
}
