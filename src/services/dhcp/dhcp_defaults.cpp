// The default record, and the filling of what stored records lack.
#include "services/dhcp/dhcp_defaults.h"

#include "config/migration.h"
#include "config/nmconfig.h"
#include "log.h"
#include "result_codes.h"
#include "utils/json_text.h"

namespace {

/// What a key that is not there means to its reader, where that is not the default of a new record. An old
/// record must not begin to serve, nor hand out addresses of another subnet, because it was completed.
Json::Value neutral_record() {
    Json::Value record = generate_default_dhcp_service();
    record["SERVICE"] = "DISABLED";
    for (const char* address : {"START_IP", "END_IP", "PRIMARY_DNS"}) {
        record[address] = "";
    }
    return record;
}

bool complete(Json::Value& entry, const Json::Value& defaults) {
    bool changed = false;
    for (const std::string& key : defaults.getMemberNames()) {
        if (entry.isMember(key)) {
            continue;
        }
        entry[key] = defaults[key];
        changed = true;
    }
    return changed;
}

bool complete_all(Json::Value& section) {
    const Json::Value defaults = neutral_record();
    bool changed = false;
    for (Json::Value& entry : section) {
        const bool has_content = entry.isObject() && !entry.empty();
        changed = (has_content && complete(entry, defaults)) || changed;
    }
    return changed;
}

}  // namespace

Json::Value generate_default_dhcp_service() {
    Json::Value record(Json::objectValue);
    record["SERVICE"] = "SERVER";
    record["START_IP"] = "192.168.100.1";
    record["END_IP"] = "192.168.100.100";
    record["SUBNET_MASK"] = "24";
    record["LEASE_TIME"] = "86400";
    record["PRIMARY_DNS"] = "192.168.100.254";
    record["SECONDARY_DNS"] = "";
    for (const char* list : {"DNS_SERVERS", "RESERVED_IP", "RELAY_SERVERS"}) {
        record[list] = Json::Value(Json::arrayValue);
    }
    return record;
}

namespace nm {

int complete_dhcp_service(Json::Value& config, bool& changed) {
    if (json_member(config, "DHCP_SERVICE").isNull()) {
        NM_LOG(Error) << "Cannot find [DHCP_SERVICE].";
        return NM_ERR_NO_KEY;
    }
    Json::Value& section = config["DHCP_SERVICE"];
    if (!section.isObject()) {
        NM_LOG(Error) << "[DHCP_SERVICE] is not valid format";
        return NM_ERR_BAD_FORMAT;
    }
    changed = !is_newer("dhcp_service", config) && complete_all(section);
    return NM_OK;
}

}  // namespace nm

int migrate_dhcp_service(Json::Value& config, std::string path) {
    NM_LOG(Debug) << "Enter";
    bool changed = false;
    const int ret = nm::complete_dhcp_service(config, changed);
    return NM_EXIT(ret == NM_OK && changed ? json_mem_to_file(path, config, false) : ret);
}
