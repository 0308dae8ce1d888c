// Lookups between port, interface, role and kind.
#include "config/port_lookup.h"

#include <array>
#include <cstdlib>

#include "config/nmconfig.h"
#include "config/port_names.h"
#include "config/schema.h"
#include "kernel/link.h"
#include "log.h"
#include "result_codes.h"
#include "utils/Utils.h"
#include "utils/json_text.h"

namespace {

constexpr const char* kHwPortPath = "/etc/networkmanagement/hw_port_info.json";
constexpr const char* kPppPrefix = "ppp-";

/// A port section, the number by which callers ask for it alone, and the section that tells whether its
/// ports run PPPoE (null where they cannot).
struct PortSection {
    int mode;
    const char* ports;
    const char* pppoe_info;
};

constexpr std::array kPortSections{
    PortSection{1, "WAN_PORT", "WAN_IFACE_INFO"},
    PortSection{4, "PRIVATE_PORT", nullptr},
    PortSection{5, "RGLINK_PORT", "RGLINK_IFACE_INFO"},
    PortSection{2, "LAN_PORT", nullptr},
};

std::string find_in_hw_ports(const std::string& port, const char* key) {
    Json::Value root;
    if (json_file_to_mem(kHwPortPath, root) < 0) {
        NM_LOG(Error) << "json_file_to_mem fail. path = " << kHwPortPath;
        return "NONE";
    }
    const Json::Value& entry = nm::json_member(root, port);
    return entry.isNull() ? "NONE" : nm::json_string_or(entry, key, "");
}

/// The kind whose section, `<kind><suffix>`, holds `member`; an empty text if none does.
std::string find_kind_of_member(const Json::Value& root, const std::string& suffix,
                                const std::string& member) {
    if (!root.isObject()) {
        return "";
    }
    for (const std::string& section : root.getMemberNames()) {
        const size_t end = section.find(suffix);
        if (end == std::string::npos || ifacetype_map.count(section.substr(0, end)) == 0) {
            continue;
        }
        if (root[section].isObject() && root[section].isMember(member)) {
            return section.substr(0, end);
        }
    }
    return "";
}

/// The traffic's interface of one entry of a port section; an empty `INTERFACE` stays empty.
std::string run_ifname(const Json::Value& root, const PortSection& section, const Json::Value& entry) {
    const std::string ifname = nm::json_string_or(entry, "INTERFACE", "");
    if (section.pppoe_info == nullptr) {
        return ifname;
    }
    const Json::Value& info = nm::json_member(nm::json_member(root, section.pppoe_info), ifname);
    return nm::json_string_or(info, "IP4_TYPE", "DISABLED") == "PPPOE" ? nm::ppp_ifname(ifname) : ifname;
}

int find_ifname(const std::string& port, const Json::Value& root, std::string& ifname, int mode) {
    if (port.empty()) {
        NM_LOG(Error) << "portname is empty; return.";
        return NM_ERR_EMPTY;
    }
    for (const PortSection& section : kPortSections) {
        if (mode != 0 && mode != section.mode) {
            continue;
        }
        const Json::Value& entry = nm::json_member(nm::json_member(root, section.ports), port);
        if (!entry.isNull()) {
            ifname = run_ifname(root, section, entry);
            return NM_OK;
        }
    }
    NM_LOG(Error) << port << " get ifname failed.";
    return NM_ERR_NO_IFACE;
}

const PortSection* find_port_section(int ifacetype) {
    if (ifacetype == ifacetype_map.at("WAN")) {
        return &kPortSections.front();
    }
    return ifacetype == ifacetype_map.at("LAN") ? &kPortSections.back() : nullptr;
}

}  // namespace

std::string find_hw_port(std::string port) {
    return find_in_hw_ports(port, "HW_PORT");
}

std::string find_interface_from_hwport_config(std::string port) {
    return find_in_hw_ports(port, "INTERFACE");
}

