// Results in words: what failed, why, and what to try.
#pragma once

#include <json/value.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "nm_bin/console.h"
#include "nm_bin/watch.h"

namespace nm_bin {

/// Why a call failed, as far as that shows from outside of the library: an exit status of sysexits(3), and
/// what to try.
struct Cause {
    int status;
    std::string advice;
};

/// Code, name and meaning; of a failure also the advice and the errors.
Json::Value result_object(const TargetResult& result);

/// What would make every call fail; nothing if a call can be made.
std::optional<Cause> find_obstacle();

/// The results of the call and its targets on standard output.
void print_result(const Outcome& outcome, const Options& options);

/// The result of what is no call of an entry, as print_result() prints it; kExitOk or kExitFailed.
int print_result(int code, const Options& options);

/// What failed, why, and what to try, on standard error; the exit status. For an outcome without a failure
/// that counts kExitOk.
int explain(const Outcome& outcome);

/// Prints the outcome of a call in a command's own way.
using Print = std::function<void(const Outcome& outcome)>;

/// Makes the call, prints its outcome and explains it; the exit status. For what only looks at things.
int follow_call(const std::function<int()>& call, const Print& print);

/// The same unless something would make the call fail, which then is the result.
int run_call(const std::function<int()>& call, const Options& options, const Print& print);

/// The same for a call whose result is all that it prints.
int run_call(const std::function<int()>& call, const Options& options);

/// Explains an obstacle like a call that failed for it.
int explain_obstacle(const Cause& cause);

/// kExitOk if the caller may read those of the files that are there, else the exit status: explained.
int check_readable(const std::vector<std::string>& paths);

/// The table of the result codes, or one of them.
int show_codes(const std::string& code, const Options& options);

}  // namespace nm_bin
