// The table of the commands for people.
#include "nm_bin/commands.h"

#include <algorithm>
#include <array>

#include "nm_bin/explain.h"
#include "nm_bin/request.h"

namespace nm_bin {

namespace {

constexpr size_t kAny = 1000;

int codes(const Arguments& words, const Options& options) {
    return show_codes(words.empty() ? "" : words[0], options);
}

constexpr std::array kCommands{
    Command{"list", "", 0, 0, list, "the ports, VLANs and LANs, as they are stored and as they run"},
    Command{"show", "[TARGET]", 0, 1, show, "what is stored of a port, an interface or a VLAN"},
    Command{"set", "TARGET MEMBER VALUE...", 3, kAny, set, "change stored members and apply them"},
    Command{"add", "KIND TARGET [MEMBER VALUE]...", 2, kAny, add,
            "add an entry of the kind wan, private, rglink, lan, vlan or dhcp, and apply it"},
    Command{"delete", "[KIND] TARGET", 1, 2, remove, "take an entry down and out of the documents"},
    Command{"undo", "", 0, 0, undo, "take the last change back; a second undo makes it again"},
    Command{
        "check", "[DOCUMENT|FILE|DOCUMENT=FILE]...", 0, kAny, check,
        "what is wrong with the stored documents, or with files to be stored, before anything is touched"},
    Command{"status", "", 0, 0, status,
            "the state of the device: ports, uplinks, LANs, clients, names, counters, units, last results"},
    Command{"owners", "", 0, 0, owners,
            "who owns marks, tables, rules, sets, chains, files, units and locks, and what lies there"},
    Command{"plan", "ENTRY|COMMAND [ARGUMENT]...", 1, kAny, plan,
            "what this would change and answer: it is worked in a copy of the device, and not here"},
    Command{"trace", "ENTRY|COMMAND [ARGUMENT]...", 1, kAny, trace,
            "make this change, and say where its time went, step by step"},
    Command{"explain", "SRC DST [PROTO [SPORT] DPORT]", 2, 5, explain_packet_way,
            "the way of such a packet: it is sent through a copy of the device, and traced there"},
    Command{
        "drift", "", 0, 0, drift,
        "what the running system has otherwise than the stored documents describe: lost, changed, foreign"},
    Command{
        "diff", "[OLD [NEW]]", 0, 2, diff,
        "what differs between two documents: the stored ones and the running ones, or those of the files"},
    Command{"migrate", "[DOCUMENT]...", 0, kAny, migrate,
            "bring stored documents to the current format, and repair broken ones"},
    Command{"changes", "[DOCUMENT]", 0, 1, show_changes, "what migrations have changed in stored documents"},
    Command{"log", "[TARGET]", 0, 1, log, "the last lines of the log, those that name the target"},
    Command{"setup_all_iface_by_config", "", 0, 0, bring_up,
            "bring the device up: add all that the stored documents hold"},
    Command{"boot", "begin|finish", 1, 1, boot,
            "what a boot does before the bring-up (the stored packet policy) and after it (routes, forwards, "
            "names)"},
    Command{"site_info", "-l -r", 2, 2, site_info,
            "report the addresses of the WAN ports to the VPN once more; a switch of the VPN does so"},
    Command{"service", "list|uses|find PORTS [PROTOCOL]|add|change NAME PROTOCOL PORTS [REMARK]|delete NAME",
            1, kAny, manage_services,
            "show or edit the names of service ports that rules may use, or show where they do"},
    Command{"codes", "[CODE]", 0, 1, codes, "what a result code means, and what to try"},
    Command{"complete", "WORD...", 0, kAny, complete, "what the last word could be, for the shell"},
};

}  // namespace

const std::vector<Command>& commands() {
    static const std::vector<Command> all(kCommands.begin(), kCommands.end());
    return all;
}

std::string usage_of(const Command& command) {
    return std::string(command.name) + " takes " +
           (command.arguments.empty() ? "nothing" : std::string(command.arguments));
}

const Command* find_command(const std::string& name) {
    const auto found = std::find_if(commands().begin(), commands().end(),
                                    [&name](const Command& row) { return row.name == name; });
    return found == commands().end() ? nullptr : &*found;
}

int run_words(const Arguments& words, const Options& options) {
    const std::string& name = words.front();
    const Arguments rest(words.begin() + 1, words.end());
    if (const Command* const command = find_command(name)) {
        const bool fits = rest.size() >= command->least && rest.size() <= command->most;
        return fits ? command->run(rest, options) : usage_error(usage_of(*command));
    }
    const Entry* const entry = find_entry(name);
    return entry != nullptr ? run_entry(*entry, rest, options) : usage_error("unknown command: " + name);
}

}  // namespace nm_bin
