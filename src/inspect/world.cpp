// Reading the state of the network of this process's namespace.
#include "inspect/world.h"

#include <arpa/inet.h>
#include <netinet/ether.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "config/port_names.h"
#include "inspect/read_command.h"
#include "inspect/unit_list.h"
#include "services/files/line_file.h"
#include "utils/file_io.h"
#include "utils/ip_text.h"
#include "utils/json_text.h"

namespace nm {

namespace {

namespace fs = std::filesystem;

constexpr const char* kFamilies[] = {"-4", "-6"};
constexpr const char* kFamilyNames[] = {"IPv4 ", "IPv6 "};
constexpr const char* kChainReaders[] = {"/sbin/iptables-save", "/sbin/ip6tables-save"};
constexpr const char* kConditions = "/proc/net/nf_condition";

/// The trees of /proc/sys/net that set-ups know; others have no settings of devices and stacks.
constexpr const char* kSettings = "/proc/sys/net/";
constexpr const char* kSettingTrees[] = {"core", "ipv4", "ipv6", "netfilter"};

/// Settings that count, or that only report: a namespace shows the hash tables that it shares with a minus.
constexpr std::array<std::string_view, 6> kMoving{
    "nf_conntrack_count",   "stable_secret",     "flush",
    "nf_conntrack_buckets", "tcp_ehash_entries", "udp_hash_entries",
};

/// Throws std::runtime_error where the command fails: a device would seem to have nothing of the kind.
std::string output_of(const std::string& command) {
    const CommandText output = read_command("/bin/sh -c '" + command + " 2>/dev/null'");
    if (!output.reason.empty()) {
        throw std::runtime_error("cannot look at the device: " + command + ": " + output.reason);
    }
    return output.text;
}

/// A device without the program has nothing that it would show.
std::string output_if_there(const std::string& program, const std::string& arguments) {
    return access(program.c_str(), X_OK) == 0 ? output_of(program + arguments) : "";
}

std::string trimmed(const std::string& text) {
    const size_t end = text.find_last_not_of(" \t\n");
    return end == std::string::npos ? "" : text.substr(0, end + 1);
}

void read_setting(const fs::path& path, Things& settings) {
    const std::string name = path.filename();
    if (std::find(kMoving.begin(), kMoving.end(), name) != kMoving.end()) {
        return;
    }
    if (const std::optional<std::string> value = read_file(path)) {
        settings[path.string().substr(std::string(kSettings).size())] = {trimmed(*value)};
    }
}

/// A directory may be missing, also since a moment ago: that of a device goes with it. Throws
/// std::runtime_error for one that is there and cannot be read.
std::vector<fs::directory_entry> entries_of(const fs::path& directory) {
    std::vector<fs::directory_entry> entries;
    std::error_code error;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
         entry.increment(error)) {
        entries.push_back(*entry);
    }
    if (error && error != std::errc::no_such_file_or_directory) {
        throw std::runtime_error("cannot look at the device: " + directory.string() + ": " + error.message());
    }
    return entries;
}

/// Neighbour tables have as many settings as all else together, and no set-up touches them.
Things read_settings() {
    Things settings;
    std::vector<fs::path> directories;
    for (const char* const tree : kSettingTrees) {
        directories.push_back(std::string(kSettings) + tree);
    }
    while (!directories.empty()) {
        const fs::path directory = directories.back();
        directories.pop_back();
        for (const fs::directory_entry& entry : entries_of(directory)) {
            std::error_code error;
            if (!entry.is_directory(error)) {
                read_setting(entry.path(), settings);
            } else if (entry.path().filename() != "neigh") {
                directories.push_back(entry.path());
            }
        }
    }
    return settings;
}

Things read_conditions() {
    Things conditions;
    for (const fs::directory_entry& entry : entries_of(kConditions)) {
        conditions[entry.path().filename()] = {trimmed(read_file(entry.path()).value_or(""))};
    }
    return conditions;
}

/// What `ip addr` prints, and whether somebody has given the device its address (addr_assign_type of
/// Documentation/ABI/testing/sysfs-class-net).
Json::Value read_devices() {
    Json::Value devices;
    if (!parse_json(output_of("/sbin/ip -details -json addr show"), devices) || !devices.isArray()) {
        throw std::runtime_error("cannot look at the device: what ip shows of it is no list");
    }
    for (Json::Value& device : devices) {
        const std::string path =
            "/sys/class/net/" + json_string_or(device, "ifname", "") + "/addr_assign_type";
        device["has_set_address"] = trimmed(read_file(path).value_or("")) == "3";
    }
    return devices;
}

bool has_flag(const Json::Value& device, const std::string& name) {
    const Json::Value& flags = device["flags"];
    return std::find(flags.begin(), flags.end(), Json::Value(name)) != flags.end();
}

/// What a device is by its kind. Others than these belong to nobody here, and a port is a port.
Lines describe_kind(const Json::Value& device) {
    const Json::Value& info = json_member(device, "linkinfo");
    const Json::Value& facts = json_member(info, "info_data");
    const std::string kind = json_string_or(info, "info_kind", "");
    if (kind == "bridge") {
        return {"bridge", "stp " + json_scalar(facts["stp_state"]),
                "vlan_filtering " + json_scalar(facts["vlan_filtering"])};
    }
    if (kind == "vlan") {
        return {"vlan " + json_scalar(facts["id"]) + " of " + json_string_or(device, "link", "?"),
                "egress " + trimmed(show_json(json_member(facts, "egress_qos")))};
    }
    return {};
}

/// Only the link layer of Ethernet gives a device an address; the copy of a session has that layer and an
/// address at random.
bool has_hardware_address(const Json::Value& device) {
    const std::string name = json_string_or(device, "ifname", "");
    return json_string_or(device, "link_type", "") == "ether" && device_of(name) == name;
}

/// A bridge that was given no address takes one at random, and then that of a member; its link-local address
/// follows.
bool has_lasting_address(const Json::Value& device, const Json::Value& devices) {
    return json_string_or(json_member(device, "linkinfo"), "info_kind", "") != "bridge" ||
           device["has_set_address"].asBool() ||
           std::any_of(devices.begin(), devices.end(), [&device](const Json::Value& other) {
               return other["master"] == device["ifname"] && other["address"] == device["address"];
           });
}

Lines describe_link(const Json::Value& device, const Json::Value& devices) {
    Lines lines = describe_kind(device);
    lines.push_back(has_flag(device, "UP") ? "up" : "down");
    for (const char* const key : {"mtu", "txqlen", "master", "ifalias"}) {
        if (device.isMember(key)) {
            lines.push_back(std::string(key) + " " + json_scalar(device[key]));
        }
    }
    if (has_hardware_address(device) && has_lasting_address(device, devices)) {
        lines.push_back("address " + json_string_or(device, "address", ""));
    }
    return lines;
}

/// Whether the kernel made the link-local address from a hardware address that the device had before; it
/// stays until the device goes down.
bool is_of_earlier_mac(const Json::Value& device, const std::string& local) {
    in6_addr address{};
    ether_addr mac{};
    if (inet_pton(AF_INET6, local.c_str(), &address) != 1 || address.s6_addr[11] != 0xff ||
        address.s6_addr[12] != 0xfe ||
        ether_aton_r(json_string_or(device, "address", "").c_str(), &mac) == nullptr) {
        return false;
    }
    const in6_addr present = link_local_address(mac.ether_addr_octet);
    return std::memcmp(&address, &present, sizeof(present)) != 0;
}

/// Whether the address is there for a reason that lasts.
bool is_lasting(const Json::Value& address, const Json::Value& device, bool has_lasting_mac) {
    return address["family"] != "inet6" || address["scope"] != "link" ||
           (has_lasting_mac && !is_of_earlier_mac(device, json_string_or(address, "local", "")));
}

std::string describe_address(const Json::Value& address) {
    std::string line = json_string_or(address, "local", "");
    if (address.isMember("address")) {
        line += " peer " + json_string_or(address, "address", "");
    }
    line += "/" + json_scalar(address["prefixlen"]);
    for (const char* const key : {"broadcast", "scope", "label"}) {
        if (address.isMember(key)) {
            line += std::string(" ") + key + " " + json_scalar(address[key]);
        }
    }
    for (const char* const flag : {"secondary", "dynamic", "noprefixroute", "deprecated"}) {
        line += address.isMember(flag) ? std::string(" ") + flag : "";
    }
    return line;
}

void describe_devices(const Json::Value& devices, World& world) {
    for (const Json::Value& device : devices) {
        const std::string name = json_string_or(device, "ifname", "");
        world[Domain::Link][name] = describe_link(device, devices);
        Lines addresses;
        const bool has_lasting = has_lasting_address(device, devices);
        for (const Json::Value& address : device["addr_info"]) {
            if (is_lasting(address, device, has_lasting)) {
                addresses.push_back(describe_address(address));
            }
        }
        if (!addresses.empty()) {
            world[Domain::Address][name] = addresses;
        }
    }
}

/// A word that says nothing that lasts, and how many words behind it go with it.
struct MovingWord {
    std::string_view word;
    int followers;
};

constexpr std::array kMovingWords{
    MovingWord{"expires", 1}, MovingWord{"linkdown", 0}, MovingWord{"dead", 0},    MovingWord{"offload", 0},
    MovingWord{"error", 1},   MovingWord{"hashsize", 1}, MovingWord{"initval", 1}, MovingWord{"timeout", 1},
};

/// The line from its word `first` on, without what moves by itself; `kept` does not move here.
std::string lasting_words(const std::string& line, int first, std::string_view kept = {}) {
    std::istringstream words(line);
    std::string lasting;
    int skipped = first;
    for (std::string word; words >> word;) {
        const auto* const row = std::find_if(kMovingWords.begin(), kMovingWords.end(),
                                             [&word](const MovingWord& known) { return known.word == word; });
        if (skipped > 0) {
            --skipped;
        } else if (row != kMovingWords.end() && word != kept) {
            skipped = row->followers;
        } else {
            lasting += (lasting.empty() ? "" : " ") + word;
        }
    }
    return lasting;
}

/// The table of a line of routes; the words that name it are taken out.
std::string take_table(std::string& line) {
    constexpr std::string_view kTable = " table ";
    const size_t begin = line.find(kTable);
    if (begin == std::string::npos) {
        return "main";
    }
    const size_t name = begin + kTable.size();
    const size_t end = std::min(line.find(' ', name), line.size());
    const std::string table = line.substr(name, end - name);
    line.erase(begin, end - begin);
    return table;
}

/// What follows from an address, in the table of those, is left out.
void describe_routes(const std::string& family, const std::string& text, Things& routes) {
    for (std::string line : split_lines(text)) {
        const std::string name = take_table(line);
        if (name != "local" && line.rfind("multicast", 0) != 0) {
            routes[family + "table " + name].push_back(lasting_words(line, 0));
        }
    }
    for (auto& [name, lines] : routes) {
        std::sort(lines.begin(), lines.end());
    }
}

void describe_rules(const std::string& family, const std::string& text, Things& rules) {
    for (const std::string& line : split_lines(text)) {
        rules[family + "rules"].push_back(lasting_words(line, 0));
    }
}

/// Lines "create NAME ..." and "add NAME MEMBER ...".
void describe_sets(const std::string& text, Things& sets) {
    for (const std::string& line : split_lines(text)) {
        std::istringstream words(line);
        std::string verb;
        std::string name;
        words >> verb >> name;
        const bool is_head = verb == "create";
        const std::string lasting = lasting_words(line, 2, is_head ? "timeout" : "");
        sets[name].push_back((is_head ? "type " : "") + lasting);
    }
    for (auto& [name, lines] : sets) {
        std::sort(lines.begin() + 1, lines.end());
    }
}

/// Lines "*TABLE", ":CHAIN POLICY [COUNTERS]" and "-A CHAIN RULE".
void describe_chains(const std::string& family, const std::string& text, Things& chains) {
    std::string table;
    for (const std::string& line : split_lines(text)) {
        std::istringstream words(line);
        std::string first;
        std::string second;
        words >> first >> second;
        if (line[0] == '*') {
            table = family + line.substr(1) + " ";
        } else if (line[0] == ':') {
            chains[table + first.substr(1)] = second == "-" ? Lines{} : Lines{"policy " + second};
        } else if (first == "-A") {
            chains[table + second].push_back(line.substr(first.size() + second.size() + 2));
        }
    }
}

}  // namespace

