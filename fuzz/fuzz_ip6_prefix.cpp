// Foreign bytes as a LAN's address, its length and a delegated prefix, a line each: what can be cut comes
// back whole, and what is put together lies in its prefix.
#include <sstream>

#include "target.h"
#include "utils/ip6_prefix.h"

bool holds(const std::string& input) {
    std::istringstream lines(input);
    std::string address, routing, word;
    std::getline(lines, address);
    std::getline(lines, routing);
    IP6_ADDR_OBJ parts;
    std::string back;
    const unsigned char length = input.empty() ? 0 : static_cast<unsigned char>(input.back());
    if (cast_ip6_addr_to_obj(address, length, routing, &parts) == 0 &&
        (cast_ip6_obj_to_addr(&parts, back) != 0 || back != get_ip6_prefix_addr(address.c_str(), 128))) {
        return false;
    }
    // Parts of foreign make.
    for (parts.subnet_id.clear(); std::getline(lines, word, ' ');) {
        parts.subnet_id.push_back(word);
    }
    return cast_ip6_obj_to_addr(&parts, back) != 0 ||
           get_ip6_prefix_addr(back.c_str(), parts.routing_prefix_len) == parts.routing_prefix;
}
