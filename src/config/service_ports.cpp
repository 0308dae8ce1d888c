// The registry of service ports: reading, look-ups, changes.
#include "config/service_ports.h"

#include <algorithm>
#include <functional>

#include "config/document_file.h"
#include "config/migration.h"
#include "config/nmconfig.h"
#include "config/service_references.h"
#include "log.h"
#include "result_codes.h"
#include "utils/json_text.h"

namespace {

using nm::PortRange;
using Faults = std::vector<std::string>;

constexpr const char* kPath = "/etc/networkmanagement/servicePort.json";
constexpr const char* kPredefined = "PREDEFINED";
constexpr const char* kOwn = "USER_DEFINED";
constexpr Json::ArrayIndex kMostOwn = 1024;
constexpr size_t kLongestName = 64;
constexpr size_t kLongestRemark = 256;

std::string quoted(const std::string& name) {
    return "\"" + name + "\"";
}

service_port service_of(const Json::Value& row) {
    const auto text = [&row](const char* key) { return nm::json_string_or(row, key, ""); };
    return {text("service"), text("protocol"), text("ports"), text("remark"), text("internal_name")};
}

/// The current form of the registry in memory; what is not there is the default.
int bring_up(Json::Value& document) {
    if (document.isNull()) {
        document = conftmpl_document("servicePort");
    }
    const int ret = migrate_service_port(document);
    if (ret != NM_OK) {
        return ret;
    }
    for (const char* list : {kPredefined, kOwn}) {
        if (!nm::json_member(document, list).isArray()) {
            NM_LOG(Error) << "[" << list << "] is not valid format";
            return NM_ERR_BAD_FORMAT;
        }
    }
    return NM_OK;
}

int read_registry(Json::Value& document) {
    const int ret = json_file_to_mem(kPath, document);
    if (ret < 0 && ret != NM_ERR_NOT_FOUND) {
        NM_LOG(Error) << "json_file_to_mem fail. path = " << kPath;
        return ret;
    }
    return bring_up(document);
}

std::vector<service_port> services_of(const Json::Value& document) {
    std::vector<service_port> services;
    for (const char* list : {kPredefined, kOwn}) {
        for (const Json::Value& row : document[list]) {
            services.push_back(service_of(row));
        }
    }
    return services;
}

/// The row of this name, null if there is none.
Json::Value* find_row(Json::Value& document, const std::string& name) {
    for (const char* list : {kPredefined, kOwn}) {
        for (Json::Value& row : document[list]) {
            if (nm::is_same_service(service_of(row).service, name)) {
                return &row;
            }
        }
    }
    return nullptr;
}

void remove_row(Json::Value& document, const std::string& name) {
    for (const char* list : {kPredefined, kOwn}) {
        Json::Value kept(Json::arrayValue);
        for (const Json::Value& row : document[list]) {
            if (!nm::is_same_service(service_of(row).service, name)) {
                kept.append(row);
            }
        }
        document[list] = kept;
    }
}

bool is_printable(const std::string& text) {
    return std::none_of(text.begin(), text.end(),
                        [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; });
}

bool overlap(const std::vector<PortRange>& a, const std::vector<PortRange>& b) {
    return std::any_of(a.begin(), a.end(), [&b](const PortRange& one) {
        return std::any_of(b.begin(), b.end(), [&one](const PortRange& other) {
            return one.first <= other.last && other.first <= one.last;
        });
    });
}

/// Whether two services take the same ports of the same protocol. A service in the document whose ports
/// cannot be read takes none.
bool clash(const service_port& a, const service_port& b) {
    std::vector<PortRange> ranges_a;
    std::vector<PortRange> ranges_b;
    return (nm::protocol_mask(a.protocol) & nm::protocol_mask(b.protocol)) != 0 &&
           nm::parse_ports(a.ports, ranges_a) && nm::parse_ports(b.ports, ranges_b) &&
           overlap(ranges_a, ranges_b);
}

void judge_words(const service_port& service, Faults& faults) {
    const auto require = [&faults](bool fulfilled, const std::string& words) {
        fulfilled ? void() : faults.push_back(words);
    };
    std::vector<PortRange> ranges;
    require(!service.service.empty(), "the service has no name");
    require(service.service.size() <= kLongestName, "the name is longer than 64 bytes");
    require(is_printable(service.service), "the name holds a control character");
    require(service.remark.size() <= kLongestRemark && is_printable(service.remark),
            "the remark is longer than 256 bytes or holds a control character");
    require(nm::protocol_mask(service.protocol) != 0,
            quoted(service.protocol) + " is not a protocol; known are All, TCP and UDP");
    require(nm::parse_ports(service.ports, ranges),
            quoted(service.ports) + " is not a list of ports from 1 to 65535 and ranges, each port once");
}

/// What `service` has in common with the others. The one named `own_name` is that which it replaces.
void judge_others(const service_port& service, const std::vector<service_port>& others,
                  const std::string& own_name, Faults& faults) {
    for (const service_port& other : others) {
        if (nm::is_same_service(other.service, own_name)) {
            continue;
        }
        if (nm::is_same_service(other.service, service.service)) {
            faults.push_back("there is a service " + quoted(other.service));
        } else if (clash(service, other)) {
            faults.push_back("ports " + service.ports + " are taken by " + quoted(other.service) + " (" +
                             other.protocol + " " + other.ports + ")");
        }
    }
}

/// Rules that name the service would lose it, be refused with it, or match less than they were written for.
void judge_use(const std::string& name, const char* what, Faults& faults) {
    for (const nm::ServiceReference& reference : nm::stored_service_references()) {
        if (nm::is_same_service(reference.service, name)) {
            faults.push_back(quoted(name) + " cannot " + what + ": " + reference.document + " names it at " +
                             reference.pointer);
        }
    }
}

std::string port_text(const std::string& text) {
    std::vector<PortRange> ranges;
    std::string ports;
    (void)nm::parse_ports(text, ranges);  // judged before
    for (const PortRange& range : ranges) {
        ports += (ports.empty() ? "" : ", ") + std::to_string(range.first);
        ports += range.first == range.last ? "" : "~" + std::to_string(range.last);
    }
    return ports;
}

std::string protocol_text(unsigned mask) {
    return mask == nm::kTcp ? "TCP" : mask == nm::kUdp ? "UDP" : "All";
}

void write_row(const service_port& service, Json::Value& row) {
    row["service"] = service.service;
    row["protocol"] = protocol_text(nm::protocol_mask(service.protocol));
    row["ports"] = port_text(service.ports);
    row["remark"] = service.remark;
    if (!service.internal_name.empty() || !row.isMember("internal_name")) {
        row["internal_name"] = service.internal_name;
    }
}

/// Lets `change` judge and change the registry. What it finds wrong leaves the document as it is.
int edit_registry(const std::function<int(Json::Value& document, Faults& faults)>& change, Faults& faults) {
    return nm::edit_document(kPath, [&](Json::Value& document) {
        const int ret = bring_up(document);
        if (ret != NM_OK) {
            return ret;
        }
        if (nm::is_newer("servicePort", document)) {
            faults.emplace_back("the registry was written by a later version of this software");
            return NM_ERR_BAD_VALUE;
        }
        const int changed = change(document, faults);
        for (const std::string& fault : faults) {
            NM_LOG(Error) << "servicePort: " << fault;
        }
        return changed != NM_OK ? changed : faults.empty() ? NM_OK : NM_ERR_BAD_VALUE;
    });
}

int add_row(const service_port& service, Json::Value& document, Faults& faults) {
    judge_words(service, faults);
    judge_others(service, services_of(document), "", faults);
    if (document[kOwn].size() >= kMostOwn) {
        faults.emplace_back("there are 1024 own services already");
    }
    if (faults.empty()) {
        write_row(service, document[kOwn].append(Json::objectValue));
    }
    return NM_OK;
}

int change_row(const std::string& name, const service_port& service, Json::Value& document, Faults& faults) {
    Json::Value* const row = find_row(document, name);
    if (row == nullptr) {
        faults.push_back("there is no service " + quoted(name));
        return NM_ERR_NOT_FOUND;
    }
    judge_words(service, faults);
    judge_others(service, services_of(document), name, faults);
    if (!nm::is_same_service(name, service.service)) {
        judge_use(name, "be renamed", faults);
    }
    if ((nm::protocol_mask(service_of(*row).protocol) & ~nm::protocol_mask(service.protocol)) != 0) {
        judge_use(name, "lose a protocol", faults);
    }
    std::vector<PortRange> ranges;
    if (nm::parse_ports(service.ports, ranges) && nm::count_places(ranges) > nm::kMostPlaces) {
        judge_use(name, "have more ports than a rule takes", faults);
    }
    if (faults.empty()) {
        write_row(service, *row);
    }
    return NM_OK;
}

int remove_service(const std::string& name, Json::Value& document, Faults& faults) {
    if (find_row(document, name) == nullptr) {
        faults.push_back("there is no service " + quoted(name));
        return NM_ERR_NOT_FOUND;
    }
    judge_use(name, "be deleted", faults);
    if (faults.empty()) {
        remove_row(document, name);
    }
    return NM_OK;
}

}  // namespace

