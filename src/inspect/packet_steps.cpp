// From reports of the trace to steps.
#include "inspect/packet_steps.h"

#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>

#include <algorithm>
#include <array>
#include <map>

#include "inspect/owners_view.h"
#include "inspect/read_command.h"

namespace nm {

namespace {

std::string hexadecimal(uint32_t number) {
    std::array<char, 11> text{};
    (void)snprintf(text.data(), text.size(), "0x%x", number);
    return text.data();
}

/// The lowest bit of the mask becomes that of the number.
uint32_t value_in(uint32_t mark, uint32_t mask) {
    return mask == 0 ? 0 : (mark & mask) / (mask & (~mask + 1));
}

struct MarkPart {
    std::string name;
    uint32_t mask;
};

/// The fields by design, and the bits that nobody owns.
const std::vector<MarkPart>& mark_parts() {
    static const std::vector<MarkPart> kParts = [] {
        std::vector<MarkPart> parts;
        uint32_t rest = UINT32_MAX;
        for (const Claim& claim : library_claims()) {
            if (claim.resource == Resource::Mark) {
                parts.push_back({claim.purpose, claim.first});
                rest &= ~claim.first;
            }
        }
        parts.push_back({"nobody's bits", rest});
        return parts;
    }();
    return kParts;
}

constexpr struct {
    int number;
    const char* name;
} kVerdicts[] = {{NF_DROP, "DROP"},   {NF_ACCEPT, "ACCEPT"},      {NF_STOLEN, "STOLEN"},
                 {NF_QUEUE, "QUEUE"}, {NFT_CONTINUE, "CONTINUE"}, {NFT_BREAK, "BREAK"},
                 {NFT_JUMP, "JUMP"},  {NFT_GOTO, "GOTO"},         {NFT_RETURN, "RETURN"}};

/// The upper bits say what a program or the sender is to be told.
std::string verdict_name(int verdict) {
    for (const auto& known : kVerdicts) {
        if (known.number == verdict || (verdict > 0 && known.number == (verdict & 0xff))) {
            return known.name;
        }
    }
    return std::to_string(verdict);
}

/// The texts of the rules that the kernel numbers, by chain.
class RuleTexts {
public:
    RuleTexts(const Flow& flow, const Things& chains)
        : family_(flow.family() == AF_INET6 ? uint8_t{NFPROTO_IPV6} : uint8_t{NFPROTO_IPV4}),
          chains_(chains) {}

    std::string chain_name(const TraceEvent& event) const {
        return std::string(family_ == NFPROTO_IPV6 ? "IPv6 " : "IPv4 ") + event.table + " " + event.chain;
    }

    /// Empty text for the rule of the trace, and for one that is not found.
    PlacedRule find(const TraceEvent& event);

private:
    const std::vector<uint64_t>& handles_of(const TraceEvent& event);

    uint8_t family_;
    const Things& chains_;
    std::map<std::string, std::vector<uint64_t>> handles_;
};

/// The rule of the trace is the first one of its chain, and not the device's.
const std::vector<uint64_t>& RuleTexts::handles_of(const TraceEvent& event) {
    const auto [entry, is_new] = handles_.try_emplace(chain_name(event));
    std::vector<uint64_t>& handles = entry->second;
    if (is_new && read_rule_handles(family_, event.table, event.chain, handles) && event.table == "raw" &&
        (event.chain == "PREROUTING" || event.chain == "OUTPUT") && !handles.empty()) {
        handles.erase(handles.begin());
    }
    return handles;
}

PlacedRule RuleTexts::find(const TraceEvent& event) {
    PlacedRule rule{chain_name(event), "", 0};
    const std::vector<uint64_t>& handles = handles_of(event);
    const auto lines = chains_.find(rule.chain);
    const auto place = std::find(handles.begin(), handles.end(), event.handle);
    if (lines == chains_.end() || place == handles.end()) {
        return rule;
    }
    const size_t head = lines->second.size() > handles.size() ? lines->second.size() - handles.size() : 0;
    const auto first = lines->second.begin() + static_cast<ptrdiff_t>(head);
    const auto line = first + (place - handles.begin());
    if (line < lines->second.end()) {
        rule.text = *line;
        rule.occurrence = static_cast<size_t>(std::count(first, line, *line));
    }
    return rule;
}

class Maker {
public:
    Maker(const Flow& flow, const Things& chains) : texts_(flow, chains), flow_(flow) {}
    void add(const TraceEvent& event);
    Steps take() { return std::move(steps_); }

private:
    void enter_hook(const TraceEvent& event);
    void add_rule(const TraceEvent& event);
    Json::Value new_step(const TraceEvent& event) const;
    void push(const Json::Value& step, const PlacedRule& rule, int verdict);

