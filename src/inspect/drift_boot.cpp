// A boot in an empty copy of the device.
#include "inspect/drift_boot.h"

#include <arpa/inet.h>
#include <fnmatch.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <map>
#include <vector>

#include "config/port_names.h"
#include "control/bring_up.h"
#include "control/lease6_event.h"
#include "control/lease_event.h"
#include "control/migrate_documents.h"
#include "inspect/world_copy.h"
#include "inspect/world_files.h"
#include "result_codes.h"
#include "services/dns/hosts.h"
#include "services/dns/name_servers.h"
#include "services/files/line_file.h"
#include "services/leases/ipv6_record.h"
#include "services/leases/lease_info.h"
#include "utils/file_io.h"
#include "utils/files.h"
#include "utils/json_text.h"
#include "utils/process.h"
#include "utils/shell_text.h"
#include "utils/unit_names.h"

namespace nm {

namespace {

namespace fs = std::filesystem;

constexpr const char* kHosts = "/etc/hosts";
constexpr const char* kLeases = "/etc/networkmanagement/dhclient/";

/// Where the files of set-ups lie, beside those of others.
constexpr const char* kMade[] = {"/etc/networkmanagement", "/etc/vpppoe", "/run/network"};

/// What of it a boot finds there.
constexpr const char* kGiven[] = {
    "/etc/networkmanagement/*.json*",
    "/etc/networkmanagement/ncaas.conf*",
    "/etc/networkmanagement/nm_bin.undo*",
    "/etc/networkmanagement/dhclient/*",
    "/etc/networkmanagement/dhclient6/*",
    // Operators set there how sessions are dialled, and who ends one leaves its mark.
    "/etc/vpppoe/env/*.env",
    // The prefixes that were advertised, which no document has any more.
    "/run/network/ipv6/*.withdrawn*",
    // Sets of host names keep their numbers.
    "/run/network/dnsmasq.d/ipset.conf",
    // Of daemons.
    "/run/network/*.pid",
    "/run/network/*.sock",
    "/run/network/dnsmasq.listen*",
    "/run/network/[mpd]lmd-*",
    "/run/network/dpi/*",
};

/// Others that no document describes: marks of the boot, and what daemons keep.
constexpr const char* kMoving[] = {
    "/run/network/.boot_fin",
    "/run/network/.reboot",
    "/run/network/.poweroff",
    "/run/network/ipv6/*.json*",
    "/run/vpppoe/*",
    "/var/db/*",
    "/var/lib/*",
};

template <size_t count>
bool matches_any(const char* const (&patterns)[count], const std::string& path) {
    return std::any_of(std::begin(patterns), std::end(patterns),
                       [&path](const char* pattern) { return fnmatch(pattern, path.c_str(), 0) == 0; });
}

void forget_host_lines() {
    std::string text = read_file(kHosts).value_or("");
    for (const char* const form : kDeviceForms) {
        for (const unsigned char family : {AF_INET, AF_INET6}) {
            text = hosts_without(text, form, family).value_or(text);
        }
    }
    (void)writeValue(kHosts, text, false);  // what stays is found to differ
}

/// In the copy, all files that set-ups have made; directories stay.
void forget_files() {
    Lines made;
    for (const char* const directory : kMade) {
        std::error_code error;
        for (fs::recursive_directory_iterator entry(directory, error), end; !error && entry != end;
             entry.increment(error)) {
            if (!entry->is_directory(error) && !matches_any(kGiven, entry->path())) {
                made.push_back(entry->path());
            }
        }
    }
    for (const std::string& path : made) {
        (void)unlink(path.c_str());  // what stays is found to differ
    }
    (void)writeValue(kNameServersPath, "", false);
    forget_host_lines();
}

// ---- What comes from outside: leases and sessions.

/// The instances of a template whose units run in the copy.
Lines instances_of(const std::string& unit) {
    constexpr std::string_view kSuffix = ".service";
    Lines instances;
    for (const auto& [name, state] : recorded_units()) {
        if (name.rfind(unit, 0) == 0 && name.size() > unit.size() + kSuffix.size()) {
            instances.push_back(name.substr(unit.size(), name.size() - unit.size() - kSuffix.size()));
        }
    }
    return instances;
}

/// The client says when its lease ends (dhclient.leases(5)), by the clock of the world, or never.
bool is_lease_over(const std::string& ifname) {
    std::string end;
    for (const std::string& line : split_lines(read_file(kLeases + ifname + ".leases").value_or(""))) {
        constexpr std::string_view kKey = "  expire ";
        end = line.rfind(kKey, 0) == 0 ? line.substr(kKey.size()) : end;
    }
    const time_t now = time(nullptr);
    std::array<char, 32> present{};
    (void)strftime(present.data(), present.size(), "%Y/%m/%d %H:%M:%S", gmtime(&now));
    const size_t date = end.find(' ');  // behind the day of the week
    return date != std::string::npos && end.substr(date + 1) < present.data();
}

/// The hook's environment, and the hook's entry.
int report_lease(const std::string& ifname, const DHCP_INFO& lease) {
    const std::pair<const char*, std::string> variables[] = {
        {"reason", "BOUND"},
        {"new_ip_address", lease.ip},
        {"new_subnet_mask", lease.netmask},
        {"new_routers", lease.gateway},
        {"new_domain_name_servers", std::string(lease.dns1) + " " + lease.dns2},
        {"new_dhcp_server_identifier", lease.dhcp_server},
    };
    for (const auto& [name, value] : variables) {
        (void)setenv(name, value.c_str(), 1);  // without memory the event is refused
    }
    std::string device = ifname;
    std::string act = "add";
    const int ret = Lease_event(device.data(), act.data());
    (void)unsetenv("reason");
    return ret;
}

/// The daemons raise their device before they ask.
void raise(const std::string& ifname) {
    const std::string device = shell_word(ifname).value_or("''");
    (void)system_cmd(("/sbin/ip link set dev " + device + " up").c_str());  // one that is gone has failed
}

/// What of IPv6 the client of a port was given, as the device has it. The addresses are words of ip(8).
struct Given6 {
    int code = NM_OK;  // of reading the record
    Json::Value record;
    Lines addresses;
};
using AllGiven6 = std::map<std::string, Given6>;

constexpr const char* kPreferred = " valid_lft 3600 preferred_lft 3600";
constexpr const char* kDeprecated = " valid_lft 3600 preferred_lft 0";

std::string words_of_given(const Json::Value& address) {
    return json_string_or(address, "local", "") + "/" + json_scalar(address["prefixlen"]) +
           (address["noprefixroute"] == true ? " noprefixroute" : "") +
           (address["deprecated"] == true ? kDeprecated : kPreferred);
}

/// The client puts addresses on the device itself, those of its record at least.
AllGiven6 read_given6(const Original& original) {
    AllGiven6 all;
    for (const Json::Value& device : original.source.devices) {
        const std::string ifname = json_string_or(device, "ifname", "");
        Given6 given;
        given.code = read_ipv6_record(device_of(ifname), given.record);
        if (given.code == NM_ERR_NOT_FOUND || given.code == NM_ERR_BAD_FORMAT) {
            continue;
        }
        const std::string own = json_string_or(given.record, "curr_ip", "");
        bool has_own = own.empty();
        for (const Json::Value& address : device["addr_info"]) {
            const std::string text = json_string_or(address, "local", "");
            has_own = has_own || text == own;
            if (address["family"] == "inet6" && address["dynamic"] == true) {
                given.addresses.push_back(words_of_given(address));
            }
        }
        in6_addr parsed{};
        if (!has_own && inet_pton(AF_INET6, own.c_str(), &parsed) == 1) {
            given.addresses.push_back(own + kPreferred);
        }
        given.record.removeMember("in_force");
        all[ifname] = given;
    }
    return all;
}

int report_lease6(const std::string& ifname, const Given6& given) {
    if (given.code != NM_OK) {
        return given.code;
    }
    for (const std::string& address : given.addresses) {
        const std::string command = "/sbin/ip addr add " + address + " nodad dev ";
        (void)system_cmd((command + shell_word(ifname).value_or("''")).c_str());  // what is refused differs
    }
    const int ret = write_ipv6_record(device_of(ifname), given.record);
    std::string device = ifname;
    std::string act = "apply";
    return ret != NM_OK ? ret : Lease6_event(device.data(), act.data());
}

// ---- The boot.

class Boot {
public:
    Boot(const boot_steps& steps, const Original& original) : steps_(steps), given6_(read_given6(original)) {}
    void run();
    Json::Value failures() const { return failures_; }

private:
    void step(const std::string& what, const std::function<int()>& work);
    void fail(const std::string& what, const std::string& reason);
    void migrate();
    void hear_lease(const std::string& ifname);
    void hear_session(const std::string& ifname);
    void hear_clients();

