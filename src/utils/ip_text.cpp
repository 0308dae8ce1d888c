// IP addresses as text and as numbers: checks, masks and prefixes.
#include "utils/ip_text.h"

#include <arpa/inet.h>

#include <algorithm>
#include <bitset>

#include "log.h"
#include "result_codes.h"

namespace {

constexpr int kIp6Bits = 128;

bool is_inside(const in_addr& address, in_addr_t network, in_addr_t mask) {
    return (ntohl(address.s_addr) & mask) == network;
}

bool parse(const char* text, in_addr& address) {
    return inet_pton(AF_INET, text, &address) == 1;
}

// What can't be parsed counts as 0.0.0.0; callers of the range test check their addresses first.
in_addr_t host_order(const std::string& text) {
    in_addr address = {};
    (void)parse(text.c_str(), address);
    return ntohl(address.s_addr);
}

int bad_address(const char* what, const std::string& ip) {
    NM_LOG(Error) << what << ip;
    return NM_ERR_BAD_IP;
}

}  // namespace

bool is_valid_ip(const char* ip) {
    in_addr address = {};
    return ip != nullptr && parse(ip, address);
}

bool is_valid_ip6(const char* ip) {
    in6_addr address = {};
    return ip != nullptr && inet_pton(AF_INET6, ip, &address) == 1;
}

int check_ip_correctness(const std::string& ip) {
    if (ip.find('.') != std::string::npos) {
        return is_valid_ip(ip.c_str()) ? NM_OK : bad_address("Bad ipv4 address: ", ip);
    }
    if (ip.find(':') != std::string::npos) {
        return is_valid_ip6(ip.c_str()) ? NM_OK : bad_address("Bad ipv6 address: ", ip);
    }
    return bad_address("Bad ip address: ", ip);
}

bool nm::is_device_address(const in_addr& address) {
    constexpr in_addr_t kFirstMulticast = 224;
    const in_addr_t network = ntohl(address.s_addr) >> 24;
    return network != 0 && network != IN_LOOPBACKNET && network < kFirstMulticast;
}

bool nm::is_device_address6(const std::string& text) {
    in6_addr address{};
    if (text.find('\0') != std::string::npos || inet_pton(AF_INET6, text.c_str(), &address) != 1) {
        return false;
    }
    const bool is_special = address.s6_addr[0] == 0;
    return !is_special && !IN6_IS_ADDR_LINKLOCAL(&address) && !IN6_IS_ADDR_MULTICAST(&address);
}

in6_addr nm::link_local_address(const unsigned char* mac) {
    constexpr unsigned char kUniversalBit = 0x02;
    in6_addr address{};
    address.s6_addr[0] = 0xfe;
    address.s6_addr[1] = 0x80;
    address.s6_addr[8] = mac[0] ^ kUniversalBit;
    address.s6_addr[11] = 0xff;
    address.s6_addr[12] = 0xfe;
    std::copy_n(mac + 1, 2, address.s6_addr + 9);
    std::copy_n(mac + 3, 3, address.s6_addr + 13);
    return address;
}

bool is_loop_back(in_addr& address) {
    return is_inside(address, 0x7f000000, 0xff000000);
}

bool is_local_ip(in_addr& address) {
    return is_inside(address, 0xa9fe0000, 0xffff0000);
}

int mask_to_prefix(const char* mask) {
    if (mask == nullptr) {
        return NM_ERR_NULL_ARG;
    }
    in_addr bits = {};
    return parse(mask, bits) ? static_cast<int>(std::bitset<32>(bits.s_addr).count()) : NM_ERR_BAD_IP;
}

int prefix_to_network(unsigned char prefix) {
    if (prefix < 1 || prefix > 32) {
        return -1;
    }
    return static_cast<int>(htonl(~in_addr_t{0} << (32 - prefix)));
}

int network_addr(char* ip, char* mask, char* out) {
    if (ip == nullptr || mask == nullptr || out == nullptr) {
        return NM_ERR_NULL_ARG;
    }
    in_addr address = {};
    in_addr bits = {};
    if (!parse(ip, address) || !parse(mask, bits)) {
        return NM_ERR_BAD_IP;
    }
    const in_addr network = {address.s_addr & bits.s_addr};
    return inet_ntop(AF_INET, &network, out, INET_ADDRSTRLEN) != nullptr ? NM_OK : NM_ERR_BAD_IP;
}

bool is_ip_in_netaddr(std::string ip, std::string network, std::string mask) {
    const in_addr_t bits = host_order(mask);
    const in_addr_t lower = host_order(network) & bits;
    const in_addr_t upper = ~bits | lower;
    const in_addr_t address = host_order(ip);
    return lower <= address && address <= upper;
}

int ip6_masklen(in6_addr mask) {
    int length = 0;
    while (length < kIp6Bits && mask.s6_addr[length / 8] == 0xff) {
        length += 8;
    }
    unsigned int bits = length < kIp6Bits ? mask.s6_addr[length / 8] : 0;
    for (; (bits & 0xff) != 0; bits <<= 1) {
        ++length;
    }
    return length;
}

void get_ip6_subnet(in6_addr& out, in6_addr* in, int prefix) {
    in6_addr subnet = {};
    if (in != nullptr && prefix >= 0 && prefix <= kIp6Bits) {
        std::copy_n(in->s6_addr, (prefix + 7) / 8, subnet.s6_addr);
        if (prefix % 8 != 0) {
            subnet.s6_addr[prefix / 8] &= static_cast<unsigned char>(0xff << (8 - prefix % 8));
        }
    }
    out = subnet;
}
