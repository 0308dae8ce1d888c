// drift: what the running system has otherwise than the stored documents describe.
#include <networkinterface.h>
#include <unistd.h>

#include <iostream>

#include "nm_bin/boot_steps.h"
#include "nm_bin/commands.h"
#include "nm_bin/explain.h"

namespace nm_bin {

namespace {

void print_finding(const Json::Value& finding, Tint colour) {
    std::cout << tint(colour, text_of(finding, "class"), STDOUT_FILENO) << ": " << text_of(finding, "domain")
              << " " << text_of(finding, "name") << " (owner: " << text_of(finding, "owner") << ")\n";
    print_lines(finding["missing"], "- ", Tint::Bad);
    print_lines(finding["extra"], "+ ", Tint::Good);
}

void print_report(const Json::Value& report) {
    for (const Json::Value& finding : report["findings"]) {
        print_finding(finding, Tint::Bad);
    }
    for (const Json::Value& finding : report["outside"]) {
        print_finding(finding, Tint::Faint);
    }
    std::cout << count_of(report["findings"].size(), "difference") << ", "
              << count_of(report["outside"].size(), "thing") << " outside of the network configuration";
    print_omitted(report);
    print_unread(report);
}

}  // namespace

int drift(const Arguments& /*words*/, const Options& options) {
    if (const std::optional<Cause> obstacle = find_obstacle()) {
        return explain_obstacle(*obstacle);
    }
    Json::Value report;
    const int code = report_drift(steps_of_boot(), report);
    return show_findings(report, code, options, print_report);
}

}  // namespace nm_bin
