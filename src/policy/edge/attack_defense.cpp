// The chain ATTACK_DEFENSE.
#include "policy/edge/attack_defense.h"

#include <string>

#include "log.h"
#include "policy/common/restore_script.h"
#include "policy/common/rule_sources.h"
#include "utils/process.h"

namespace {

constexpr struct {
    uint32_t bit;
    const char* match;
} kMatches[] = {
    {1, "-f"},
    {2, "-p tcp --tcp-flags ALL FIN"},
    {2, "-p tcp --tcp-flags FIN,SYN,RST,ACK,URG FIN,SYN,RST,ACK,URG"},
    {2, "-p tcp --tcp-flags ALL NONE"},
    {4, "-p icmp -m length --length 65500:65535"},
    {8, "-p icmp -m length --length 1500:65535"},
    {16, "-p icmp -m set --match-set WANIFSET src,src"},
    {32, "-p tcp -m multiport --dport 137:139 --tcp-flags URG URG"},
    {64, "-p tcp --tcp-flags FIN,SYN FIN,SYN"},
    {128, "-p tcp --tcp-flags FIN,ACK FIN"},
};

/// The IP options that a bit stands for, in the order in which the rule lists them.
constexpr struct {
    uint32_t bit;
    const char* option;
} kIpOptions[] = {
    {16384, "1"}, {256, "2"}, {512, "3"}, {8192, "4"}, {2048, "7"}, {4096, "8"}, {1024, "9"},
};

std::string drop_rule(const std::string& match) {
    return nm::from_source({"", "/ATTACK_DEFENSE"},
                           nm::append_rule("ATTACK_DEFENSE", " " + match + " -j DROP"));
}

std::string ip_option_rule(uint32_t flags) {
    std::string options;
    for (const auto& row : kIpOptions) {
        if ((flags & row.bit) != 0) {
            options += (options.empty() ? "" : ",") + std::string(row.option);
        }
    }
    return options.empty() ? "" : drop_rule("-m ipv4options --flags " + options);
}

}  // namespace

int setup_attack_defense(uint32_t flags) {
    NM_LOG(Debug) << "Enter";
    std::string rules = "-F ATTACK_DEFENSE\n";
    for (const auto& row : kMatches) {
        rules += (flags & row.bit) != 0 ? drop_rule(row.match) : "";
    }
    rules += ip_option_rule(flags);
    return NM_EXIT(system_cmd(nm::table_script(nm::kRestoreIp4, "filter", rules).c_str()));
}
