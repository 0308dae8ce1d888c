// check: what is wrong with documents, for people and for editors.
#include <networkinterface.h>
#include <unistd.h>

#include <iostream>

#include "nm_bin/commands.h"

namespace nm_bin {

namespace {

/// The form that compilers have and editors jump by.
void print_finding(const Json::Value& finding) {
    const bool is_error = finding["grade"] == "error";
    const std::string pointer = text_of(finding, "pointer");
    std::cout << text_of(finding, "path") << ":" << finding["line"].asUInt64() << ":"
              << finding["column"].asUInt64() << ": "
              << tint(is_error ? Tint::Bad : Tint::Warning, text_of(finding, "grade"), STDOUT_FILENO) << ": "
              << pointer << (pointer.empty() ? "" : ": ") << text_of(finding, "what") << "\n    "
              << tint(Tint::Faint, "right: " + text_of(finding, "right"), STDOUT_FILENO) << "\n";
}

void print_summary(const Json::Value& report) {
    size_t errors = 0;
    for (const Json::Value& finding : report["findings"]) {
        errors += finding["grade"] == "error" ? 1 : 0;
    }
    size_t checked = 0;
    for (const Json::Value& document : report["documents"]) {
        const std::string state = text_of(document, "state");
        checked += state == "checked" ? 1 : 0;
        if (document.isMember("reason")) {
            std::cerr << "nm_bin: " << text_of(document, "path")
                      << " is not checked: " << text_of(document, "reason") << "\n";
        }
    }
    std::cout << count_of(errors, "error") << ", " << count_of(report["findings"].size() - errors, "warning")
              << " in " << count_of(checked, "document");
    print_omitted(report);
}

void print_report(const Json::Value& report) {
    for (const Json::Value& finding : report["findings"]) {
        print_finding(finding);
    }
    print_summary(report);
}

}  // namespace

int check(const Arguments& words, const Options& options) {
    Json::Value report;
    const int code = check_documents(words, report);
    return show_findings(report, code, options, print_report);
}

}  // namespace nm_bin
