// Events for the appliance's system log.
#include "peers/logs/event_log.h"

#include "log.h"
#include "result_codes.h"
#include "utils/files.h"
#include "utils/process.h"
#include "utils/shell_text.h"

namespace {

constexpr const char* kCommand = "/usr/sbin/vsyslog-cli";

}  // namespace

int vslog_send(const vslog_event& event) {
    if (!is_file_exists(kCommand)) {
        NM_LOG(Debug) << "No " << kCommand << "; event " << event.number << " is not sent.";
        return NM_OK;
    }
    std::vector<std::string> words{event.event_class, event.number};
    words.insert(words.end(), event.values.begin(), event.values.end());
    std::string command = kCommand;
    for (const std::string& value : words) {
        const std::optional<std::string> word = nm::shell_word(value);
        if (!word) {
            NM_LOG(Error) << "Bad value of event " << event.number << ": " << value;
            return NM_ERR_BAD_FORMAT;
        }
        command += " " + *word;
    }
    const int ret = system_cmd((command + " >/dev/null 2>&1").c_str());
    if (ret != NM_OK) {
        NM_LOG(Error) << command << " failed, Ret: " << ret;
    }
    return ret;
}

std::string port_number_text(const std::string& portname) {
    constexpr std::size_t kPrefix = 4;
    return portname.size() > kPrefix ? portname.substr(kPrefix) : "";
}
