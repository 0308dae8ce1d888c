// Foreign bytes as an entry of DHCP_SERVICE: no value gets out of its line of the server's file.
#include <fstream>
#include <memory>

#include "services/dhcp/DhcpService.h"
#include "target.h"

bool holds(const std::string& input) {
    const std::string words =
        " max-lease-time default-lease-time ddns-update-style allow class match subnet interface range "
        "option "
        "host #dev_name hardware fixed-address } ";
    std::ofstream("/tmp/document.json") << R"({"DHCP_SERVICE":{"lo":)" << input << "}}";
    DhcpService* made = nullptr;
    (void)create_DHCP_SERVICE(&made, "lo", "/tmp/document.json");
    const std::unique_ptr<DhcpService> service(made);
    if (!service || service->gen_dhcpserver_conf() != 0) {
        return true;
    }
    std::ifstream file("/etc/networkmanagement/dhcp/dhcpd_lo.conf");
    for (std::string line; std::getline(file, line);) {
        if (words.find(" " + line.substr(0, line.find(' ')) + " ") == std::string::npos) {
            return false;
        }
    }
    return true;
}
