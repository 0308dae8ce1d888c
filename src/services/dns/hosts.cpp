// The hosts file and its edits.
#include "services/dns/hosts.h"

#include <sys/socket.h>

#include <algorithm>
#include <functional>
#include <set>
#include <vector>

#include "log.h"
#include "result_codes.h"
#include "services/dns/dnsmasq.h"
#include "services/files/line_file.h"
#include "utils/containers.h"
#include "utils/handles.h"
#include "utils/ip_text.h"
#include "utils/process.h"
#include "utils/run_scope.h"

namespace {

constexpr const char* kHostsPath = "/etc/hosts";
constexpr const char* kHostnameCommand = "/bin/hostname";
constexpr const char* kGap = "  ";

/// What a change makes of the file's text; nothing leaves the file alone.
using Edit = std::function<std::optional<std::string>(const std::string& text)>;

int edit_locked(const Edit& edit, const std::string& success) {
    std::string text;
    const int ret = nm::read_text(kHostsPath, text);
    if (ret != NM_OK) {
        return ret;
    }
    const std::optional<std::string> edited = edit(text);
    const int replaced = edited ? nm::replace_text(kHostsPath, *edited) : NM_OK;
    if (edited && replaced == NM_OK) {
        NM_LOG(Debug) << success;
        restart_dnsmasq();
    }
    return replaced;
}

int edit_hosts(const Edit& edit, const std::string& success) {
    nm::LockGuard lock(nm::kHostsLock);
    if (lock.handle() < 0) {
        return lock.handle();
    }
    const int ret = edit_locked(edit, success);
    return lock.release() == NM_ERR_LOCK_MEM ? NM_ERR_LOCK_MEM : ret;
}

/// A field before the comment: "#" would end the line for whoever looks names up.
bool is_name_field(const std::string& text) {
    return nm::is_one_word(text) && text.find('#') == std::string::npos;
}

int check_given(const std::string& value, const char* what, bool valid) {
    if (value.empty()) {
        NM_LOG(Error) << what << " is not given.";
        return NM_ERR_EMPTY;
    }
    if (!valid) {
        NM_LOG(Error) << "Bad " << what << ": " << value;
        return NM_ERR_BAD_FORMAT;
    }
    return NM_OK;
}

int check_pair(const std::string& ip, const std::string& hostname) {
    const int ret = check_given(ip, "ip", is_name_field(ip));
    return ret != NM_OK ? ret : check_given(hostname, "hostname", is_name_field(hostname));
}

/// The two names of a line, empty where the device has no name that a line can hold.
std::string usable_hoststr() {
    const std::string host = get_hoststr();
    if (!is_name_field(host.substr(0, host.find(kGap)))) {
        NM_LOG(Error) << "Bad hostname: " << host;
        return "";
    }
    return host;
}

bool is_address_of(const std::string& line, unsigned char family) {
    const std::size_t gap = line.find(kGap);
    const std::string address = gap == std::string::npos ? "" : line.substr(0, gap);
    return (family == AF_INET && is_valid_ip(address.c_str())) ||
           (family == AF_INET6 && is_valid_ip6(address.c_str()));
}

/// The text without the lines that `unwanted` finds; nothing if it finds none.
std::optional<std::string> drop_lines(const std::string& text,
                                      const std::function<bool(const std::string& line)>& unwanted) {
    bool dropped = false;
    std::string kept = nm::keep_lines(text, [&](const std::string& line) {
        if (!unwanted(line)) {
            return true;
        }
        NM_LOG(Debug) << "Remove " << line;
        dropped = true;
        return false;
    });
    return dropped ? std::optional(std::move(kept)) : std::nullopt;
}

std::optional<std::string> without_pair(const std::string& text, const std::string& pair) {
    std::optional<std::string> kept =
        drop_lines(text, [&](const std::string& line) { return line.find(pair) != std::string::npos; });
    if (!kept) {
        NM_LOG(Debug) << "No <" << pair << ">'s record can be removed.";
        restart_dnsmasq();
    }
    return kept;
}

/// The words of a line that is an interface's: its address, the two names and "#" with the interface. None
/// for any other line.
std::vector<std::string> words_of_interface(const std::string& line) {
    constexpr std::size_t kOwnedWords = 4;
    std::vector<std::string> words;
    split_into_vector(line, ' ', words);
    return words.size() == kOwnedWords && words.back()[0] == '#' ? words : std::vector<std::string>();
}

}  // namespace

