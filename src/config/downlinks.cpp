// The LANs that have their IPv6 from an uplink.
#include "config/downlinks.h"

#include <cstdlib>

#include "config/nmconfig.h"
#include "kernel/link.h"
#include "log.h"
#include "result_codes.h"
#include "utils/json_text.h"

namespace {

bool is_served(const Json::Value& entry) {
    return !nm::json_string_or(entry, "IP6_ADDR", "").empty() &&
           nm::json_string_or(entry, "IP6_SERVICE_TYPE", "DISABLED") != "DISABLED";
}

bool is_relayed(const Json::Value& entry) {
    return nm::json_string_or(entry, "IP6_TYPE", "DISABLED") == "RELAY";
}

ipv6_downlink read_downlink(const std::string& ifname, const Json::Value& entry) {
    ipv6_downlink downlink;
    downlink.ifname = ifname;
    downlink.ifindex = static_cast<unsigned int>(get_iface_index(ifname.c_str()));
    downlink.ip6_type = nm::json_string_or(entry, "IP6_TYPE", "DISABLED");
    downlink.ip6_addr = nm::json_string_or(entry, "IP6_ADDR", "");
    downlink.ip6_prefix = atoi(nm::json_scalar(entry.get("IP6_PREFIX", "64")).c_str());
    NM_LOG(Debug) << "get downlink: " << ifname << "; ifindex: " << downlink.ifindex;
    return downlink;
}

int collect(const std::string& uplink, const std::string& path, bool (*counts)(const Json::Value& entry),
            std::vector<ipv6_downlink>& list) {
    Json::Value document;
    const int ret = json_file_to_mem(path, document);
    if (ret < 0) {
        return ret;
    }
    list.clear();
    const Json::Value& entries = nm::json_member(document, "LAN_IFACE_INFO");
    for (auto entry = entries.begin(); entries.isObject() && entry != entries.end(); ++entry) {
        if (entry->isObject() && !uplink.empty() && nm::json_string_or(*entry, "IP6_UPLINK", "") == uplink &&
            counts(*entry)) {
            list.push_back(read_downlink(entry.name(), *entry));
        }
    }
    return NM_OK;
}

}  // namespace

int get_all_ipv6_radvd_downlink(std::string uplink, std::string path, std::vector<ipv6_downlink>& list) {
    return collect(uplink, path, is_served, list);
}

int get_all_ipv6_relay_downlink(std::string uplink, std::string path, std::vector<ipv6_downlink>& list) {
    return collect(uplink, path, is_relayed, list);
}
