// Foreign bytes as a LAN's address, its length and a delegated prefix, a line each: what can be cut comes
// back whole, and what is put together lies in its prefix.
#include <cstdint>
#include <cstdlib>
#include <sstream>

#include "utils/ip6_prefix.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    std::istringstream lines(std::string(reinterpret_cast<const char*>(bytes), size));
    std::string address, routing, word;
    std::getline(lines, address);
    std::getline(lines, routing);
    IP6_ADDR_OBJ parts;
    std::string back;
    const unsigned char length = size != 0 ? bytes[size - 1] : 0;
    if (cast_ip6_addr_to_obj(address, length, routing, &parts) == 0 &&
        (cast_ip6_obj_to_addr(&parts, back) != 0 || back != get_ip6_prefix_addr(address.c_str(), 128))) {
        std::abort();
    }
    // Parts of foreign make.
    for (parts.subnet_id.clear(); std::getline(lines, word, ' ');) {
        parts.subnet_id.push_back(word);
    }
    const bool joined = cast_ip6_obj_to_addr(&parts, back) == 0;
    if (joined && get_ip6_prefix_addr(back.c_str(), parts.routing_prefix_len) != parts.routing_prefix) {
        std::abort();
    }
    return 0;
}
