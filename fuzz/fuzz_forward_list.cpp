// Foreign bytes as a list of forwards: every line belongs to a set or a chain, and holds plain words only.
#include <sstream>

#include "policy/dnat/dnat.h"
#include "target.h"
#include "utils/json_text.h"
#include "utils/shell_text.h"

bool holds(const std::string& input) {
    Json::Value rules, device;
    if (!nm::parse_json(input, rules) || !rules.isArray()) {
        return true;
    }
    device["WAN_PORT"]["PORT2"]["INTERFACE"] = "swdev2";
    std::vector<available_base_wan_status> wans(1);
    wans[0].ifname = "swdev2", wans[0].ip4.addr = "192.0.2.2";
    std::string text, rest;
    for (Json::Value& rule : rules) {
        gen_dnat_rule(rule, device, text, rest);
        gen_dnat_prerouting_rule(rule, device, wans, rest);
    }
    std::istringstream lines(text + rest);
    bool known = true;
    for (std::string line, word; std::getline(lines, line);) {
        known = known && std::string("flush add -A ").find(line.substr(0, line.find(' ') + 1)) != line.npos;
        for (std::istringstream words(line); words >> word;)
            known = known && nm::is_plain(word);
    }
    return known;
}
