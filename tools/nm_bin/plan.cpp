// plan: what a request, a change or the whole bring-up would do, for people and for programs.
#include <json/writer.h>
#include <networkinterface.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <iostream>
#include <sstream>

#include "nm_bin/commands.h"
#include "nm_bin/explain.h"
#include "nm_bin/places.h"
#include "nm_bin/secrets.h"

namespace nm_bin {

namespace {

/// Of the commands for people, those that change something.
constexpr std::array<std::string_view, 7> kRehearsed{
    "set", "add", "delete", "undo", "migrate", "service", "setup_all_iface_by_config"};

void print_changes(const Json::Value& changes) {
    for (const Json::Value& change : changes) {
        std::cout << change["domain"].asString() << " " << harmless(change["name"].asString()) << " "
                  << change["change"].asString() << "\n";
        print_lines(change["removed"], "- ", Tint::Bad);
        print_lines(change["added"], "+ ", Tint::Good);
    }
}

std::string one_line(const Json::Value& value) {
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    return value.isString() ? value.asString() : Json::writeString(writer, value);
}

void print_call(const Json::Value& call) {
    if (!call.isMember("command")) {
        std::cout << "call " << call["peer"].asString() << (call["method"].asString().empty() ? "" : ".")
                  << call["method"].asString() << " " << harmless(one_line(call["request"])) << "\n";
        return;
    }
    std::cout << "command";
    for (const Json::Value& word : call["command"]) {
        std::cout << " " << harmless(word.asString());
    }
    std::cout << "\n";
}

/// The exit status of the plan. Entries answer with a result code, commands for people with an exit status.
int exit_status(const Json::Value& answer, bool is_command) {
    const auto has_failed = [](const Json::Value& row) { return row["code"].asInt() < NM_OK; };
    const int code = answer["code"].asInt();
    const bool is_failure = (is_command ? code != kExitOk : code < NM_OK || code == kExitFailed) ||
                            std::any_of(answer["targets"].begin(), answer["targets"].end(), has_failed);
    return is_failure ? kExitFailed : kExitOk;
}

/// Why a request would fail: the errors that it has logged, and what it has printed, since commands for
/// people explain their failures themselves.
void print_failure(const Json::Value& answer) {
    for (const Json::Value& error : answer["errors"]) {
        std::cerr << tint(Tint::Bad, "error:", STDERR_FILENO) << " " << harmless(error.asString()) << "\n";
    }
    std::istringstream output(answer["output"].asString());
    for (std::string line; std::getline(output, line);) {
        std::cerr << "  " << harmless(line) << "\n";
    }
}

void print_answer(const Json::Value& answer) {
    for (const Json::Value& row : answer["targets"]) {
        std::cout << "would answer of " << harmless(row["target"].asString()) << " " << row["code"].asInt()
                  << " " << row["name"].asString() << "\n";
    }
    std::cout << "would answer " << answer["code"].asInt() << " " << answer["name"].asString() << "\n";
}

void print_json(const Json::Value& report) {
    std::cout << Json::writeString(Json::StreamWriterBuilder(), report) << "\n";
}

/// What is logged and printed on the way to success is nobody's concern.
void print_plan(const Json::Value& report, int status) {
    print_changes(report["changes"]);
    for (const Json::Value& call : report["calls"]) {
        print_call(call);
    }
    if (report["changes"].empty() && report["calls"].empty()) {
        std::cout << "nothing would change\n";
    }
    if (!report["unlike"].empty()) {
        std::cerr << tint(Tint::Warning, "warning:", STDERR_FILENO)
                  << " the copy is not quite like the device, which may count:\n";
        for (const Json::Value& change : report["unlike"]) {
            std::cerr << "  " << change["domain"].asString() << " " << harmless(change["name"].asString())
                      << "\n";
        }
    }
    if (status != kExitOk) {
        print_failure(report["answer"]);
    }
    print_answer(report["answer"]);
}

/// What is to be rehearsed; empty if the words name nothing that is.
std::function<int()> find_request(Arguments& words, const Options& options, std::string& complaint) {
    const std::string name = words.front();
    words.erase(words.begin());
    const Command* const command = find_command(name);
    if (!is_rehearsed(name)) {
        complaint = "not a request: " + name;
        return {};
    }
    if (command != nullptr) {
        const bool fits = words.size() >= command->least && words.size() <= command->most;
        complaint = fits ? "" : usage_of(*command);
        return [=] { return command->run(words, options); };
    }
    const Entry* const entry = find_entry(name);
    complaint = take_arguments(*entry, words);
    return [=]() mutable { return entry->run(words); };
}

/// Commands for people answer with an exit status.
void name_results(Json::Value& answer) {
    for (Json::Value& row : answer["targets"]) {
        row["name"] = std::string(describe_result(row["code"].asInt()).name);
    }
    answer["name"] = std::string(describe_result(answer["code"].asInt()).name);
}

}  // namespace

/// The process that reports a lease is not in the copy, where its event would take it for ended.
bool is_rehearsed(const std::string& name) {
    return (find_entry(name) != nullptr && name != "Lease_event") ||
           std::find(kRehearsed.begin(), kRehearsed.end(), name) != kRehearsed.end();
}

int plan(const Arguments& given, const Options& options) {
    Arguments words = given;
    std::string complaint;
    const std::function<int()> request = find_request(words, options, complaint);
    if (!complaint.empty()) {
        return usage_error(complaint);
    }
    if (const std::optional<Cause> obstacle = find_obstacle()) {
        return explain_obstacle(*obstacle);
    }
    Json::Value report;
    if (rehearse(request, report) != NM_OK) {
        std::cerr << "nm_bin: no rehearsal: " << harmless(report["reason"].asString()) << "\n";
        if (wants_json(options)) {
            print_json(report);
        }
        return kExitUsage;
    }
    name_results(report["answer"]);
    const int status = exit_status(report["answer"], find_command(given.front()) != nullptr);
    if (wants_json(options)) {
        print_json(report);
    } else {
        print_plan(report, status);
    }
    return status;
}

}  // namespace nm_bin
