// Events for the appliance's system log.
#include "peers/logs/event_log.h"

#include <array>

#include "log.h"
#include "result_codes.h"
#include "utils/files.h"
#include "utils/process.h"
#include "utils/shell_text.h"

namespace {

constexpr const char* kCommand = "/usr/sbin/vsyslog-cli";

/// What has happened to a port, by role and carrier. A link that is gone wants somebody's attention.
struct PortMessage {
    const char* number;
    int level;
};
constexpr int kWarning = 4;
constexpr std::array kPortMessages{
    PortMessage{"320", kEventLevel}, PortMessage{"321", kWarning},  // WAN
    PortMessage{"322", kEventLevel}, PortMessage{"323", kWarning},  // private
    PortMessage{"324", kEventLevel}, PortMessage{"325", kWarning},  // RGLink
    PortMessage{"326", kEventLevel}, PortMessage{"327", kWarning},  // LAN
};

/// The command and its words; empty if a value has no form that a shell takes.
std::string command_of(const vslog_event& event) {
    std::string command = kCommand;
    if (event.level != kEventLevel) {
        command += " --level " + std::to_string(event.level);
    }
    std::vector<std::string> words{event.event_class, event.number};
    words.insert(words.end(), event.values.begin(), event.values.end());
    for (const std::string& value : words) {
        const std::optional<std::string> word = nm::shell_word(value);
        if (!word) {
            NM_LOG(Error) << "Bad value of event " << event.number << ": " << value;
            return "";
        }
        command += " " + *word;
    }
    return command;
}

}  // namespace

const std::map<std::string, int> PORT_ROLE{{"WAN", 0}, {"PRIVATE", 2}, {"RGLINK", 4}, {"LAN", 6}};
const std::map<std::string, int> PORT_CARRIER{{"up", 0}, {"1", 0}, {"down", 1}, {"0", 1}};

vslog_event port_event(int index) {
    const PortMessage& message = kPortMessages.at(static_cast<std::size_t>(index));
    return {kUplinkEvents, message.number, {}, message.level};
}

int vslog_send(const vslog_event& event) {
    if (!is_file_exists(kCommand)) {
        NM_LOG(Debug) << "No " << kCommand << "; event " << event.number << " is not sent.";
        return NM_OK;
    }
    const std::string command = command_of(event);
    if (command.empty()) {
        return NM_ERR_BAD_FORMAT;
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
