// Addresses as numbers, and the pool cut around those that are taken.
#include "services/dhcp/server_pool.h"

#include <arpa/inet.h>

#include <algorithm>

#include "log.h"
#include "result_codes.h"

namespace {

int range_text(uint32_t first, uint32_t last, std::string& range) {
    char first_text[INET_ADDRSTRLEN];
    char last_text[INET_ADDRSTRLEN];
    int ret = hostint_to_ipaddr(first_text, first);
    if (ret == NM_OK) {
        ret = hostint_to_ipaddr(last_text, last);
    }
    if (ret == NM_OK) {
        range = std::string(first_text) + " " + last_text;
    }
    return ret;
}

int null_argument(const char* words) {
    NM_LOG(Error) << words;
    return NM_ERR_NULL_ARG;
}

}  // namespace

int ipaddr_to_hostint(char* ip, uint32_t* out) {
    if (ip == nullptr) {
        return null_argument("ip is Null pointer.");
    }
    if (out == nullptr) {
        return null_argument("int_ip is Null pointer.");
    }
    in_addr address = {};
    if (inet_pton(AF_INET, ip, &address) != 1) {
        NM_LOG(Error) << "Bad ip address: " << ip;
        return NM_ERR_BAD_IP;
    }
    *out = ntohl(address.s_addr);
    return NM_OK;
}

int hostint_to_ipaddr(char* ip, uint32_t value) {
    if (ip == nullptr) {
        return null_argument("ip is Null pointer.");
    }
    std::fill_n(ip, INET_ADDRSTRLEN, '\0');
    const in_addr address = {htonl(value)};
    if (inet_ntop(AF_INET, &address, ip, INET_ADDRSTRLEN) == nullptr) {
        NM_LOG(Error) << "inet_ntop fail. int: " << value;
        return NM_ERR_BAD_IP;
    }
    return NM_OK;
}

namespace nm {

int split_pool(uint32_t start, uint32_t end, std::vector<uint32_t> taken, std::vector<std::string>& ranges) {
    const auto is_outside = [=](uint32_t address) { return address < start || address > end; };
    taken.erase(std::remove_if(taken.begin(), taken.end(), is_outside), taken.end());
    std::vector<uint32_t>& cuts = taken;
    cuts.push_back(start - 1);
    cuts.push_back(end + 1);
    std::sort(cuts.begin(), cuts.end());
    for (std::size_t i = 0; i + 1 < cuts.size(); ++i) {
        if (cuts[i] + 1 > cuts[i + 1] - 1) {
            continue;
        }
        std::string range;
        const int ret = range_text(cuts[i] + 1, cuts[i + 1] - 1, range);
        if (ret != NM_OK) {
            return ret;
        }
        ranges.push_back(range);
    }
    return NM_OK;
}

}  // namespace nm
