// The readers of leases. Their sources are foreign bytes: nothing gets into a record that is not an address.
#include "services/leases/lease_info.h"

#include <vpppoe.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <utility>
#include <vector>

#include "log.h"
#include "peers/unix/peer_commands.h"
#include "result_codes.h"
#include "utils/containers.h"
#include "utils/file_io.h"
#include "utils/files.h"
#include "utils/ip_text.h"
#include "utils/json_text.h"

namespace {

using Lines = std::vector<std::string>;
using IsAddress = bool (*)(const char*);

constexpr const char* kPeerMark = "/usr/bin/python";

template <size_t size>
void store(char (&field)[size], const std::string& text) {
    snprintf(field, size, "%s", text.c_str());
}

/// The address at `place` among those of a comma-separated list; what is not an address does not count.
std::string address_of(const std::string& list, IsAddress is_address, size_t place = 0) {
    Lines pieces;
    split_into_vector(list, ',', pieces);
    for (std::string& piece : pieces) {
        piece.erase(0, piece.find_first_not_of(' '));
        const bool is_whole = piece.find('\0') == std::string::npos;
        if (is_whole && is_address(piece.c_str()) && place-- == 0) {
            return piece;
        }
    }
    return "";
}

std::string ip4_of(const std::string& list, size_t place = 0) {
    return address_of(list, is_valid_ip, place);
}

std::string ip6_of(const std::string& list, size_t place = 0) {
    return address_of(list, is_valid_ip6, place);
}

std::string prefix_length_of(const std::string& text) {
    const bool is_number =
        !text.empty() && text.size() <= 3 && text.find_first_not_of("0123456789") == text.npos;
    return is_number && atoi(text.c_str()) <= 128 ? text : "";
}

/// What follows `key` on the first line that begins with it.
std::string find_line(const Lines& lines, const std::string& key) {
    for (const std::string& line : lines) {
        if (line.compare(0, key.size(), key) == 0) {
            return line.substr(key.size());
        }
    }
    return "";
}

/// The same up to `end`; a line without its `end` was damaged and has no value.
std::string find_value(const Lines& lines, const std::string& key, char end = ';') {
    const std::string rest = find_line(lines, key);
    const size_t stop = rest.find(end);
    return stop != std::string::npos ? rest.substr(0, stop) : "";
}

Lines lines_of(const std::string& text) {
    Lines lines;
    split_into_vector(text, '\n', lines);
    return lines;
}

/// The blocks that have both their opening line and their closing brace, in the order of the file.
std::vector<Lines> blocks_of(const std::string& text, const std::string& opening) {
    std::vector<Lines> blocks;
    std::optional<Lines> block;
    for (const std::string& line : lines_of(text)) {
        if (line == opening) {
            block = Lines();
        } else if (line == "}" && block.has_value()) {
            blocks.push_back(*std::exchange(block, std::nullopt));
        } else if (block.has_value()) {
            block->push_back(line);
        }
    }
    return blocks;
}

std::optional<DHCP_INFO> read_block(const Lines& block) {
    DHCP_INFO lease{};
    const std::string servers = find_value(block, "  option domain-name-servers ");
    store(lease.ip, ip4_of(find_value(block, "  fixed-address ")));
    store(lease.netmask, ip4_of(find_value(block, "  option subnet-mask ")));
    store(lease.gateway, ip4_of(find_value(block, "  option routers ")));
    store(lease.dns1, ip4_of(servers));
    store(lease.dns2, ip4_of(servers, 1));
    store(lease.dhcp_server, ip4_of(find_value(block, "  option dhcp-server-identifier ")));
    return lease.ip[0] != '\0' ? std::optional(lease) : std::nullopt;
}

std::optional<DHCP6_INFO> read_block6(const Lines& block) {
    DHCP6_INFO lease{};
    const std::string servers = find_value(block, "  option dhcp6.name-servers ");
    store(lease.address, ip6_of(find_value(block, "    iaaddr ", ' ')));
    store(lease.dns1, ip6_of(servers));
    store(lease.dns2, ip6_of(servers, 1));
    return lease.address[0] != '\0' ? std::optional(lease) : std::nullopt;
}

/// The lease of the last valid block. One that was given back ends what came before it.
template <class Lease>
bool take_last(const std::vector<Lines>& blocks, std::optional<Lease> (*read)(const Lines&), Lease& info) {
    for (auto block = blocks.rbegin(); block != blocks.rend(); ++block) {
        const std::optional<Lease> lease = read(*block);
        if (!lease.has_value()) {
            continue;
        }
        const bool is_released = std::find(block->begin(), block->end(), "  released;") != block->end();
        info = is_released ? info : *lease;
        return !is_released;
    }
    return false;
}

int read_source(const std::string& directory, const std::string& ifname, const std::string& suffix,
                std::string& text) {
    const std::string path = directory + ifname + suffix;
    // A name with a slash is none of a device; it must not lead out of the directory.
    if (ifname.find('/') != std::string::npos || !is_file_exists(path)) {
        NM_LOG(Error) << "No such file. Path: " << path;
        return NM_ERR_NOT_FOUND;
    }
    text = nm::read_file(path).value_or("");
    if (text.empty()) {
        NM_LOG(Error) << "file content is empty. Path: " << path;
        return NM_ERR_EMPTY;
    }
    return NM_OK;
}

int check_ifname(const char* ifname) {
    if (ifname != nullptr) {
        return NM_OK;
    }
    NM_LOG(Error) << "ifname is Null pointer.";
    return NM_ERR_NULL_ARG;
}

int no_lease(const std::string& ifname) {
    NM_LOG(Error) << ifname << " has no valid lease";
    return NM_ERR_EMPTY;
}

/// A text or a number of a reply; anything else (null where the peer knows nothing) is empty.
std::string reply_text(const Json::Value& reply, const char* key) {
    const Json::Value& member = nm::json_member(reply, key);
    return member.isString() || member.isIntegral() ? member.asString() : "";
}

}  // namespace

