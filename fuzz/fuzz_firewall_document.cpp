// Foreign bytes as a list of rules: no value gets out of its line, and no line holds anything but plain
// words.
#include <sstream>

#include "policy/firewall/firewall_rule.h"
#include "target.h"
#include "utils/json_text.h"
#include "utils/shell_text.h"

bool holds(const std::string& input) {
    Json::Value rules;
    if (!nm::parse_json(input, rules)) {
        return true;
    }
    Json::Value device = rules.isArray() && !rules.empty() ? rules[0] : Json::Value();
    std::unordered_map<std::string, std::string> hostnames{{"a.example", "HOSTNAME0"}};
    for (const std::string chain : {"FIREWALL", "STEER-x", "POLICY"}) {
        std::istringstream lines(gen_firewall_policy_chain(rules, device, hostnames, chain.c_str()));
        for (std::string line, word; std::getline(lines, line);) {
            bool is_rule = line.rfind("-A " + chain + " ", 0) == 0 && line.find(" -j VTARGET ") != line.npos;
            for (std::istringstream words(line); words >> word;) {
                is_rule = is_rule && nm::is_plain(word);
            }
            if (!is_rule) {
                return false;
            }
        }
    }
    return true;
}
