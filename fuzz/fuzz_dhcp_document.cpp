// Foreign bytes as an entry of DHCP_SERVICE: no value gets out of its line of the server's file.
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <memory>

#include "services/dhcp/DhcpService.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string words =
        " max-lease-time default-lease-time ddns-update-style allow class match subnet interface range "
        "option "
        "host #dev_name hardware fixed-address } ";
    const std::string entry(reinterpret_cast<const char*>(bytes), size);
    std::ofstream("/tmp/document.json") << R"({"DHCP_SERVICE":{"lo":)" << entry << "}}";
    DhcpService* made = nullptr;
    (void)create_DHCP_SERVICE(&made, "lo", "/tmp/document.json");
    const std::unique_ptr<DhcpService> service(made);
    if (!service || service->gen_dhcpserver_conf() != 0) {
        return 0;
    }
    std::ifstream file("/etc/networkmanagement/dhcp/dhcpd_lo.conf");
    for (std::string line; std::getline(file, line);) {
        if (words.find(" " + line.substr(0, line.find(' ')) + " ") == std::string::npos) {
            std::abort();
        }
    }
    return 0;
}