    RuleTexts texts_;
    Flow flow_;
    std::string hook_;
    Steps steps_;
};

void Maker::enter_hook(const TraceEvent& event) {
    hook_ = event.chain;
    (void)parse_packet(event.network_header, event.transport_header, flow_);
    steps_.states.push_back({hook_, flow_, event.mark, event.out});
}

Json::Value Maker::new_step(const TraceEvent& event) const {
    Json::Value step;
    step["hook"] = hook_;
    step["table"] = event.table;
    step["chain"] = event.chain;
    step["verdict"] = verdict_name(event.verdict);
    return step;
}

void Maker::push(const Json::Value& step, const PlacedRule& rule, int verdict) {
    steps_.list.append(step);
    steps_.rules.push_back(rule);
    if ((verdict & 0xff) == NF_DROP && verdict >= 0) {
        steps_.drop = step;
    }
}

void Maker::add_rule(const TraceEvent& event) {
    const PlacedRule rule = texts_.find(event);
    if (event.table == "raw" && rule.text.empty()) {
        return;  // the rule of the trace itself
    }
    Json::Value step = new_step(event);
    step["text"] = rule.text;
    if (!event.target.empty()) {
        step["target"] = event.target;
    }
    step["sets"] = sets_of(rule.text);
    step["writes"] = mark_changes(steps_.mark, event.mark);
    push(step, rule, event.verdict);
}

void Maker::add(const TraceEvent& event) {
    if (event.has_packet) {
        enter_hook(event);
    }
    if (event.kind == TraceKind::Rule && event.handle != 0) {  // without one it is the end of a chain
        add_rule(event);
    } else if (event.kind == TraceKind::Policy && event.verdict == NF_DROP) {
        Json::Value step = new_step(event);
        step["text"] = "policy DROP";
        step["sets"] = Json::arrayValue;
        step["writes"] = Json::arrayValue;
        push(step, {texts_.chain_name(event), "", 0}, event.verdict);
    }
    steps_.mark = event.mark;
    steps_.states.back().mark = event.mark;
}

}  // namespace

/// What comes before the first headers cannot be placed. A packet that goes through the loopback is reported
/// under another number where it comes in again.
Steps make_steps(const TraceEvents& events, const Flow& flow, const Things& chains) {
    Maker maker(flow, chains);
    bool has_begun = false;
    for (const TraceEvent& event : events) {
        has_begun = has_begun || event.has_packet;
        if (has_begun) {
            maker.add(event);
        }
    }
    return maker.take();
}

Json::Value mark_changes(uint32_t before, uint32_t after) {
    Json::Value changes(Json::arrayValue);
    for (const MarkPart& part : mark_parts()) {
        if (((before ^ after) & part.mask) != 0) {
            Json::Value change;
            change["field"] = part.name;
            change["before"] = value_in(before, part.mask);
            change["after"] = value_in(after, part.mask);
            changes.append(change);
        }
    }
    return changes;
}

Json::Value mark_fields(uint32_t mark) {
    Json::Value fields(Json::arrayValue);
    for (const MarkPart& part : mark_parts()) {
        if ((mark & part.mask) != 0) {
            Json::Value field;
            field["field"] = part.name;
            field["bits"] = hexadecimal(part.mask);
            field["value"] = value_in(mark, part.mask);
            fields.append(field);
        }
    }
    return fields;
}

Json::Value sets_of(const std::string& rule) {
    Json::Value sets(Json::arrayValue);
    const std::vector<std::string> words = words_of(rule);
    for (size_t i = 0; i + 2 < words.size(); ++i) {
        if (words[i] == "--match-set") {
            Json::Value set;
            set["set"] = words[i + 1];
            set["directions"] = words[i + 2];
            set["is_negated"] = i > 0 && words[i - 1] == "!";
            sets.append(set);
        }
    }
    return sets;
}

}  // namespace nm
