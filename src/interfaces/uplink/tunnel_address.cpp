// Tunnel addresses.
#include "interfaces/uplink/tunnel_address.h"

#include <arpa/inet.h>
#include <endian.h>

#include <array>
#include <cstdint>

void gen_tun_addr4(int device_id, int port, std::string& out) {
    constexpr uint32_t kPortsPerDevice = 8;
    constexpr uint32_t kNetwork = 0x13C6;  // 198.19, lowest byte first
    const uint32_t number =
        kPortsPerDevice * (static_cast<uint32_t>(device_id) - 1) + static_cast<uint32_t>(port) - 1;
    // The sum carries from the first byte of the address into the second, which is how all devices of a
    // network compute it.
    const in_addr address{htole32(le32toh(htonl(number)) + kNetwork)};
    std::array<char, INET_ADDRSTRLEN> text{};
    out = inet_ntop(AF_INET, &address, text.data(), text.size());
}
