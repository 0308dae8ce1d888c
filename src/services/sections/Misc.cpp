// The section `MISC` of the device document.
#include "services/sections/Misc.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "config/nmconfig.h"
#include "peers/unix/peer_commands.h"
#include "services/sections/section_factory.h"
#include "utils/files.h"
#include "utils/json_text.h"

namespace {

constexpr uint32_t kWanipdBits = 0x57;
constexpr uint32_t kNcsidBits = 0x19;
constexpr uint32_t kSysnetBits = 0x20;

constexpr const char* kConntrackMaxPath = "/proc/sys/net/nf_conntrack_max";

/// One percent above what is configured: the limit itself has to be reachable.
int with_margin(int connections) {
    using Limits = std::numeric_limits<int>;
    return static_cast<int>(std::clamp<double>(connections * 1.01, Limits::min(), Limits::max()));
}

}  // namespace

const std::vector<std::string> support_misc_list{"COMMON_PARAMETERS", "WANIPD_PARAMETERS", "NCSID_PARAMETERS",
                                                 "SYSNET_PARAMETERS"};

bool is_support_misc_type(std::string type) {
    return nm::is_listed(support_misc_list, type);
}

Misc::Misc(std::string type, uint32_t act, uint32_t opt, std::string path)
    : SectionEntry("\nMisc type: ", support_misc_list, std::move(type), act, opt, std::move(path)) {
}

int Misc::refresh_wanipd() {
    std::string reply = "no response";
    return refresh_all_ipinfo(path, reply);
}

int Misc::refresh_ncsid() {
    std::string reply = "no response";
    return reconfig_ncsid(reply, path);
}

int Misc::setup_info() {
    struct Step {
        const char* type;
        uint32_t bits;
        int (Misc::*work)();
    };
    static const Step steps[] = {
        {"COMMON_PARAMETERS", kWanipdBits, &Misc::refresh_wanipd},
        {"COMMON_PARAMETERS", kNcsidBits, &Misc::refresh_ncsid},
        {"WANIPD_PARAMETERS", kWanipdBits, &Misc::refresh_wanipd},
        {"NCSID_PARAMETERS", kNcsidBits, &Misc::refresh_ncsid},
        {"SYSNET_PARAMETERS", kSysnetBits, &Misc::setup_sysnet},
    };
    int ret = is_support_misc_type(type) ? NM_OK : NM_ERR_BAD_TYPE;
    for (const Step& step : steps) {
        if (type == step.type && (opt & step.bits) != 0) {
            ret = (this->*step.work)();
        }
    }
    return ret;
}

int Misc::setup_sysnet() {
    Json::Value document;
    if (json_file_to_mem(path, document) < 0) {
        return NM_ERR_NOT_FOUND;
    }
    const Json::Value& parameters = nm::json_member(nm::json_member(document, "MISC"), "SYSNET_PARAMETERS");
    const int limit = with_margin(atoi(nm::json_text(parameters, "NF_CONNTRACK_MAX", "0").c_str()));
    if (limit == 0) {
        return NM_OK;
    }
    if (writeValue(kConntrackMaxPath, std::to_string(limit), false) != NM_OK) {
        NM_LOG(Error) << "Write [" << limit << "] to " << kConntrackMaxPath << " failed.";
    }
    return NM_OK;
}

int create_Misc(Misc** misc, std::string type, uint32_t act, uint32_t opt, std::string path) {
    return nm::build_section(misc, "misc", std::move(type), act, opt, std::move(path));
}
