// Bring-up as a person or a program follows it: a line for each step while it runs, then what failed
// and why.
#include <networkinterface.h>
#include <unistd.h>

#include <iomanip>
#include <iostream>
#include <sstream>
#include <string>

#include "nm_bin/commands.h"
#include "nm_bin/explain.h"

namespace nm_bin {

namespace {

constexpr int kNameWidth = 48;
constexpr int kTimeWidth = 9;
constexpr double kMicro = 1e6;

struct Progress {
    bool as_json;
    bool visible = isatty(STDERR_FILENO) == 1;
};

double seconds_of(const bring_up_step& step) {
    return static_cast<double>(step.microseconds) / kMicro;
}

std::string_view word_of(int code) {
    return code < NM_OK ? describe_result(code).name : "ok";
}

void show_line(const std::string& name, const bring_up_step& step) {
    std::cerr << std::left << std::setw(kNameWidth) << name << std::right << std::fixed
              << std::setprecision(3) << std::setw(kTimeWidth) << seconds_of(step) << " s  "
              << word_of(step.result) << "\n";
}

/// Labels end as they do in the log, with a colon and a blank.
void show_object(const TargetResult& result, const bring_up_step& step) {
    const std::string label = step.label;
    Json::Value object = result_object(result);
    object["step"] = label.substr(0, label.rfind(": "));
    object["key"] = step.key;
    object["seconds"] = seconds_of(step);
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    writer["precision"] = 6;
    std::cout << Json::writeString(writer, object) << std::endl;
}

void note_step(const bring_up_step* step, void* data) {
    const auto& progress = *static_cast<const Progress*>(data);
    TargetResult& result = last_target();
    result.counts = step->counts;
    if (progress.as_json) {
        show_object(result, *step);
    } else if (progress.visible) {
        show_line(result.target, *step);
    }
}

void show_failures(const Outcome& outcome) {
    std::ostringstream lines;
    size_t failed = 0;
    for (const TargetResult& result : outcome.targets) {
        if (result.code < NM_OK) {
            const ResultCode row = describe_result(result.code);
            lines << "  " << result.target << ": " << result.code << " " << row.name << " " << row.meaning
                  << "\n";
            ++failed;
        }
    }
    if (failed > 0) {
        std::cerr << failed << " of " << outcome.targets.size() << " steps failed:\n" << lines.str();
    }
}

}  // namespace

int bring_up(const Arguments& /*words*/, const Options& options) {
    Progress progress{options.json};
    const auto work = [&progress] {
        const int code = setup_all_iface_by_config(0, note_step, &progress);
        (void)drop_repeated_hosts();  // logged; a name twice harms nobody
        return code;
    };
    return run_call(work, options, [&options](const Outcome& outcome) {
        if (!options.json) {
            show_failures(outcome);
        }
        (void)print_result(outcome.code, options);
    });
}

}  // namespace nm_bin
