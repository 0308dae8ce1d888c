// Members of ipsets, as the kernel lists them.
#include "kernel/ipset_members.h"

#include <linux/netfilter/ipset/ip_set.h>
#include <linux/netfilter/nfnetlink.h>
#include <netlink/attr.h>
#include <netlink/msg.h>
#include <sys/socket.h>

#include <algorithm>
#include <vector>

#include "kernel/netlink.h"
#include "kernel/policy_netlink.h"

namespace {

/// An entry of a set of addresses, or of a list of sets. One that has more to it has no address here.
struct Entry {
    nm::NlAddr address;
    std::string device;
    std::string listed_set;
};

nm::NlAddr address_in(nlattr* container) {
    auto* address = static_cast<nlattr*>(nla_data(container));
    const bool is_ip4 = nla_type(address) == IPSET_ATTR_IPADDR_IPV4;
    return nm::raw_address(is_ip4 ? AF_INET : AF_INET6, nla_data(address));
}

Entry read_entry(nlattr* container) {
    Entry entry;
    int prefix = -1;
    bool has_more = false;
    nlattr* attribute = nullptr;
    int left = 0;
    nla_for_each_nested(attribute, container, left) {
        switch (nla_type(attribute)) {
            case IPSET_ATTR_IP:
                entry.address = address_in(attribute);
                break;
            case IPSET_ATTR_CIDR:
                prefix = nla_get_u8(attribute);
                break;
            case IPSET_ATTR_IFACE:
                entry.device = nla_get_string(attribute);
                break;
            case IPSET_ATTR_NAME:
                entry.listed_set = nla_get_string(attribute);
                break;
            default:
                has_more = true;
        }
    }
    if (entry.address != nullptr && prefix >= 0) {
        nl_addr_set_prefixlen(entry.address.get(), prefix);
    }
    if (has_more) {
        entry.address.reset();
    }
    return entry;
}

nm::NlMessage list_request(const std::string& set) {
    nm::NlMessage request(nlmsg_alloc_simple(0, 0));
    nfgenmsg header{AF_INET, NFNETLINK_V0, 0};
    const bool is_whole = request != nullptr &&
                          nlmsg_append(request.get(), &header, sizeof(header), NLMSG_ALIGNTO) == 0 &&
                          nla_put_u8(request.get(), IPSET_ATTR_PROTOCOL, IPSET_PROTOCOL_MIN) == 0 &&
                          nla_put_string(request.get(), IPSET_ATTR_SETNAME, set.c_str()) == 0;
    return is_whole ? std::move(request) : nullptr;
}

/// None if there is no such set, or the kernel does not answer.
std::vector<Entry> read_entries(nl_sock* socket, const std::string& set) {
    std::vector<Entry> entries;
    const nm::NlMessage request = list_request(set);
    nm::NlMessages messages;
    if (request == nullptr ||
        nm::dump_messages(socket,
                          {(NFNL_SUBSYS_IPSET << 8) | IPSET_CMD_LIST, nlmsg_data(nlmsg_hdr(request.get())),
                           static_cast<size_t>(nlmsg_datalen(nlmsg_hdr(request.get()))),
                           [](const nlmsghdr*) { return true; }},
                          messages) < 0) {
        return entries;
    }
    for (const nm::NlMessage& message : messages) {
        nlattr* const all = nlmsg_find_attr(nlmsg_hdr(message.get()), sizeof(nfgenmsg), IPSET_ATTR_ADT);
        nlattr* container = nullptr;
        int left = 0;
        if (all != nullptr) {
            nla_for_each_nested(container, all, left) {
                entries.push_back(read_entry(container));
            }
        }
    }
    return entries;
}

bool has_entry(const std::vector<Entry>& entries, nl_addr* address, const std::string& device) {
    return std::any_of(entries.begin(), entries.end(), [&](const Entry& entry) {
        return entry.address != nullptr && nl_addr_cmp(entry.address.get(), address) == 0 &&
               entry.device == device;
    });
}

}  // namespace

namespace nm {

bool has_member(const std::string& set, const std::string& member) {
    const size_t comma = member.find(',');
    const std::string device = comma == std::string::npos ? "" : member.substr(comma + 1);
    nl_addr* parsed = nullptr;
    bool connected = false;
    const NlSocket socket = open_netlink_socket(NETLINK_NETFILTER, connected);
    if (!connected || nl_addr_parse(member.substr(0, comma).c_str(), AF_UNSPEC, &parsed) != 0) {
        return false;
    }
    const NlAddr address(parsed);
    const std::vector<Entry> entries = read_entries(socket.get(), set);
    return has_entry(entries, address.get(), device) ||
           std::any_of(entries.begin(), entries.end(), [&](const Entry& entry) {
               return !entry.listed_set.empty() &&
                      has_entry(read_entries(socket.get(), entry.listed_set), address.get(), device);
           });
}

}  // namespace nm
