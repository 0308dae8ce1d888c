// TCP buffers by configured bandwidth.
#include "config/tcp_window.h"

#include <cstdint>

#include "config/nmconfig.h"
#include "log.h"
#include "result_codes.h"
#include "utils/Utils.h"
#include "utils/json_text.h"

namespace {

/// A rate that is not a string is not a rate: the line speed stands in for it.
uint64_t rate_of(const Json::Value& port, const char* key) {
    const std::string line_speed = nm::json_string_or(port, "ISP_BW", "0");
    return nm::rate_from_text(nm::json_string_or(port, key, line_speed));
}

uint64_t sum_rates(const Json::Value& root, const char* key) {
    uint64_t sum = 0;
    for (const char* section : {"WAN_PORT", "PRIVATE_PORT"}) {
        for (const Json::Value& port : nm::json_member(root, section)) {
            sum += rate_of(port, key);
        }
    }
    return sum;
}

}  // namespace

int scale_tcp_window(std::string path) {
    NM_LOG(Debug) << "Enter";
    Json::Value root;
    const int ret = json_file_to_mem(path, root);
    if (ret < 0) {
        return NM_EXIT(ret);
    }
    constexpr double kShare = 0.1;
    const auto rx_rate = static_cast<uint64_t>(static_cast<double>(sum_rates(root, "RX_RATE")) * kShare);
    const auto tx_rate = static_cast<uint64_t>(static_cast<double>(sum_rates(root, "TX_RATE")) * kShare);
    NM_LOG(Debug) << "rx_rate: " << rx_rate << "; tx_rate: " << tx_rate;
    const std::string rx = std::to_string(rx_rate);
    const std::string tx = std::to_string(tx_rate);
    // Network namespaces other than the first lack the net.core limits; a missing one is logged and passed
    // over.
    (void)writeValue("/proc/sys/net/core/rmem_max", rx, true);
    (void)writeValue("/proc/sys/net/core/wmem_max", tx, true);
    (void)writeValue("/proc/sys/net/ipv4/tcp_rmem", "4096 87380 " + rx, true);
    (void)writeValue("/proc/sys/net/ipv4/tcp_wmem", "4096 87380 " + tx, true);
    return NM_EXIT(NM_OK);
}