int add_service_port(const service_port& service, std::vector<std::string>& faults) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(edit_registry(
        [&service](Json::Value& document, Faults& found) { return add_row(service, document, found); },
        faults));
}

int change_service_port(std::string name, const service_port& service, std::vector<std::string>& faults) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(edit_registry(
        [&](Json::Value& document, Faults& found) { return change_row(name, service, document, found); },
        faults));
}

int delete_service_port(std::string name, std::vector<std::string>& faults) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(edit_registry(
        [&name](Json::Value& document, Faults& found) { return remove_service(name, document, found); },
        faults));
}

int list_service_ports(Json::Value& services) {
    Json::Value document;
    const int ret = read_registry(document);
    if (ret != NM_OK) {
        return ret;
    }
    services = Json::arrayValue;
    for (const char* list : {kPredefined, kOwn}) {
        for (const Json::Value& row : document[list]) {
            Json::Value& shown = services.append(row.isObject() ? row : Json::Value(Json::objectValue));
            shown["predefined"] = list == kPredefined;
        }
    }
    return NM_OK;
}

int find_service_port(std::string name, service_port& service) {
    std::vector<service_port> services;
    const int ret = nm::read_service_ports(services);
    if (ret != NM_OK) {
        return ret;
    }
    const service_port* const found = nm::find_service(services, name);
    if (found == nullptr) {
        return NM_ERR_NOT_FOUND;
    }
    service = *found;
    return NM_OK;
}

