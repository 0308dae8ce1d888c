// The way of a packet, told.
#include "inspect/packet_way.h"

#include <net/if.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <iomanip>
#include <set>
#include <sstream>
#include <string_view>

#include "config/nmconfig.h"
#include "inspect/packet_flow.h"
#include "inspect/packet_probe.h"
#include "inspect/packet_routing.h"
#include "inspect/packet_steps.h"
#include "inspect/rehearsal_run.h"
#include "inspect/rule_origin.h"
#include "inspect/status_view.h"
#include "inspect/world_copy.h"
#include "log.h"
#include "result_codes.h"
#include "utils/json_text.h"
#include "utils/process.h"
#include "utils/shell_text.h"

namespace {

using nm::Flow;
using nm::Probe;
using nm::Steps;

/// Of what the kernel counts, what says why it has let a packet go.
constexpr struct {
    const char* counter;
    const char* reason;
} kKernelDrops[] = {
    {"TcpExt:IPReversePathFilter",
     "the filter of reverse paths (rp_filter): an answer to the source would not leave by the device that "
     "the "
     "packet came in by"},
    {"IpExt:InNoRoutes", "no route to the destination"},
    {"Ip:OutNoRoutes", "no route to the destination"},
    {"Ip6InNoRoutes", "no route to the destination"},
    {"Ip6OutNoRoutes", "no route to the destination"},
    {"Ip:InAddrErrors", "the kernel does not forward between these addresses"},
    {"Ip6InAddrErrors", "the kernel does not forward between these addresses"},
    {"Ip:InHdrErrors", "the kernel takes the header for wrong"},
    {"Ip6InHdrErrors", "the kernel takes the header for wrong"},
};

/// All that one look needs.
struct Look {
    const nm::Original& original;
    const Flow& flow;
    const nm::Entrance& entrance;
};

std::string device_name(uint32_t index) {
    std::array<char, IF_NAMESIZE> name{};
    return if_indextoname(index, name.data()) == nullptr ? "" : name.data();
}

/// Bridges of the copy would wait and listen for others before they forward.
void skip_listening(const Json::Value& devices) {
    for (const Json::Value& device : devices) {
        const Json::Value& facts = nm::json_member(nm::json_member(device, "linkinfo"), "info_data");
        const std::string name = nm::json_string_or(device, "ifname", "");
        if (nm::json_scalar(nm::json_member(facts, "stp_state")) == "1" && nm::is_plain(name)) {
            (void)system_cmd(("/sbin/ip link set " + name + " type bridge stp_state 0").c_str());
        }
    }
}

std::string first_hook(const Look& look) {
    return look.entrance.is_local ? "OUTPUT" : "PREROUTING";
}

/// The state in which the routing found the packet: as the first hooks have left it.
nm::RoutingQuestion routing_question(const Look& look, const Steps& steps) {
    nm::RoutingQuestion question{look.flow, 0, look.entrance.is_local ? "" : look.entrance.device};
    const std::string first = first_hook(look);
    for (const nm::HookState& state : steps.states) {
        question.flow = state.flow;
        if (state.hook != first) {
            break;  // translated addresses show behind the hook
        }
        question.mark = state.mark;
    }
    return question;
}

Json::Value end_report(const nm::PacketAddress& address, uint16_t port) {
    Json::Value end;
    end["address"] = address.text();
    if (port != 0) {
        end["port"] = port;
    }
    return end;
}

void add_translation(Json::Value& list, const char* what, const Json::Value& before,
                     const Json::Value& after) {
    if (before != after) {
        Json::Value change;
        change["what"] = what;
        change["before"] = before;
        change["after"] = after;
        list.append(change);
    }
}

/// What the packet came to be, of what is known: as it came out, or as it was at the last hook.
Flow last_flow(const Look& look, const Probe& probe, const Steps& steps) {
    Flow flow = steps.states.empty() ? look.flow : steps.states.back().flow;
    return probe.has_left && !nm::parse_packet(probe.left, flow) ? look.flow : flow;
}

Json::Value translation(const Flow& before, const Flow& after) {
    Json::Value list(Json::arrayValue);
    add_translation(list, "source", end_report(before.source, before.source_port),
                    end_report(after.source, after.source_port));
    add_translation(list, "destination", end_report(before.destination, before.destination_port),
                    end_report(after.destination, after.destination_port));
    return list;
}

/// By which port it leaves; of a bridge the member.
Json::Value uplink_report(const std::string& device, const std::string& cable, const Json::Value& document) {
    Json::Value uplink;
    const std::string pointer = nm::port_pointer(document, cable);
    uplink["device"] = device;
    uplink["cable"] = cable;
    uplink["port"] = pointer.substr(pointer.rfind('/') + 1);
    uplink["source"] = pointer.empty() ? nm::rule_source("not of this system")
                                       : nm::rule_source("documents", kDeviceInfoPath, pointer);
    return uplink;
}

/// The device that the trace has last seen as the way out, and without it the cable's.
std::string out_device(const Probe& probe, const Steps& steps) {
    uint32_t out = probe.left_cable;
    for (const nm::HookState& state : steps.states) {
        out = state.out != 0 ? state.out : out;
    }
    return device_name(out);
}

bool is_delivered(const Steps& steps, const Probe& probe) {
    const bool has_come_in = std::any_of(steps.states.begin(), steps.states.end(),
                                         [](const nm::HookState& state) { return state.hook == "INPUT"; });
    return has_come_in || (!probe.is_traced && probe.counters.count("Ip:InDelivers") > 0);
}

std::string kernel_reason(const Probe& probe, const Json::Value& routing) {
    for (const auto& row : kKernelDrops) {
        if (probe.counters.count(row.counter) > 0) {
            return row.reason;
        }
    }
    if (probe.send_error != 0) {
        return std::string("the kernel refuses the sender: ") + strerror(probe.send_error);
    }
    const std::string refusal = nm::json_string_or(routing, "refusal", "");
    return refusal.empty() ? "" : "the routing has no way for it: " + refusal;
}

void add_verdict(const Probe& probe, const Steps& steps, Json::Value& report) {
    report["verdict"] = probe.has_left ? "sent" : "dropped";
    if (probe.has_left) {
        return;
    }
    if (!steps.drop.isNull()) {
        report["dropped_by"] = "rule";
        report["why"] = steps.drop["table"].asString() + " " + steps.drop["chain"].asString() + ": " +
                        steps.drop["text"].asString();
        return;
    }
    if (is_delivered(steps, probe)) {
        report["verdict"] = "delivered";
        return;
    }
    const std::string reason = kernel_reason(probe, report["routing"]);
    if (probe.is_traced || !reason.empty()) {
        report["dropped_by"] = "kernel";
        report["why"] = reason.empty() ? "for a reason that it does not count" : reason;
    }
}

/// Each rule's source, from chains that are written anew.
void add_sources(const Json::Value& device, Steps& steps, Json::Value& report) {
    std::set<std::string> chains;
    for (const nm::PlacedRule& rule : steps.rules) {
        chains.insert(rule.chain);
    }
    nm::RuleOrigins origins(device);
    origins.learn({chains.begin(), chains.end()});
    for (Json::ArrayIndex i = 0; i < steps.list.size(); ++i) {
        steps.list[i]["source"] =
            steps.rules[i].text.empty() ? nm::rule_source("unknown") : origins.find(steps.rules[i]);
    }
    for (const auto& [document, fault] : origins.faults()) {
        nm::note_unread(report, "the rules of " + document, fault);
    }
}

void add_packet(const Look& look, Json::Value& report) {
    report["packet"] = look.flow.report();
    report["packet"]["is_local"] = look.entrance.is_local;
    if (!look.entrance.is_local) {
        report["packet"]["device"] = look.entrance.device;
        report["packet"]["cable"] = look.entrance.cable;
    }
}

void add_left(const Look& look, const Probe& probe, const Steps& steps, const Json::Value& device,
              Json::Value& report) {
    const Flow after = last_flow(look, probe, steps);
    report["translation"] = translation(look.flow, after);
    if (probe.has_left) {
        report["left"] = after.report();
        report["uplink"] = uplink_report(out_device(probe, steps), device_name(probe.left_cable), device);
    }
}

/// The step that wrote the field last; a field that came with the packet has none.
void add_writers(const Json::Value& steps, Json::Value& fields) {
    for (Json::Value& field : fields) {
        for (Json::ArrayIndex i = 0; i < steps.size(); ++i) {
            const Json::Value& writes = steps[i]["writes"];
            if (std::any_of(writes.begin(), writes.end(), [&field](const Json::Value& write) {
                    return write["field"] == field["field"];
                })) {
                field["step"] = i;
                field["source"] = steps[i]["source"];
            }
        }
    }
}

/// Whether the condition that the rule asks for is down.
bool is_ruled_out(const std::string& rule, const nm::Things& conditions) {
    constexpr std::string_view kAsks = " --condition ";
    const size_t begin = rule.find(kAsks);
    if (begin == std::string::npos) {
        return false;
    }
    std::istringstream words(rule.substr(begin + kAsks.size()));
    std::string name;
    words >> std::quoted(name);
    const bool is_negated = begin >= 2 && rule.compare(begin - 2, 2, " !") == 0;
    const auto condition = conditions.find(name);
    return condition != conditions.end() && (condition->second == nm::Lines{"1"}) == is_negated;
}

bool may_draw(const std::string& rule, const nm::Things& conditions) {
    return rule.find(" --mode random ") != std::string::npos && !is_ruled_out(rule, conditions);
}

/// Whether the rule has drawn a lot, or has marked what a rule before it in the chain may have drawn for: one
/// that draws and does not match is not in the trace.
bool is_drawn(const nm::PlacedRule& rule, const Json::Value& step, const Look& look,
              const nm::Things& chains) {
    const auto draws = [&look](const std::string& text) {
        return may_draw(text, look.original.source.conditions);
    };
    const auto chain = chains.find(rule.chain);
    if (step["writes"].empty() || chain == chains.end()) {
        return draws(rule.text);
    }
    const nm::Lines& rules = chain->second;
    return draws(rule.text) ||
           std::any_of(rules.begin(), std::find(rules.begin(), rules.end(), rule.text), draws);
}

bool is_random(const Look& look, const Steps& steps, const nm::Things& chains) {
    for (Json::ArrayIndex i = 0; i < steps.list.size(); ++i) {
        if (is_drawn(steps.rules[i], steps.list[i], look, chains)) {
            return true;
        }
    }
    return false;
}

/// What the routing is asked afterwards need not be what it was asked by the packet.
void add_routing(const Look& look, const Probe& probe, const Steps& steps, const Json::Value& device,
                 Json::Value& report) {
    Json::Value& routing = report["routing"] = Json::objectValue;
    const std::string first = first_hook(look);
    const bool has_come_there = std::any_of(steps.states.begin(), steps.states.end(),
                                            [&](const auto& state) { return state.hook != first; });
    if (!steps.drop.isNull() && !has_come_there) {
        return;
    }
    Json::Value asked = nm::ask_routing(routing_question(look, steps), device);
    const std::string answer = nm::json_string_or(asked, "device", "");
    if (probe.has_left && answer != out_device(probe, steps)) {
        nm::note_unread(
            report, "the routing",
            "asked anew, it does not lead to " + out_device(probe, steps) + ", by which the packet has left");
        return;
    }
    routing = std::move(asked);
}

Json::Value tell(const Look& look, const Probe& probe, const nm::Things& chains) {
    Json::Value report;
    report["unread"] = Json::arrayValue;
    if (!probe.is_traced || !probe.trace_fault.empty()) {
        nm::note_unread(report, "the kernel's trace",
                        probe.trace_fault.empty() ? "it has not seen the packet" : probe.trace_fault);
    }
    Json::Value device;
    if (json_file_to_mem(kDeviceInfoPath, device) < 0) {
        nm::note_unread(report, kDeviceInfoPath, "it cannot be read, or is not a document");
    }
    Steps steps = nm::make_steps(probe.events, look.flow, chains);
    add_packet(look, report);
    add_routing(look, probe, steps, device, report);
    add_verdict(probe, steps, report);
    add_left(look, probe, steps, device, report);
    report["mark"] = nm::mark_fields(steps.mark);
    report["is_random"] = is_random(look, steps, chains);
    add_sources(device, steps, report);
    add_writers(steps.list, report["mark"]);
    report["steps"] = steps.list;
    return report;
}

/// The play of a packet.
Json::Value send_in_copy(const Look& look) {
    nm::enter_place(look.original.settings);
    nm::copy_network(look.original.source, look.original.dumps, nm::kFarNamespace, nm::kRehearsalDirectory);
    nm::record_calls(look.original.facts, look.original.units);
    secret_words secrets;
    nm::learn_documents(secrets);
    Json::Value unlike = nm::unlike_device(look.original, nm::look_when_settled());
    skip_listening(look.original.source.devices);
    const Probe probe = nm::send_packet(look.flow, look.entrance);
    Json::Value report = tell(look, probe, nm::describe_world(look.original.source)[nm::Domain::Chain]);
    report["unlike"] = std::move(unlike);
    return secrets.mask_all(report);
}

/// What the words cannot say is known once the device has been looked at.
int play(const packet_question& question, const Flow& flow, Json::Value& report) {
    const int ret = nm::play_apart(
        [&](const nm::Original& original, int /*output*/) {
            nm::Entrance entrance;
            const std::string complaint =
                nm::find_entrance(original.source.devices, question, flow, entrance);
            Json::Value refused;
            refused["complaint"] = complaint;
            return complaint.empty() ? send_in_copy({original, flow, entrance}) : refused;
        },
        report);
    if (ret == NM_OK && report.isMember("complaint")) {
        const std::string complaint = report["complaint"].asString();
        report = Json::objectValue;
        report["reason"] = complaint;
        return NM_ERR_BAD_VALUE;
    }
    return ret == NM_OK && !report["unread"].empty() ? NM_ERR_NOT_FOUND : ret;
}

}  // namespace

int explain_packet(const packet_question& question, Json::Value& report) {
    NM_LOG(Debug) << "Enter";
    Flow flow;
    const std::string complaint = nm::read_flow(question, flow);
    if (!complaint.empty()) {
        report = Json::objectValue;
        report["reason"] = complaint;
        return NM_EXIT(NM_ERR_BAD_VALUE);
    }
    return NM_EXIT(play(question, flow, report));
}
