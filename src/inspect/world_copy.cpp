// Making a network again, by the tools that its state was read with.
#include "inspect/world_copy.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <set>
#include <thread>

#include "config/port_names.h"
#include "kernel/condition.h"
#include "utils/file_io.h"
#include "utils/files.h"
#include "utils/handles.h"
#include "utils/json_text.h"
#include "utils/process.h"
#include "utils/shell_text.h"

namespace nm {

namespace {

constexpr const char* kFamilies[] = {"-4", "-6"};
constexpr const char* kChainWriters[] = {"/sbin/iptables-restore", "/sbin/ip6tables-restore"};
constexpr const char* kSettings = "/proc/sys/net/";
constexpr const char* kForever = "4294967295";

std::string text_of(const Json::Value& object, const char* key) {
    return json_scalar(json_member(object, key));
}

std::string name_of(const Json::Value& device) {
    return text_of(device, "ifname");
}

std::string kind_of(const Json::Value& device) {
    return text_of(json_member(device, "linkinfo"), "info_kind");
}

bool has_flag(const Json::Value& device, const char* name) {
    const Json::Value& flags = device["flags"];
    return std::find(flags.begin(), flags.end(), Json::Value(name)) != flags.end();
}

bool is_loopback(const Json::Value& device) {
    return has_flag(device, "LOOPBACK");
}

/// "KEY VALUE" of each of the keys that the object has, if the value is one word to the tools.
std::string words_of(const Json::Value& object, std::initializer_list<const char*> keys) {
    std::string words;
    for (const char* const key : keys) {
        const std::string value = text_of(object, key);
        words += is_plain(value) ? std::string(" ") + key + " " + value : "";
    }
    return words;
}

/// The kernel takes names that the tools take for something else.
Json::Value nameable(const Json::Value& devices) {
    Json::Value list(Json::arrayValue);
    for (const Json::Value& device : devices) {
        const std::string name = name_of(device);
        if (is_plain(name) && name[0] != '-') {
            list.append(device);
        }
    }
    return list;
}

/// A kernel without the filter refuses to have it switched off.
std::string bridge_words(const Json::Value& facts) {
    const bool has_filter = json_scalar(facts["vlan_filtering"]) == "1";
    return " type bridge" +
           words_of(facts, {"forward_delay", "hello_time", "max_age", "ageing_time", "stp_state", "priority",
                            "mcast_snooping"}) +
           (has_filter ? " vlan_filtering 1" : "");
}

std::string vlan_words(const Json::Value& facts) {
    std::string words = " type vlan" + words_of(facts, {"protocol", "id"});
    for (const auto& [key, option] :
         {std::pair("ingress_qos", " ingress-qos-map"), std::pair("egress_qos", " egress-qos-map")}) {
        const Json::Value& map = json_member(facts, key);
        words += map.empty() ? "" : option;
        for (const Json::Value& row : map) {
            words += " " + text_of(row, "from") + ":" + text_of(row, "to");
        }
    }
    return words;
}

/// Devices in an order in which each comes behind the one that it lies on.
std::vector<const Json::Value*> in_order(const Json::Value& devices) {
    std::vector<const Json::Value*> ordered;
    for (const bool is_stacked : {false, true}) {
        for (const Json::Value& device : devices) {
            if ((kind_of(device) == "vlan") == is_stacked) {
                ordered.push_back(&device);
            }
        }
    }
    return ordered;
}

class Copy {
public:
    Copy(const WorldSource& source, const RouteDumps& dumps, const std::string& far,
         const std::string& scratch)
        : source_(source), dumps_(dumps), devices_(nameable(source.devices)), far_(far), scratch_(scratch) {}
    void make();
    void make_hardware();

private:
    void make_devices();
    void raise_devices();
    void add_addresses();
    void add_routes();
    void add_rules();
    void add_packet_policy();
    void set_settings(bool is_building);
    void let_make_addresses();
    bool has_links() const;

    std::string creation(const Json::Value& device) const;

    /// Runs the command with the text as its input; what it does not take is left out.
    void feed(const std::string& command, const std::string& text) const;

