// The section `SERVICES` of the device document.
#include "services/sections/Services.h"

#include "services/dns/dns.h"
#include "services/sections/section_factory.h"

const std::vector<std::string> support_service_list{"DNS_INFO"};

bool is_support_service_type(std::string type) {
    return nm::is_listed(support_service_list, type);
}

Services::Services(std::string type, uint32_t act, uint32_t opt, std::string path)
    : SectionEntry("\nCOMMON SERVICES\ntype: ", support_service_list, std::move(type), act, opt,
                   std::move(path)) {
}

int Services::setup_info() {
    return type == "DNS_INFO" ? _setup_dns(act, opt, path) : NM_ERR_BAD_ACT;
}

int create_Services(Services** service, std::string type, uint32_t act, uint32_t opt, std::string path) {
    return nm::build_section(service, "service", std::move(type), act, opt, std::move(path));
}
