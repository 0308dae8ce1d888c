// The classes of differences, and whose they are.
#include <linux/rtnetlink.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "config/port_names.h"
#include "inspect/drift_boot.h"
#include "inspect/drift_view.h"
#include "inspect/read_command.h"
#include "kernel/route_table.h"

namespace nm {

namespace {

constexpr const char* kOurs = "network configuration";
constexpr const char* kNobody = "nobody";

/// Where only files of ours lie.
constexpr const char* kDirectories[] = {"/etc/networkmanagement/", "/etc/vpppoe/", "/run/network/"};

const std::vector<std::string> kRouteKeys{"via",    "dev",  "proto", "scope", "src",
                                          "metric", "pref", "nhid",  "mtu"};

Domain domain_of(const std::string& name) {
    const std::vector<Domain> all = all_domains();
    return *std::find_if(all.begin(), all.end(),
                         [&name](Domain domain) { return name == domain_name(domain); });
}

/// ip(8) has names for these.
uint32_t table_number(const std::string& table) {
    return table == "main"      ? uint32_t{RT_TABLE_MAIN}
           : table == "default" ? kDefaultRoutesTable
                                : static_cast<uint32_t>(strtoul(table.c_str(), nullptr, 10));
}

std::string last_word(const std::string& text) {
    return text.substr(text.rfind(' ') + 1);
}

Present file_of(const std::string& path) {
    constexpr std::string_view kRun = "/run/";
    const std::string claimed = path.rfind(kRun, 0) == 0 ? "/var" + path : path;
    const size_t name = claimed.rfind('/') + 1;
    return {Resource::File, claimed.substr(0, name), claimed.substr(name)};
}

/// "IPv4 mangle FIREWALL" as owners have it.
Present chain_of(const std::string& name) {
    const size_t chain = name.rfind(' ') + 1;
    const std::string command = name.rfind("IPv6", 0) == 0 ? "ip6tables" : "iptables";
    return {Resource::Chain, command + name.substr(4, chain - 5), name.substr(chain)};
}

/// "IPv4 rule 33".
Present rule_of(const std::string& name) {
    return {Resource::Priority, name.substr(3, 1), "",
            static_cast<uint32_t>(strtoul(last_word(name).c_str(), nullptr, 10))};
}

}  // namespace

/// A part of a change that is judged as a whole.
struct DriftView::Piece {
    Domain domain;
    std::string name;
    std::string change;  // created, removed or changed
    Lines missing;
    Lines extra;
};

namespace {

/// What a claim covers; links, addresses, settings and conditions have none.
bool find_resource(Domain domain, const std::string& name, Present& thing) {
    switch (domain) {
        case Domain::Route:
            thing = {Resource::Table, "", "", table_number(last_word(name))};
            return true;
        case Domain::Rule:
            thing = rule_of(name);
            return true;
        case Domain::Set:
            thing = {Resource::Set, "", name};
            return true;
        case Domain::Chain:
            thing = chain_of(name);
            return true;
        case Domain::File:
            thing = file_of(name);
            return true;
        case Domain::Unit:
            thing = {Resource::Unit, "", name};
            return true;
        case Domain::Link:
        case Domain::Address:
        case Domain::Setting:
        case Domain::Condition:
            return false;
    }
    return false;
}

Json::Value to_json(const Lines& lines) {
    Json::Value list(Json::arrayValue);
    for (const std::string& line : lines) {
        list.append(line);
    }
    return list;
}

Lines from_json(const Json::Value& list) {
    Lines lines;
    for (const Json::Value& line : list) {
        lines.push_back(line.asString());
    }
    return lines;
}

/// The device of a setting of one; empty for others.
std::string device_of_setting(const std::string& setting) {
    const size_t begin = setting.find("/conf/");
    const size_t name = begin != std::string::npos ? begin + 6 : begin;
    return begin != std::string::npos ? setting.substr(name, setting.find('/', name) - name) : "";
}

}  // namespace

bool DriftView::is_our_device(const std::string& name) const {
    const std::string device = device_of(name.substr(0, name.find('.')));
    return devices_.count(name) > 0 || devices_.count(device) > 0 ||
           std::any_of(std::begin(kDeviceForms), std::end(kDeviceForms),
                       [&name](const char* form) { return name.rfind(form, 0) == 0; });
}

/// Whether what is extra lies where only ours should.
bool DriftView::is_ours(const Piece& piece, const std::string& line) const {
    switch (piece.domain) {
        case Domain::Link:
        case Domain::Address:
            return is_our_device(piece.name);
        case Domain::Setting: {
            const std::string device = device_of_setting(piece.name);
            return device.empty() || device == "all" || device == "default" || is_our_device(device);
        }
        case Domain::Condition:
            return false;
        case Domain::Route:
            return table_number(last_word(piece.name)) != RT_TABLE_MAIN
                       ? owner_of(piece) != kNobody
                       : is_our_device(word_after(words_of(line), kRouteKeys, "dev"));
        case Domain::File:
            return piece.change == "changed" || owner_of(piece) != kNobody ||
                   std::any_of(std::begin(kDirectories), std::end(kDirectories),
                               [&piece](const char* path) { return piece.name.rfind(path, 0) == 0; });
        case Domain::Unit:
            return true;
        case Domain::Rule:
        case Domain::Set:
        case Domain::Chain:
            return owner_of(piece) != kNobody;
    }
    return false;
}

std::string DriftView::owner_of(const Piece& piece) const {
    Present thing{};
    if (!find_resource(piece.domain, piece.name, thing)) {
        return kNobody;
    }
    const Claim* const claim = owners_.find(thing);
    return claim != nullptr ? claim->owner : kNobody;
}

/// What is missing has been described, so it is ours, but for devices of others, which are as they are.
bool DriftView::is_whole(const Piece& piece) const {
    const bool is_device = piece.domain == Domain::Link || piece.domain == Domain::Address;
    return piece.domain != Domain::Route && ((!is_device && !piece.missing.empty()) || is_ours(piece, ""));
}

/// Of what is extra in a table of routes each line is looked at.
void DriftView::judge_piece(const Piece& piece) {
    const bool is_bare = piece.missing.empty() && piece.extra.empty();  // such as a chain without rules
    const bool is_all_ours = is_whole(piece) || (is_bare && piece.change != "created");
    Piece ours{piece.domain, piece.name, piece.change, {}, {}};
    Piece others = ours;
    if (piece.domain == Domain::Route) {
        ours.missing = piece.missing;
        for (const std::string& line : piece.extra) {
            (is_ours(piece, line) ? ours : others).extra.push_back(line);
        }
    } else {
        (is_all_ours ? ours : others) = piece;
    }
    if (!ours.missing.empty() || !ours.extra.empty() || (is_bare && is_all_ours)) {
        enter(ours, findings_);
    }
    if (!others.missing.empty() || !others.extra.empty() || (is_bare && !is_all_ours)) {
        enter(others, outside_);
    }
}

void DriftView::enter(const Piece& piece, Json::Value& list) const {
    const bool is_finding = &list == &findings_;
    const bool is_bare_loss = piece.extra.empty() && piece.change == "removed";
    const bool is_reordered = piece.missing.empty() && piece.extra.empty() && piece.change == "changed";
    const std::string owner = owner_of(piece);
    Json::Value row;
    row["domain"] = domain_name(piece.domain);
    row["name"] = piece.name;
    row["owner"] = !is_finding ? kNobody : owner != kNobody ? owner : kOurs;
    const bool has_both = !piece.missing.empty() && !piece.extra.empty();
    row["class"] = !is_finding                              ? "outside"
                   : has_both || is_reordered               ? "changed"
                   : !piece.missing.empty() || is_bare_loss ? "lost"
                                                            : "foreign";
    row["missing"] = to_json(piece.missing);
    row["extra"] = to_json(piece.extra);
    list.append(row);
}

/// Rules of one priority are a thing of their own.
void DriftView::judge_rules(const Json::Value& change) {
    const std::string family = change["name"].asString().substr(0, 4);
    std::map<uint32_t, Piece> pieces;
    const auto piece_of = [&](const std::string& line) -> Piece& {
        const auto priority = static_cast<uint32_t>(strtoul(line.c_str(), nullptr, 10));
        Piece& piece = pieces[priority];
        piece.domain = Domain::Rule;
        piece.name = family + " rule " + std::to_string(priority);
        return piece;
    };
    for (const Json::Value& line : change["removed"]) {
        piece_of(line.asString()).missing.push_back(line.asString());
    }
    for (const Json::Value& line : change["added"]) {
        piece_of(line.asString()).extra.push_back(line.asString());
    }
    for (const auto& [priority, piece] : pieces) {
        judge_piece(piece);
    }
}

void DriftView::judge(const Json::Value& change) {
    const Domain domain = domain_of(change["domain"].asString());
    if (domain == Domain::Rule) {
        judge_rules(change);
    } else {
        judge_piece({domain, change["name"].asString(), change["change"].asString(),
                     from_json(change["removed"]), from_json(change["added"])});
    }
}

}  // namespace nm
