// The modules of the helpers.
#include "policy/edge/alg.h"

#include <string>

#include "log.h"
#include "result_codes.h"
#include "utils/process.h"

namespace {

constexpr struct {
    uint32_t bit;
    const char* module;
} kHelpers[] = {
    {1, "nf_nat_ftp"}, {2, "nf_nat_h323"}, {4, "nf_nat_pptp"}, {8, "nf_nat_sip"}, {16, "nf_nat_proto_esp"},
};

}  // namespace

int setup_alg(uint32_t flags) {
    NM_LOG(Debug) << "Enter";
    for (const auto& helper : kHelpers) {
        const std::string action = (flags & helper.bit) != 0 ? "" : "-r ";
        (void)system_cmd(("/usr/sbin/modprobe " + action + helper.module).c_str());  // see the header
    }
    return NM_EXIT(NM_OK);
}
