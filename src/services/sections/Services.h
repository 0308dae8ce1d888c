// The section `SERVICES` of the device document: services of the device itself, of which the name servers are
// one.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "services/sections/section_entry.h"

#pragma GCC visibility push(default)

/// The types that a request may name: "DNS_INFO".
extern const std::vector<std::string> support_service_list;
bool is_support_service_type(std::string type);

/// One service during one setup call.
class Services : private SectionEntry {
public:
    /// Throws NM_ERR_NULL_ARG for an empty type or path, NM_ERR_BAD_TYPE for a type that is not listed.
    Services(std::string type, uint32_t act, uint32_t opt, std::string path);

    /// Does what the action says to the service. Results of _setup_dns(); NM_ERR_BAD_ACT.
    int setup_info();
};

/// Builds the object into `*service`, null on entry. 0; NM_ERR_NOT_NULL; what the constructor throws.
int create_Services(Services** service, std::string type, uint32_t act, uint32_t opt, std::string path);

#pragma GCC visibility pop
