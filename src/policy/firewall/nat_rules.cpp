// NAT rules of the network service.
#include "policy/firewall/nat_rules.h"

#include <json/value.h>

#include "log.h"
#include "peers/bus/service_bus.h"
#include "result_codes.h"
#include "utils/json_text.h"

namespace {

constexpr const char* kService = "NetworkService";

}  // namespace

int delete_nat_rule(char* ip, uint8_t netmask, std::string incoming_if, std::string outgoing_if) {
    NM_LOG(Debug) << "Enter";
    if (ip == nullptr) {
        NM_LOG(Error) << "ip is Null pointer.";
        return NM_EXIT(NM_ERR_NULL_ARG);
    }
    Json::Value rule;
    rule["ip"] = ip;
    rule["netmask"] = std::to_string(netmask);
    rule["incomingif"] = incoming_if;
    rule["outgoingif"] = outgoing_if;
    std::string request = nm::write_compact_json(rule);
    std::string reply;
    const int ret = vservice_call(kService, "firewall.nat.DelNATrule", request, reply, false);
    if (ret == NM_OK) {
        NM_LOG(Debug) << "nat rule delete success.";
        return NM_EXIT(NM_OK);
    }
    if (ret == NM_ERR_NO_NAT_RULE) {
        NM_LOG(Info) << "nat rule is not exist.";
        return NM_EXIT(NM_OK);
    }
    NM_LOG(Error) << "nat rule error, please check your system.";
    return NM_EXIT(ret);
}

int show_nat_rule(std::string& data) {
    NM_LOG(Debug) << "Enter";
    std::string request;
    const int ret = vservice_call(kService, "firewall.nat.ShowNATrule", request, data, false);
    if (ret != NM_OK) {
        NM_LOG(Error) << "show nat rule error.";
    }
    return NM_EXIT(ret);
}