int find_services_of_ports(const std::string& ports, const std::string& protocol,
                           std::vector<service_port>& services) {
    std::vector<PortRange> ranges;
    if (!nm::parse_ports(ports, ranges) || nm::protocol_mask(protocol) == 0) {
        NM_LOG(Error) << "Bad ports: " << ports << " of " << protocol;
        return NM_ERR_BAD_VALUE;
    }
    std::vector<service_port> all;
    const int ret = nm::read_service_ports(all);
    if (ret != NM_OK) {
        return ret;
    }
    services.clear();
    const service_port wanted{"", protocol, ports, "", ""};
    std::copy_if(all.begin(), all.end(), std::back_inserter(services),
                 [&wanted](const service_port& service) { return clash(wanted, service); });
    return NM_OK;
}

int list_service_references(Json::Value& references) {
    std::vector<service_port> services;
    const int ret = nm::read_service_ports(services);
    if (ret != NM_OK) {
        return ret;
    }
    references = Json::arrayValue;
    for (const nm::ServiceReference& reference : nm::stored_service_references()) {
        Json::Value& row = references.append(Json::objectValue);
        row["document"] = reference.document;
        row["pointer"] = reference.pointer;
        row["service"] = reference.service;
        row["known"] = nm::find_service(services, reference.service) != nullptr;
    }
    return NM_OK;
}

namespace nm {

int read_service_ports(std::vector<service_port>& services) {
    Json::Value document;
    const int ret = read_registry(document);
    if (ret == NM_OK) {
        services = services_of(document);
    }
    return ret;
}

const service_port* find_service(const std::vector<service_port>& services, const std::string& name) {
    const auto found = std::find_if(services.begin(), services.end(), [&name](const service_port& service) {
        return is_same_service(service.service, name);
    });
    return found != services.end() ? &*found : nullptr;
}

}  // namespace nm
