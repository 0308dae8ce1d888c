// explain: the way of one packet through the device, for people and for programs.
#include <json/writer.h>
#include <networkinterface.h>
#include <unistd.h>

#include <iostream>

#include "nm_bin/commands.h"
#include "nm_bin/explain.h"

namespace nm_bin {

namespace {

/// SRC DST [PROTO [SPORT] DPORT]
packet_question question_of(const Arguments& words, const Options& options) {
    constexpr size_t kWithBothPorts = 5;
    packet_question question;
    question.source = words[0];
    question.destination = words[1];
    question.protocol = words.size() > 2 ? words[2] : "";
    question.source_port = words.size() == kWithBothPorts ? words[3] : "";
    question.destination_port = words.size() > 3 ? words.back() : "";
    question.device = options.device;
    return question;
}

std::string end_of(const Json::Value& address, const Json::Value& port) {
    const std::string text = harmless(address.asString());
    const bool has_colon = text.find(':') != std::string::npos;
    return port.isNull() ? text : (has_colon ? "[" + text + "]" : text) + ":" + port.asString();
}

std::string ends_of(const Json::Value& flow) {
    return end_of(flow["source"], flow["source_port"]) + " -> " +
           end_of(flow["destination"], flow["destination_port"]) + " " + text_of(flow, "protocol");
}

/// A document without its directory, and the pointer into it; or an owner.
std::string source_of(const Json::Value& record) {
    const Json::Value& source = record["source"];
    const std::string document = text_of(source, "document");
    return document.empty() ? text_of(source, "owner")
                            : document.substr(document.rfind('/') + 1) + "#" + text_of(source, "pointer");
}

std::string faint(const std::string& text) {
    return tint(Tint::Faint, "[" + text + "]", STDOUT_FILENO);
}

std::string with_port(const Json::Value& uplink) {
    const std::string port = text_of(uplink, "port");
    return text_of(uplink, "device") + (port.empty() ? "" : " (" + port + ")");
}

void print_verdict(const Json::Value& report) {
    const std::string verdict = text_of(report, "verdict");
    std::string line = verdict;
    if (verdict == "dropped") {
        line += !report.isMember("dropped_by")
                    ? ", by whom is not known"
                    : " by " + std::string(report["dropped_by"] == "kernel" ? "the kernel" : "a rule") +
                          ": " + text_of(report, "why");
    } else {
        line += verdict == "sent" ? " by " + with_port(report["uplink"]) : " to the device itself";
    }
    std::cout << tint(verdict == "dropped" ? Tint::Bad : Tint::Good, line, STDOUT_FILENO) << "\n";
    if (report["is_random"].asBool()) {
        std::cout << "  the uplink was drawn: the next connection may be given another one\n";
    }
}

void print_routing(const Json::Value& routing) {
    if (!routing.isMember("route")) {
        return;
    }
    std::cout << "  route " << text_of(routing, "route") << " in table " << text_of(routing, "table") << " "
              << faint(source_of(routing)) << "\n";
    if (routing.isMember("rule")) {
        std::cout << "  by rule " << text_of(routing["rule"], "text") << " "
                  << faint(source_of(routing["rule"])) << "\n";
    }
}

void print_changes(const Json::Value& report) {
    for (const Json::Value& change : report["translation"]) {
        std::cout << "  " << text_of(change, "what") << " "
                  << end_of(change["before"]["address"], change["before"]["port"]) << " becomes "
                  << end_of(change["after"]["address"], change["after"]["port"]) << "\n";
    }
    for (const Json::Value& field : report["mark"]) {
        std::cout << "  mark: " << text_of(field, "field") << " " << field["value"].asUInt()
                  << (field.isMember("source") ? " " + faint(source_of(field)) : "") << "\n";
    }
}

/// What has sent the packet on to other rules, and no more.
bool is_hook(const Json::Value& step) {
    const std::string verdict = text_of(step, "verdict");
    const bool goes_on =
        verdict == "JUMP" || verdict == "GOTO" || verdict == "RETURN" || verdict == "CONTINUE";
    return goes_on && step["writes"].empty() && text_of(step["source"], "owner") == "nm-base-rules";
}

void print_step(const Json::Value& step) {
    std::cout << "  " << text_of(step, "table") << " " << text_of(step, "chain") << ": "
              << text_of(step, "text") << " " << faint(source_of(step)) << "\n";
    for (const Json::Value& change : step["writes"]) {
        std::cout << "      writes " << text_of(change, "field") << ": " << change["before"].asUInt()
                  << " becomes " << change["after"].asUInt() << "\n";
    }
}

void print_steps(const Json::Value& steps) {
    size_t hidden = 0;
    std::cout << "rules that it met:\n";
    for (const Json::Value& step : steps) {
        if (is_hook(step)) {
            ++hidden;
        } else {
            print_step(step);
        }
    }
    if (hidden > 0) {
        std::cout << "  and " << count_of(hidden, "hook") << " of the base rules, with --json\n";
    }
}

void print_doubts(const Json::Value& report) {
    for (const Json::Value& part : report["unread"]) {
        std::cerr << "nm_bin: not found out: " << text_of(part, "what") << ": " << text_of(part, "reason")
                  << "\n";
    }
    for (const Json::Value& change : report["unlike"]) {
        std::cerr << tint(Tint::Warning, "warning:", STDERR_FILENO) << " the copy is not like the device in "
                  << text_of(change, "domain") << " " << text_of(change, "name") << "\n";
    }
}

void print_way(const Json::Value& report) {
    const Json::Value& packet = report["packet"];
    std::cout << ends_of(packet) << ", "
              << (packet["is_local"].asBool() ? "from the device itself"
                                              : "in by " + text_of(packet, "device"))
              << "\n";
    print_verdict(report);
    print_changes(report);
    print_routing(report["routing"]);
    print_steps(report["steps"]);
    print_doubts(report);
}

}  // namespace

int explain_packet_way(const Arguments& words, const Options& options) {
    if (const std::optional<Cause> obstacle = find_obstacle()) {
        return explain_obstacle(*obstacle);
    }
    Json::Value report;
    const int code = explain_packet(question_of(words, options), report);
    if (code == NM_ERR_BAD_VALUE) {
        return usage_error(text_of(report, "reason"));
    }
    if (report.isMember("reason")) {
        std::cerr << "nm_bin: no rehearsal: " << text_of(report, "reason") << "\n";
        return kExitUsage;
    }
    if (wants_json(options)) {
        std::cout << Json::writeString(Json::StreamWriterBuilder(), report) << "\n";
    } else {
        print_way(report);
    }
    return code != NM_OK ? kExitUsage : report["verdict"] == "dropped" ? kExitFailed : kExitOk;
}

}  // namespace nm_bin