    const boot_steps& steps_;
    AllGiven6 given6_;
    Json::Value failures_ = Json::arrayValue;
};

void Boot::fail(const std::string& what, const std::string& reason) {
    Json::Value row;
    row["what"] = what;
    row["reason"] = reason;
    failures_.append(row);
}

std::string words_of(int code) {
    const ResultCode result = describe_result(code);
    return std::to_string(code) + " " + std::string(result.name) + ": " + std::string(result.meaning);
}

/// What failed of it by targets, where it has any.
void Boot::step(const std::string& what, const std::function<int()>& work) {
    const Json::Value answer = answer_to(work);
    bool has_failed_target = false;
    for (const Json::Value& row : answer["targets"]) {
        if (row["code"].asInt() < NM_OK) {
            fail(row["target"].asString(), words_of(row["code"].asInt()));
            has_failed_target = true;
        }
    }
    if (answer["code"].asInt() < NM_OK && !has_failed_target) {
        const Json::Value& errors = answer["errors"];
        fail(what, words_of(answer["code"].asInt()) +
                       (errors.empty() ? "" : ": " + errors[errors.size() - 1].asString()));
    }
}

/// What takes the place of a broken document is not what it describes.
void Boot::migrate() {
    Json::Value records;
    (void)migrate_documents({}, false, records);  // the records say which failed
    for (const Json::Value& record : records) {
        const std::string state = record["state"].asString();
        if (state == "repaired" || state == "failed" || state == "newer") {
            const std::string reason = json_string_or(record, "reason", "");
            fail(record["path"].asString(), reason.empty() ? "its migration: " + state : reason);
        }
    }
}

/// A file without a lease, or with one that was given back, is as the client left it.
void Boot::hear_lease(const std::string& ifname) {
    DHCP_INFO lease{};
    std::string name = ifname;
    const int code = get_interface_dhcp_info(name.data(), lease);
    const std::string text = read_file(kLeases + ifname + ".leases").value_or("");
    const bool is_broken = text.find("lease {") != text.npos && text.find("  released;") == text.npos;
    if (!is_lease_over(ifname) && (code == NM_OK || is_broken)) {
        step("the lease of " + ifname, [&] { return code != NM_OK ? code : report_lease(ifname, lease); });
    }
}

void Boot::hear_session(const std::string& ifname) {
    DHCP_INFO session{};
    const int code = cast_ppp_cfg_into_dhcp_info(ifname, session);
    const bool is_there = if_nametoindex(ppp_ifname(ifname).c_str()) != 0;
    if (code == NM_OK || is_there) {
        std::string name = ifname;
        std::string act = "add";
        step("the session of " + ifname,
             [&] { return code != NM_OK ? NM_ERR_SESSION + code : Lease_event(name.data(), act.data()); });
    }
}

/// Those that were started in the copy, with what the device has of them.
void Boot::hear_clients() {
    for (const std::string& ifname : instances_of(kDhcpClientUnit)) {
        raise(ifname);
        hear_lease(ifname);
    }
    for (const std::string& ifname : instances_of("nm-pppoe@")) {
        raise(ifname);
        hear_session(ifname);
    }
    for (const std::string& ifname : instances_of(kDhcp6ClientUnit)) {
        const auto given = given6_.find(ifname);
        if (given != given6_.end()) {
            step("the IPv6 lease of " + ifname, [&] { return report_lease6(ifname, given->second); });
        }
    }
}

void Boot::run() {
    step("the base rules", [] {
        return system_cmd(NM_SBIN_DIR "/nm-base-rules >/dev/null 2>&1") == 0 ? NM_OK : NM_ERR_SERVICE;
    });
    migrate();
    step("the packet policy", steps_.begin);
    step("the bring-up", [] { return setup_all_iface_by_config(0); });
    hear_clients();
    step("the end of the boot", steps_.finish);
    if (!await_background()) {
        fail("the boot", "processes go on in the background");
    }
}

Json::Value indexes_of(const Json::Value& devices) {
    Json::Value indexes(Json::objectValue);
    for (const Json::Value& device : devices) {
        indexes[json_string_or(device, "ifname", "")] = device["ifindex"];
    }
    return indexes;
}

}  // namespace

Json::Value boot_in_copy(const boot_steps& steps, const Original& original) {
    enter_place(original.settings);
    copy_hardware(original.source, kFarNamespace, kRehearsalDirectory);
    record_calls(original.facts, {});
    Boot boot(steps, original);
    forget_files();
    boot.run();
    Json::Value report;
    report["expected"] = world_to_json(look_when_settled());
    report["indexes"] = indexes_of(read_world_source().devices);
    report["failures"] = boot.failures();
    return report;
}

bool is_undescribed_file(const std::string& path) {
    return matches_any(kGiven, path) || matches_any(kMoving, path);
}

}  // namespace nm