    const WorldSource& source_;
    const RouteDumps& dumps_;
    const Json::Value devices_;
    const std::string& far_;
    const std::string& scratch_;
};

std::string Copy::creation(const Json::Value& device) const {
    const std::string index = text_of(device, "ifindex");
    const std::string kind = kind_of(device);
    const Json::Value& facts = json_member(json_member(device, "linkinfo"), "info_data");
    const bool takes_address =
        text_of(device, "link_type") == "ether" && (kind != "bridge" || device["has_set_address"].asBool());
    const std::string address = takes_address ? " address " + text_of(device, "address") : "";
    const std::string common = " name " + name_of(device) + " index " + index + address;
    if (kind == "bridge") {
        return common + bridge_words(facts);
    }
    if (kind == "vlan") {
        return " link " + text_of(device, "link") + common + vlan_words(facts);
    }
    return common + " type veth peer name p" + index + " netns " + far_;
}

void Copy::feed(const std::string& command, const std::string& text) const {
    const std::string path = scratch_ + "/input";
    (void)writeValue(path, text, false);  // a full disk shows in what is missing in the copy
    (void)system_cmd((command + " <" + path + " >/dev/null 2>&1").c_str());
}

/// A bridge whose MTU was set otherwise than its members' goes on with that one when they leave, so that it
/// is set when they have joined.
void Copy::make_devices() {
    std::string lines;
    std::string bridge_lines;
    for (const Json::Value* const device : in_order(devices_)) {
        const std::string name = name_of(*device);
        const std::string mtu = "link set " + name + words_of(*device, {"mtu"}) + "\n";
        lines += is_loopback(*device) ? "" : "link add" + creation(*device) + "\n";
        (kind_of(*device) == "bridge" ? bridge_lines : lines) += mtu;
        lines += device->isMember("txqlen")
                     ? "link set " + name + " txqueuelen " + text_of(*device, "txqlen") + "\n"
                     : "";
    }
    for (const Json::Value& device : devices_) {
        lines += device.isMember("master")
                     ? "link set " + name_of(device) + words_of(device, {"master"}) + "\n"
                     : "";
    }
    lines += bridge_lines;
    feed("/sbin/ip -force -batch -", lines);
}

void Copy::raise_devices() {
    std::string near_lines;
    std::string far_lines;
    for (const Json::Value* const device : in_order(devices_)) {
        near_lines += has_flag(*device, "UP") ? "link set " + name_of(*device) + " up\n" : "";
        const bool has_carrier = !has_flag(*device, "NO-CARRIER");
        far_lines += has_carrier ? "link set p" + text_of(*device, "ifindex") + " up\n" : "";
    }
    feed("/sbin/ip -n " + far_ + " -force -batch -", far_lines);
    feed("/sbin/ip -force -batch -", near_lines);
}

/// Nobody answers a probe for a double in the copy, and nobody has to wait for that.
std::string address_line(const Json::Value& device, const Json::Value& address) {
    const bool is_ipv6 = text_of(address, "family") == "inet6";
    const bool has_peer = address.isMember("address");
    std::string line = "addr replace " + text_of(address, "local");  // that of lo is there
    line += has_peer ? " peer " + text_of(address, "address") : "";
    line += "/" + text_of(address, "prefixlen") + words_of(address, {"broadcast", "scope", "label"});
    line += " dev " + name_of(device) + (is_ipv6 ? " nodad" : "");
    line += address.isMember("noprefixroute") ? " noprefixroute" : "";
    if (text_of(address, "valid_life_time") != kForever) {
        line += " valid_lft " + text_of(address, "valid_life_time") + " preferred_lft " +
                text_of(address, "preferred_life_time");
    }
    return line + "\n";
}

void Copy::add_addresses() {
    std::string lines;
    for (const Json::Value& device : devices_) {
        for (const Json::Value& address : device["addr_info"]) {
            lines += address_line(device, address);
        }
    }
    feed("/sbin/ip -force -batch -", lines);
}

/// The kernel's own routes of the addresses are among those that were saved.
void Copy::add_routes() {
    for (size_t i = 0; i < std::size(kFamilies); ++i) {
        const std::string ip = std::string("/sbin/ip ") + kFamilies[i];
        (void)system_cmd((ip + " route flush table main >/dev/null 2>&1").c_str());  // may be empty
        feed(ip + " route restore", dumps_.routes[i]);
    }
}

void Copy::add_rules() {
    for (size_t i = 0; i < std::size(kFamilies); ++i) {
        const std::string ip = std::string("/sbin/ip ") + kFamilies[i];
        (void)system_cmd((ip + " rule flush >/dev/null 2>&1").c_str());
        (void)system_cmd((ip + " rule del pref 0 >/dev/null 2>&1").c_str());
        feed(ip + " rule restore", dumps_.rules[i]);
    }
}

void Copy::add_packet_policy() {
    feed("/sbin/ipset restore", source_.sets);
    for (size_t i = 0; i < std::size(kChainWriters); ++i) {
        if (!source_.chains[i].empty()) {
            feed(kChainWriters[i], source_.chains[i]);
        }
    }
    for (const auto& [name, value] : source_.conditions) {
        FileDescriptor condition = open_condition(name);
        (void)(condition && set_condition(condition, value == Lines{"1"}));  // shows in the copy
    }
}

bool ends_with(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), std::string::npos, end) == 0;
}

