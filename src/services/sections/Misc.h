// The section `MISC` of the device document: parameters of the daemons that watch the uplinks, and of the
// kernel's network stack.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "services/sections/section_entry.h"

#pragma GCC visibility push(default)

/// The types that a request may name: "COMMON_PARAMETERS" (of both daemons), "WANIPD_PARAMETERS",
/// "NCSID_PARAMETERS", "SYSNET_PARAMETERS".
extern const std::vector<std::string> support_misc_list;
bool is_support_misc_type(std::string type);

/// One group of parameters during one setup call.
class Misc : private SectionEntry {
public:
    /// Throws NM_ERR_NULL_ARG for an empty type or path, NM_ERR_BAD_TYPE for a type that is not listed.
    Misc(std::string type, uint32_t act, uint32_t opt, std::string path);

    /// Makes those who use the group read it anew, if `opt` has a bit of theirs: 0x57 `wanipd`, 0x19 `ncsid`,
    /// 0x20 the kernel; nobody otherwise. The daemons are not waited for. 0, or the code of the last step
    /// made; NM_ERR_BAD_TYPE.
    int setup_info();

    /// Limits the connections that the kernel tracks to one percent more than `NF_CONNTRACK_MAX` says; 0
    /// leaves the limit alone. 0, also if the kernel refuses it, which is logged; NM_ERR_NOT_FOUND for a
    /// document that cannot be loaded.
    int setup_sysnet();

private:
    int refresh_wanipd();
    int refresh_ncsid();
};

/// Builds the object into `*misc`, null on entry. 0; NM_ERR_NOT_NULL; what the constructor throws.
int create_Misc(Misc** misc, std::string type, uint32_t act, uint32_t opt, std::string path);

#pragma GCC visibility pop
