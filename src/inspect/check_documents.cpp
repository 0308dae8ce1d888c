// The check of documents: its passes and its report.
#include "inspect/check_documents.h"

#include <algorithm>
#include <exception>

#include "inspect/checks.h"
#include "inspect/document_set.h"
#include "inspect/findings.h"
#include "inspect/schema_check.h"
#include "log.h"
#include "result_codes.h"
#include "utils/json_fault.h"

namespace {

using nm::CheckedDocument;
using nm::DocumentState;

const char* state_name(DocumentState state) {
    switch (state) {
        case DocumentState::Checked:
            return "checked";
        case DocumentState::Absent:
            return "absent";
        case DocumentState::Unreadable:
            return "unreadable";
        case DocumentState::Unknown:
            return "unknown";
    }
    return "";
}

/// Reads the text as JSON. What is not an object is no document, and is left null.
void parse(CheckedDocument& document, nm::Findings& findings) {
    constexpr const char* kRight = "one JSON object";
    if (document.text.empty()) {
        findings.error_at(document.name, 0, "the file is empty", kRight);
        return;
    }
    Json::Value root;
    if (const auto fault = nm::parse_json_or_fault(document.text, root)) {
        findings.error_at(document.name, fault->offset, "this is not JSON: " + fault->words, kRight);
        return;
    }
    if (!root.isObject()) {
        findings.error_at(document.name, 0, "the document is not an object", kRight);
        return;
    }
    document.root = root;
    if (const auto repeated = nm::find_repeated_name(document.text)) {
        findings.warn_at(document.name, repeated->offset, repeated->words,
                         "each name once in an object: the last one counts");
    }
}

/// Without a schema the document is as good as unreadable, but what others refer to is there.
void judge(CheckedDocument& document, nm::Findings& findings) {
    if (document.root.isNull()) {
        return;
    }
    document.reason = nm::check_schema(document, findings);
    document.state = document.reason.empty() ? document.state : DocumentState::Unreadable;
}

/// What a check does not expect of a document must not take the findings away.
void check_together(nm::DocumentSet& documents, nm::Findings& findings) {
    try {
        nm::check_meaning(documents, findings);
    } catch (const std::exception& failure) {
        NM_LOG(Error) << "The check of documents failed: " << failure.what();
        for (CheckedDocument& document : documents.all()) {
            document.state = DocumentState::Unreadable;
            document.reason = std::string("the check failed: ") + failure.what();
        }
    }
}

Json::Value record_of(const CheckedDocument& document) {
    Json::Value record;
    record["document"] = document.name;
    record["path"] = document.path;
    record["state"] = state_name(document.state);
    if (!document.reason.empty()) {
        record["reason"] = document.reason;
    }
    return record;
}

bool is_unchecked(const CheckedDocument& document) {
    return document.is_asked &&
           (document.state == DocumentState::Unreadable || document.state == DocumentState::Unknown);
}

}  // namespace

int check_documents(const std::vector<std::string>& names, Json::Value& report) {
    NM_LOG(Debug) << "Enter";
    nm::DocumentSet documents(names);
    nm::Findings findings;
    for (CheckedDocument& document : documents.all()) {
        if (document.state == DocumentState::Checked) {
            parse(document, findings);
            judge(document, findings);
        }
    }
    check_together(documents, findings);
    report = Json::objectValue;
    report["documents"] = Json::arrayValue;
    for (const CheckedDocument& document : documents.all()) {
        if (document.is_asked) {
            report["documents"].append(record_of(document));
        }
    }
    report["findings"] = findings.report(documents);
    report["omitted"] = static_cast<Json::UInt64>(findings.omitted());
    if (std::any_of(documents.all().begin(), documents.all().end(), is_unchecked)) {
        return NM_EXIT(NM_ERR_NOT_FOUND);
    }
    return NM_EXIT(findings.has_errors(documents) ? NM_ERR_BAD_VALUE : NM_OK);
}
