// Packets from words, and to and from bytes.
#include "inspect/packet_flow.h"

#include <arpa/inet.h>
#include <netinet/icmp6.h>
#include <netinet/ip.h>
#include <netinet/ip6.h>
#include <netinet/ip_icmp.h>
#include <netinet/tcp.h>
#include <netinet/udp.h>

#include <cstdlib>
#include <cstring>

#include "config/service_ports.h"
#include "result_codes.h"

namespace nm {

namespace {

constexpr uint16_t kAnySourcePort = 50000;
constexpr uint8_t kHops = 64;
constexpr unsigned long kMostPort = 65535;
constexpr unsigned long kMostProtocol = 255;

constexpr struct {
    const char* name;
    uint8_t number;
} kProtocols[] = {{"icmp", IPPROTO_ICMP}, {"tcp", IPPROTO_TCP},      {"udp", IPPROTO_UDP},
                  {"gre", IPPROTO_GRE},   {"esp", IPPROTO_ESP},      {"ah", IPPROTO_AH},
                  {"sctp", IPPROTO_SCTP}, {"icmpv6", IPPROTO_ICMPV6}};

/// Nothing for what is not a number in range.
bool read_number(const std::string& text, unsigned long most, unsigned long& number) {
    constexpr size_t kMostDigits = 5;
    if (text.empty() || text.size() > kMostDigits ||
        text.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    number = strtoul(text.c_str(), nullptr, 10);
    return number <= most;
}

std::string lower(std::string text) {
    for (char& letter : text) {
        letter = letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    }
    return text;
}

uint8_t echo_protocol(int family) {
    return static_cast<uint8_t>(family == AF_INET6 ? int{IPPROTO_ICMPV6} : int{IPPROTO_ICMP});
}

bool find_protocol(const std::string& word, uint8_t& protocol) {
    unsigned long number = 0;
    for (const auto& known : kProtocols) {
        if (known.name == lower(word)) {
            protocol = known.number;
            return true;
        }
    }
    const bool is_number = read_number(word, kMostProtocol, number);
    protocol = is_number ? static_cast<uint8_t>(number) : protocol;
    return is_number;
}

std::string read_protocol(const std::string& word, Flow& flow) {
    const bool is_echo = word.empty() || lower(word) == "icmp";
    if (is_echo) {
        flow.protocol = echo_protocol(flow.family());
    } else if (!find_protocol(word, flow.protocol)) {
        return "not a protocol: " + word;
    }
    const uint8_t other = echo_protocol(flow.family() == AF_INET6 ? AF_INET : AF_INET6);
    return flow.protocol == other ? protocol_name(other) + " is of the other family" : "";
}

/// The port, or the first one of the service.
std::string read_port(const std::string& word, const Flow& flow, uint16_t& port) {
    unsigned long number = 0;
    if (read_number(word, kMostPort, number) && number != 0) {
        port = static_cast<uint16_t>(number);
        return "";
    }
    service_port service;
    if (find_service_port(word, service) != NM_OK) {
        return "neither a port nor the name of a service: " + word;
    }
    std::vector<PortRange> ranges;
    const unsigned wanted = flow.protocol == IPPROTO_TCP ? kTcp : flow.protocol == IPPROTO_UDP ? kUdp : 0;
    if ((protocol_mask(service.protocol) & wanted) == 0 || !parse_ports(service.ports, ranges)) {
        return word + " is not a service of " + protocol_name(flow.protocol);
    }
    port = ranges.front().first;
    return "";
}

std::string read_ports(const packet_question& question, Flow& flow) {
    if (!flow.has_ports()) {
        const bool has_port = !question.source_port.empty() || !question.destination_port.empty();
        return has_port ? protocol_name(flow.protocol) + " has no ports" : "";
    }
    if (question.destination_port.empty()) {
        return protocol_name(flow.protocol) + " needs a destination port";
    }
    flow.source_port = kAnySourcePort;
    const std::string complaint =
        question.source_port.empty() ? "" : read_port(question.source_port, flow, flow.source_port);
    return complaint.empty() ? read_port(question.destination_port, flow, flow.destination_port) : complaint;
}

bool is_multicast(const PacketAddress& address) {
    constexpr uint8_t kMulticast4 = 224;
    return address.family == AF_INET ? address.bytes[0] >= kMulticast4 : address.bytes[0] == 0xff;
}

template <class Header>
void append(std::string& bytes, const Header& header) {
    bytes.append(reinterpret_cast<const char*>(&header), sizeof(header));
}

/// The sum of RFC 1071, carries not yet folded.
uint32_t sum_of(const std::string& bytes) {
    uint32_t sum = 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
        const auto byte = static_cast<uint8_t>(bytes[i]);
        sum += i % 2 == 0 ? uint32_t{byte} << 8 : byte;
    }
    return sum;
}

uint16_t folded(uint32_t sum) {
    while (sum >> 16 != 0) {
        sum = (sum & 0xffff) + (sum >> 16);
    }
    return htons(static_cast<uint16_t>(~sum));
}

/// Over the message and what stands before it for the sum (RFC 9293, 768, 4443).
uint16_t checksum(const PacketAddress& source, const PacketAddress& destination, uint8_t protocol,
                  const std::string& message) {
    std::string pseudo(reinterpret_cast<const char*>(source.bytes.data()), source.size());
    pseudo.append(reinterpret_cast<const char*>(destination.bytes.data()), destination.size());
    const uint32_t rest = static_cast<uint32_t>(message.size()) + protocol;
    return folded(sum_of(pseudo) + rest + sum_of(message));
}

std::string tcp_bytes(const Flow& flow) {
    constexpr uint16_t kWindow = 64240;
    constexpr char kSegmentSize[] = {2, 4, 0x05,
                                     static_cast<char>(0xb4)};  // 1460, for the rules that clamp it
    tcphdr header{};
    header.source = htons(flow.source_port);
    header.dest = htons(flow.destination_port);
    header.seq = htonl(1);
    header.doff = (sizeof(header) + sizeof(kSegmentSize)) / 4;
    header.syn = 1;
    header.window = htons(kWindow);
    std::string bytes;
    append(bytes, header);
    append(bytes, kSegmentSize);
    const uint16_t sum = checksum(flow.source, flow.destination, flow.protocol, bytes);
    memcpy(&bytes[offsetof(tcphdr, check)], &sum, sizeof(sum));
    return bytes;
}

std::string udp_bytes(const Flow& flow) {
    udphdr header{};
    header.source = htons(flow.source_port);
    header.dest = htons(flow.destination_port);
    header.len = htons(sizeof(header));
    std::string bytes;
    append(bytes, header);
    header.check = checksum(flow.source, flow.destination, flow.protocol, bytes);
    bytes.clear();
    append(bytes, header);
    return bytes;
}

std::string echo_bytes(const Flow& flow) {
    icmphdr header{};
    const bool is_ip6 = flow.family() == AF_INET6;
    header.type = is_ip6 ? static_cast<uint8_t>(ICMP6_ECHO_REQUEST) : ICMP_ECHO;
    header.un.echo.id = htons(kAnySourcePort);
    std::string bytes;
    append(bytes, header);
    header.checksum = is_ip6 ? icmp6_checksum(flow.source, flow.destination, bytes) : folded(sum_of(bytes));
    bytes.clear();
    append(bytes, header);
    return bytes;
}

std::string ip4_header(const Flow& flow, size_t payload) {
    iphdr header{};
    header.version = 4;
    header.ihl = sizeof(header) / 4;
    header.tot_len = htons(static_cast<uint16_t>(sizeof(header) + payload));
    header.id = htons(1);
    header.frag_off = htons(IP_DF);
    header.ttl = kHops;
    header.protocol = flow.protocol;
    memcpy(&header.saddr, flow.source.bytes.data(), sizeof(header.saddr));
    memcpy(&header.daddr, flow.destination.bytes.data(), sizeof(header.daddr));
    std::string bytes;
    append(bytes, header);
    header.check = folded(sum_of(bytes));
    bytes.clear();
    append(bytes, header);
    return bytes;
}

std::string ip6_header(const Flow& flow, size_t payload) {
    constexpr uint32_t kVersion = 6U << 28;
    ip6_hdr header{};
    header.ip6_flow = htonl(kVersion);
    header.ip6_plen = htons(static_cast<uint16_t>(payload));
    header.ip6_nxt = flow.protocol;
    header.ip6_hlim = kHops;
    memcpy(&header.ip6_src, flow.source.bytes.data(), sizeof(header.ip6_src));
    memcpy(&header.ip6_dst, flow.destination.bytes.data(), sizeof(header.ip6_dst));
    std::string bytes;
    append(bytes, header);
    return bytes;
}

template <class Header>
bool take(const std::string& bytes, size_t offset, Header& header) {
    if (bytes.size() < offset + sizeof(header)) {
        return false;
    }
    memcpy(&header, bytes.data() + offset, sizeof(header));
    return true;
}

void set_address(PacketAddress& address, int family, const void* bytes) {
    address.family = family;
    memcpy(address.bytes.data(), bytes, address.size());
}

/// The length of the header; 0 if it is cut.
size_t take_network(const std::string& bytes, Flow& flow) {
    iphdr ip4{};
    ip6_hdr ip6{};
    const int version = bytes.empty() ? 0 : static_cast<uint8_t>(bytes[0]) >> 4;
    if (version == 4 && take(bytes, 0, ip4)) {
        set_address(flow.source, AF_INET, &ip4.saddr);
        set_address(flow.destination, AF_INET, &ip4.daddr);
        flow.protocol = ip4.protocol;
        return ip4.ihl * size_t{4};
    }
    if (version == 6 && take(bytes, 0, ip6)) {
        set_address(flow.source, AF_INET6, &ip6.ip6_src);
        set_address(flow.destination, AF_INET6, &ip6.ip6_dst);
        flow.protocol = ip6.ip6_nxt;
        return sizeof(ip6);
    }
    return 0;
}

/// Both protocols with ports begin with them.
void take_ports(const std::string& bytes, size_t offset, Flow& flow) {
    std::array<uint16_t, 2> ports{};
    if (flow.has_ports() && take(bytes, offset, ports)) {
        flow.source_port = ntohs(ports[0]);
        flow.destination_port = ntohs(ports[1]);
    }
}

}  // namespace

std::string PacketAddress::text() const {
    std::array<char, INET6_ADDRSTRLEN> text{};
    return inet_ntop(family, bytes.data(), text.data(), text.size()) == nullptr ? "" : text.data();
}

bool parse_address(const std::string& text, PacketAddress& address) {
    for (const int family : {AF_INET, AF_INET6}) {
        if (inet_pton(family, text.c_str(), address.bytes.data()) == 1) {
            address.family = family;
            return true;
        }
    }
    return false;
}

bool is_in_network(const PacketAddress& address, const PacketAddress& network, unsigned int prefix) {
    if (address.family != network.family || prefix > address.size() * 8) {
        return false;
    }
    for (unsigned int bit = 0; bit < prefix; ++bit) {
        const auto mask = static_cast<uint8_t>(0x80U >> (bit % 8));
        if (((address.bytes[bit / 8] ^ network.bytes[bit / 8]) & mask) != 0) {
            return false;
        }
    }
    return true;
}

bool Flow::has_ports() const {
    return protocol == IPPROTO_TCP || protocol == IPPROTO_UDP;
}

Json::Value Flow::report() const {
    Json::Value flow;
    flow["source"] = source.text();
    flow["destination"] = destination.text();
    flow["protocol"] = protocol_name(protocol);
    if (has_ports()) {
        flow["source_port"] = source_port;
        flow["destination_port"] = destination_port;
    }
    return flow;
}

std::string read_flow(const packet_question& question, Flow& flow) {
    if (!parse_address(question.source, flow.source)) {
        return "not an address: " + question.source;
    }
    if (!parse_address(question.destination, flow.destination)) {
        return "not an address: " + question.destination;
    }
    if (flow.source.family != flow.destination.family) {
        return question.source + " and " + question.destination + " are of different families";
    }
    if (is_multicast(flow.source) || is_multicast(flow.destination)) {
        return "only a packet between two hosts can be explained";
    }
    const std::string complaint = read_protocol(question.protocol, flow);
    return complaint.empty() ? read_ports(question, flow) : complaint;
}

std::string protocol_name(uint8_t protocol) {
    for (const auto& known : kProtocols) {
        if (known.number == protocol) {
            return known.name;
        }
    }
    return std::to_string(protocol);
}

std::string payload_bytes(const Flow& flow) {
    constexpr size_t kNothing = 16;
    switch (flow.protocol) {
        case IPPROTO_TCP:
            return tcp_bytes(flow);
        case IPPROTO_UDP:
            return udp_bytes(flow);
        case IPPROTO_ICMP:
        case IPPROTO_ICMPV6:
            return echo_bytes(flow);
        default:
            return std::string(kNothing, '\0');
    }
}

std::string packet_bytes(const Flow& flow) {
    const std::string payload = payload_bytes(flow);
    const bool is_ip6 = flow.family() == AF_INET6;
    return (is_ip6 ? ip6_header(flow, payload.size()) : ip4_header(flow, payload.size())) + payload;
}

bool parse_packet(const std::string& network_header, const std::string& transport_header, Flow& flow) {
    const bool is_whole = take_network(network_header, flow) != 0;
    take_ports(transport_header, 0, flow);
    return is_whole;
}

bool parse_packet(const std::string& packet, Flow& flow) {
    const size_t length = take_network(packet, flow);
    take_ports(packet, length, flow);
    return length != 0;
}

uint16_t icmp6_checksum(const PacketAddress& source, const PacketAddress& destination,
                        const std::string& message) {
    return checksum(source, destination, IPPROTO_ICMPV6, message);
}

}  // namespace nm
