// Findings and their report.
#include "inspect/findings.h"

#include <algorithm>
#include <map>
#include <tuple>

#include "utils/json_text.h"
#include "utils/secrets.h"

namespace nm {

namespace {

/// More than anybody reads; a document of nothing but faults must not fill the memory.
constexpr size_t kMostFindings = 20000;
constexpr size_t kByPointer = std::string::npos;

/// A finding and where it stands.
struct Placed {
    const Finding* finding;
    const CheckedDocument* document;
    TextPosition position;
};

Json::Value record_of(const Placed& placed) {
    Json::Value record;
    record["document"] = placed.document->name;
    record["path"] = placed.document->path;
    record["line"] = static_cast<Json::UInt64>(placed.position.line);
    record["column"] = static_cast<Json::UInt64>(placed.position.column);
    record["pointer"] = placed.finding->place.pointer;
    record["grade"] = placed.finding->grade == Grade::Error ? "error" : "warning";
    record["what"] = placed.finding->what;
    record["right"] = placed.finding->right;
    return record;
}

}  // namespace

Place Place::operator/(const std::string& member) const {
    return {document, pointer + "/" + json_pointer_token(member)};
}

Place Place::operator/(Json::ArrayIndex index) const {
    return {document, pointer + "/" + std::to_string(index)};
}

void Findings::add(const Finding& finding) {
    if (findings_.size() < kMostFindings) {
        findings_.push_back(finding);
    } else {
        ++omitted_;
    }
}

void Findings::error(const Place& place, const std::string& what, const std::string& right,
                     const std::string& other) {
    add({place, Grade::Error, what, right, other, kByPointer});
}

void Findings::warn(const Place& place, const std::string& what, const std::string& right,
                    const std::string& other) {
    add({place, Grade::Warning, what, right, other, kByPointer});
}

void Findings::error_at(const std::string& document, size_t offset, const std::string& what,
                        const std::string& right) {
    add({{document, ""}, Grade::Error, what, right, "", offset});
}

void Findings::warn_at(const std::string& document, size_t offset, const std::string& what,
                       const std::string& right) {
    add({{document, ""}, Grade::Warning, what, right, "", offset});
}

bool Findings::is_asked(const Finding& finding, const DocumentSet& documents) const {
    const CheckedDocument* const own = documents.find(finding.place.document);
    const CheckedDocument* const other = documents.find(finding.other);
    return (own != nullptr && own->is_asked) || (other != nullptr && other->is_asked);
}

bool Findings::has_errors(const DocumentSet& documents) const {
    return std::any_of(findings_.begin(), findings_.end(), [&](const Finding& finding) {
        return finding.grade == Grade::Error && is_asked(finding, documents);
    });
}

Json::Value Findings::report(const DocumentSet& documents) const {
    std::map<std::string, LineIndex> lines;
    std::vector<Placed> all;
    for (const Finding& finding : findings_) {
        const CheckedDocument* const document = documents.find(finding.place.document);
        if (document == nullptr || !is_asked(finding, documents)) {
            continue;
        }
        const auto index = lines.try_emplace(document->name, document->text).first;
        const size_t offset = finding.offset != kByPointer
                                  ? finding.offset
                                  : offset_of(document->text, document->root, finding.place.pointer);
        all.push_back({&finding, document, index->second.position(offset)});
    }
    std::stable_sort(all.begin(), all.end(), [](const Placed& a, const Placed& b) {
        return std::tie(a.document, a.position.line, a.position.column) <
               std::tie(b.document, b.position.line, b.position.column);
    });
    Json::Value list(Json::arrayValue);
    for (const Placed& placed : all) {
        list.append(record_of(placed));
    }
    return list;
}

std::string show_value(const Place& place, const Json::Value& value) {
    constexpr size_t kShown = 80;
    const std::vector<std::string> tokens = pointer_tokens(place.pointer);
    if (std::any_of(tokens.begin(), tokens.end(), is_secret_key)) {
        return "\"***\"";
    }
    std::string text = write_compact_json(mask_secrets(value));
    text.erase(text.find_last_not_of('\n') + 1);
    return text.size() <= kShown ? text : text.substr(0, kShown) + "...";
}

}  // namespace nm
