// Foreign bytes as the server's lease file: what is listed is whole, whatever the file holds.
#include <cstdint>
#include <cstdlib>
#include <fstream>

#include "services/dhcp/server_leases.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    std::ofstream("/var/lib/dhcpd/dhcpd_fuzz.leases", std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes), static_cast<std::streamsize>(size));
    std::map<std::string, std::map<std::string, std::string>> leases;
    bool whole = get_dhcpserver_lease("fuzz", leases) == 0;
    for (auto& [address, lease] : leases) {
        whole = whole && !address.empty() && lease["IP4_ADDR"] == address && !lease["EXPIRES"].empty() &&
                lease.count("DEVICE_NAME") == 1;
    }
    return whole ? 0 : (std::abort(), 0);
}
