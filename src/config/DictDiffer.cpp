// The comparison of documents.
#include "config/DictDiffer.h"

#include <algorithm>
#include <array>

#include "utils/json_text.h"
#include "utils/secrets.h"

namespace {

using Kind = DictDiffer::Kind;

constexpr Json::ArrayIndex kMostListed = 1000;

struct KindWords {
    Kind kind;
    const char* word;
    const char* sign;
};
constexpr std::array kKinds{KindWords{Kind::Added, "added", "+"}, KindWords{Kind::Removed, "removed", "-"},
                            KindWords{Kind::Changed, "changed", "~"}};

const char* word_of(Kind kind) {
    return std::find_if(kKinds.begin(), kKinds.end(),
                        [kind](const KindWords& row) { return row.kind == kind; })
        ->word;
}

std::string token(const std::string& name) {
    return "/" + nm::json_pointer_token(name);
}

std::string token(Json::ArrayIndex index) {
    return "/" + std::to_string(index);
}

Json::Value shown(const std::string& pointer, const Json::Value& value) {
    // A list under a secret's name holds secrets, too: every name on the way counts.
    for (size_t begin = 0; begin < pointer.size();) {
        const size_t end = std::min(pointer.find('/', begin + 1), pointer.size());
        if (is_secret_key(pointer.substr(begin + 1, end - begin - 1))) {
            return value.isNull() ? value : "***";
        }
        begin = end;
    }
    return mask_secrets(value);
}

std::string line_of(const Json::Value& row, const KindWords& words) {
    std::string line = std::string(words.sign) + " " + nm::json_string_or(row, "pointer", "") + ":";
    for (const char* value : {"before", "after"}) {
        if (row.isMember(value)) {
            line += line.back() == ':' ? " " : " -> ";
            std::string text = nm::write_compact_json(row[value]);
            text.pop_back();  // its line end
            line += text;
        }
    }
    return line + "\n";
}

}  // namespace

DictDiffer::DictDiffer(const Json::Value& before, const Json::Value& after) {
    compare(before, after, "");
}

void DictDiffer::add(Kind kind, const std::string& pointer, const Json::Value& before,
                     const Json::Value& after) {
    differences_.push_back({kind, pointer, shown(pointer, before), shown(pointer, after)});
}

void DictDiffer::compare(const Json::Value& before, const Json::Value& after, const std::string& pointer) {
    if (before.isObject() && after.isObject()) {
        compare_members(before, after, pointer);
    } else if (before.isArray() && after.isArray()) {
        compare_lists(before, after, pointer);
    } else if (before != after) {
        add(Kind::Changed, pointer, before, after);
    }
}

void DictDiffer::compare_members(const Json::Value& before, const Json::Value& after,
                                 const std::string& pointer) {
    for (auto member = before.begin(); member != before.end(); ++member) {
        const std::string name = member.name();
        if (after.isMember(name)) {
            compare(*member, after[name], pointer + token(name));
        } else {
            add(Kind::Removed, pointer + token(name), *member, Json::nullValue);
        }
    }
    for (auto member = after.begin(); member != after.end(); ++member) {
        if (!before.isMember(member.name())) {
            add(Kind::Added, pointer + token(member.name()), Json::nullValue, *member);
        }
    }
}

void DictDiffer::compare_lists(const Json::Value& before, const Json::Value& after,
                               const std::string& pointer) {
    Json::ArrayIndex old_end = before.size();
    Json::ArrayIndex new_end = after.size();
    Json::ArrayIndex first = 0;
    while (first < old_end && first < new_end && before[first] == after[first]) {
        ++first;
    }
    while (old_end > first && new_end > first && before[old_end - 1] == after[new_end - 1]) {
        --old_end;
        --new_end;
    }
    const Json::ArrayIndex paired = std::min(old_end, new_end);
    for (Json::ArrayIndex i = first; i < paired; ++i) {
        compare(before[i], after[i], pointer + token(i));
    }
    for (Json::ArrayIndex i = paired; i < old_end; ++i) {
        add(Kind::Removed, pointer + token(i), before[i], Json::nullValue);
    }
    for (Json::ArrayIndex i = paired; i < new_end; ++i) {
        add(Kind::Added, pointer + token(i), Json::nullValue, after[i]);
    }
}

Json::Value DictDiffer::report() const {
    Json::Value report;
    for (const KindWords& row : kKinds) {
        report[row.word] = static_cast<Json::UInt64>(
            std::count_if(differences_.begin(), differences_.end(),
                          [&row](const Difference& one) { return one.kind == row.kind; }));
    }
    Json::Value& list = report["differences"] = Json::arrayValue;
    for (const Difference& one : differences_) {
        if (list.size() == kMostListed) {
            break;
        }
        Json::Value& row = list.append(Json::objectValue);
        row["kind"] = word_of(one.kind);
        row["pointer"] = one.pointer;
        if (one.kind != Kind::Added) {
            row["before"] = one.before;
        }
        if (one.kind != Kind::Removed) {
            row["after"] = one.after;
        }
    }
    return report;
}

std::string show_difference(const Json::Value& report) {
    std::string text;
    for (const Json::Value& row : nm::json_member(report, "differences")) {
        for (const KindWords& words : kKinds) {
            text += nm::json_string_or(row, "kind", "") == words.word ? line_of(row, words) : "";
        }
    }
    for (const KindWords& words : kKinds) {
        text += nm::show_json(nm::json_member(report, words.word)) + " " + words.word + ", ";
    }
    text.resize(text.size() - 2);
    return text + "\n";
}
