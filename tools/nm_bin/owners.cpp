// owners: who owns what, what lies there, and what is not its owner's.
#include <networkinterface.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>

#include "nm_bin/commands.h"

namespace nm_bin {

namespace {

constexpr Json::ArrayIndex kShown = 3;

std::string title_of(const Json::Value& record) {
    const std::string place = text_of(record, "place");
    return (place.empty() ? "" : place + " ") + text_of(record, "name");
}

/// A few names, and how many there are.
std::string there(const Json::Value& present) {
    std::string names;
    for (Json::ArrayIndex i = 0; i < std::min(present.size(), kShown); ++i) {
        names += (i == 0 ? "" : ", ") + text_of(present[i], "name");
    }
    const bool is_more = present.size() > kShown;
    return is_more ? names + ", ... " + std::to_string(present.size()) : present.empty() ? "-" : names;
}

void print_resources(const Json::Value& resources) {
    Table table({"resource", "name", "owner", "purpose", "there"});
    for (const Json::Value& resource : resources) {
        table.add({text_of(resource, "resource"), title_of(resource), text_of(resource, "owner"),
                   text_of(resource, "purpose"), there(resource["present"])});
    }
    Options options;
    options.text = true;
    table.print(options);
}

void print_finding(const Json::Value& finding) {
    std::cout << tint(Tint::Bad, text_of(finding, "grade"), STDOUT_FILENO) << ": "
              << text_of(finding, "resource") << " " << title_of(finding)
              << " (owner: " << text_of(finding, "owner") << "): " << text_of(finding, "what") << "\n";
}

void print_summary(const Json::Value& report) {
    const Json::Value& findings = report["findings"];
    const auto strangers = std::count_if(findings.begin(), findings.end(), [](const Json::Value& finding) {
        return finding["grade"] == "stranger";
    });
    std::cout << count_of(static_cast<size_t>(strangers), "stranger") << ", "
              << count_of(findings.size() - static_cast<size_t>(strangers), "collision");
    print_omitted(report);
    print_unread(report);
}

void print_report(const Json::Value& report) {
    print_resources(report["resources"]);
    for (const Json::Value& finding : report["findings"]) {
        print_finding(finding);
    }
    print_summary(report);
}

}  // namespace

int owners(const Arguments& /*words*/, const Options& options) {
    Json::Value report;
    const int code = report_owners(report);
    return show_findings(report, code, options, print_report);
}

}  // namespace nm_bin
