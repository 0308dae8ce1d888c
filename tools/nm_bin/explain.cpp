// Causes of failures, and their words.
#include "nm_bin/explain.h"

#include <json/value.h>
#include <json/writer.h>
#include <networkinterface.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>

#include "nm_bin/places.h"
#include "nm_bin/secrets.h"

namespace nm_bin {

namespace {

constexpr const char* kLockDirectory = "/var/lock/network";
constexpr const char* kBootDirectories = "/usr/lib/tmpfiles.d/networkinterface.conf";
constexpr const char* kMakeDirectories = "make it: systemd-tmpfiles --create networkinterface.conf";

/// The directories that are made at boot, as systemd-tmpfiles is told of them.
std::vector<std::string> boot_directories() {
    std::vector<std::string> directories;
    std::ifstream file(kBootDirectories);
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string kind;
        std::string path;
        words >> kind >> path;
        if (kind == "d") {
            directories.push_back(path);
        }
    }
    return directories;
}

/// Whether an error names something in the directory, by /run or by /var/run.
bool is_named(const std::string& directory, const Notes& notes) {
    const std::string path = directory.rfind("/run/", 0) == 0 ? directory.substr(4) : directory;
    return std::any_of(notes.errors.begin(), notes.errors.end(), [&path](const std::string& line) {
        return line.find(path + "/") != std::string::npos;
    });
}

std::optional<Cause> find_missing_directory(const Notes& notes, int /*code*/) {
    for (const std::string& directory : boot_directories()) {
        if (!is_dir_exists(directory) && is_named(directory, notes)) {
            return Cause{EX_OSFILE, "the directory " + directory + " is missing; " + kMakeDirectories};
        }
    }
    return std::nullopt;
}

std::optional<Cause> find_missing_permission(const Notes& /*notes*/, int /*code*/) {
    if (geteuid() == 0) {
        return std::nullopt;
    }
    return Cause{EX_NOPERM, "only root changes the network: run it by sudo"};
}

std::optional<Cause> find_held_lock(const Notes& notes, int code) {
    const bool has_waited =
        std::any_of(notes.errors.begin(), notes.errors.end(),
                    [](const std::string& line) { return line.rfind("Get LOCK failed: ", 0) == 0; });
    if ((code != NM_ERR_LOCK && !has_waited) || notes.holder.empty()) {
        return std::nullopt;
    }
    return Cause{EX_TEMPFAIL, "the lock " + notes.lock + " is held by " + notes.holder +
                                  "; repeat the command when that has ended"};
}

/// Whether somebody listens at the socket, whose name a service leaves behind when it is killed.
bool is_served(const std::string& path) {
    sockaddr_un address{AF_UNIX, {}};
    if (path.size() >= sizeof(address.sun_path)) {
        return false;
    }
    path.copy(address.sun_path, path.size());
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const bool is_taken = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    const bool is_busy = !is_taken && errno == EAGAIN;  // more callers wait than it lets in
    if (fd >= 0) {
        close(fd);
    }
    return is_taken || is_busy;
}

std::optional<Cause> find_stopped_service(const Notes& notes, int code) {
    if (code != NM_ERR_BUS_CALL || notes.service.empty()) {
        return std::nullopt;
    }
    const std::string& service = notes.service;
    const bool runs = is_served("/var/run/vservice/" + service + ".sock");
    return Cause{EX_UNAVAILABLE, runs ? "the service " + service + " runs but did not answer; see its journal"
                                      : "the service " + service + " does not run; start it"};
}

std::string advice_of(int code) {
    const std::string_view advice = advise_result(code);
    return advice.empty() ? "read the log, which names what was refused: nm_bin log" : std::string(advice);
}

Cause find_cause(const Notes& notes, int code) {
    constexpr std::array kFinders{find_missing_permission, find_missing_directory, find_held_lock,
                                  find_stopped_service};
    for (const auto find : kFinders) {
        if (const std::optional<Cause> cause = find(notes, code)) {
            return *cause;
        }
    }
    return {kExitFailed, advice_of(code)};
}

/// What has failed with one code for one cause: targets, or the call itself.
struct Failure {
    std::string targets;
    int code;
    Cause cause;
    std::vector<std::string> errors;
    bool counts;
};

void add_errors(const Notes& notes, std::vector<std::string>& errors) {
    for (const std::string& error : notes.errors) {
        if (std::find(errors.begin(), errors.end(), error) == errors.end()) {
            errors.push_back(error);
        }
    }
}

void add_failure(const TargetResult& result, std::vector<Failure>& failures) {
    const Cause cause = find_cause(result.notes, result.code);
    const auto like = std::find_if(failures.begin(), failures.end(), [&](const Failure& failure) {
        return failure.code == result.code && failure.cause.advice == cause.advice;
    });
    if (like == failures.end()) {
        failures.push_back({result.target, result.code, cause, {}, result.counts});
        add_errors(result.notes, failures.back().errors);
        return;
    }
    like->targets += ", " + result.target;
    like->counts = like->counts || result.counts;
    add_errors(result.notes, like->errors);
}

std::vector<Failure> find_failures(const Outcome& outcome) {
    std::vector<Failure> failures;
    const bool is_of_target =
        std::any_of(outcome.targets.begin(), outcome.targets.end(),
                    [&outcome](const TargetResult& result) { return result.code == outcome.code; });
    if (outcome.code < 0 && !is_of_target) {
        add_failure({"", outcome.code, outcome.notes}, failures);
    }
    for (const TargetResult& result : outcome.targets) {
        if (result.code < 0) {
            add_failure(result, failures);
        }
    }
    return failures;
}

std::string failed_line(const std::string& targets, int code) {
    const ResultCode row = describe_result(code);
    return targets + (targets.empty() ? "" : ": ") + std::to_string(code) + " " + std::string(row.name) +
           ", " + std::string(row.meaning);
}

void print_cause(const std::string& targets, int code, const Cause& cause) {
    std::cerr << tint(Tint::Bad, "failed:", STDERR_FILENO) << " " << harmless(failed_line(targets, code))
              << "\n"
              << "try: " << cause.advice << " (nm_bin codes " << code << " tells more)\n";
}

Json::Value code_object(int code) {
    const ResultCode row = describe_result(code);
    Json::Value object;
    object["code"] = code;
    object["name"] = std::string(row.name);
    object["meaning"] = std::string(row.meaning);
    return object;
}

void print_json(const Outcome& outcome) {
    const ResultCode row = describe_result(outcome.code);
    Json::Value targets(Json::arrayValue);
    for (const TargetResult& result : outcome.targets) {
        Json::Value object = result_object(result);
        object["target"] = result.target;
        targets.append(object);
    }
    std::string list = Json::FastWriter().write(targets);
    list.pop_back();
    std::cout << "{\"code\":" << outcome.code << ",\"name\":\"" << row.name << "\",\"meaning\":\""
              << row.meaning << "\"" << (targets.empty() ? "" : ",\"targets\":" + list) << "}\n";
}

void print_code(int code) {
    const ResultCode row = describe_result(code);
    std::cout << code << " " << row.name << "\n  means: " << row.meaning << "\n";
    if (code < 0) {
        std::cout << "  try:   " << advice_of(code) << "\n";
    }
}

}  // namespace

