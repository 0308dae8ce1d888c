// The device side of a private port.
#include "interfaces/uplink/PrivateInterface.h"

#include <utility>

#include "config/actions.h"
#include "interfaces/common/factory.h"

PrivateInterface::PrivateInterface(std::string port, std::string path, Json::Value cfg)
    : UplinkInterface(nm::uplink_kind(KIND_PRIVATE), port, std::move(path), std::move(cfg)) {
}

std::string PrivateInterface::get_pgid() {
    return group_id;
}

int create_PRIVATE_ITF(PrivateInterface** itf, std::string port, std::string path, Json::Value cfg) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(nm::build(itf, "private interface", nm::port_without_vlan(port), path, std::move(cfg)));
}
