// What nm_bin does besides running single entries: commands for people, each with its own words and output.
#pragma once

#include <json/value.h>

#include <string>
#include <string_view>
#include <vector>

#include "nm_bin/entries.h"

namespace nm_bin {

/// The exit statuses of all commands.
constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

/// A command and the words behind its name as the usage shows them. It prints its answer, as JSON if asked
/// for, and returns the exit status.
struct Command {
    std::string_view name;
    std::string_view arguments;
    int (*run)(const Arguments& words, bool as_json);
    std::string_view help;
};

const std::vector<Command>& commands();

/// The command of this name, null if there is none.
const Command* find_command(const std::string& name);

/// Says what is wrong with the words of a call on standard error; kExitUsage.
int usage_error(const std::string& message);

/// Prints the result code of an entry, as a line or as a JSON object; the exit status that goes with it.
int print_result(int code, bool as_json);

/// Brings the device up. Each step is shown as it ends, on standard error if that is a terminal, as JSON on
/// standard output; failures are shown in any case.
int bring_up(const Arguments& words, bool as_json);

/// The steps of a boot before ("begin") and after ("finish") the bring-up.
int boot(const Arguments& words, bool as_json);

int migrate(const Arguments& words, bool as_json);
int show_changes(const Arguments& words, bool as_json);
int manage_services(const Arguments& words, bool as_json);
int show_diff(const Arguments& words, bool as_json);

}  // namespace nm_bin