Json::Value result_object(const TargetResult& result) {
    Json::Value object = code_object(result.code);
    if (result.code >= 0) {
        return object;
    }
    object["try"] = find_cause(result.notes, result.code).advice;
    object["errors"] = Json::arrayValue;
    for (const std::string& error : result.notes.errors) {
        object["errors"].append(mask_text(error));
    }
    return object;
}

std::optional<Cause> find_obstacle() {
    if (access(kLockDirectory, W_OK | X_OK) == 0) {
        return std::nullopt;
    }
    if (errno == EACCES || errno == EPERM) {
        return Cause{EX_NOPERM, "only root changes the network: run it by sudo"};
    }
    return Cause{EX_OSFILE,
                 std::string("the directory ") + kLockDirectory + " is missing; " + kMakeDirectories};
}

void print_result(const Outcome& outcome, const Options& options) {
    if (options.json) {
        print_json(outcome);
    } else {
        const ResultCode row = describe_result(outcome.code);
        std::cout << outcome.code << " " << row.name << " " << row.meaning << "\n";
        for (const TargetResult& result : outcome.targets) {
            const ResultCode own = describe_result(result.code);
            if (outcome.targets.size() > 1) {
                std::cout << "  " << harmless(result.target) << " " << result.code << " " << own.name << " "
                          << own.meaning << "\n";
            }
        }
    }
    std::cout << std::flush;  // before what is said about it on standard error
}

