// Bring-up as a person follows it: a line for each step while it runs, then what failed.
#include <networkinterface.h>
#include <unistd.h>

#include <iomanip>
#include <iostream>
#include <string>
#include <vector>

#include "nm_bin/entries.h"

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
    bool visible = isatty(STDERR_FILENO) == 1;
    size_t steps = 0;
    std::vector<Failure> failures{};
};

/// Labels end as they do in the log, with a colon and a blank.
std::string name_of(const bring_up_step& step) {
    const std::string label = step.label;
    const std::string name = label.substr(0, label.rfind(": "));
    return *step.key == '\0' ? name : name + " " + step.key;
}

void show(const bring_up_step* step, void* data) {
    auto& progress = *static_cast<Progress*>(data);
    const std::string name = name_of(*step);
    ++progress.steps;
    if (step->result < NM_OK) {
        progress.failures.push_back({name, step->result});
    }
    if (progress.visible) {
        std::cerr << std::left << std::setw(kNameWidth) << name << std::right << std::fixed
                  << std::setprecision(3) << std::setw(kTimeWidth)
                  << static_cast<double>(step->microseconds) / kMicro << " s  "
                  << (step->result < NM_OK ? describe_result(step->result).name : "ok") << "\n";
    }
}

}  // namespace

int bring_up(Arguments&) {
    Progress progress;
    const int code = setup_all_iface_by_config(0, show, &progress);
    if (!progress.failures.empty()) {
        std::cerr << progress.failures.size() << " of " << progress.steps << " steps failed:\n";
    }
    for (const Failure& failure : progress.failures) {
        const ResultCode result = describe_result(failure.code);
        std::cerr << "  " << failure.what << ": " << failure.code << " " << result.name << " "
                  << result.meaning << "\n";
    }
    return code;
}

}  // namespace nm_bin
