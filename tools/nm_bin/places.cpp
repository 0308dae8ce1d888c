// Reading documents and finding entries in them.
#include "nm_bin/places.h"

#include <json/reader.h>
#include <networkinterface.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <memory>

#include "nm_bin/secrets.h"

namespace nm_bin {

namespace {

const Json::Value& section_of(const Documents& documents, const Family& family) {
    static const Json::Value none(Json::objectValue);
    const auto document = documents.find(std::string(family.document));
    const std::string section(family.section);
    const bool is_there = document != documents.end() && document->second.isMember(section) &&
                          document->second[section].isObject();
    return is_there ? document->second[section] : none;
}

std::string interface_of(const Json::Value& entry) {
    const bool has_name = entry.isObject() && entry["INTERFACE"].isString();
    return has_name ? entry["INTERFACE"].asString() : "";
}

bool is_device(const Family& family) {
    return family.is_port || family.id == FamilyId::Vlan;
}

/// The name of an entry as people write it.
std::string name_of(const Place& place) {
    return place.family->id == FamilyId::Vlan ? "vlan" + place.key : place.key;
}

}  // namespace

std::optional<Json::Value> read_document(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    if (text.empty()) {
        return Json::Value(Json::objectValue);
    }
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    Json::Value document;
    try {
        if (!reader->parse(text.data(), text.data() + text.size(), &document, nullptr) ||
            !document.isObject()) {
            return std::nullopt;
        }
    } catch (const Json::Exception&) {
        return std::nullopt;  // nested deeper than the parser goes
    }
    learn_secrets(document);
    return document;
}

std::vector<std::string> document_paths() {
    std::vector<std::string> paths;
    for (const Family& family : families()) {
        if (std::find(paths.begin(), paths.end(), family.document) == paths.end()) {
            paths.emplace_back(family.document);
        }
    }
    return paths;
}

Documents read_documents() {
    Documents documents;
    for (const std::string& path : document_paths()) {
        documents[path] = read_document(path).value_or(Json::Value(Json::objectValue));
    }
    return documents;
}

Json::Value entry_at(const Documents& documents, const Place& place) {
    return section_of(documents, *place.family).get(place.key, Json::Value());
}

std::vector<Place> all_places(const Documents& documents) {
    std::vector<Place> places;
    for (const Family& family : families()) {
        const Json::Value& section = section_of(documents, family);
        for (const std::string& key : section.getMemberNames()) {
            if (!key.empty() && section[key].isObject()) {
                places.push_back({&family, key});
            }
        }
    }
    return places;
}

std::vector<Place> find_places(const Documents& documents, const std::string& name) {
    std::vector<std::string> interfaces{name};
    std::vector<Place> found;
    for (const Place& place : all_places(documents)) {
        const std::string interface = interface_of(entry_at(documents, place));
        const bool is_named = place.key == name || name_of(place) == name;
        if (is_device(*place.family) && (is_named || interface == name)) {
            found.push_back(place);
            interfaces.push_back(interface);
        }
        const bool is_on_device =
            !is_device(*place.family) && std::count(interfaces.begin(), interfaces.end(), place.key) != 0;
        if (is_on_device) {
            found.push_back(place);
        }
    }
    return found;
}

std::vector<std::string> target_names(const Documents& documents) {
    std::vector<std::string> names;
    for (const Place& place : all_places(documents)) {
        const std::string name = name_of(place);
        if (std::find(names.begin(), names.end(), name) == names.end()) {
            names.push_back(name);
        }
    }
    return names;
}

namespace {

/// Members that somebody else has changed meanwhile stay as they are.
void apply_change(const Change& change, Json::Value& entry) {
    if (!entry.isObject() || !change.before.isObject()) {
        entry = change.after;
        return;
    }
    for (const std::string& key : change.before.getMemberNames()) {
        if (!change.after.isMember(key)) {
            entry.removeMember(key);
        }
    }
    for (const std::string& key : change.after.getMemberNames()) {
        if (change.before[key] != change.after[key]) {
            entry[key] = change.after[key];
        }
    }
}

}  // namespace

void apply_changes(const std::vector<Change>& changes, const std::string& path, Json::Value& document) {
    for (const Change& change : changes) {
        if (change.place.family->document != path) {
            continue;
        }
        const std::string section(change.place.family->section);
        if (!change.after.isNull()) {
            apply_change(change, document[section][change.place.key]);
        } else if (document.isMember(section)) {
            document[section].removeMember(change.place.key);
        }
    }
}

}  // namespace nm_bin
