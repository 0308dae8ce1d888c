// Setup of DHCP services: the family's rows.
#include "control/setup_dhcp.h"

#include <memory>

#include "control/setup_frame.h"
#include "services/dhcp/DhcpService.h"

namespace {

int client_table(const char* ifname, char* out, size_t size) {
    DhcpService* created = nullptr;
    const int ret = create_DHCP_SERVICE(&created, ifname != nullptr ? ifname : "", kDhcpServicePath);
    const std::unique_ptr<DhcpService> service(created);
    return ret == NM_OK ? service->get_dhcp_client_table(out, size) : ret;
}

}  // namespace

int _setup_dhcpservice(std::string ifname, uint32_t act, uint32_t opt, std::string path) {
    static const nm::Family<DhcpService> family{
        "DhcpService",
        [](DhcpService** service, std::string name, std::string document, Json::Value) {
            return create_DHCP_SERVICE(service, std::move(name), std::move(document));
        },
        [](DhcpService&, const std::string&) { return std::string("dhcpservice"); },
        &DhcpService::add_service,
        &DhcpService::del_service,
        &DhcpService::alt_service,
        kDhcpServicePath,
        NM_ERR_NO_IFACE,
    };
    return nm::run_target(family, {std::move(ifname), act, opt, std::move(path), Json::Value()});
}

int setup_dhcpservice(char* json) {
    return nm::run_section_request(json, _setup_dhcpservice);
}

int Setup_dhcpservice(char* json) {
    return nm::run_entry(__PRETTY_FUNCTION__, [json] { return setup_dhcpservice(json); });
}

int Get_dhcp_client_table(char* ifname, char* out, size_t size) {
    return nm::run_entry(__PRETTY_FUNCTION__, [=] { return client_table(ifname, out, size); });
}
