// Where a packet comes in.
#include <algorithm>
#include <vector>

#include "inspect/packet_probe.h"
#include "utils/json_text.h"
#include "utils/shell_text.h"

namespace nm {

namespace {

constexpr int kMostStacked = 8;

std::string name_of(const Json::Value& device) {
    return json_string_or(device, "ifname", "");
}

const Json::Value& find_device(const Json::Value& devices, const std::string& name) {
    const auto found = std::find_if(devices.begin(), devices.end(),
                                    [&name](const Json::Value& device) { return name_of(device) == name; });
    return found == devices.end() ? Json::Value::nullSingleton() : *found;
}

bool is_up(const Json::Value& device) {
    const Json::Value& flags = json_member(device, "flags");
    return std::find(flags.begin(), flags.end(), Json::Value("UP")) != flags.end() &&
           std::find(flags.begin(), flags.end(), Json::Value("NO-CARRIER")) == flags.end();
}

/// A member of the bridge by which a packet can come, null if there is none.
const Json::Value& find_member(const Json::Value& devices, const std::string& bridge) {
    const auto found = std::find_if(devices.begin(), devices.end(), [&bridge](const Json::Value& device) {
        return json_string_or(device, "master", "") == bridge && is_up(device);
    });
    return found == devices.end() ? Json::Value::nullSingleton() : *found;
}

uint32_t tag_of(const Json::Value& vlan) {
    constexpr uint32_t kCustomer = 0x8100;
    constexpr uint32_t kService = 0x88a8;
    const Json::Value& facts = json_member(json_member(vlan, "linkinfo"), "info_data");
    const uint32_t protocol = json_string_or(facts, "protocol", "") == "802.1ad" ? kService : kCustomer;
    return protocol << 16 | json_member(facts, "id").asUInt();
}

/// Down from a device to the cable below it. What is missing on the way, empty if nothing is.
std::string find_cable(const Json::Value& devices, const std::string& name, Entrance& entrance) {
    std::string below = name;
    for (int i = 0; i < kMostStacked; ++i) {
        const Json::Value& device = find_device(devices, below);
        const std::string kind = json_string_or(json_member(device, "linkinfo"), "info_kind", "");
        if (!is_up(device)) {
            return below +
                   (device.isNull() ? " is not a device" : " has no carrier, so that nothing comes in by it");
        }
        if (kind == "bridge") {
            below = name_of(find_member(devices, below));
            if (below.empty()) {
                return "no member of " + name + " has a carrier, so that nothing comes in by it";
            }
        } else if (kind == "vlan") {
            entrance.tags.insert(entrance.tags.begin(), tag_of(device));
            below = json_string_or(device, "link", "");
        } else {
            entrance.cable = below;
            entrance.cable_index = json_member(device, "ifindex").asUInt();
            return "";
        }
    }
    return name + " lies on too many devices";
}

/// A bridge takes in what comes by its members.
std::string receiver_of(const Json::Value& devices, const std::string& name) {
    const std::string master = json_string_or(find_device(devices, name), "master", "");
    return master.empty() ? name : master;
}

/// A name that the tools take for something else has no copy.
std::string enter_by(const Json::Value& devices, const std::string& name, Entrance& entrance) {
    const Json::Value& device = find_device(devices, name);
    if (device.isNull() || !is_plain(name) || name[0] == '-') {
        return "not a device: " + name;
    }
    if (json_string_or(device, "link_type", "") == "loopback") {
        return "nothing comes in by " + name + ": a packet of the device itself has no --in";
    }
    entrance.device = receiver_of(devices, name);
    return find_cable(devices, name, entrance);
}

/// An address of a device, with the network that it is in.
struct Network {
    std::string device;
    PacketAddress address;
    unsigned int prefix;
};

std::vector<Network> networks_of(const Json::Value& devices) {
    std::vector<Network> networks;
    for (const Json::Value& device : devices) {
        for (const Json::Value& info : json_member(device, "addr_info")) {
            Network network{name_of(device), {}, json_member(info, "prefixlen").asUInt()};
            if (parse_address(json_string_or(info, "local", ""), network.address)) {
                networks.push_back(network);
            }
            Network peer = network;
            if (info.isMember("address") &&
                parse_address(json_string_or(info, "address", ""), peer.address)) {
                networks.push_back(peer);
            }
        }
    }
    return networks;
}

bool is_own(const Json::Value& devices, const PacketAddress& address) {
    for (const Json::Value& device : devices) {
        for (const Json::Value& info : json_member(device, "addr_info")) {
            PacketAddress own;
            if (parse_address(json_string_or(info, "local", ""), own) && own == address) {
                return true;
            }
        }
    }
    return false;
}

bool is_link_local(const PacketAddress& address) {
    PacketAddress network;
    return parse_address("fe80::", network) && is_in_network(address, network, 10);
}

/// The device in whose network the address is, the narrowest one; empty if there is none.
std::string neighbour_device(const Json::Value& devices, const PacketAddress& address) {
    std::string device;
    unsigned int narrowest = 0;
    for (const Network& network : networks_of(devices)) {
        if (network.prefix > narrowest && is_in_network(address, network.address, network.prefix)) {
            narrowest = network.prefix;
            device = network.device;
        }
    }
    return device;
}

}  // namespace

std::string find_entrance(const Json::Value& devices, const packet_question& question, const Flow& flow,
                          Entrance& entrance) {
    if (!question.device.empty()) {
        return enter_by(devices, question.device, entrance);
    }
    if (is_link_local(flow.source)) {
        return flow.source.text() +
               " is a link-local address, which says nothing of where it is: name the device that it comes "
               "in "
               "by, with --in DEVICE";
    }
    if (is_own(devices, flow.source)) {
        entrance.is_local = true;
        return "";
    }
    const std::string device = neighbour_device(devices, flow.source);
    if (!device.empty() && !is_own(devices, flow.destination) &&
        neighbour_device(devices, flow.destination) == device) {
        return flow.source.text() + " and " + flow.destination.text() + " are neighbours behind " + device +
               ": their packets do not come to this device";
    }
    return device.empty() ? flow.source.text() +
                                " is neither an address of this device nor in one of its networks: name the "
                                "device that it comes in by, with --in DEVICE"
                          : enter_by(devices, device, entrance);
}

}  // namespace nm
