// The addressing side of a port during one setup call: what the configuration says about IPv4 and IPv6, and
// what the kernel says at run time. Built, used for one operation, destroyed; nothing survives in memory.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

#pragma GCC visibility push(default)

/// What all kinds of ports share. Constructors report failure by throwing an `int` result code. Operations
/// take no lock: whoever builds the object holds the lock of `ifname`.
class BaseIfaceInfo {
public:
    /// Throws NM_ERR_NULL_ARG for an empty name or path.
    BaseIfaceInfo(std::string ifname, std::string path);
    virtual ~BaseIfaceInfo() = default;

    /// Sets up, alters or removes the addressing; `opt` is the mask of what changed (config/actions.h).
    virtual int add_info(uint32_t opt) = 0;
    virtual int alt_info(uint32_t opt) = 0;
    virtual int del_info(uint32_t opt) = 0;
    /// Applies the aspects that `opt` names; the common step of add and alter.
    virtual int setup_info(uint32_t opt) = 0;

    /// Removes the IPv4 side, and sets it up as it is configured; `mode` other than 0 says that a dynamic
    /// type follows.
    virtual int disable_ipv4(int mode) = 0;
    virtual int setup_ipv4(uint32_t opt) = 0;

    /// Kernel name of the port's device, the key of its entry.
    std::string get_ifname();
    /// Kernel index of the interface that carries the traffic, 0 while there is none.
    int get_ifindex();
    /// "DHCP", "STATIC", "PPPOE" or "DISABLED"; "DHCPV6", "SLAAC", "STATIC", "PPPOEV6" or "DISABLED".
    std::string get_ip4_type();
    std::string get_ip6_type();
    /// Configured addresses, without a prefix, and their prefix lengths.
    std::string get_ip4_addr();
    std::string get_ip6_addr();
    int get_ip4_prefix();
    int get_ip6_prefix();
    /// The first address in force when the object was built, as get_ipv4_addr() and get_ipv6_addr() of
    /// kernel/address.h give it: with "/prefix" unless it is the whole address. Empty if there was none.
    std::string get_runtime_ip4();
    std::string get_runtime_ip6();

protected:
    /// Reads both runtime addresses of `ifindex`. 0, or the first failure; a family that could not be read
    /// keeps what it had.
    int get_ip_addr();

    int ifindex = 0;
    int ip4_prefix = 0;
    int ip6_prefix = 0;
    std::string path;
    std::string runtime_ip4;
    std::string runtime_ip6;
    std::string ifname;
    std::string ip4_addr;
    std::string ip4_type;
    std::string ip6_addr;
    std::string ip6_type;
    Json::Value cfg;
};

#pragma GCC visibility pop