int set_hw_port(const char* const*) {
    NM_LOG(Debug) << "Enter";
    Json::Value root;
    const int ret = json_file_to_mem(kHwPortPath, root);
    if (ret < 0) {
        NM_LOG(Error) << "json_file_to_mem fail. path = " << kHwPortPath;
        return NM_EXIT(ret);
    }
    if (!root.isObject()) {
        NM_LOG(Error) << "root is not valid format";
        return NM_EXIT(NM_ERR_BAD_FORMAT);
    }
    for (const std::string& port : root.getMemberNames()) {
        if (port == "META") {
            continue;
        }
        const std::string hw_port = nm::json_string_or(root[port], "HW_PORT", "");
        const std::string ifname = nm::json_string_or(root[port], "INTERFACE", "");
        NM_LOG(Debug) << "PORTX = " << port << " HW_PORT = " << hw_port << " INTERFACE = " << ifname;
        const int rename_ret = link_rename(hw_port.c_str(), ifname.c_str(), 1);
        if (rename_ret != NM_OK) {
            NM_LOG(Error) << "Link rename error. rename_ret=" << rename_ret;
            return NM_EXIT(rename_ret);
        }
    }
    return NM_EXIT(NM_OK);
}

int get_port_role(std::string port, Json::Value& root, std::string& role) {
    if (root.empty()) {
        NM_LOG(Error) << "Empty device_info!";
        return -1;
    }
    const std::string kind = find_kind_of_member(root, "_PORT", port);
    if (kind.empty()) {
        return -1;
    }
    role = kind;
    return NM_OK;
}

int get_port_role(std::string port, std::string path, std::string& role) {
    Json::Value root;
    (void)json_file_to_mem(path, root);  // a document that cannot be read has no ports
    return get_port_role(port, root, role);
}

int get_ifacetype_by_ifname(std::string ifname, Json::Value& root) {
    const std::string kind = find_kind_of_member(root, "_IFACE_INFO", ifname);
    return ifacetype_map.at(kind.empty() ? "NONE" : kind);
}

int get_ifacetype_by_ifname(std::string ifname, std::string path) {
    Json::Value root;
    (void)json_file_to_mem(path, root);  // a document that cannot be read has no interfaces
    return get_ifacetype_by_ifname(ifname, root);
}

int get_portname_by_ifname(std::string ifname, Json::Value root, std::string& port) {
    const std::string device = nm::device_of(ifname);
    for (const char* section : {"WAN_PORT", "LAN_PORT"}) {
        const Json::Value& ports = nm::json_member(root, section);
        for (auto entry = ports.begin(); entry != ports.end(); ++entry) {
            if (device.empty() || nm::json_string_or(*entry, "INTERFACE", "") != device) {
                continue;
            }
            port = entry.name();
            NM_LOG(Debug) << "Get [" << ifname << "] portname = " << port;
            return NM_OK;
        }
    }
    NM_LOG(Error) << "Get portname failed; return.";
    return NM_ERR_NO_IFACE;
}

int get_portname_by_ifname(std::string ifname, std::string path, std::string& port) {
    Json::Value root;
    const int ret = json_file_to_mem(path, root);
    return ret < 0 ? ret : get_portname_by_ifname(ifname, root, port);
}

int get_ifname_by_portname(std::string port, Json::Value root, std::string& ifname, int mode) {
    return find_ifname(port, root, ifname, mode);
}

int get_ifname_by_portname(std::string port, std::string path, std::string& ifname, int mode) {
    Json::Value root;
    const int ret = port.empty() ? NM_OK : json_file_to_mem(path, root);
    return ret < 0 ? ret : find_ifname(port, root, ifname, mode);
}

std::string get_ifname(const Json::Value& device, const std::string& port, int mode) {
    std::string ifname;
    (void)find_ifname(port, device, ifname, mode);  // an unknown port is logged and has no name
    return ifname;
}