int print_result(int code, const Options& options) {
    Outcome outcome;
    outcome.code = code;
    print_result(outcome, options);
    return code >= 0 ? kExitOk : kExitFailed;
}

int explain(const Outcome& outcome) {
    std::set<int> statuses;
    for (const Failure& failure : find_failures(outcome)) {
        for (const std::string& error : failure.errors) {
            std::cerr << tint(Tint::Bad, "error:", STDERR_FILENO) << " " << mask_text(error) << "\n";
        }
        print_cause(outcome.targets.size() > 1 ? failure.targets : "", failure.code, failure.cause);
        if (failure.counts) {
            statuses.insert(failure.cause.status);
        }
    }
    if (statuses.empty()) {
        return kExitOk;
    }
    return statuses.size() == 1 ? *statuses.begin() : kExitFailed;
}

int explain_obstacle(const Cause& cause) {
    print_cause("", NM_ERR_LOCK, cause);
    return cause.status;
}

int check_readable(const std::vector<std::string>& paths) {
    const auto closed = std::find_if(paths.begin(), paths.end(), [](const std::string& path) {
        return access(path.c_str(), R_OK) != 0 && errno == EACCES;
    });
    if (closed == paths.end()) {
        return kExitOk;
    }
    print_cause("", NM_ERR_OPEN, {EX_NOPERM, "only root reads " + *closed + ": run it by sudo"});
    return EX_NOPERM;
}

int follow_call(const std::function<int()>& call, const Print& print) {
    (void)read_documents();  // whose secrets are then known
    const Outcome outcome = watch_call(call);
    print(outcome);
    std::cout << std::flush;  // before what is said about it on standard error
    return explain(outcome);
}

int run_call(const std::function<int()>& call, const Options& options, const Print& print) {
    if (const std::optional<Cause> obstacle = find_obstacle()) {
        (void)print_result(NM_ERR_LOCK, options);
        return explain_obstacle(*obstacle);
    }
    return follow_call(call, print);
}

int run_call(const std::function<int()>& call, const Options& options) {
    return run_call(call, options, [&options](const Outcome& outcome) { print_result(outcome, options); });
}

int show_codes(const std::string& code, const Options& options) {
    if (code.empty()) {
        Table table({"code", "name", "meaning"});
        for (const ResultCode& row : kResultCodes) {
            table.add({std::to_string(row.code), std::string(row.name), std::string(row.meaning)});
        }
        table.print(options);
        return kExitOk;
    }
    const auto* const row = std::find_if(
        kResultCodes.begin(), kResultCodes.end(),
        [&code](const ResultCode& each) { return std::to_string(each.code) == code || each.name == code; });
    if (row == kResultCodes.end()) {
        return usage_error("no such code: " + code);
    }
    if (!wants_json(options)) {
        print_code(row->code);
        return kExitOk;
    }
    Json::Value object = code_object(row->code);
    object["try"] = row->code < 0 ? advice_of(row->code) : "";
    std::cout << Json::FastWriter().write(object);
    return kExitOk;
}

}  // namespace nm_bin
