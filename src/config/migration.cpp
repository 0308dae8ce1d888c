// Stored documents brought to the current format: the formats and the order of their steps.
#include "config/migration.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <sstream>

#include "config/migration_steps.h"
#include "log.h"
#include "result_codes.h"
#include "utils/json_text.h"

namespace {

/// Where a format writes its version. Documents of formats without a version may have members of any name, or
/// are compared member by member with what is in force: nothing is written into them.
enum class Stamp { None, DbVersion, Meta };

struct Format {
    const char* name;
    const char* version;
    Stamp stamp;
    const char* empty;
};

constexpr std::array kFormats{
    Format{
        "device_info", "1.0.2", Stamp::DbVersion,
        R"({"WAN_PORT":{},"PRIVATE_PORT":{},"RGLINK_PORT":{},"LAN_PORT":{},"VLAN_SEG":{},"WAN_IFACE_INFO":{},)"
        R"("PRIVATE_IFACE_INFO":{},"RGLINK_IFACE_INFO":{},"LAN_IFACE_INFO":{},"MISC":{},"SERVICES":{}})"},
    Format{"hw_port_info", "1.0.2", Stamp::Meta, "{}"},
    Format{"dhcp_service", "1.0.0", Stamp::None, R"({"DHCP_SERVICE":{}})"},
    Format{"firewall", "1.0.0", Stamp::None, R"({"RULES":{}})"},
    Format{"policy", "1.0.0", Stamp::None, R"({"RULES":{}})"},
    Format{"segment", "1.0.0", Stamp::None, "{}"},
    Format{"site", "1.0.0", Stamp::None, "{}"},
    Format{"qos", "1.0.0", Stamp::None, R"({"QOS":{"DEFAULT_CLASS":"3"}})"},
    Format{"static_route", "1.1.0", Stamp::Meta, R"({"STATIC_ROUTE":[]})"},
    Format{"static_route6", "1.1.0", Stamp::Meta, R"({"staticRoute6":[]})"},
    Format{"servicePort", "0.0.3", Stamp::DbVersion, "{}"},
    Format{"system_svc_mgmt", "1.0.0", Stamp::None, "{}"},
};

struct Step {
    const char* format;
    const char* to;
    void (*run)(Json::Value& config);
};

/// From version to version, those of one format in their order.
constexpr std::array kSteps{
    Step{"device_info", "1.0.2", nm::complete_device_records},
    Step{"device_info", "1.0.2", nm::complete_ports},
    Step{"servicePort", "0.0.3", nm::complete_service_ports},
};

const Format* find_format(const std::string& name) {
    const auto* const found = std::find_if(kFormats.begin(), kFormats.end(),
                                           [&name](const Format& format) { return format.name == name; });
    return found != kFormats.end() ? found : nullptr;
}

void stamp(const Format& format, Json::Value& config) {
    if (format.stamp == Stamp::DbVersion) {
        config["dbversion"] = format.version;
    } else if (format.stamp == Stamp::Meta) {
        Json::Value& meta = config["META"];
        if (!meta.isObject()) {
            meta = Json::objectValue;
        }
        meta["VERSION"] = format.version;
    }
}

void run_steps(const Format& format, Json::Value& config) {
    const std::string version = document_version(format.name, config);
    if (nm::compare_versions(version, format.version) >= 0) {
        return;
    }
    for (const Step& step : kSteps) {
        if (step.format == std::string(format.name) && nm::compare_versions(version, step.to) < 0) {
            step.run(config);
        }
    }
    stamp(format, config);
}

int migrate(const char* name, Json::Value& config) {
    if (!config.isObject()) {
        NM_LOG(Error) << name << ": root is not valid format";
        return NM_ERR_BAD_FORMAT;
    }
    if (!nm::is_newer(name, config)) {
        run_steps(*find_format(name), config);
    }
    return NM_OK;
}

}  // namespace

int migrate_device_info(Json::Value& config) {
    return migrate("device_info", config);
}

int migrate_hw_port_info(Json::Value& config) {
    return migrate("hw_port_info", config);
}

int migrate_firewall(Json::Value& config) {
    return migrate("firewall", config);
}

int migrate_policy(Json::Value& config) {
    return migrate("policy", config);
}

int migrate_firewall_seg(Json::Value& config) {
    return migrate("segment", config);
}

int migrate_site(Json::Value& config) {
    return migrate("site", config);
}

int migrate_qos(Json::Value& config) {
    return migrate("qos", config);
}

int migrate_service_port(Json::Value& config) {
    return migrate("servicePort", config);
}

int migrate_system_svc_mgmt(Json::Value& config) {
    return migrate("system_svc_mgmt", config);
}

Json::Value conftmpl_document(std::string name) {
    const Format* const format = find_format(name);
    Json::Value document;
    if (format == nullptr || !nm::parse_json(format->empty, document)) {
        return {};
    }
    run_steps(*format, document);
    return document;
}

std::string document_version(std::string name, const Json::Value& config) {
    const Format* const format = find_format(name);
    const std::string own = nm::json_string_or(config, "dbversion", "0.0.0");
    const std::string meta = nm::json_string_or(nm::json_member(config, "META"), "VERSION", "0.0.0");
    if (format != nullptr && format->stamp != Stamp::None) {
        return format->stamp == Stamp::Meta ? meta : own;
    }
    return meta != "0.0.0" ? meta : own;
}

namespace nm {

const char* format_version(const std::string& name) {
    return find_format(name)->version;
}

bool is_newer(const std::string& name, const Json::Value& config) {
    const std::string version = document_version(name, config);
    const bool newer = compare_versions(version, format_version(name)) > 0;
    if (newer) {
        NM_LOG(Warning) << name << " is of version " << version << ", newer than " << format_version(name)
                        << "; it is left as it is";
    }
    return newer;
}

int compare_versions(const std::string& a, const std::string& b) {
    std::istringstream rest_of_a(a);
    std::istringstream rest_of_b(b);
    std::string number_a;
    std::string number_b;
    while (rest_of_a || rest_of_b) {
        number_a.clear();
        number_b.clear();
        std::getline(rest_of_a, number_a, '.');
        std::getline(rest_of_b, number_b, '.');
        const long value_a = strtol(number_a.c_str(), nullptr, 10);
        const long value_b = strtol(number_b.c_str(), nullptr, 10);
        if (value_a != value_b) {
            return value_a < value_b ? -1 : 1;
        }
    }
    return 0;
}

}  // namespace nm
