// The global name servers of the configuration (`SERVICES`, `DNS_INFO`): owner "global" in the name servers'
// file, see services/dns/name_servers.h.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#pragma GCC visibility push(default)

/// The configured servers during one setup call.
class DNS {
public:
    /// Reads the document at `path`. Throws NM_ERR_NULL_ARG for an empty path, NM_ERR_NO_KEY without
    /// `SERVICES`, NM_ERR_NO_SUBKEY without `DNS_INFO`. A document that cannot be loaded gives an object
    /// without servers, whose operations change nothing.
    explicit DNS(std::string path);

    /// Adds the servers of both families; the first failure of the two. Results of insert_dns_server().
    int add_dns();

    /// Removes the lines of "global" in each family of which this object has servers; the first failure.
    int del_dns();

    /// Puts this object's servers in the place of the stored document's, where `opt` says that the IPv4 (0x2)
    /// or IPv6 (0x4) side changed. A failure puts back the stored ones; the result is then that of doing so.
    int alt_dns(uint32_t opt);

    /// Begins with an empty file, other owners' lines included, and adds the servers; at boot (bit 30 of
    /// `opt`) the lines in the file stay. Results of writeValue() and add_dns().
    int reset_dns(uint32_t opt);

private:
    int get_config();

    std::string manually;
    std::vector<std::string> dns4;
    std::vector<std::string> dns6;
    std::string path;
};

/// Builds the object of the document at `path` into `*dns`, null on entry. 0; NM_ERR_NOT_NULL; what the
/// constructor throws.
int create_DNS(DNS** dns, std::string path);

/// The target layer: `act` 1 adds, 2 deletes what the stored document has, 3 alters. 0; NM_ERR_BAD_ACT; the
/// codes of create_DNS() and of the operation.
int _setup_dns(uint32_t act, uint32_t opt, std::string path);

/// reset_dns() on an object of its own; at boot with the stored document.
int _reset_dns(uint32_t opt, std::string path);
int bootup_dns();

#pragma GCC visibility pop
