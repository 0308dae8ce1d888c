// What differs between two worlds, by things and lines.
#include <algorithm>
#include <array>

#include "inspect/world.h"

namespace nm {

namespace {

constexpr std::array kDomainNames{"link",  "address", "route",     "rule", "set",
                                  "chain", "setting", "condition", "file", "unit"};

/// A table of the common lines of two long texts would not be affordable; then their order does not count.
constexpr size_t kMostPairs = 4000000;

Lines without(Lines lines, Lines others) {
    std::sort(others.begin(), others.end());
    Lines rest;
    for (const std::string& line : lines) {
        const auto found = std::lower_bound(others.begin(), others.end(), line);
        if (found != others.end() && *found == line) {
            others.erase(found);
        } else {
            rest.push_back(line);
        }
    }
    return rest;
}

/// The lengths of the longest common subsequences of all ends of two texts.
class CommonLengths {
public:
    CommonLengths(const Lines& before, const Lines& after)
        : width_(after.size() + 1), lengths_((before.size() + 1) * width_) {
        for (size_t i = before.size(); i-- > 0;) {
            for (size_t j = after.size(); j-- > 0;) {
                lengths_[i * width_ + j] =
                    before[i] == after[j] ? at(i + 1, j + 1) + 1 : std::max(at(i + 1, j), at(i, j + 1));
            }
        }
    }
    unsigned at(size_t i, size_t j) const { return lengths_[i * width_ + j]; }

private:
    size_t width_;
    std::vector<unsigned> lengths_;
};

LineDifference compare_in_order(const Lines& before, const Lines& after) {
    const CommonLengths common(before, after);
    LineDifference difference;
    size_t i = 0;
    size_t j = 0;
    while (i < before.size() || j < after.size()) {
        if (i < before.size() && j < after.size() && before[i] == after[j]) {
            ++i;
            ++j;
        } else if (j == after.size() || (i < before.size() && common.at(i + 1, j) >= common.at(i, j + 1))) {
            difference.removed.push_back(before[i++]);
        } else {
            difference.added.push_back(after[j++]);
        }
    }
    return difference;
}

Json::Value to_json(const Lines& lines) {
    Json::Value list(Json::arrayValue);
    for (const std::string& line : lines) {
        list.append(line);
    }
    return list;
}

void append_change(Domain domain, const std::string& name, const Lines* before, const Lines* after,
                   Json::Value& changes) {
    static const Lines kNone;
    const LineDifference difference =
        compare_lines(before != nullptr ? *before : kNone, after != nullptr ? *after : kNone);
    Json::Value change;
    change["domain"] = domain_name(domain);
    change["name"] = name;
    change["change"] = before == nullptr ? "created" : after == nullptr ? "removed" : "changed";
    change["removed"] = to_json(difference.removed);
    change["added"] = to_json(difference.added);
    changes.append(change);
}

const Lines* find(const Things& things, const std::string& name) {
    const auto found = things.find(name);
    return found == things.end() ? nullptr : &found->second;
}

void append_domain(Domain domain, const Things& before, const Things& after, Json::Value& changes) {
    Things all = before;
    all.insert(after.begin(), after.end());
    for (const auto& [name, lines] : all) {
        const Lines* const old_lines = find(before, name);
        const Lines* const new_lines = find(after, name);
        const bool is_same = old_lines != nullptr && new_lines != nullptr && *old_lines == *new_lines;
        if (!is_same) {
            append_change(domain, name, old_lines, new_lines, changes);
        }
    }
}

}  // namespace

const char* domain_name(Domain domain) {
    return kDomainNames.at(static_cast<size_t>(domain));
}

std::vector<Domain> all_domains() {
    std::vector<Domain> domains;
    for (size_t i = 0; i < kDomainNames.size(); ++i) {
        domains.push_back(static_cast<Domain>(i));
    }
    return domains;
}

LineDifference compare_lines(const Lines& before, const Lines& after) {
    const auto heads = std::mismatch(before.begin(), before.end(), after.begin(), after.end());
    const auto tails = std::mismatch(before.rbegin(), std::make_reverse_iterator(heads.first), after.rbegin(),
                                     std::make_reverse_iterator(heads.second));
    const Lines old_lines(heads.first, tails.first.base());
    const Lines new_lines(heads.second, tails.second.base());
    if ((old_lines.size() + 1) * (new_lines.size() + 1) > kMostPairs) {
        return {without(old_lines, new_lines), without(new_lines, old_lines)};
    }
    return compare_in_order(old_lines, new_lines);
}

void append_differences(const World& before, const World& after, Json::Value& changes) {
    static const Things kNone;
    for (const Domain domain : all_domains()) {
        const auto old_things = before.find(domain);
        const auto new_things = after.find(domain);
        append_domain(domain, old_things != before.end() ? old_things->second : kNone,
                      new_things != after.end() ? new_things->second : kNone, changes);
    }
}

}  // namespace nm
