// Construction of the device side of a port from its entry in the configuration.
#include "interfaces/common/BaseInterface.h"

#include <cstdlib>
#include <utility>

#include "config/nmconfig.h"
#include "config/port_lookup.h"
#include "interfaces/uplink/UplinkKind.h"
#include "log.h"
#include "result_codes.h"
#include "utils/json_text.h"
#include "utils/strings.h"

namespace {

/// A rate stored as a JSON number is not a rate: the line speed stands in for it.
unsigned long read_rate(const Json::Value& entry, const char* key, const std::string& line_speed) {
    return nm::rate_from_text(nm::json_string_or(entry, key, line_speed));
}

}  // namespace

BaseInterface::BaseInterface(std::string port, std::string path)
    : path(std::move(path)), portname(std::move(port)) {
    if (portname.empty() || this->path.empty()) {
        throw NM_ERR_NULL_ARG;
    }
    NM_LOG(Info) << "\nport: " << portname << "\npath: " << this->path;
}

void BaseInterface::read_port_entry(const Json::Value& entry) {
    interface = nm::json_text(entry, "INTERFACE");
    mtu = atoi(nm::json_text(entry, "MTU", "1500").c_str());
    dev_type = nm::json_text(entry, "DEV_TYPE");
    hw_port = find_hw_port(portname);
}

BaseWanInterface::BaseWanInterface(int type, std::string port, std::string path, Json::Value cfg)
    : BaseInterface(std::move(port), std::move(path)), type(type) {
    const int ret = cfg.empty() ? get_config() : get_config_from_json(std::move(cfg));
    if (ret != NM_OK) {
        throw ret;
    }
}

int BaseWanInterface::get_config() {
    Json::Value document;
    if (json_file_to_mem(path, document) < 0) {
        return NM_ERR_NOT_FOUND;
    }
    return get_config_from_json(std::move(document));
}

int BaseWanInterface::get_config_from_json(Json::Value cfg) {
    const UplinkKind* const kind = nm::find_uplink_kind(type);
    if (kind == nullptr) {
        return NM_ERR_BAD_TYPE;
    }
    const Json::Value& entry = nm::json_member(nm::json_member(cfg, kind->ports), portname);
    if (entry.empty()) {
        return NM_ERR_NO_SECTION;
    }
    if (!entry.isObject()) {
        NM_LOG(Error) << "[" << kind->ports << "]-[" << portname << "] is not valid format";
        return NM_ERR_BAD_FORMAT;
    }
    read_port_entry(entry);
    prio = atoi(nm::json_text(entry, "PRIO", "1").c_str());
    const std::string line_speed = nm::json_text(entry, "ISP_BW", "0");
    rx_rate = read_rate(entry, "RX_RATE", line_speed);
    tx_rate = read_rate(entry, "TX_RATE", line_speed);
    group_id = nm::json_text(entry, "PRIVATE_GROUP_ID");
    return NM_OK;
}

int check_base_wan_interface_format(std::string section, Json::Value& root, bool& changed) {
    if (nm::json_member(root, section).empty()) {
        NM_LOG(Debug) << "[" << section << "] is empty, return.";
        return NM_OK;
    }
    Json::Value& ports = root[section];
    for (auto port = ports.begin(); port != ports.end(); ++port) {
        if (!port->isObject()) {
            continue;
        }
        const std::string line_speed = nm::json_string_or(*port, "ISP_BW", "1000000000");
        for (const char* rate : {"RX_RATE", "TX_RATE"}) {
            if (nm::json_member(*port, rate).isString()) {
                continue;
            }
            (*port)[rate] = line_speed;
            NM_LOG(Debug) << "Fix [" << section << "]-[" << port.name() << "]-[" << rate << "] as "
                          << line_speed;
            changed = true;
        }
    }
    return NM_OK;
}

std::string BaseInterface::get_interface() {
    return interface;
}

std::string BaseInterface::get_hw_port() {
    return hw_port;
}

std::string BaseInterface::get_portname() {
    return portname;
}

int BaseWanInterface::get_prio() {
    return prio;
}

unsigned long BaseWanInterface::get_rx_rate() {
    return rx_rate;
}

unsigned long BaseWanInterface::get_tx_rate() {
    return tx_rate;
}

int BaseWanInterface::set_edma() {
    return 0;
}
