// The clamping rules.
#include "policy/edge/tcp_mss.h"

#include <json/value.h>

#include "config/nmconfig.h"
#include "config/port_names.h"
#include "kernel/link.h"
#include "log.h"
#include "result_codes.h"
#include "utils/json_text.h"
#include "utils/process.h"
#include "utils/shell_text.h"

namespace {

constexpr const char* kFlushes[] = {
    "/sbin/iptables -t nat -F TCP_MSS",
    "/sbin/iptables -t nat -F WAN_MSS",
    "/sbin/iptables -t mangle -F WAN_MSS",
    "/sbin/ip6tables -t mangle -F WAN_MSS",
};

constexpr const char* kClamp = " -p tcp -m tcp --tcp-flags SYN,RST SYN -j TCPMSS --set-mss ";

/// An IP header and a TCP header without options.
constexpr int kIp4Headers = 40;
constexpr int kIp6Headers = 60;

constexpr struct {
    const char* command;
    int headers;
} kRules[] = {
    {"/sbin/iptables -t nat -I TCP_MSS -o ", kIp4Headers},
    {"/sbin/iptables -t nat -A WAN_MSS -i ", kIp4Headers},
    {"/sbin/iptables -t mangle -A WAN_MSS -i ", kIp4Headers},
    {"/sbin/ip6tables -t mangle -A WAN_MSS -i ", kIp6Headers},
    {"/sbin/ip6tables -t mangle -A WAN_MSS -o ", kIp6Headers},
};

std::string device_of(const std::string& ifname, const Json::Value& info) {
    return nm::json_string_or(info, "IP4_TYPE", "") == "PPPOE" ? nm::ppp_ifname(ifname) : ifname;
}

int first_failure(int first, int status) {
    return first == NM_OK && status != NM_OK ? NM_ERR_SERVICE : first;
}

int clamp(const std::string& device) {
    int mtu = 0;
    const std::optional<std::string> word = nm::shell_word(device);
    // A device that is not there has an MTU of 0.
    if (!word || get_if_mtu(device.c_str(), &mtu) != NM_OK || mtu <= 0) {
        NM_LOG(Error) << "Get MTU FAILED. Interface: " << device;
        return NM_OK;
    }
    int ret = NM_OK;
    for (const auto& rule : kRules) {
        const int mss = mtu - rule.headers;
        if (mss > 0) {
            ret =
                first_failure(ret, system_cmd((rule.command + *word + kClamp + std::to_string(mss)).c_str()));
        }
    }
    return ret;
}

}  // namespace

int set_tcp_mss(std::string path) {
    NM_LOG(Debug) << "Enter";
    Json::Value document;
    int ret = json_file_to_mem(path, document);
    if (ret != NM_OK) {
        return NM_EXIT(ret);
    }
    for (const char* const flush : kFlushes) {
        ret = first_failure(ret, system_cmd(flush));
    }
    const Json::Value& uplinks = nm::json_member(document, "WAN_IFACE_INFO");
    const Json::Value::Members ifnames =
        uplinks.isObject() ? uplinks.getMemberNames() : Json::Value::Members{};
    for (const std::string& ifname : ifnames) {
        ret = first_failure(ret, clamp(device_of(ifname, uplinks[ifname])));
    }
    return NM_EXIT(ret);
}
