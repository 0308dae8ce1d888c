// The sets of host names.
#include "policy/firewall/hostname_sets.h"

#include <set>
#include <vector>

#include "log.h"
#include "policy/common/packet_names.h"
#include "result_codes.h"
#include "services/dns/hostname_ipset.h"
#include "utils/json_text.h"
#include "utils/process.h"
#include "utils/shell_text.h"

namespace {

using HostnameMap = std::unordered_map<std::string, std::string>;

/// The sets' names in ascending order, without those that were in use at the beginning.
class FreeNames {
public:
    explicit FreeNames(const HostnameMap& hostnames) {
        for (const auto& [host, set] : hostnames) {
            used_.insert(set);
        }
    }

    /// The next one; empty when there is none left.
    std::string next() {
        while (counter_ < nm::kMostHostnameSets) {
            std::string name = nm::kHostnameSets + std::to_string(counter_++);
            if (used_.count(name) == 0) {
                return name;
            }
        }
        return "";
    }

private:
    std::set<std::string> used_;
    int counter_ = 0;
};

/// The host names of a document, each once, in the order of its rules.
std::vector<std::string> hostnames_of(const Json::Value& config) {
    std::vector<std::string> names;
    std::set<std::string> seen;
    for (const Json::Value& rules : nm::json_member(config, "RULES")) {
        for (const Json::Value& rule : rules.isArray() ? rules : Json::Value::nullSingleton()) {
            const std::string name = nm::json_string_or(rule, "DST_HOSTNAME", "");
            if (nm::is_hostname(name) && seen.insert(name).second) {
                names.push_back(name);
            }
        }
    }
    return names;
}

bool run_on_set(const char* action, const std::string& set, const char* rest) {
    const std::string word = nm::shell_word(set).value_or("''");  // the map's lines have no line end
    return system_cmd((std::string("/sbin/ipset ") + action + word + rest).c_str()) == NM_OK;
}

}  // namespace

int create_new_hostname_ipset(HostnameMap& hostnames, Json::Value& config) {
    NM_LOG(Debug) << "Enter";
    FreeNames names(hostnames);
    for (const std::string& host : hostnames_of(config)) {
        const auto known = hostnames.find(host);
        const std::string set = known != hostnames.end() ? known->second : names.next();
        if (set.empty()) {
            NM_LOG(Error) << "No ipset is left for " << host;
            return NM_EXIT(NM_ERR_BAD_VALUE);
        }
        // Also the set of a known name: an apply that was killed may have destroyed it and left the map.
        // A set that is not there then is refused with the rule that names it.
        (void)run_on_set("create ", set, " hash:net --exist");
        hostnames[host] = set;
    }
    return NM_EXIT(NM_OK);
}

void remove_redundant_hostname_ipset(HostnameMap& hostnames) {
    NM_LOG(Debug) << "Enter";
    for (auto entry = hostnames.begin(); entry != hostnames.end();) {
        entry = run_on_set("destroy ", entry->second, "") ? hostnames.erase(entry) : std::next(entry);
    }
}