RouteDumps read_route_dumps() {
    RouteDumps dumps;
    for (size_t i = 0; i < std::size(kFamilies); ++i) {
        const std::string ip = std::string("/sbin/ip ") + kFamilies[i];
        dumps.routes[i] = output_of(ip + " route save table all");
        dumps.rules[i] = output_of(ip + " rule save");
    }
    return dumps;
}

WorldSource read_world_source() {
    WorldSource source;
    source.devices = read_devices();
    for (size_t i = 0; i < std::size(kFamilies); ++i) {
        const std::string ip = std::string("/sbin/ip ") + kFamilies[i];
        source.routes[i] = output_of(ip + " -oneline route show table all");
        source.rules[i] = output_of(ip + " rule show");
        source.chains[i] = output_if_there(kChainReaders[i], "");
    }
    source.sets = output_if_there("/sbin/ipset", " save");
    source.settings = read_settings();
    source.conditions = read_conditions();
    return source;
}

World describe_world(const WorldSource& source) {
    World world;
    describe_devices(source.devices, world);
    for (size_t i = 0; i < std::size(kFamilies); ++i) {
        describe_routes(kFamilyNames[i], source.routes[i], world[Domain::Route]);
        describe_rules(kFamilyNames[i], source.rules[i], world[Domain::Rule]);
        describe_chains(kFamilyNames[i], source.chains[i], world[Domain::Chain]);
    }
    describe_sets(source.sets, world[Domain::Set]);
    world[Domain::Setting] = source.settings;
    world[Domain::Condition] = source.conditions;
    return world;
}

Things read_units(std::string* reason) {
    std::vector<ListedUnit> listed;
    const std::string failure = list_units({}, listed);  // where there is no systemd no unit is active
    if (reason != nullptr) {
        *reason = failure;
    }
    Things units;
    for (const ListedUnit& unit : listed) {
        if (unit.state == "active") {
            units[unit.name] = {unit.state};
        }
    }
    return units;
}

}  // namespace nm