int get_portname_ifname_pair_list_by_path(std::map<std::string, std::string>& out, std::string path,
                                          int type) {
    const PortSection* section = find_port_section(type);
    if (section == nullptr) {
        NM_LOG(Error) << "Interface type is not support! type=" << type;
        return NM_ERR_BAD_TYPE;
    }
    Json::Value root;
    const int ret = json_file_to_mem(path, root);
    if (ret < 0) {
        return ret;
    }
    const Json::Value& ports = nm::json_member(root, section->ports);
    if (!ports.isObject()) {
        NM_LOG(Error) << "could not get [" << section->ports << "] in " << path;
        return NM_ERR_NO_KEY;
    }
    for (auto entry = ports.begin(); entry != ports.end(); ++entry) {
        const std::string ifname = run_ifname(root, *section, *entry);
        if (ifname.empty()) {
            NM_LOG(Error) << "get ifname failed; portname: " << entry.name();
            continue;
        }
        out[entry.name()] = ifname;
    }
    return NM_OK;
}

int get_key_value(Json::Value& root, const char* section, const char* key, Json::Value& out) {
    if (root.empty()) {
        NM_LOG(Error) << "Empty json value, return.";
        return NM_ERR_NO_KEY;
    }
    const Json::Value& members = nm::json_member(root, section != nullptr ? section : "");
    if (members.isNull()) {
        NM_LOG(Error) << "Cannot get key, return.";
        return NM_ERR_NO_SUBKEY;
    }
    const std::string name = key != nullptr ? key : "";
    if (!members.isObject() || !members.isMember(name)) {
        return NM_ERR_NO_VALUE;
    }
    out = members[name];
    return NM_OK;
}

int json_key_foreach_value_do(Json::Value& root, std::string section, bool flag, cb_func callback,
                              void* data) {
    std::vector<std::string> keys;
    int ret = get_key_list(root, section, keys);
    if (ret != NM_OK) {
        return ret;
    }
    for (const std::string& key : keys) {
        const int member_ret = callback(key, data);
        if (member_ret == NM_OK) {
            continue;
        }
        ret = member_ret;
        if (flag) {
            break;
        }
    }
    return ret;
}

int json_key_foreach_value_do(std::string path, std::string section, bool flag, cb_func callback,
                              void* data) {
    Json::Value root;
    const int ret = json_file_to_mem(path, root);
    return ret < 0 ? ret : json_key_foreach_value_do(root, section, flag, callback, data);
}

int get_id_by_wan_ifname(std::string ifname, uint8_t& id, std::string path) {
    Json::Value root;
    if (json_file_to_mem(path, root) < 0) {
        return NM_ERR_NO_IFACE;
    }
    const Json::Value& infos = nm::json_member(root, "WAN_IFACE_INFO");
    // "swdev1" is found in "swdev10" as well.
    std::string longest;
    for (auto info = infos.begin(); info != infos.end(); ++info) {
        const std::string name = info.name();
        if (name.size() > longest.size() && ifname.find(name) != std::string::npos) {
            longest = name;
        }
    }
    if (longest.empty()) {
        return NM_ERR_NO_IFACE;
    }
    id = static_cast<uint8_t>(nm::wan_id_of(root, infos[longest], longest));
    return NM_OK;
}

namespace nm {

int port_index(const std::string& portname) {
    constexpr const char* kPrefix = "PORT";
    const size_t start = portname.find(kPrefix);
    return start == std::string::npos
               ? 0
               : atoi(portname.c_str() + start + std::char_traits<char>::length(kPrefix));
}

std::string find_port_of_ifname(const Json::Value& ports, const std::string& ifname) {
    std::string port;
    size_t matched = 0;
    for (auto entry = ports.begin(); entry != ports.end(); ++entry) {
        const std::string device = json_string_or(*entry, "INTERFACE", "");
        if (device.size() > matched && ifname.compare(0, device.size(), device) == 0) {
            port = entry.name();
            matched = device.size();
        }
    }
    return port;
}

int wan_id_of(const Json::Value& root, const Json::Value& info, const std::string& ifname) {
    const int stored = atoi(json_string_or(info, "ID", "0").c_str());
    return stored != 0 ? stored : port_index(find_port_of_ifname(json_member(root, "WAN_PORT"), ifname));
}

std::string ppp_ifname(const std::string& name) {
    return kPppPrefix + name;
}

std::string device_of(const std::string& ifname) {
    const size_t prefix = ifname.find(kPppPrefix);
    return prefix == std::string::npos ? ifname
                                       : ifname.substr(prefix + std::char_traits<char>::length(kPppPrefix));
}

}  // namespace nm
