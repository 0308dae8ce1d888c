// Running an entry.
#include "nm_bin/request.h"

#include <json/reader.h>
#include <networkinterface.h>
#include <unistd.h>

#include <iostream>
#include <memory>

#include "nm_bin/explain.h"
#include "nm_bin/members.h"
#include "nm_bin/places.h"
#include "nm_bin/watch.h"

namespace nm_bin {

namespace {

void warn(const std::string& text) {
    std::cerr << tint(Tint::Warning, "warning:", STDERR_FILENO) << " " << harmless(text) << "\n";
}

/// What the library makes of a request that is none is the library's to say.
Json::Value parse_request(const std::string& text) {
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    Json::Value request;
    try {
        (void)reader->parse(text.data(), text.data() + text.size(), &request, nullptr);
    } catch (const Json::Exception&) {
        return {};
    }
    return request;
}

std::string path_of(const Json::Value& member) {
    const bool has_path = member.isObject() && member["path"].isString();
    return has_path ? member["path"].asString() : "";
}

bool is_delete(const Json::Value& member) {
    return member["act"].isUInt() && member["act"].asUInt() == ACT_DEL;
}

/// A port's VLAN ("PORT1.100") stands for the port.
bool names_entry(const Family& family, const std::string& path, const std::string& name) {
    const std::optional<Json::Value> document = read_document(path);
    const Json::Value& section =
        document ? (*document)[std::string(family.section)] : Json::Value::nullSingleton();
    const std::string key = family.is_port ? name.substr(0, name.find('.')) : name;
    return !document || document->empty() || (section.isObject() && section.isMember(key));
}

/// Sections of documents share a path, the one of the first member; DHCP services have one each.
std::string document_of(const Family& family, const Json::Value& request, const Json::Value& member) {
    if (is_delete(member)) {
        return std::string(family.document);
    }
    return path_of(family.id == FamilyId::Dhcp ? member : *request.begin());
}

void warn_of_member(const Family& family, const Json::Value& request, const std::string& name) {
    const Json::Value& member = request[name];
    if (!member.isObject()) {
        return;
    }
    if (!member.isMember("ops")) {
        warn(name + " has no ops: the request says of nothing that it has changed");
    }
    const std::string path = document_of(family, request, member);
    if (!path.empty() && !names_entry(family, path, name)) {
        warn(name + " names nothing: " + std::string(family.section) + " of " + path + " has no such entry");
    }
}

void warn_of_request(const Entry& entry, const Arguments& words) {
    const Family* const family = family_of_entry(entry.name);
    if (family == nullptr) {
        return;
    }
    const Json::Value request = parse_request(words.front());
    if (!request.isObject()) {
        return;
    }
    if (request.empty()) {
        warn("the request names no target");
    }
    for (const std::string& name : request.getMemberNames()) {
        warn_of_member(*family, request, name);
    }
}

}  // namespace

int run_entry(const Entry& entry, Arguments words, const Options& options) {
    const std::string complaint = take_arguments(entry, words);
    if (!complaint.empty()) {
        return usage_error(complaint);
    }
    warn_of_request(entry, words);
    return run_call([&] { return entry.run(words); }, options);
}

}  // namespace nm_bin
