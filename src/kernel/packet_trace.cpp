// Reports of nf_tables, and its rules by number.
#include "kernel/packet_trace.h"

#include <arpa/inet.h>
#include <endian.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

namespace nm {

namespace {

constexpr size_t kBufferSize = 16384;
constexpr uint16_t kTables = NFNL_SUBSYS_NFTABLES << 8;
constexpr uint16_t kTrace = kTables | NFT_MSG_TRACE;
constexpr uint16_t kNewRule = kTables | NFT_MSG_NEWRULE;

/// The attributes of a message or of one of its attributes, by type; null where there is none.
using Attributes = std::array<const nlattr*, 32>;

int keep(const nlattr* attribute, void* all) {
    auto& attributes = *static_cast<Attributes*>(all);
    if (mnl_attr_get_type(attribute) < attributes.size()) {
        attributes[mnl_attr_get_type(attribute)] = attribute;
    }
    return MNL_CB_OK;
}

Attributes attributes_of(const nlmsghdr* message) {
    Attributes attributes{};
    (void)mnl_attr_parse(message, sizeof(nfgenmsg), keep, &attributes);  // what is cut is left out
    return attributes;
}

template <class Integer>
Integer number_of(const nlattr* attribute) {
    Integer value{};
    if (attribute != nullptr && mnl_attr_get_payload_len(attribute) >= sizeof(value)) {
        memcpy(&value, mnl_attr_get_payload(attribute), sizeof(value));
    }
    return value;
}

uint32_t net_number(const nlattr* attribute) {
    return ntohl(number_of<uint32_t>(attribute));
}

std::string bytes_of(const nlattr* attribute) {
    return attribute == nullptr ? ""
                                : std::string(static_cast<const char*>(mnl_attr_get_payload(attribute)),
                                              mnl_attr_get_payload_len(attribute));
}

/// A text of the kernel, whose end may or may not be among its bytes.
std::string text_of(const nlattr* attribute) {
    return bytes_of(attribute).c_str();
}

void take_verdict(const nlattr* verdict, TraceEvent& event) {
    Attributes attributes{};
    if (verdict != nullptr && mnl_attr_parse_nested(verdict, keep, &attributes) == MNL_CB_OK) {
        event.verdict = static_cast<int>(net_number(attributes[NFTA_VERDICT_CODE]));
        event.target = text_of(attributes[NFTA_VERDICT_CHAIN]);
    }
}

void take_packet(const Attributes& attributes, TraceEvent& event) {
    event.has_packet = attributes[NFTA_TRACE_NETWORK_HEADER] != nullptr;
    event.in = net_number(attributes[NFTA_TRACE_IIF]);
    event.out = net_number(attributes[NFTA_TRACE_OIF]);
    event.network_header = bytes_of(attributes[NFTA_TRACE_NETWORK_HEADER]);
    event.transport_header = bytes_of(attributes[NFTA_TRACE_TRANSPORT_HEADER]);
}

/// The kinds of linux/netfilter/nf_tables.h.
bool take_kind(uint32_t type, TraceEvent& event) {
    static constexpr std::pair<uint32_t, TraceKind> kKinds[] = {{NFT_TRACETYPE_RULE, TraceKind::Rule},
                                                                {NFT_TRACETYPE_RETURN, TraceKind::Return},
                                                                {NFT_TRACETYPE_POLICY, TraceKind::Policy}};
    for (const auto& [number, kind] : kKinds) {
        if (number == type) {
            event.kind = kind;
            return true;
        }
    }
    return false;
}

nlmsghdr* put_dump(char* buffer, uint8_t family) {
    nlmsghdr* const header = mnl_nlmsg_put_header(buffer);
    header->nlmsg_type = kTables | NFT_MSG_GETRULE;
    header->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    auto* const body = static_cast<nfgenmsg*>(mnl_nlmsg_put_extra_header(header, sizeof(nfgenmsg)));
    body->nfgen_family = family;
    body->version = NFNETLINK_V0;
    return header;
}

/// Kernels send the rules of all chains where they do not know the wish.
struct WantedRules {
    const std::string& table;
    const std::string& chain;
    std::vector<uint64_t>& handles;
};

int take_rule(const nlmsghdr* message, void* data) {
    auto& wanted = *static_cast<WantedRules*>(data);
    if (message->nlmsg_type != kNewRule) {
        return MNL_CB_OK;
    }
    const Attributes attributes = attributes_of(message);
    if (text_of(attributes[NFTA_RULE_TABLE]) == wanted.table &&
        text_of(attributes[NFTA_RULE_CHAIN]) == wanted.chain) {
        wanted.handles.push_back(be64toh(number_of<uint64_t>(attributes[NFTA_RULE_HANDLE])));
    }
    return MNL_CB_OK;
}

MnlSocket open_netfilter(unsigned int groups) {
    MnlSocket socket(mnl_socket_open2(NETLINK_NETFILTER, SOCK_CLOEXEC));
    const bool is_bound = socket != nullptr && mnl_socket_bind(socket.get(), groups, MNL_SOCKET_AUTOPID) == 0;
    return is_bound ? std::move(socket) : nullptr;
}

}  // namespace

bool parse_trace(const nlmsghdr* message, TraceEvent& event) {
    if (message->nlmsg_type != kTrace || message->nlmsg_len < NLMSG_LENGTH(sizeof(nfgenmsg))) {
        return false;
    }
    const Attributes attributes = attributes_of(message);
    event.table = text_of(attributes[NFTA_TRACE_TABLE]);
    event.chain = text_of(attributes[NFTA_TRACE_CHAIN]);
    event.handle = be64toh(number_of<uint64_t>(attributes[NFTA_TRACE_RULE_HANDLE]));
    event.id = number_of<uint32_t>(attributes[NFTA_TRACE_ID]);
    event.mark = net_number(attributes[NFTA_TRACE_MARK]);
    event.verdict = static_cast<int>(net_number(attributes[NFTA_TRACE_POLICY]));
    take_verdict(attributes[NFTA_TRACE_VERDICT], event);
    take_packet(attributes, event);
    return take_kind(net_number(attributes[NFTA_TRACE_TYPE]), event) && !event.chain.empty();
}

PacketTrace::PacketTrace() : socket_(open_netfilter(0)) {
    int group = NFNLGRP_NFTRACE;
    const int room = 8 << 20;
    if (socket_ != nullptr &&
        mnl_socket_setsockopt(socket_.get(), NETLINK_ADD_MEMBERSHIP, &group, sizeof(group)) != 0) {
        socket_.reset();
    }
    if (socket_ != nullptr) {
        // A namespace below the first one may not have more than its limit: loss is reported.
        (void)setsockopt(fd(), SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof(room));
    }
}

int PacketTrace::fd() const {
    return mnl_socket_get_fd(socket_.get());
}

bool PacketTrace::read(TraceEvents& events) {
    std::array<char, kBufferSize> buffer{};
    for (;;) {
        const ssize_t length = recv(fd(), buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (length <= 0) {
            return length == 0 || errno == EAGAIN || errno == EINTR;
        }
        int left = static_cast<int>(length);
        for (const auto* message = reinterpret_cast<const nlmsghdr*>(buffer.data());
             mnl_nlmsg_ok(message, left); message = mnl_nlmsg_next(message, &left)) {
            TraceEvent event;
            if (parse_trace(message, event)) {
                events.push_back(event);
            }
        }
    }
}

bool read_rule_handles(uint8_t family, const std::string& table, const std::string& chain,
                       std::vector<uint64_t>& handles) {
    const MnlSocket socket = open_netfilter(0);
    if (socket == nullptr) {
        return false;
    }
    std::array<char, kBufferSize> buffer{};
    nlmsghdr* const request = put_dump(buffer.data(), family);
    mnl_attr_put_strz(request, NFTA_RULE_TABLE, table.c_str());
    mnl_attr_put_strz(request, NFTA_RULE_CHAIN, chain.c_str());
    if (mnl_socket_sendto(socket.get(), request, request->nlmsg_len) < 0) {
        return false;
    }
    WantedRules wanted{table, chain, handles};
    for (int more = MNL_CB_OK; more > MNL_CB_STOP;) {
        const ssize_t length = mnl_socket_recvfrom(socket.get(), buffer.data(), buffer.size());
        more = length < 0 ? MNL_CB_ERROR
                          : mnl_cb_run(buffer.data(), static_cast<size_t>(length), 0, 0, take_rule, &wanted);
        if (more < MNL_CB_STOP) {
            return false;
        }
    }
    return true;
}

}  // namespace nm
