// list and show.
#include <networkinterface.h>
#include <sys/socket.h>

#include <fstream>
#include <iostream>

#include "nm_bin/commands.h"
#include "nm_bin/explain.h"
#include "nm_bin/places.h"

namespace nm_bin {

namespace {

std::string first_line(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

/// The interface that the traffic of an entry runs on.
std::string interface_of(const Place& place, const Json::Value& entry, const Documents& documents) {
    const bool has_name = entry.isObject() && entry["INTERFACE"].isString();
    const std::string name = has_name ? entry["INTERFACE"].asString() : place.key;
    for (const FamilyId id : {FamilyId::WanInfo, FamilyId::RglinkInfo}) {
        const Json::Value info = entry_at(documents, {&families()[static_cast<size_t>(id)], name});
        if (info.isObject() && info["IP4_TYPE"] == "PPPOE") {
            return "ppp-" + name;
        }
    }
    return name;
}

std::string stored_type(const Documents& documents, const std::string& interface) {
    const std::string device = interface.rfind("ppp-", 0) == 0 ? interface.substr(4) : interface;
    for (const Family& family : families()) {
        const Json::Value info = entry_at(documents, {&family, device});
        if (info.isObject() && info["IP4_TYPE"].isString()) {
            return info["IP4_TYPE"].asString();
        }
    }
    return "";
}

std::string addresses_of(const std::string& interface) {
    std::string list;
    for (const unsigned short family : {AF_INET, AF_INET6}) {
        for (const std::string& address : listAddresses(interface.c_str(), family, true)) {
            list += (list.empty() ? "" : ",") + address;
        }
    }
    return list;
}

/// An addressing whose device has a row needs none.
bool is_listed(const Place& place, const Documents& documents) {
    return place.family->is_port || place.family->id == FamilyId::Vlan ||
           (place.family->id != FamilyId::Dhcp && find_places(documents, place.key).front().key == place.key);
}

void add_members(const Place& place, const Json::Value& entry, Table& table) {
    for (const Member& member : members()) {
        if (has_member(*place.family, member)) {
            const std::string stored = show_member(member, entry);
            const bool is_default = stored.empty() && !member.fallback.empty();
            table.add({place.key, std::string(member.name),
                       is_default ? "(" + std::string(member.fallback) + ")" : stored,
                       std::string(member.meaning)});
        }
    }
}

}  // namespace

int list(const Arguments& /*words*/, const Options& options) {
    if (const int status = check_readable(document_paths()); status != kExitOk) {
        return status;
    }
    const Documents documents = read_documents();
    Table table({"name", "kind", "interface", "link", "mtu", "ipv4", "addresses"});
    for (const Place& place : all_places(documents)) {
        if (!is_listed(place, documents)) {
            continue;
        }
        const std::string interface = interface_of(place, entry_at(documents, place), documents);
        const std::string device = "/sys/class/net/" + interface;
        const std::string link = first_line(device + "/operstate");
        const bool is_vlan = place.family->id == FamilyId::Vlan;
        table.add({(is_vlan ? "vlan" : "") + place.key, std::string(place.family->kind), interface,
                   link.empty() ? "absent" : link, first_line(device + "/mtu"),
                   stored_type(documents, interface), addresses_of(interface)});
    }
    table.print(options);
    return kExitOk;
}

int show(const Arguments& words, const Options& options) {
    if (const int status = check_readable(document_paths()); status != kExitOk) {
        return status;
    }
    const Documents documents = read_documents();
    Table table({"target", "member", "value", "meaning"});
    for (const Place& place : words.empty() ? all_places(documents) : find_places(documents, words[0])) {
        add_members(place, entry_at(documents, place), table);
    }
    if (table.empty() && !words.empty()) {
        return failure(words[0] + " is not in the stored documents; nm_bin list shows what is");
    }
    table.print(options);
    return kExitOk;
}

}  // namespace nm_bin
