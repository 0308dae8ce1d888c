// The look at the owners, and its report.
#include "inspect/owners.h"

#include <fnmatch.h>

#include <algorithm>
#include <array>
#include <set>

#include "inspect/owners_view.h"
#include "inspect/read_command.h"
#include "log.h"
#include "result_codes.h"

namespace nm {

namespace {

/// More than anybody reads.
constexpr size_t kMostFindings = 10000;

const char* resource_name(Resource resource) {
    switch (resource) {
        case Resource::Mark:
            return "mark";
        case Resource::Table:
            return "table";
        case Resource::Priority:
            return "rule";
        case Resource::Set:
            return "set";
        case Resource::Chain:
            return "chain";
        case Resource::File:
            return "file";
        case Resource::Unit:
            return "unit";
        case Resource::Lock:
            return "lock";
    }
    return "";
}

std::string hexadecimal(uint32_t bits) {
    std::array<char, 11> text{};
    (void)snprintf(text.data(), text.size(), "0x%x", bits);
    return text.data();
}

/// How a claim is called: its name, its bits, or its numbers.
std::string name_of(const Claim& claim) {
    if (!claim.name.empty()) {
        return claim.resource == Resource::File ? claim.place + claim.name : claim.name;
    }
    if (claim.resource == Resource::Mark) {
        return hexadecimal(claim.first);
    }
    const std::string first = std::to_string(claim.first);
    return claim.first == claim.last  ? first
           : claim.last == UINT32_MAX ? first + "-"
                                      : first + "-" + std::to_string(claim.last);
}

/// What stands before a name to say which of several is meant; a file's path says it.
std::string place_of(Resource resource, const std::string& place) {
    if (resource == Resource::Priority) {
        return place == "6" ? "IPv6" : "IPv4";
    }
    return resource == Resource::Chain ? place : "";
}

bool has_pattern(const Claim& claim) {
    return claim.name.find_first_of("*?") != std::string::npos;
}

/// A pattern with a count stands for names that end in a number.
bool matches_name(const Claim& claim, const std::string& name) {
    if (!has_pattern(claim)) {
        return claim.name == name;
    }
    const std::string behind = name.substr(std::min(claim.name.size() - 1, name.size()));
    const bool is_number = !behind.empty() && behind.find_first_not_of("0123456789") == std::string::npos;
    return fnmatch(claim.name.c_str(), name.c_str(), 0) == 0 && (claim.last == 0 || is_number);
}

bool covers(const Claim& claim, const Present& thing) {
    if (claim.resource != thing.resource || claim.place != thing.place) {
        return false;
    }
    if (claim.resource == Resource::Mark) {
        return (claim.first & thing.number) != 0;
    }
    return claim.name.empty() ? thing.number >= claim.first && thing.number <= claim.last
                              : matches_name(claim, thing.name);
}

/// How much of the resource a claim is, to find the narrowest: patterns by what they leave open.
uint64_t width(const Claim& claim) {
    if (claim.name.empty()) {
        return claim.last - claim.first;
    }
    return has_pattern(claim) ? 1000 - std::min<size_t>(claim.name.size(), 999) : 0;
}

/// Whether two claims cannot hold at once: they are the same, or each has a part that the other lacks.
bool clash(const Claim& a, const Claim& b) {
    if (a.resource != b.resource || a.place != b.place || a.owner == b.owner) {
        return false;
    }
    if (a.resource == Resource::Mark) {
        return (a.first & b.first) != 0;
    }
    if (!a.name.empty() || !b.name.empty()) {
        return a.name == b.name;
    }
    const bool is_apart = a.last < b.first || b.last < a.first;
    const bool is_within =
        (a.first >= b.first && a.last <= b.last) || (b.first >= a.first && b.last <= a.last);
    const bool is_same = a.first == b.first && a.last == b.last;
    return is_same || (!is_apart && !is_within);
}

Json::Value record_of(const Claim& claim, const Json::Value& present) {
    Json::Value record;
    record["resource"] = resource_name(claim.resource);
    record["place"] = place_of(claim.resource, claim.place);
    record["name"] = name_of(claim);
    record["owner"] = claim.owner;
    record["purpose"] = claim.purpose;
    record["present"] = present;
    return record;
}

}  // namespace

OwnersView::OwnersView(std::vector<Claim> claims)
    : claims_(std::move(claims)), present_(claims_.size(), Json::arrayValue) {
    std::stable_sort(claims_.begin(), claims_.end(),
                     [](const Claim& a, const Claim& b) { return a.resource < b.resource; });
}

const Claim* OwnersView::find(const Present& thing) const {
    const Claim* best = nullptr;
    for (const Claim& claim : claims_) {
        if (covers(claim, thing) && (best == nullptr || width(claim) < width(*best))) {
            best = &claim;
        }
    }
    return best;
}

const Claim* OwnersView::enter(const Present& thing) {
    const Claim* const claim = find(thing);
    if (claim != nullptr) {
        Json::Value record;
        record["name"] = thing.name;
        record["detail"] = thing.detail;
        present_[static_cast<size_t>(claim - claims_.data())].append(record);
    }
    return claim;
}

void OwnersView::add(const char* grade, const Present& thing, const std::string& owner,
                     const std::string& what) {
    if (findings_.size() >= kMostFindings) {
        ++omitted_;
        return;
    }
    Json::Value record;
    record["resource"] = resource_name(thing.resource);
    record["place"] = place_of(thing.resource, thing.place);
    record["name"] = thing.resource == Resource::File ? thing.place + thing.name : thing.name;
    record["grade"] = grade;
    record["owner"] = owner;
    record["what"] = what;
    findings_.append(record);
}

void OwnersView::stranger(const Present& thing, const std::string& owner, const std::string& what) {
    add("stranger", thing, owner, what);
}

void OwnersView::collision(const Present& thing, const std::string& owner, const std::string& what) {
    add("collision", thing, owner, what);
}

void OwnersView::unread(const std::string& what, const std::string& reason) {
    Json::Value record;
    record["what"] = what;
    record["reason"] = reason;
    unread_.append(record);
}

Json::Value OwnersView::report() const {
    Json::Value report;
    report["resources"] = Json::arrayValue;
    for (size_t i = 0; i < claims_.size(); ++i) {
        report["resources"].append(record_of(claims_[i], present_[i]));
    }
    report["findings"] = findings_;
    report["unread"] = unread_;
    report["omitted"] = static_cast<Json::UInt64>(omitted_);
    return report;
}

std::vector<Claim> all_claims(std::string& reason) {
    std::vector<Claim> claims = library_claims();
    const CommandText base = read_command(NM_SBIN_DIR "/nm-base-rules --list");
    reason = base.reason;
    for (Claim& claim : base_claims(reason.empty() ? base.text : "")) {
        claims.push_back(std::move(claim));
    }
    return claims;
}

void find_design_collisions(OwnersView& view) {
    const std::vector<Claim>& claims = view.claims();
    for (size_t i = 0; i < claims.size(); ++i) {
        for (size_t j = i + 1; j < claims.size(); ++j) {
            if (clash(claims[i], claims[j])) {
                view.collision({claims[j].resource, claims[j].place, name_of(claims[j])}, claims[j].owner,
                               "by design " + claims[i].owner + " owns " + name_of(claims[i]) + " as well");
            }
        }
    }
}

}  // namespace nm

int report_owners(Json::Value& report) {
    NM_LOG(Debug) << "Enter";
    std::string reason;
    nm::OwnersView view(nm::all_claims(reason));
    if (!reason.empty()) {
        view.unread("what the base rules own", reason);
    }
    nm::find_design_collisions(view);
    nm::look_at_routing(view);
    nm::look_at_filters(view);
    nm::look_at_files(view);
    report = view.report();
    if (view.is_partial()) {
        return NM_EXIT(NM_ERR_NOT_FOUND);
    }
    return NM_EXIT(view.has_findings() ? NM_ERR_BAD_VALUE : NM_OK);
}
