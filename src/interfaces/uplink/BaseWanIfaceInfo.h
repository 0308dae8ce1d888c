// What the addressing sides of the routed kinds (WAN, private, RGLink) share. Where a kind differs it
// overrides an operation or has another row in a table; there are no copies.
#pragma once

#include <string>
#include <vector>

#include "interfaces/common/BaseIfaceInfo.h"
#include "services/leases/lease_info.h"

#pragma GCC visibility push(default)

class BaseWanIfaceInfo : public BaseIfaceInfo {
public:
    /// Reads the entry of `ifname` from `cfg`, or from the document at `path` if `cfg` is empty. `type` is
    /// the kind of port (KIND_WAN, ...). Throws the code of BaseIfaceInfo, get_config() or
    /// get_config_from_json(). A port whose interface does not exist (a PPPoE session that is down) can be
    /// built and has the index 0.
    BaseWanIfaceInfo(int type, std::string ifname, std::string path, Json::Value cfg);

    /// Runs, by the bits of `opt` that count for the kind, setup_ipv4(), setup_ipv6() and setup_pppoe(), up
    /// to the first failure. A session is left to setup_ipv4() if `opt` names both. NM_ERR_BAD_TYPE for a
    /// port without a device type.
    int setup_info(uint32_t opt) override;

    /// A lease has come ("add") or gone ("del").
    virtual int dhcp_source_route_cb(DHCP_INFO& info, std::string& act) = 0;
    /// 1 starts the client, any other value stops it; 2 says that it is to be started again.
    virtual int setup_ipv4_dhcp(int mode) = 0;
    virtual int setup_ipv4_static() = 0;
    virtual int setup_pppoe(uint32_t opt) = 0;
    virtual int setup_ipv6(uint32_t opt) = 0;

    /// Loads `path` as the document and reads the entry. 0, NM_ERR_NOT_FOUND whatever the read said, or the
    /// reader's code.
    int get_config();
    /// Reads the entry from the document. 0; NM_ERR_NO_SECTION if the entry or the section of ports is absent
    /// or empty; NM_ERR_NO_IFACE if no port has the interface (a name with a suffix belongs to the port
    /// whose `INTERFACE` it begins with); NM_ERR_BAD_FORMAT for an entry that is not an object;
    /// NM_ERR_BAD_TYPE for a kind that has no section.
    int get_config_from_json();

    /// The lease in force, zeroed on failure. NM_ERR_BAD_TYPE if the port does not run that client, or the
    /// code of the reader in services/leases/lease_info.h.
    int get_dhcp_info(DHCP_INFO& info);
    int get_dhcp6_info(DHCP6_INFO& info);
    /// The IPv4 gateway in force: the configured one, the lease's or the session's. Empty if there is none.
    std::string get_curr_gw();

    /// Id of the uplink: the configured one, without one the number of its port.
    int id();
    /// Key of the port's entry in the section of its kind.
    std::string get_portname();
    /// The interface that the traffic runs on: the session's on PPPoE ("ppp-swdev1"), else get_ifname().
    std::string get_run_ifname();
    /// Configured gateways.
    std::string get_ip4_gw();
    std::string get_ip6_gw();
    /// Configured name servers.
    std::vector<std::string> get_ip4_dns();
    std::vector<std::string> get_ip6_dns();
    /// `IFACE_TYPE`, "ethernet" unless configured.
    std::string get_iface_type();
    /// "ethernet" or "virtio".
    std::string get_dev_type();

protected:
    /// Reads what the kernel says: the interface that the traffic runs on, its index and its addresses.
    void read_runtime_state();

    int id_ = 0;
    int type;
    std::string run_ifname;
    std::string dev_type;
    std::string iface_type;
    std::string portname;
    std::string ip4_gw;
    std::string ip6_gw;
    std::vector<std::string> ip4_dns;
    std::vector<std::string> ip6_dns;
    std::string username;
    std::string password;
    bool dhcp6_pd = false;

private:
    void read_entry(const Json::Value& entry);
};

#pragma GCC visibility pop
