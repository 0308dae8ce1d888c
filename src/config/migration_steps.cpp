// The steps of formats.
#include "config/migration_steps.h"

#include <array>
#include <map>
#include <string>

#include "config/schema.h"
#include "utils/json_text.h"

namespace nm {

namespace {

using Template = std::map<std::string, std::string>;

void complete(Json::Value& record, const Template& defaults) {
    for (const auto& [key, value] : defaults) {
        if (!record.isMember(key)) {
            record[key] = value;
        }
    }
}

/// What the keys of a section's entries are to all their readers where they are absent.
struct SectionDefaults {
    const char* section;
    Template defaults;
};

const std::array<SectionDefaults, 8>& section_defaults() {
    static const Template port{{"MTU", "1500"}};
    static const Template uplink{{"ID", "0"},
                                 {"IFACE_TYPE", "ethernet"},
                                 {"IP4_PREFIX", "24"},
                                 {"IP6_PREFIX", "0"},
                                 {"IP6_DHCP_PD", "DISABLED"}};
    static const std::array<SectionDefaults, 8> table{{{"WAN_PORT", port},
                                                       {"PRIVATE_PORT", port},
                                                       {"RGLINK_PORT", port},
                                                       {"LAN_PORT", port},
                                                       {"WAN_IFACE_INFO", uplink},
                                                       {"PRIVATE_IFACE_INFO", uplink},
                                                       {"RGLINK_IFACE_INFO", uplink},
                                                       {"LAN_IFACE_INFO", {{"IP4_PREFIX", "24"}}}}};
    return table;
}

Json::Value row_of(const service_port& service) {
    Json::Value row;
    row["service"] = service.service;
    row["protocol"] = service.protocol;
    row["ports"] = service.ports;
    row["remark"] = service.remark;
    row["internal_name"] = service.internal_name;
    return row;
}

Json::Value predefined_rows() {
    Json::Value rows(Json::arrayValue);
    for (const service_port& service : get_default_service_ports()) {
        rows.append(row_of(service));
    }
    return rows;
}

}  // namespace

void complete_device_records(Json::Value& config) {
    for (auto record = config.begin(); record != config.end(); ++record) {
        if (record->isObject()) {
            const std::string type = json_string_or(*record, "device_type", "");
            complete(*record, get_default_tmpl(record.name() == "global" ? "global" : type));
        }
    }
}

void complete_ports(Json::Value& config) {
    for (const SectionDefaults& row : section_defaults()) {
        if (!json_member(config, row.section).isObject()) {
            continue;
        }
        for (Json::Value& entry : config[row.section]) {
            if (entry.isObject() && !entry.empty()) {  // an empty entry is none to its readers
                complete(entry, row.defaults);
            }
        }
    }
}

void complete_service_ports(Json::Value& config) {
    if (!config.isMember("PREDEFINED")) {
        config["PREDEFINED"] = predefined_rows();
    }
    if (!config.isMember("USER_DEFINED")) {
        config["USER_DEFINED"] = Json::arrayValue;
    }
    Template blank = get_default_tmpl("ServicePort");
    blank.erase("dbversion");
    for (const char* list : {"PREDEFINED", "USER_DEFINED"}) {
        for (Json::Value& row : config[list]) {
            if (row.isObject()) {
                complete(row, blank);
            }
        }
    }
}

}  // namespace nm
