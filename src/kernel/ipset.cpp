// Edits of ipsets.
#include "kernel/ipset.h"

#include "kernel/ipset_members.h"
#include "log.h"
#include "result_codes.h"
#include "utils/process.h"
#include "utils/run_scope.h"
#include "utils/shell_text.h"

namespace {

int run_edit(std::string command, const std::string& action, const std::string& set,
             const std::string& member) {
    if (action != "flush" && member.empty()) {
        NM_LOG(Error) << "member is empty.";
        return NM_ERR_EMPTY;
    }
    for (const std::string& value : {action, set, member}) {
        const std::optional<std::string> word = value.empty() ? value : nm::shell_word(value);
        if (!word) {
            NM_LOG(Error) << "Bad ipset value: " << value;
            return NM_ERR_BAD_FORMAT;
        }
        command += " " + *word;
    }
    if (action == "add" && nm::RunScope::stands() && nm::has_member(set, member)) {
        NM_LOG(Debug) << set << " has " << member << " already";
        return NM_OK;
    }
    const int ret = system_cmd(command.c_str());
    if (ret != NM_OK) {
        NM_LOG(Error) << command << " failed, Ret: " << ret;
    }
    return ret;
}

}  // namespace

int edit_ipset(const std::string& action, const std::string& set, const std::string& member) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(run_edit(NM_SBIN_DIR "/firewall.sh edit_ipset", action, set, member));
}

int edit_ip6_ipset(const std::string& action, const std::string& set, const std::string& member) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(run_edit(NM_SBIN_DIR "/firewall6.sh edit_ip6_ipset", action, set, member));
}
