// Subnets as text.
#include "services/dhcp/server_subnet.h"

#include <arpa/inet.h>

#include "log.h"
#include "result_codes.h"
#include "utils/ip_text.h"

namespace nm {

std::string mask_text(int prefix) {
    const in_addr mask = {static_cast<in_addr_t>(prefix_to_network(static_cast<unsigned char>(prefix)))};
    char text[INET_ADDRSTRLEN] = {};
    return inet_ntop(AF_INET, &mask, text, sizeof(text)) != nullptr ? text : "";
}

int subnet_of(std::string ip, int prefix, std::string& network) {
    std::string mask = mask_text(prefix);
    char text[INET_ADDRSTRLEN] = {};
    const int ret = network_addr(ip.data(), mask.data(), text);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Compute the network address fail. ip: " << ip << " mask: " << mask;
        return ret;
    }
    network = text;
    return NM_OK;
}

}  // namespace nm
