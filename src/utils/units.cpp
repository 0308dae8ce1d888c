// Control of system units: one worker, one verb per function.
#include "utils/units.h"

#include <unistd.h>

#include <optional>
#include <string>

#include "log.h"
#include "result_codes.h"
#include "utils/call_notes.h"
#include "utils/files.h"
#include "utils/process.h"
#include "utils/shell_text.h"

namespace {

struct Verb {
    const char* word;
    int attempts;
};

// The unit's name as a word of a command. No unit's name has a "/", which would lead its environment
// file elsewhere, begins like an option, or is a pattern, which systemctl would stretch over other units.
std::optional<std::string> unit_word(const std::string& unit) {
    if (unit[0] == '-' || unit.find_first_of("/*?[") != std::string::npos) {
        return std::nullopt;
    }
    return nm::shell_word(unit + ".service");
}

int run(const std::string& command, int attempts) {
    int result = system_cmd(command.c_str());
    for (int attempt = 1; result != 0 && attempts > 1; ++attempt) {
        sleep(1);
        if (attempt == attempts) {
            break;
        }
        result = system_cmd(command.c_str());
    }
    return result;
}

int control(const Verb& verb, const char* service, const char* instance, const char* env) {
    if (service == nullptr) {
        NM_LOG(Error) << "service is Null pointer.";
        return NM_ERR_NULL_ARG;
    }
    const std::string unit = std::string(service) + (instance != nullptr ? instance : "");
    const std::optional<std::string> word = unit_word(unit);
    if (!word) {
        NM_LOG(Error) << "Bad unit name: " << unit;
        return NM_ERR_BAD_FORMAT;
    }
    const int result = env != nullptr ? writeValue("/var/run/network/." + unit + ".env", env, true) : NM_OK;
    if (result != NM_OK) {
        return result;
    }
    const nm::WaitNote note("systemctl " + (verb.word + (" " + unit)));
    const nm::Step step("unit", verb.word, unit);
    return step.result(run(std::string("/usr/bin/systemctl ") + verb.word + " " + *word + " >/dev/null 2>&1",
                           verb.attempts));
}

}  // namespace

int service_start(const char* service, const char* instance, const char* env) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(control({"start", 5}, service, instance, env));
}

int service_stop(const char* service, const char* instance, const char* env) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(control({"stop", 1}, service, instance, env));
}

int service_restart(const char* service, const char* instance, const char* env) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(control({"restart", 1}, service, instance, env));
}

int service_enable(const char* service, const char* instance, const char* env) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(control({"enable", 1}, service, instance, env));
}

int service_disable(const char* service, const char* instance, const char* env) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(control({"disable", 1}, service, instance, env));
}

int service_status(const char* service, const char* instance, const char* env) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(control({"status", 1}, service, instance, env));
}
