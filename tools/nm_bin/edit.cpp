// set, add, delete and undo: what they change.
#include <networkinterface.h>

#include <algorithm>
#include <iostream>

#include "nm_bin/apply_edit.h"
#include "nm_bin/commands.h"

namespace nm_bin {

namespace {

std::string complain_of_name(const Documents& documents, const std::string& name) {
    std::string known;
    for (const std::string& each : target_names(documents)) {
        known += (known.empty() ? "" : ", ") + each;
    }
    return name + " is not in the stored documents" +
           (known.empty() ? ", which are empty" : "; there are " + known);
}

std::string complain_of_member(const std::vector<Change>& changes, const std::string& name) {
    std::string known;
    for (const Change& change : changes) {
        for (const Member& member : members()) {
            if (has_member(*change.place.family, member)) {
                known += (known.empty() ? "" : ", ") + std::string(member.name);
            }
        }
    }
    return changes.front().place.key + " has no member " + name + "; there are " + known;
}

/// A secret need not stand in the shell's history.
bool is_on_input(const Member& member, const std::string& word) {
    return member.kind == ValueKind::Secret && word == "-";
}

std::string read_input_line() {
    std::string line;
    std::getline(std::cin, line);
    return line;
}

/// Sets one member in the first of the entries that has it.
std::string set_word(std::vector<Change>& changes, const std::string& name, const std::string& word) {
    for (Change& change : changes) {
        const Member* const member = find_member(*change.place.family, name);
        if (member == nullptr) {
            continue;
        }
        if (member->is_fixed && !change.before.isNull()) {
            return name + " is given when the entry is added: delete and add it";
        }
        change.ops |= member->ops;
        return set_member(*member, is_on_input(*member, word) ? read_input_line() : word, change.after);
    }
    return complain_of_member(changes, name);
}

/// Pairs of member and value, from the word `first` on.
std::string set_words(std::vector<Change>& changes, const Arguments& words, size_t first) {
    for (size_t i = first; i < words.size(); i += 2) {
        if (i + 1 == words.size()) {
            return words[i] + " has no value";
        }
        const std::string complaint = set_word(changes, words[i], words[i + 1]);
        if (!complaint.empty()) {
            return complaint;
        }
    }
    return "";
}

/// What is left when the entries that stay as they are have gone; the others have to be sound.
std::string check_changes(std::vector<Change>& changes) {
    changes.erase(std::remove_if(changes.begin(), changes.end(),
                                 [](const Change& change) { return change.before == change.after; }),
                  changes.end());
    for (const Change& change : changes) {
        const std::string complaint = check_entry(*change.place.family, change.after);
        if (!complaint.empty()) {
            return change.place.key + ": " + complaint;
        }
    }
    return "";
}

int plan_set(const Documents& documents, const Arguments& words, std::vector<Change>& changes,
             std::string& complaint) {
    for (const Place& place : find_places(documents, words[0])) {
        const Json::Value entry = entry_at(documents, place);
        changes.push_back({place, entry, entry, 0});
    }
    complaint = changes.empty() ? complain_of_name(documents, words[0]) : set_words(changes, words, 1);
    if (complaint.empty()) {
        complaint = check_changes(changes);
    }
    return NM_OK;
}

const Family& family_at(FamilyId id) {
    return families()[static_cast<size_t>(id)];
}

/// A kind that entries can be added of: its port's family and default, and the family of what lies on it.
struct Kind {
    std::string_view name;
    FamilyId port;
    Json::Value (*default_port)(std::string name, std::string model);
    FamilyId info;
};

const std::vector<Kind>& port_kinds() {
    static const std::vector<Kind> kinds{
        {"wan", FamilyId::WanPort, generate_default_wan_port, FamilyId::WanInfo},
        {"private", FamilyId::PrivatePort, generate_default_private_port, FamilyId::PrivateInfo},
        {"rglink", FamilyId::RglinkPort, generate_default_rglink_port, FamilyId::RglinkInfo},
        {"lan", FamilyId::LanPort, generate_default_lan_port, FamilyId::LanInfo},
    };
    return kinds;
}

Json::Value new_info(FamilyId id) {
    Json::Value entry;
    entry["IP4_TYPE"] = "DISABLED";
    if (id == FamilyId::LanInfo) {
        entry["ACCESS_TO_LOCAL"] = "TRUE";
    } else {
        entry["ID"] = "0";
        entry["IFACE_TYPE"] = "ethernet";
    }
    if (id == FamilyId::LanInfo || id == FamilyId::WanInfo) {
        entry["IP6_TYPE"] = "DISABLED";
    }
    return entry;
}

Json::Value new_vlan(const std::string& id) {
    Json::Value entry;
    entry["INTERFACE"] = "br_v" + id;
    entry["MTU"] = "1500";
    entry["SEG_ID"] = "";
    entry["STP"] = "0";
    entry["VLANS"].append(id);
    return entry;
}

void add_new(FamilyId id, const std::string& key, Json::Value entry, std::vector<Change>& changes) {
    const Family& family = family_at(id);
    changes.push_back({{&family, key}, Json::Value(), std::move(entry), family.add_ops});
}

/// A port with the defaults of the model; uplinks have an addressing, whose key is known when the members
/// are.
int start_port(const Kind& kind, const std::string& name, std::vector<Change>& changes,
               std::string& complaint) {
    std::string model;
    const int code = get_model(model);
    if (code != NM_OK) {
        return code < 0 ? code : NM_ERR_BUS_CALL;
    }
    const Json::Value entry = kind.default_port(name, model);
    if (entry.isNull()) {
        complaint = "the model " + model + " has no defaults for " + std::string(kind.name) + " ports";
        return NM_OK;
    }
    add_new(kind.port, name, entry, changes);
    if (kind.port != FamilyId::LanPort) {
        add_new(kind.info, "", new_info(kind.info), changes);
    }
    return NM_OK;
}

int start_entries(const std::string& kind, const std::string& name, std::vector<Change>& changes,
                  std::string& complaint) {
    if (kind == "vlan") {
        const std::string id = name.rfind("vlan", 0) == 0 ? name.substr(4) : name;
        add_new(FamilyId::Vlan, id, new_vlan(id), changes);
        return NM_OK;
    }
    if (kind == "dhcp") {
        add_new(FamilyId::Dhcp, name, generate_default_dhcp_service(), changes);
        return NM_OK;
    }
    for (const Kind& row : port_kinds()) {
        if (row.name != kind) {
            continue;
        }
        if (name.rfind("PORT", 0) == 0) {
            return start_port(row, name, changes, complaint);
        }
        add_new(row.info, name, new_info(row.info), changes);
        return NM_OK;
    }
    complaint = "kinds are wan, private, rglink, lan, vlan and dhcp, not " + kind;
    return NM_OK;
}

/// The addressing of a new uplink belongs to the interface that its port has got.
void name_infos(std::vector<Change>& changes) {
    for (Change& change : changes) {
        if (change.place.key.empty()) {
            change.place.key = changes.front().after["INTERFACE"].asString();
        }
    }
}

/// The entries as they are to be, once their members are set.
std::string finish_entries(const Documents& documents, std::vector<Change>& changes) {
    for (Change& change : changes) {
        change.ops = change.place.family->add_ops;
    }
    name_infos(changes);
    for (const Change& change : changes) {
        if (!entry_at(documents, change.place).isNull()) {
            return change.place.key + " is there already: see nm_bin show " + change.place.key;
        }
    }
    return check_changes(changes);
}

int plan_add(const Documents& documents, const Arguments& words, std::vector<Change>& changes,
             std::string& complaint) {
    const int code = start_entries(words[0], words[1], changes, complaint);
    if (code != NM_OK || !complaint.empty()) {
        return code;
    }
    complaint = set_words(changes, words, 2);
    if (complaint.empty()) {
        complaint = finish_entries(documents, changes);
    }
    return NM_OK;
}

int plan_delete(const Documents& documents, const Arguments& words, std::vector<Change>& changes,
                std::string& complaint) {
    const std::string& name = words.back();
    for (const Place& place : find_places(documents, name)) {
        if (words.size() == 1 || place.family->kind == words[0]) {
            changes.push_back({place, entry_at(documents, place), Json::Value(), place.family->delete_ops});
        }
    }
    complaint = changes.empty() ? complain_of_name(documents, name) : "";
    return NM_OK;
}

using Planner = int (*)(const Documents& documents, const Arguments& words, std::vector<Change>& changes,
                        std::string& complaint);

int edit_by(Planner planner, const Arguments& words, const Options& options) {
    return edit_documents(
        [&](const Documents& documents, std::vector<Change>& changes, std::string& complaint) {
            return planner(documents, words, changes, complaint);
        },
        options);
}

}  // namespace

int set(const Arguments& words, const Options& options) {
    return edit_by(plan_set, words, options);
}

int add(const Arguments& words, const Options& options) {
    return edit_by(plan_add, words, options);
}

int remove(const Arguments& words, const Options& options) {
    return edit_by(plan_delete, words, options);
}

int undo(const Arguments& /*words*/, const Options& options) {
    return edit_documents(plan_undo, options);
}

}  // namespace nm_bin
