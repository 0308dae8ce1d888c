// The registry of service ports.
#include <json/writer.h>
#include <networkinterface.h>

#include <algorithm>
#include <array>
#include <iomanip>
#include <iostream>

#include "nm_bin/commands.h"
#include "nm_bin/explain.h"

namespace nm_bin {

namespace {

using Faults = std::vector<std::string>;

/// Prints the result of an edit, and all that is wrong with it.
int edit(const std::function<int(Faults& faults)>& work, const Options& options) {
    Faults faults;
    const int status = run_call([&] { return work(faults); }, options);
    for (const std::string& fault : faults) {
        std::cerr << "nm_bin: " << fault << "\n";
    }
    return status;
}

/// Looks something up, and prints it or why there is nothing to print.
int view(const std::function<int()>& look_up, const std::function<void()>& print, const Options& options) {
    return follow_call(look_up, [&](const Outcome& outcome) {
        outcome.has_failed() ? print_result(outcome, options) : print();
    });
}

/// NAME PROTOCOL PORTS [REMARK] from the word `first` on.
service_port service_of(const Arguments& words, size_t first) {
    return {words[first], words[first + 1], words[first + 2],
            words.size() > first + 3 ? words[first + 3] : "", ""};
}

void print_row(const std::string& name, const std::string& protocol, const std::string& ports,
               const std::string& remark) {
    std::cout << std::left << std::setw(24) << name << " " << std::setw(8) << protocol << " "
              << (remark.empty() ? std::setw(0) : std::setw(16)) << ports << (remark.empty() ? "" : " ")
              << remark << "\n";
}

void print_json(const Json::Value& value) {
    std::cout << Json::writeString(Json::StreamWriterBuilder(), value) << "\n";
}

int list(const Arguments&, const Options& options) {
    Json::Value rows;
    const auto print = [&] {
        if (options.json) {
            print_json(rows);
            return;
        }
        for (const Json::Value& row : rows) {
            const auto text = [&row](const char* key) { return row.get(key, "").asString(); };
            print_row(text("service"), text("protocol"), text("ports"), text("remark"));
        }
    };
    return view([&rows] { return list_service_ports(rows); }, print, options);
}

void print_found(const std::vector<service_port>& found, bool as_json) {
    Json::Value rows(Json::arrayValue);
    for (const service_port& service : found) {
        Json::Value& row = rows.append(Json::objectValue);
        row["service"] = service.service;
        row["protocol"] = service.protocol;
        row["ports"] = service.ports;
        as_json ? void() : print_row(service.service, service.protocol, service.ports, service.remark);
    }
    as_json ? print_json(rows) : void();
}

int find(const Arguments& words, const Options& options) {
    std::vector<service_port> found;
    const int status =
        view([&] { return find_services_of_ports(words[1], words.size() > 2 ? words[2] : "All", found); },
             [&] { print_found(found, options.json); }, options);
    return status == kExitOk && found.empty() ? kExitFailed : status;
}

int add(const Arguments& words, const Options& options) {
    return edit([&](Faults& faults) { return add_service_port(service_of(words, 1), faults); }, options);
}

int change(const Arguments& words, const Options& options) {
    return edit([&](Faults& faults) { return change_service_port(words[1], service_of(words, 1), faults); },
                options);
}

int remove(const Arguments& words, const Options& options) {
    return edit([&](Faults& faults) { return delete_service_port(words[1], faults); }, options);
}

/// The services that rules name; 1 if one of them is not known.
int uses(const Arguments&, const Options& options) {
    Json::Value rows;
    const auto print = [&] {
        for (const Json::Value& row : rows) {
            if (!options.json) {
                std::cout << row["document"].asString() << " " << row["pointer"].asString() << " "
                          << row["service"].asString() << (row["known"].asBool() ? "" : " (not known)")
                          << "\n";
            }
        }
        options.json ? print_json(rows) : void();
    };
    const int status = view([&rows] { return list_service_references(rows); }, print, options);
    const bool all_known =
        std::all_of(rows.begin(), rows.end(), [](const Json::Value& row) { return row["known"].asBool(); });
    return status == kExitOk && !all_known ? kExitFailed : status;
}

/// A verb, how many words may stand behind it, and its work.
struct Verb {
    std::string_view name;
    size_t least;
    size_t most;
    int (*run)(const Arguments& words, const Options& options);
};
constexpr std::array kVerbs{Verb{"list", 0, 0, list},     Verb{"find", 1, 2, find},
                            Verb{"uses", 0, 0, uses},     Verb{"add", 3, 4, add},
                            Verb{"change", 3, 4, change}, Verb{"delete", 1, 1, remove}};

}  // namespace

int manage_services(const Arguments& words, const Options& options) {
    const auto* const verb = std::find_if(kVerbs.begin(), kVerbs.end(), [&words](const Verb& row) {
        return !words.empty() && row.name == words[0] && words.size() > row.least &&
               words.size() <= row.most + 1;
    });
    if (verb == kVerbs.end()) {
        return usage_error("service takes list, find, uses, add, change or delete, and their words");
    }
    INITIALIZE_LOG("MAIN");
    return verb->run(words, options);
}

}  // namespace nm_bin
