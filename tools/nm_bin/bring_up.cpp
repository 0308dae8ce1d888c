// Bring-up as a person or a program follows it: a line for each step while it runs, then what failed.
#include <networkinterface.h>
#include <unistd.h>

#include <iomanip>
#include <iostream>
#include <string>
#include <vector>

#include "nm_bin/commands.h"
#include "nm_bin/explain.h"

namespace nm_bin {

namespace {

constexpr int kNameWidth = 48;
constexpr int kTimeWidth = 9;
constexpr double kMicro = 1e6;

struct Failure {
    std::string what;
    int code;
};

struct Progress {
    bool as_json;
    bool visible = isatty(STDERR_FILENO) == 1;
    size_t steps = 0;
    std::vector<Failure> failures{};
};

/// Labels end as they do in the log, with a colon and a blank.
std::string name_of(const bring_up_step& step) {
    const std::string label = step.label;
    return label.substr(0, label.rfind(": "));
}

double seconds_of(const bring_up_step& step) {
    return static_cast<double>(step.microseconds) / kMicro;
}

std::string_view word_of(int code) {
    return code < NM_OK ? describe_result(code).name : "ok";
}

void show_line(const std::string& what, const bring_up_step& step) {
    std::cerr << std::left << std::setw(kNameWidth) << what << std::right << std::fixed
              << std::setprecision(3) << std::setw(kTimeWidth) << seconds_of(step) << " s  "
              << word_of(step.result) << "\n";
}

void show_object(const bring_up_step& step) {
    Json::Value object;
    object["step"] = name_of(step);
    object["key"] = step.key;
    object["code"] = step.result;
    object["name"] = std::string(describe_result(step.result).name);
    object["seconds"] = seconds_of(step);
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    writer["precision"] = 6;
    std::cout << Json::writeString(writer, object) << std::endl;
}

void note_step(const bring_up_step* step, void* data) {
    auto& progress = *static_cast<Progress*>(data);
    const std::string what = name_of(*step) + (*step->key == '\0' ? "" : " ") + step->key;
    ++progress.steps;
    if (step->result < NM_OK) {
        progress.failures.push_back({what, step->result});
    }
    if (progress.as_json) {
        show_object(*step);
    } else if (progress.visible) {
        show_line(what, *step);
    }
}

void show_failures(const Progress& progress) {
    if (!progress.failures.empty()) {
        std::cerr << progress.failures.size() << " of " << progress.steps << " steps failed:\n";
    }
    for (const Failure& failure : progress.failures) {
        const ResultCode result = describe_result(failure.code);
        std::cerr << "  " << failure.what << ": " << failure.code << " " << result.name << " "
                  << result.meaning << "\n";
    }
}

}  // namespace

int bring_up(const Arguments& /*words*/, const Options& options) {
    if (const std::optional<Cause> obstacle = find_obstacle()) {
        return explain_obstacle(*obstacle);
    }
    Progress progress{options.json};
    const int code = setup_all_iface_by_config(0, note_step, &progress);
    (void)drop_repeated_hosts();  // logged; a name twice harms nobody
    if (!options.json) {
        show_failures(progress);
    }
    return print_result(code, options);
}

}  // namespace nm_bin
