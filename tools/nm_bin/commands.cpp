// The table of commands, and what they say alike.
#include "nm_bin/commands.h"

#include <networkinterface.h>

#include <algorithm>
#include <iostream>

namespace nm_bin {

const std::vector<Command>& commands() {
    static const std::vector<Command> all{
        {"setup_all_iface_by_config", "", bring_up,
         "bring the device up: add all that the stored documents hold"},
        {"boot", "begin|finish", boot,
         "what a boot does before the bring-up (the stored packet policy) and after it (routes, forwards, "
         "names)"},
        {"migrate", "[--dry-run] [DOCUMENT]...", migrate,
         "bring stored documents to the current format, and repair broken ones; --dry-run only says what it "
         "would do"},
        {"changes", "[DOCUMENT]", show_changes, "show what migrations have changed in stored documents"},
        {"service", "list|uses|find PORTS [PROTOCOL]|add|change NAME PROTOCOL PORTS [REMARK]|delete NAME",
         manage_services,
         "show or edit the names of service ports that rules may use, or show where they do"},
        {"diff", "OLD NEW", show_diff, "show what differs between two documents"},
    };
    return all;
}

const Command* find_command(const std::string& name) {
    const auto found = std::find_if(commands().begin(), commands().end(),
                                    [&name](const Command& row) { return row.name == name; });
    return found == commands().end() ? nullptr : &*found;
}

int usage_error(const std::string& message) {
    std::cerr << "nm_bin: " << message << "\nTry 'nm_bin --help'.\n";
    return kExitUsage;
}

int print_result(int code, bool as_json) {
    const ResultCode result = describe_result(code);
    if (as_json) {
        std::cout << "{\"code\":" << code << ",\"name\":\"" << result.name << "\",\"meaning\":\""
                  << result.meaning << "\"}\n";
    } else {
        std::cout << code << " " << result.name << " " << result.meaning << "\n";
    }
    return code >= 0 ? kExitOk : kExitFailed;
}

}  // namespace nm_bin
