// The DHCP server or relay of one LAN interface: its entry of the section `DHCP_SERVICE` becomes a generated
// daemon file and a started unit, nm-dhcpd@<ifname> or nm-dhcrelay@<ifname>.
//
//     /etc/networkmanagement/dhcp_service.json              the stored configuration
//     /etc/networkmanagement/dhcp/dhcpd_<ifname>.conf       what the server reads
//     /etc/networkmanagement/dhcp/dhcrelay_<ifname>         the relay's environment
//     /var/lib/dhcpd/dhcpd_<ifname>.leases, and with "~"    the server's leases, and their backup
//
// Generated files are replaced in one step: a failure leaves the old one whole. Values of the configuration
// are data: one that could end a line or a statement of the daemon's file is refused, and in the name of a
// device, which is a comment there, it becomes a blank.
//
// One lock, "dhcpservice", serves all interfaces and keeps processes apart. stop_service(), restart_service()
// and get_dhcp_client_table() take it; all else runs under the caller's, which _setup_dhcpservice() takes.
#pragma once

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#pragma GCC visibility push(default)

/// The service of one interface during one operation: the configuration of that moment, with the address and
/// the prefix that the interface has in the kernel.
class DhcpService {
public:
    /// Reads the interface's address and its entry in the document at `path`. Throws NM_ERR_NULL_ARG for an
    /// empty argument, NM_ERR_NO_IFACE for a missing interface or one without an IPv4 address,
    /// NM_ERR_NOT_FOUND for a document that cannot be loaded, NM_ERR_NO_SECTION without an entry.
    DhcpService(std::string ifname, std::string path);

    /// Starts what `SERVICE` names ("SERVER", "RELAY"; anything else: nothing is done). With
    /// OPT_DHCP_CHECK in `opt` the reservations are checked before. 0, also for a pool of which the interface
    /// is no part, which starts nothing; NM_ERR_SERVICE; the codes of the checks and of writing the file.
    int add_service(uint32_t opt);
    /// Stops it and removes its files, the leases too. 0, or NM_ERR_SERVICE.
    int del_service(uint32_t opt);
    /// Stops what the stored configuration has, leases included, and starts what this object has. The codes
    /// of create_DHCP_SERVICE() for the stored configuration, of del_service() and of add_service().
    int alt_service(uint32_t opt);

    /// For callers without the lock: stops and removes the files, leases included; restarts with the leases.
    /// The codes of the operation; NM_ERR_LOCK; NM_ERR_LOCK_MEM if the lock could not be released.
    int stop_service();
    int restart_service();

    /// The router that clients are given, in place of the interface's own address.
    void update_option_router(std::string ip);

    std::string get_ifname() const;
    /// "SERVER", "RELAY", "DISABLED" or whatever else the configuration says.
    std::string get_service_type() const;

    /// Reservations and valid leases as one line of JSON, copied to `out` without a terminator: hand in a
    /// zeroed buffer. Its first 8 bytes are zeroed before. `size` has to be greater than the text's length;
    /// its low 32 bits count.
    ///
    ///     {"LEASE":[{"ALIVE":0,"DEVICE_NAME":"nas","EXPIRES":"1D 2:3:4","IP4_ADDR":"...","MAC":"..."}],
    ///      "RESERVATION":[{"ALIVE":0,"DEVICE_NAME":"tv","EXPIRES":"Reservation","IP4_ADDR":...,"MAC":...}]}
    ///
    /// Either is the text "" if there is none. 0; NM_ERR_NULL_ARG; NM_ERR_BUFFER; NM_ERR_BAD_TYPE for a
    /// disabled service; NM_ERR_NOT_FOUND without the server's files; the codes of the lock.
    int get_dhcp_client_table(char* out, size_t size);

    /// The steps of the operations, which run under the lock.
    ///
    /// Checks, without side effects. 0; NM_ERR_EMPTY for a missing value; NM_ERR_BAD_FORMAT for one that
    /// cannot be; NM_ERR_BAD_IP; NM_ERR_BAD_VALUE if the router lies outside the pool's subnet.
    int check_dhcpserver_jsonformat();
    int check_reserved_ip_jsonformat();

    /// The pool around the router and the reservations, as texts "first last" in rising order. 0, also
    /// without a range if there are reservations; NM_ERR_POOL_EMPTY; NM_ERR_BAD_IP.
    int get_split_dhcpserevr_range(std::vector<std::string>& ranges);

    /// Write the daemon's file. NM_ERR_OPEN; NM_ERR_WRITE; the codes of the checks, which leave the old file
    /// alone. NM_ERR_POOL_EMPTY comes with a new file of an empty subnet.
    int gen_dhcpserver_conf();
    int gen_dhcrelay_env_conf();

    int start_server();
    int stop_server(bool remove_lease);
    int restart_server();
    int start_relay();
    int stop_relay();
    int restart_relay();

    /// Stops the unit if it is active. 0, or NM_ERR_SERVICE.
    int kill_service_proc();

private:
    int get_config();
    int read_address();
    void read_entry(const Json::Value& entry);
    int check_subnets();
    int check_values();
    std::string subnet_body(std::vector<std::string> ranges) const;
    int server_conf_text(std::string& text);
    int relay_env_text(std::string& text) const;
    int start_by_type(uint32_t opt);
    int stop_by_type();
    int restart_by_type();
    int fill_client_table(char* out, size_t size) const;

    std::string ifname;
    std::string path;
    std::string service_type;
    std::string start_ip;
    std::string end_ip;
    int prefix = 0;
    std::string lease_time;
    std::vector<std::string> dns_servers;
    Json::Value reserved_ip;
    std::string option_router;
    Json::Value relay_servers;
};

/// Builds the service of `ifname` from the document at `path` into `*service` (null on entry, owned by the
/// caller). 0; NM_ERR_NULL_ARG for no place; NM_ERR_NOT_NULL; what the constructor throws; NM_ERR_BAD_FORMAT
/// for a document with a value of the wrong kind.
int create_DHCP_SERVICE(DhcpService** service, std::string ifname, std::string path);

/// Removes every server file of the generated ones. 0, also if one could not be removed (which is logged);
/// NM_ERR_NULL_ARG without the directory.
int remove_dhcpserver_conf();

#pragma GCC visibility pop

/// Where the stored configuration lives; old states are built from it.
constexpr const char* kDhcpServicePath = "/etc/networkmanagement/dhcp_service.json";
