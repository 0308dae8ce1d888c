// Tests for sets and chains.
#include "policy/common/presence.h"

#include "log.h"
#include "result_codes.h"
#include "utils/process.h"
#include "utils/shell_text.h"

namespace nm {

bool Presence::ask(const std::string& command, const std::string& name, const char* output) {
    const std::optional<std::string> word = shell_word(name);
    if (!word) {
        return false;  // Nothing has a line end in its name.
    }
    const std::string question = command + *word + output;
    const auto [answer, is_new] = answers_.try_emplace(question, false);
    if (is_new) {
        answer->second = system_cmd(question.c_str()) == NM_OK;
    }
    return answer->second;
}

bool Presence::has_set(const std::string& name) {
    return ask("/sbin/ipset list ", name, " 2>&1 > /dev/null");
}

void Presence::make_set(const std::string& name) {
    const bool present = ask("/sbin/ipset list -name ", name, " >/dev/null 2>&1");
    if (!present && !ask("/sbin/ipset create --exist ", name, " hash:ip")) {
        NM_LOG(Error) << "Set " << name << " cannot be created.";
    }
}

bool Presence::has_chain(const std::string& table, const std::string& chain) {
    return ask("/sbin/iptables -t " + table + " -L ", chain, " >/dev/null 2>&1");
}

std::string segment_name(const std::string& prefix, const std::string& key) {
    return prefix + "-" + key.substr(0, key.find('-'));
}

}  // namespace nm
