// The commands that work on stored documents and logs for people, beside the library's entries.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "nm_bin/console.h"
#include "nm_bin/entries.h"

namespace nm_bin {

/// A command: its name, its arguments as the usage shows them and how many there may be, its work.
struct Command {
    std::string_view name;
    std::string_view arguments;
    size_t least;
    size_t most;
    int (*run)(const Arguments& words, const Options& options);
    std::string_view help;
};

const std::vector<Command>& commands();

/// The command of this name, null if there is none.
const Command* find_command(const std::string& name);

/// What a command takes, as a complaint.
std::string usage_of(const Command& command);

/// Runs the command or the entry of the library that the first word names; its exit status.
int run_words(const Arguments& words, const Options& options);

/// Changes of stored documents, made in the running system first. Exit statuses.
int set(const Arguments& words, const Options& options);
int add(const Arguments& words, const Options& options);
int remove(const Arguments& words, const Options& options);
int undo(const Arguments& words, const Options& options);

/// Views.
int show(const Arguments& words, const Options& options);
int diff(const Arguments& words, const Options& options);
int list(const Arguments& words, const Options& options);
int log(const Arguments& words, const Options& options);

/// What is wrong with stored documents, or with files to be stored: kExitFailed if there are errors,
/// kExitUsage if something could not be checked.
int check(const Arguments& words, const Options& options);

/// The state of the device: kExitUsage if something could not be looked at.
int status(const Arguments& words, const Options& options);

/// Who owns what, and what lies there: kExitFailed if something is not its owner's, kExitUsage if something
/// could not be looked at.
int owners(const Arguments& words, const Options& options);

/// What a request, a change or the bring-up would do, rehearsed in a copy of the device: kExitFailed if it
/// would fail, kExitUsage if it could not be rehearsed.
int plan(const Arguments& words, const Options& options);

/// What the running system has otherwise than the stored documents describe: kExitFailed if there is any of
/// it, kExitUsage if something could not be compared.
int drift(const Arguments& words, const Options& options);

/// The way of a packet through the device: kExitFailed if it is dropped, kExitUsage if it cannot be sent or
/// something could not be found out.
int explain_packet_way(const Arguments& words, const Options& options);

/// Whether `plan` takes a command or an entry of this name.
bool is_rehearsed(const std::string& name);

/// Works what `plan` takes, and Lease_event, and says where the time went. The exit status, and the end, of
/// what was worked.
int trace(const Arguments& words, const Options& options);

/// Whether `trace` takes a command or an entry of this name.
bool is_traced(const std::string& name);

/// Documents, their migrations and their differences.
int migrate(const Arguments& words, const Options& options);
int show_changes(const Arguments& words, const Options& options);
int manage_services(const Arguments& words, const Options& options);

/// Brings the device up. Each step is shown as it ends, on standard error if that is a terminal, as JSON on
/// standard output; failures are shown in any case.
int bring_up(const Arguments& words, const Options& options);

/// The steps of a boot before ("begin") and after ("finish") the bring-up.
int boot(const Arguments& words, const Options& options);

/// Reports the local (-l) addresses of the WAN ports to the VPN anew (-r); the library runs it, with both
/// words.
int site_info(const Arguments& words, const Options& options);

/// What the last of the words could be, one a line, for the shell.
int complete(const Arguments& words, const Options& options);

}  // namespace nm_bin