namespace nm {

bool parse_leases(const std::string& text, DHCP_INFO& info) {
    return take_last(blocks_of(text, "lease {"), read_block, info);
}

bool parse_leases6(const std::string& text, const std::string& details, DHCP6_INFO& info) {
    if (!take_last(blocks_of(text, "lease6 {"), read_block6, info)) {
        return false;
    }
    const Lines lines = lines_of(details);
    store(info.prefixlen, prefix_length_of(find_line(lines, "prefixlen: ")));
    store(info.gateway, ip6_of(find_line(lines, "gateway: ")));
    return true;
}

bool parse_slaac_reply(const std::string& text, DHCP6_INFO& info) {
    Json::Value reply;
    if (!parse_json(text, reply) || !reply.isObject()) {
        return false;
    }
    store(info.address, ip6_of(reply_text(reply, "address")));
    store(info.prefixlen, prefix_length_of(reply_text(reply, "prefixlen")));
    store(info.gateway, ip6_of(reply_text(reply, "gateway")));
    store(info.dns1, ip6_of(reply_text(reply, "dns1")));
    store(info.dns2, ip6_of(reply_text(reply, "dns2")));
    return true;
}

}  // namespace nm

int get_interface_dhcp_info(char* ifname, DHCP_INFO& info) {
    info = {};
    std::string leases;
    int ret = check_ifname(ifname);
    if (ret == NM_OK) {
        ret = read_source("/etc/networkmanagement/dhclient/", ifname, ".leases", leases);
    }
    if (ret != NM_OK) {
        return ret;
    }
    return nm::parse_leases(leases, info) ? NM_OK : no_lease(ifname);
}

int get_interface_dhcp6_info(char* ifname, DHCP6_INFO& info) {
    info = {};
    std::string details;
    std::string leases;
    int ret = check_ifname(ifname);
    if (ret == NM_OK) {
        ret = read_source("/var/lib/dhcpv6/", ifname, ".info", details);
    }
    if (ret == NM_OK) {
        ret = read_source("/etc/networkmanagement/dhclient6/", ifname, ".leases", leases);
    }
    if (ret != NM_OK) {
        return ret;
    }
    return nm::parse_leases6(leases, details, info) ? NM_OK : no_lease(ifname);
}

int get_interface_slaac_info(char* ifname, DHCP6_INFO& info) {
    info = {};
    if (ifname == nullptr || *ifname == '\0') {
        NM_LOG(Error) << "Empty ifname.";
        return NM_ERR_BAD_TYPE;
    }
    if (!is_file_exists(kPeerMark)) {
        NM_LOG(Debug) << ifname << " has no peer that knows of autoconfiguration";
        return NM_ERR_NOT_FOUND;
    }
    std::string reply;
    const int ret = nm::send_command(UNIX_CLI_SLAACRRD, create_json_slaacrrd_cmd("stat", ifname), reply);
    if (ret != NM_OK) {
        return ret == NM_ERR_CLI_EMPTY ? ret : NM_ERR_CLI_RETCODE;
    }
    if (!nm::parse_slaac_reply(reply, info)) {
        NM_LOG(Error) << "Json reader parse fail!";
        return NM_ERR_PARSE;
    }
    return NM_OK;
}

int cast_ppp_cfg_into_dhcp_info(std::string ifname, DHCP_INFO& info) {
    info = {};
    pppoe_runtime_cfg session{};
    const int ret = get_pppoe_runtime_cfg(ifname.c_str(), &session);
    if (ret != VPPPOE_SUCCESS) {
        NM_LOG(Error) << "Failed to get " << ifname << "'s PPPoE runtime cfg!";
        return ret;
    }
    store(info.ip, session.ip4_addr);
    store(info.netmask, "255.255.255.255");
    store(info.dns1, session.ip4_dns1);
    store(info.dns2, session.ip4_dns2);
    store(info.gateway, session.ip4_gw);
    return NM_OK;
}
