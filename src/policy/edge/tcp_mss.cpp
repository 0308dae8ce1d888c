// The clamping rules.
#include "policy/edge/tcp_mss.h"

#include <json/value.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <vector>

#include "config/nmconfig.h"
#include "config/port_names.h"
#include "kernel/link.h"
#include "log.h"
#include "result_codes.h"
#include "utils/json_text.h"
#include "utils/process.h"
#include "utils/run_scope.h"
#include "utils/shell_text.h"

namespace {

/// A chain that holds the clamping rules and nothing else.
struct Chain {
    const char* tool;
    const char* table;
    const char* name;
};

constexpr Chain kChains[] = {
    {"/sbin/iptables", "nat", "TCP_MSS"},
    {"/sbin/iptables", "nat", "WAN_MSS"},
    {"/sbin/iptables", "mangle", "WAN_MSS"},
    {"/sbin/ip6tables", "mangle", "WAN_MSS"},
};

constexpr const char* kClamp = " -p tcp -m tcp --tcp-flags SYN,RST SYN -j TCPMSS --set-mss ";

/// An IP header and a TCP header without options.
constexpr int kIp4Headers = 40;
constexpr int kIp6Headers = 60;

/// What each uplink adds: at which end of which chain, for packets in which direction.
constexpr struct {
    const Chain& chain;
    const char* action;
    const char* direction;
    int headers;
} kRules[] = {
    {kChains[0], "-I", "-o", kIp4Headers}, {kChains[1], "-A", "-i", kIp4Headers},
    {kChains[2], "-A", "-i", kIp4Headers}, {kChains[3], "-A", "-i", kIp6Headers},
    {kChains[3], "-A", "-o", kIp6Headers},
};

/// The commands that fill the chains, and what a look at each chain has to say when they are done.
struct Work {
    std::vector<std::string> commands;
    std::map<const Chain*, std::string> rules;
};

std::string command_on(const Chain& chain, const std::string& action) {
    return std::string(chain.tool) + " -t " + chain.table + " " + action + " " + chain.name;
}

std::string device_of(const std::string& ifname, const Json::Value& info) {
    return nm::json_string_or(info, "IP4_TYPE", "") == "PPPOE" ? nm::ppp_ifname(ifname) : ifname;
}

void add_clamps(const std::string& device, Work& work) {
    int mtu = 0;
    const std::optional<std::string> word = nm::shell_word(device);
    // A device that is not there has an MTU of 0.
    if (!word || get_if_mtu(device.c_str(), &mtu) != NM_OK || mtu <= 0) {
        NM_LOG(Error) << "Get MTU FAILED. Interface: " << device;
        return;
    }
    for (const auto& [chain, action, direction, headers] : kRules) {
        const int mss = mtu - headers;
        if (mss > 0) {
            const std::string rule =
                std::string(" ") + direction + " " + *word + kClamp + std::to_string(mss);
            work.commands.push_back(command_on(chain, action) + rule);
            std::string& rules = work.rules[&chain];
            const std::string line = std::string("-A ") + chain.name + rule + "\n";
            rules.insert(action == std::string("-I") ? 0 : rules.size(), line);
        }
    }
}

Work work_for(const Json::Value& uplinks) {
    Work work;
    for (const Chain& chain : kChains) {
        work.commands.push_back(command_on(chain, "-F"));
    }
    const Json::Value::Members ifnames =
        uplinks.isObject() ? uplinks.getMemberNames() : Json::Value::Members{};
    for (const std::string& ifname : ifnames) {
        add_clamps(device_of(ifname, uplinks[ifname]), work);
    }
    return work;
}

/// Whether a run finds each chain as the commands would leave it. To flush them meanwhile would let
/// connections begin without a clamp.
bool is_done(const Work& work) {
    return std::all_of(std::begin(kChains), std::end(kChains), [&](const Chain& chain) {
        const auto rules = work.rules.find(&chain);
        const std::string wanted = rules == work.rules.end() ? "" : rules->second;
        const std::string list = command_on(chain, "-S") + " 2>/dev/null";
        nm::RunScope::forget(list);
        return nm::RunScope::look(list) == std::string("-N ") + chain.name + "\n" + wanted;
    });
}

}  // namespace

int set_tcp_mss(std::string path) {
    NM_LOG(Debug) << "Enter";
    Json::Value document;
    int ret = json_file_to_mem(path, document);
    if (ret != NM_OK) {
        return NM_EXIT(ret);
    }
    const Work work = work_for(nm::json_member(document, "WAN_IFACE_INFO"));
    if (is_done(work)) {
        NM_LOG(Debug) << "all uplinks are clamped already";
        return NM_EXIT(ret);
    }
    for (const std::string& command : work.commands) {
        const int status = system_cmd(command.c_str());
        ret = ret == NM_OK && status != NM_OK ? NM_ERR_SERVICE : ret;
    }
    return NM_EXIT(ret);
}
