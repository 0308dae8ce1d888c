// Foreign bytes as the variables of a DHCPv6 client: whatever they are, texts under the members that there
// are.

#include "services/dhcpcd/dhcp6_variables.h"
#include "target.h"

bool holds(const std::string& input) {
    Json::Value status = Json::objectValue;
    nm::read_dhcp6_variables(input, status);
    bool sound = true;
    for (const std::string& name : status.getMemberNames()) {
        const bool is_association = name == "ia_na" || name == "ia_pd";
        sound = sound && (is_association || name == "dhcp6_server_id" || name == "dhcp6_name_servers");
        for (const Json::Value& association : is_association ? status[name] : Json::Value()) {
            for (const Json::Value& value : association) {
                sound = sound && value.isString() && value.asString().size() < 512;
            }
        }
    }
    return sound;
}
