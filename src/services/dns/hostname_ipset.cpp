// The map of host names to ipsets.
#include "services/dns/hostname_ipset.h"

#include <stdio.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "log.h"
#include "result_codes.h"
#include "services/files/line_file.h"
#include "utils/containers.h"
#include "utils/files.h"
#include "utils/process.h"
#include "utils/shell_text.h"

namespace {

constexpr const char* kDirectory = "/var/run/network/dnsmasq.d/";
constexpr const char* kMapPath = "/var/run/network/dnsmasq.d/ipset.conf";
constexpr const char* kUnfinishedMap = "/var/run/network/dnsmasq.d/.ipset.conf";  // dnsmasq passes over dots
constexpr const char* kSign = "ipset=";

/// dnsmasq ends a name at "/", takes quotes and backslashes for its own, and does not start on a line that it
/// cannot read.
bool is_name(const std::string& text) {
    return !text.empty() && nm::is_one_word(text) && text.find_first_of("/\"\\") == std::string::npos;
}

bool are_names(const std::string& host, const std::string& set) {
    // What begins with a dash would be an option to ipset: "flush -q" empties all sets.
    const bool valid = nm::is_hostname(host) && is_name(set) && set.front() != '-';
    if (!valid) {
        NM_LOG(Error) << "Bad host name or set: " << host << ", " << set;
    }
    return valid;
}

std::string map_line(const std::string& host, const std::string& set) {
    return std::string(kSign) + "/" + host + "/" + set;
}

/// In place: dnsmasq reads every file of the directory, so one beside it would be read as well.
int write_set_file(const std::string& domain, const std::string& set) {
    const int ret = writeValue(kDirectory + set, map_line(domain, set), false);
    return ret == NM_OK ? NM_OK : -1;
}

}  // namespace

namespace nm {

bool is_hostname(const std::string& text) {
    constexpr size_t kLongest = 253;
    constexpr size_t kLongestLabel = 63;
    std::vector<std::string> labels;
    split_into_vector(text, '.', labels);
    return is_name(text) && text.size() <= kLongest &&
           std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c <= '~'; }) &&
           std::all_of(labels.begin(), labels.end(),
                       [](const std::string& label) { return label.size() <= kLongestLabel; });
}

}  // namespace nm

int read_hostname_ipset_map(std::unordered_map<std::string, std::string>& map) {
    NM_LOG(Debug) << "Enter";
    map.clear();
    for (const std::string& line : nm::split_lines(readValue(kMapPath, false))) {
        std::vector<std::string> pieces;
        split_into_vector(line, '/', pieces);
        if (pieces.size() > 2 && pieces[0] == kSign) {
            map[pieces[1]] = pieces[2];
        }
    }
    return NM_EXIT(NM_OK);
}

int write_hostname_ipset_map(std::unordered_map<std::string, std::string>& map) {
    NM_LOG(Debug) << "Enter";
    std::string text;
    for (const auto& [host, set] : map) {
        text += are_names(host, set) ? map_line(host, set) + "\n" : "";
    }
    const int ret = writeValue(kUnfinishedMap, text, false);
    if (ret != NM_OK) {
        return NM_EXIT(ret);
    }
    // A map cut short by a kill would let the next apply give sets that rules still name to other hosts.
    return NM_EXIT(rename(kUnfinishedMap, kMapPath) == 0 ? NM_OK : NM_ERR_WRITE);
}

int dnsmasq_add_ipset(const char* domain, const char* set) {
    NM_LOG(Debug) << "Enter";
    if (domain == nullptr || set == nullptr || !are_names(domain, set)) {
        return NM_EXIT(-1);
    }
    // A name has no newline, so there is always a word for it. A set that is there with another type stays
    // as it is, and is filled all the same.
    const std::string word = *nm::shell_word(set);
    (void)system_cmd(("/sbin/ipset create " + word + " hash:net --exist").c_str());
    (void)system_cmd(("/sbin/ipset flush " + word).c_str());
    return NM_EXIT(write_set_file(domain, set));
}
