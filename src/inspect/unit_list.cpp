// The list of units.
#include "inspect/unit_list.h"

#include "inspect/read_command.h"

namespace nm {

std::string list_units(const std::vector<std::string>& others, std::vector<ListedUnit>& units) {
    std::string command = "/usr/bin/systemctl list-units --all --plain --no-legend --full --no-pager 'nm-*'";
    for (const std::string& name : others) {
        command += " " + name;
    }
    const CommandText output = read_command(command);
    if (!output.reason.empty()) {
        return output.reason;
    }
    for (const std::string& line : lines_of(output.text)) {
        const std::vector<std::string> words = words_of(line);
        if (words.size() > 3 && words[1] != "not-found" && words[0].find(".service") != std::string::npos) {
            units.push_back({words[0], words[2]});
        }
    }
    return "";
}

}  // namespace nm
