// Hardware addresses of interfaces.
#include "utils/mac.h"

#include <ctype.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>

#include "log.h"
#include "result_codes.h"
#include "utils/handles.h"

namespace {

constexpr std::size_t kMacBytes = 6;
constexpr std::size_t kMacChars = 17;
constexpr unsigned char kLocallyAdministered = 0x02;

struct Request {
    unsigned long code;
    const char* failure;
};

constexpr Request kGet = {SIOCGIFHWADDR, "Get iface MAC address failed.  Interface : "};
constexpr Request kSet = {SIOCSIFHWADDR, "Set iface MAC address failed.  Interface : "};

ifreq request_for(const char* ifname) {
    ifreq request = {};
    strncpy(request.ifr_name, ifname, IFNAMSIZ - 1);
    return request;
}

unsigned char* bytes_of(ifreq& request) {
    return reinterpret_cast<unsigned char*>(request.ifr_hwaddr.sa_data);
}

int ask_kernel(const Request& kind, ifreq& request) {
    const nm::FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket) {
        NM_LOG(Error) << "Socket open failed.";
        return NM_ERR_SOCKET;
    }
    if (ioctl(socket.get(), kind.code, &request) < 0) {
        NM_LOG(Error) << kind.failure << request.ifr_name;
        return NM_ERR_IOCTL;
    }
    return NM_OK;
}

int missing_argument(const char* text) {
    NM_LOG(Error) << text;
    return NM_ERR_NULL_ARG;
}

int read_mac(const char* ifname, unsigned char* mac) {
    ifreq request = request_for(ifname);
    const int result = ask_kernel(kGet, request);
    if (result == NM_OK) {
        std::copy_n(bytes_of(request), kMacBytes, mac);
    }
    return result;
}

int store_mac(const char* ifname, const char* mac) {
    ifreq request = request_for(ifname);
    unsigned char* bytes = bytes_of(request);
    if (sscanf(mac, "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", &bytes[0], &bytes[1], &bytes[2], &bytes[3], &bytes[4],
               &bytes[5]) != static_cast<int>(kMacBytes)) {
        NM_LOG(Error) << mac << " is not a valid MAC format.";
        return NM_ERR_BAD_FORMAT;
    }
    request.ifr_hwaddr.sa_family = ARPHRD_ETHER;
    return ask_kernel(kSet, request);
}

int derive_mac(const char* ifname, unsigned short key) {
    ifreq request = request_for(ifname);
    const int result = ask_kernel(kGet, request);
    if (result != NM_OK) {
        return result;
    }
    unsigned char* bytes = bytes_of(request);
    bytes[0] |= kLocallyAdministered;
    bytes[1] ^= static_cast<unsigned char>(key >> 8);
    bytes[2] ^= static_cast<unsigned char>(key & 0xff);
    return ask_kernel(kSet, request);
}

bool has_mac_form(const char* mac) {
    for (std::size_t i = 0; i < kMacChars; ++i) {
        const bool fits = i % 3 == 2 ? mac[i] == ':' : isxdigit(static_cast<unsigned char>(mac[i])) != 0;
        if (!fits) {
            return false;
        }
    }
    return true;
}

}  // namespace

int get_raw_mac_addr(const char* ifname, unsigned char* mac) {
    NM_LOG(Debug) << "Enter";
    if (ifname == nullptr || mac == nullptr) {
        return NM_EXIT(missing_argument("No input interface name"));
    }
    return NM_EXIT(read_mac(ifname, mac));
}

int get_mac_addr(const char* ifname, char* out) {
    NM_LOG(Debug) << "Enter";
    if (ifname == nullptr || out == nullptr) {
        return NM_EXIT(missing_argument("No input interface name or mac_str"));
    }
    unsigned char mac[kMacBytes] = {};
    const int result = read_mac(ifname, mac);
    if (result == NM_OK) {
        (void)snprintf(out, kMacChars + 1, "%.2x:%.2x:%.2x:%.2x:%.2x:%.2x", mac[0], mac[1], mac[2], mac[3],
                       mac[4], mac[5]);
    }
    return NM_EXIT(result);
}

int set_mac_addr(const char* ifname, char* mac) {
    NM_LOG(Debug) << "Enter";
    if (ifname == nullptr || mac == nullptr) {
        return NM_EXIT(missing_argument("No input interface name or mac_str"));
    }
    return NM_EXIT(store_mac(ifname, mac));
}

int xor_mac_addr(const char* ifname, unsigned short key) {
    NM_LOG(Debug) << "Enter";
    if (ifname == nullptr) {
        return NM_EXIT(missing_argument("No input interface name"));
    }
    return NM_EXIT(derive_mac(ifname, key));
}

bool is_valid_mac(const char* mac) {
    if (mac == nullptr) {
        NM_LOG(Error) << "mac is null pointer.";
        return false;
    }
    const std::size_t length = strlen(mac);
    if (length != kMacChars) {
        NM_LOG(Error) << "mac length is invalid. current length: " << length;
        return false;
    }
    if (!has_mac_form(mac)) {
        NM_LOG(Error) << "invalid input mac format.";
        return false;
    }
    return true;
}
