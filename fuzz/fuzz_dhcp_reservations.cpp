// Foreign bytes as the server's generated file: a reservation is read back complete or not at all.
#include <cstdint>
#include <cstdlib>
#include <fstream>

#include "services/dhcp_reservations.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    std::ofstream("/etc/networkmanagement/dhcp/dhcpd_fuzz.conf", std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes), static_cast<std::streamsize>(size));
    Json::Value out;
    bool whole =
        get_reserved_ip("fuzz", out) == 0 && (out["RESERVATION"].isArray() || out["RESERVATION"] == "");
    for (const Json::Value& record : out["RESERVATION"]) {
        whole = whole && record.size() == 5 && record["IP4_ADDR"].isString() && record["MAC"].isString();
    }
    return whole ? 0 : (std::abort(), 0);
}
