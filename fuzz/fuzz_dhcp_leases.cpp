// Foreign bytes as the server's lease file: what is listed is whole, whatever the file holds.
#include <fstream>

#include "services/dhcp/server_leases.h"
#include "target.h"

bool holds(const std::string& input) {
    std::ofstream("/var/lib/dhcpd/dhcpd_fuzz.leases", std::ios::binary) << input;
    std::map<std::string, std::map<std::string, std::string>> leases;
    bool whole = get_dhcpserver_lease("fuzz", leases) == 0;
    for (auto& [address, lease] : leases) {
        whole = whole && !address.empty() && lease["IP4_ADDR"] == address && !lease["EXPIRES"].empty() &&
                lease.count("DEVICE_NAME") == 1;
    }
    return whole;
}
