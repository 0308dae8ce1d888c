// Foreign bytes as the own services of the registry: whatever they are, a rule that names one of them gets
// plain ports and a protocol that has ports, or is refused.
#include <fstream>

#include "policy/common/named_services.h"
#include "target.h"
#include "utils/json_text.h"
#include "utils/shell_text.h"

bool holds(const std::string& input) {
    std::vector<nm::PortRange> ranges;
    bool sound = !nm::parse_ports(input, ranges) || !ranges.empty();
    for (std::size_t i = 0; i < ranges.size(); ++i) {
        sound = sound && ranges[i].first > 0 && ranges[i].first <= ranges[i].last &&
                (i == 0 || ranges[i - 1].last < ranges[i].first);
    }
    std::ofstream("/etc/networkmanagement/servicePort.json") << R"({"USER_DEFINED":)" << input << "}";
    std::vector<service_port> services;
    (void)nm::read_service_ports(services);
    nm::NamedServices named;
    for (const service_port& service : services) {
        Json::Value rule;
        rule["DST_SERVICE"] = service.service;
        const std::optional<Json::Value> plain = nm::with_service_ports(rule, named);
        const std::string ports = plain ? nm::json_string_or(*plain, "DST_PORT", "") : "";
        sound = sound && (!plain || service.service.empty() || (nm::is_plain(ports) && ports.size() < 100));
    }
    return sound;
}