namespace nm {

std::string hosts_with(const std::string& text, const std::string& line) {
    return keep_lines(text, [](const std::string& old) { return !old.empty(); }) + line + "\n";
}

std::string hosts_renamed(const std::string& text, const std::string& host) {
    std::string renamed;
    for (const std::string& line : split_lines(text)) {
        const std::vector<std::string> words = words_of_interface(line);
        const std::string changed = words.empty() ? line : words.front() + kGap + host + kGap + words.back();
        renamed += changed.empty() ? "" : changed + "\n";
    }
    return renamed;
}

std::optional<std::string> hosts_without(const std::string& text, const std::string& ifname,
                                         unsigned char family) {
    return drop_lines(text, [&](const std::string& line) {
        return line.find("#" + ifname) != std::string::npos && is_address_of(line, family);
    });
}

}  // namespace nm

std::string get_hostname() {
    const std::optional<std::string> known = nm::RunScope::look(kHostnameCommand);
    std::string name = known ? *known : exec(kHostnameCommand);
    name.erase(std::remove(name.begin(), name.end(), '\n'), name.end());
    return name;
}

std::string get_hoststr() {
    const std::string name = get_hostname();
    if (name.empty()) {
        NM_LOG(Error) << "Empty hostname.";
        return "";
    }
    return name + kGap + name;
}

int add_hosts(const std::string& ip, const std::string& ifname) {
    NM_LOG(Debug) << "Enter";
    int ret = check_given(ifname, "ifname", nm::is_one_word(ifname));
    if (ret == NM_OK) {
        ret = check_given(ip, "ip", is_name_field(ip));
    }
    if (ret != NM_OK) {
        return NM_EXIT(ret);
    }
    const Edit add = [&](const std::string& text) -> std::optional<std::string> {
        const std::string host = usable_hoststr();
        if (host.empty()) {
            return std::nullopt;
        }
        return nm::hosts_with(text, ip + kGap + host + kGap + "#" + ifname);
    };
    return NM_EXIT(edit_hosts(add, "Add " + ifname + ": " + ip + "'s hosts success."));
}

int del_hosts(const std::string& ifname, unsigned char family) {
    NM_LOG(Debug) << "Enter";
    if (ifname.empty()) {
        NM_LOG(Error) << "ifname is not given.";
        return NM_EXIT(NM_ERR_EMPTY);
    }
    const Edit remove = [&](const std::string& text) {
        std::optional<std::string> kept = nm::hosts_without(text, ifname, family);
        if (!kept) {
            NM_LOG(Debug) << "No " << ifname << "'s record can be removed.";
        }
        return kept;
    };
    return NM_EXIT(edit_hosts(remove, "Delete " + ifname + "'s hosts success."));
}

int write_hosts() {
    NM_LOG(Debug) << "Enter";
    const Edit rename = [](const std::string& text) -> std::optional<std::string> {
        const std::string host = usable_hoststr();
        return host.empty() ? std::nullopt : std::optional(nm::hosts_renamed(text, host));
    };
    return NM_EXIT(edit_hosts(rename, "Write hosts success."));
}

int drop_repeated_hosts() {
    NM_LOG(Debug) << "Enter";
    const Edit drop = [](const std::string& text) {
        std::set<std::string> known;
        return drop_lines(text, [&](const std::string& line) {
            return !words_of_interface(line).empty() && !known.insert(line).second;
        });
    };
    return NM_EXIT(edit_hosts(drop, "Drop repeated hosts success."));
}

int add_ip_hostname(std::string ip, std::string hostname) {
    NM_LOG(Debug) << "Enter";
    const int ret = check_pair(ip, hostname);
    if (ret != NM_OK) {
        return NM_EXIT(ret);
    }
    const std::string pair = ip + kGap + hostname;
    const Edit add = [&](const std::string& text) {
        return nm::hosts_with(nm::keep_lines(text, [&](const std::string& line) { return line != pair; }),
                              pair);
    };
    return NM_EXIT(edit_hosts(add, "Map " + ip + " to hostname " + hostname + " successfully."));
}

int del_ip_hostname(std::string ip, std::string hostname) {
    NM_LOG(Debug) << "Enter";
    const int ret = check_pair(ip, hostname);
    if (ret != NM_OK) {
        return NM_EXIT(ret);
    }
    const Edit remove = [&](const std::string& text) { return without_pair(text, ip + kGap + hostname); };
    return NM_EXIT(edit_hosts(remove, "Delete " + ip + "'s hostname " + hostname + " successfully."));
}