/// While the copy is built, devices make no addresses of their own.
void Copy::set_settings(bool is_building) {
    for (const auto& [name, lines] : source_.settings) {
        const bool is_own = ends_with(name, "/addr_gen_mode") && !ends_with(name, "/all/addr_gen_mode");
        const std::string value = is_building && is_own ? "1" : lines.front();
        const std::string path = kSettings + name;
        const std::string present = read_file(path).value_or("");
        if (present != value + "\n") {
            const auto file = FileDescriptor::open(path.c_str(), O_WRONLY);
            (void)(file && write_all(file.get(), value));  // what the kernel refuses shows in the copy
        }
    }
}

/// Whether every link is up that is up on the device. A link comes up after its carrier.
bool Copy::has_links() const {
    return std::all_of(devices_.begin(), devices_.end(), [](const Json::Value& device) {
        return text_of(device, "operstate") != "UP" ||
               read_file("/sys/class/net/" + name_of(device) + "/operstate").value_or("") == "up\n";
    });
}

/// The names that ip-link(8) has for the values of addr_gen_mode.
constexpr const char* kAddressModes[] = {"eui64", "none", "stable_secret", "random"};

/// Lets them again, from the next occasion on: a device may have another link-local address than it would
/// make now, and makes that at once where the setting itself is written, or when its link comes up.
void Copy::let_make_addresses() {
    constexpr auto kPause = std::chrono::milliseconds(10);
    constexpr int kMostPauses = 100;
    for (int i = 0; i < kMostPauses && !has_links(); ++i) {
        std::this_thread::sleep_for(kPause);
    }
    std::string lines;
    for (const Json::Value& device : devices_) {
        const auto setting = source_.settings.find("ipv6/conf/" + name_of(device) + "/addr_gen_mode");
        for (size_t i = 0; setting != source_.settings.end() && i < std::size(kAddressModes); ++i) {
            lines += setting->second == Lines{std::to_string(i)}
                         ? "link set " + name_of(device) + " addrgenmode " + kAddressModes[i] + "\n"
                         : "";
        }
    }
    feed("/sbin/ip -force -batch -", lines);
}

void Copy::make() {
    make_devices();
    set_settings(true);
    raise_devices();
    add_addresses();
    add_routes();
    add_rules();
    add_packet_policy();
    let_make_addresses();
    set_settings(false);
}

/// New devices take over the settings that are there by then.
void Copy::make_hardware() {
    set_settings(false);
    make_devices();
    raise_devices();
    add_addresses();
}

/// As the driver leaves a device: down, of the usual MTU, with the address that it was made with.
Json::Value as_plugged_in(Json::Value device) {
    device.removeMember("mtu");
    device.removeMember("master");
    device["addr_info"] = Json::arrayValue;
    if (device.isMember("permaddr")) {
        device["address"] = device["permaddr"];
    }
    Json::Value flags(Json::arrayValue);
    for (const Json::Value& flag : device["flags"]) {
        if (flag != "UP" || is_loopback(device)) {
            flags.append(flag);
        }
    }
    device["flags"] = flags;
    return device;
}

bool is_hardware(const Json::Value& device) {
    return kind_of(device) != "bridge" && kind_of(device) != "vlan";
}

/// Whether a setting is that of a single device.
bool is_of_device(const std::string& setting) {
    const size_t begin = setting.find("/conf/");
    return begin != std::string::npos && setting.find("/conf/all/") != begin &&
           setting.find("/conf/default/") != begin;
}

WorldSource hardware_of(const WorldSource& source) {
    WorldSource hardware;
    for (const Json::Value& device : source.devices) {
        const bool is_session = name_of(device) != device_of(name_of(device));
        if (is_hardware(device)) {
            hardware.devices.append(is_session ? device : as_plugged_in(device));
        }
    }
    for (const auto& [name, lines] : source.settings) {
        if (!is_of_device(name)) {
            hardware.settings[name] = lines;
        }
    }
    return hardware;
}

}  // namespace

void copy_network(const WorldSource& source, const RouteDumps& dumps, const std::string& far,
                  const std::string& scratch) {
    Copy(source, dumps, far, scratch).make();
}

void copy_hardware(const WorldSource& source, const std::string& far, const std::string& scratch) {
    const WorldSource hardware = hardware_of(source);
    Copy(hardware, RouteDumps(), far, scratch).make_hardware();
}

}  // namespace nm
