// check: what is wrong with documents, for people and for editors.
#include <json/writer.h>
#include <networkinterface.h>
#include <unistd.h>

#include <iostream>

#include "nm_bin/commands.h"

namespace nm_bin {

namespace {

std::string text_of(const Json::Value& record, const char* key) {
    return record.get(key, "").asString();
}

/// The form that compilers have and editors jump by.
void print_finding(const Json::Value& finding) {
    const bool is_error = finding["grade"] == "error";
    const std::string pointer = text_of(finding, "pointer");
    std::cout << harmless(text_of(finding, "path")) << ":" << finding["line"].asUInt64() << ":"
              << finding["column"].asUInt64() << ": "
              << tint(is_error ? Tint::Bad : Tint::Warning, text_of(finding, "grade"), STDOUT_FILENO) << ": "
              << harmless(pointer + (pointer.empty() ? "" : ": ") + text_of(finding, "what")) << "\n    "
              << tint(Tint::Faint, "right: " + harmless(text_of(finding, "right")), STDOUT_FILENO) << "\n";
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
            std::cerr << "nm_bin: " << harmless(text_of(document, "path"))
                      << " is not checked: " << text_of(document, "reason") << "\n";
        }
    }
    std::cout << count_of(errors, "error") << ", " << count_of(report["findings"].size() - errors, "warning")
              << " in " << count_of(checked, "document");
    if (report["omitted"].asUInt64() > 0) {
        std::cout << "; " << report["omitted"].asUInt64() << " more are left out";
    }
    std::cout << "\n";
}

}  // namespace

int check(const Arguments& words, const Options& options) {
    Json::Value report;
    const int code = check_documents(words, report);
    if (wants_json(options)) {
        std::cout << Json::writeString(Json::StreamWriterBuilder(), report) << "\n";
    } else {
        for (const Json::Value& finding : report["findings"]) {
            print_finding(finding);
        }
        print_summary(report);
    }
    if (code == NM_ERR_NOT_FOUND) {
        return kExitUsage;
    }
    return code < 0 ? kExitFailed : kExitOk;
}

}  // namespace nm_bin
