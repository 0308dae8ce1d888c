// A packet to be sent: read from words, and as bytes.
#pragma once

#include <json/value.h>
#include <netinet/in.h>

#include <array>
#include <cstdint>
#include <string>

#include "inspect/packet_way.h"

namespace nm {

/// An address of either family.
struct PacketAddress {
    int family = AF_UNSPEC;
    std::array<uint8_t, sizeof(in6_addr)> bytes{};

    bool operator==(const PacketAddress& other) const {
        return family == other.family && bytes == other.bytes;
    }
    size_t size() const { return family == AF_INET6 ? sizeof(in6_addr) : sizeof(in_addr); }
    std::string text() const;
};

/// False for text that is no address.
bool parse_address(const std::string& text, PacketAddress& address);

/// Whether both have the same first bits.
bool is_in_network(const PacketAddress& address, const PacketAddress& network, unsigned int prefix);

/// What a translation can change, and the protocol. Ports are 0 for a protocol without them.
struct Flow {
    PacketAddress source;
    PacketAddress destination;
    uint8_t protocol = 0;
    uint16_t source_port = 0;
    uint16_t destination_port = 0;

    int family() const { return source.family; }
    bool has_ports() const;
    Json::Value report() const;
};

/// Reads the question. What is wrong with it, empty if nothing is.
std::string read_flow(const packet_question& question, Flow& flow);

std::string protocol_name(uint8_t protocol);

/// The packet, from its IP header on: of TCP the SYN of a new connection, of ICMP an echo request.
std::string packet_bytes(const Flow& flow);

/// The same without the IP header, for a socket of the protocol; its checksum is that of the whole.
std::string payload_bytes(const Flow& flow);

/// The flow that a packet's headers say, the IP header and what follows it. False if they are cut.
bool parse_packet(const std::string& network_header, const std::string& transport_header, Flow& flow);

/// The same for a whole packet.
bool parse_packet(const std::string& packet, Flow& flow);

/// The sum of RFC 1071 of an ICMPv6 message (RFC 4443).
uint16_t icmp6_checksum(const PacketAddress& source, const PacketAddress& destination,
                        const std::string& message);

}  // namespace nm
