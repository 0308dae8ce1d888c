// Sets, chains and the mark: what lies there, and what of it is not its owner's.
#include <fnmatch.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <set>

#include "inspect/owners_view.h"
#include "inspect/read_command.h"
#include "policy/common/packet_names.h"
#include "policy/common/presence.h"
#include "services/dns/hostname_ipset.h"
#include "utils/file_io.h"
#include "utils/json_text.h"

namespace nm {

namespace {

using Words = std::vector<std::string>;
using Names = std::set<std::string>;

/// The documents that name sets and chains: as they are stored, and as they are in force.
std::vector<Json::Value> documents_of(OwnersView& view, const std::string& name) {
    std::vector<Json::Value> documents;
    for (const std::string& path :
         {"/etc/networkmanagement/" + name + ".json", "/var/run/network/" + name + ".curr"}) {
        if (access(path.c_str(), F_OK) != 0) {
            continue;
        }
        Json::Value document;
        if (!parse_json(read_file(path).value_or(""), document) || !document.isObject()) {
            view.unread(path, "it cannot be read, or is not a document");
            continue;
        }
        documents.push_back(std::move(document));
    }
    return documents;
}

void add_keys(const Json::Value& object, const std::string& prefix, Names& names) {
    for (const std::string& key : object.isObject() ? object.getMemberNames() : Json::Value::Members()) {
        names.insert(segment_name(prefix, key));
    }
}

/// The sets that are described: those of segments and of host names.
Names described_sets(OwnersView& view) {
    Names names;
    for (const Json::Value& document : documents_of(view, "segment")) {
        add_keys(document, kSegmentSets, names);
    }
    std::unordered_map<std::string, std::string> hostnames;
    (void)read_hostname_ipset_map(hostnames);  // always 0
    for (const auto& [host, set] : hostnames) {
        names.insert(set);
    }
    return names;
}

/// The chains that a document describes, and those that were made for it.
void add_chains(const Json::Value& document, const char* chain, Names& names) {
    add_keys(json_member(document, "RULES"), chain, names);
    for (const Json::Value& name : json_member(json_member(document, "CHAIN_NAME"), chain)) {
        names.insert(json_scalar(name));
    }
}

/// The chains of segments that are described.
Names described_chains(OwnersView& view) {
    Names names;
    for (const char* const document_name : {"firewall", "policy"}) {
        for (const Json::Value& document : documents_of(view, document_name)) {
            for (const char* const chain : {kVerdictChain, kClassChain, kSteeringChain}) {
                add_chains(document, chain, names);
            }
        }
    }
    return names;
}

// ---- Sets.

struct Set {
    std::string name;
    std::string type;  // "hash:net", with " family inet6" behind it for those of IPv6
    std::string entries;
    std::string references;
};

/// The values behind "Name: ", "Type: " and their kin, in the order in which ipset prints them.
std::vector<Set> read_sets(const std::string& text) {
    std::vector<Set> sets;
    const auto behind = [](const std::string& line, const std::string& word, std::string& value) {
        const bool is_there = line.rfind(word, 0) == 0;
        value = is_there ? line.substr(word.size()) : value;
        return is_there;
    };
    std::string name;
    for (const std::string& line : lines_of(text)) {
        if (behind(line, "Name: ", name)) {
            sets.push_back({name, "", "", ""});
            continue;
        }
        if (sets.empty()) {
            continue;
        }
        Set& set = sets.back();
        std::string header;
        (void)(behind(line, "Type: ", set.type) || behind(line, "References: ", set.references) ||
               behind(line, "Number of entries: ", set.entries));
        if (behind(line, "Header: ", header) && header.rfind("family inet6 ", 0) == 0) {
            set.type += " family inet6";
        }
    }
    return sets;
}

uint32_t number_at_end(const Claim& claim, const std::string& name) {
    return static_cast<uint32_t>(strtoul(name.c_str() + claim.name.size() - 1, nullptr, 10));
}

/// Sets of segments and host names are described somewhere; those of client systems, whoever recognises one
/// makes.
bool needs_description(const Claim& claim) {
    return claim.name == segment_name(kSegmentSets, "*") || claim.name.rfind(kHostnameSets, 0) == 0;
}

void judge_set(OwnersView& view, const Set& set, const Names& described) {
    const Present thing{Resource::Set, "", set.name, 0,
                        set.type + ", " + set.entries + " entries, " + set.references + " references"};
    const Claim* const claim = view.enter(thing);
    if (claim == nullptr) {
        return;
    }
    if (!claim->shape.empty() && claim->shape != set.type) {
        view.collision(thing, claim->owner,
                       "its owner makes it as " + claim->shape + ", and it is " + set.type);
    } else if (claim->last != 0 && number_at_end(*claim, set.name) > claim->last) {
        view.stranger(thing, claim->owner, "its owner goes to " + std::to_string(claim->last));
    } else if (needs_description(*claim) && described.count(set.name) == 0) {
        view.stranger(thing, claim->owner, "no document has what it is for");
    }
}

void look_at_sets(OwnersView& view) {
    const CommandText output = read_command("/sbin/ipset list -t");
    if (!output.reason.empty()) {
        view.unread("sets", output.reason);
        return;
    }
    const Names described = described_sets(view);
    for (const Set& set : read_sets(output.text)) {
        judge_set(view, set, described);
    }
}

// ---- Chains and marks.

/// The bits of the packet mark or of the connection mark that a rule writes.
uint32_t written_bits(const Words& words) {
    const Words keys{"-j", "-g", "--set-xmark", "--nfmask", "--ctmask", "--comment"};
    const auto number = [&](const char* key) {
        return static_cast<uint32_t>(strtoul(word_after(words, keys, key).c_str(), nullptr, 0));
    };
    const std::string target = word_after(words, keys, "-j");
    const std::string set = word_after(words, keys, "--set-xmark");
    if (!set.empty() && (target == "MARK" || target == "VTARGET" || target == "CONNMARK")) {
        const size_t slash = set.find('/');
        const uint32_t mask = slash == std::string::npos
                                  ? UINT32_MAX
                                  : static_cast<uint32_t>(strtoul(set.c_str() + slash + 1, nullptr, 0));
        return mask | number("--set-xmark");
    }
    const bool has_word = [&](const char* word) {
        return std::find(words.begin(), words.end(), word) != words.end();
    }("--save-mark");
    if (target == "CONNMARK") {
        return number(has_word ? "--ctmask" : "--nfmask");
    }
    return 0;
}

struct Chain {
    std::string place;  // command and table
    std::string name;
    size_t rules = 0;
    uint32_t bits = 0;
    std::string first_writer = {};  // a rule that writes these bits
};

using Chains = std::map<std::string, Chain>;

void add_rule(const std::string& line, Chains& chains) {
    const size_t begin = 3;
    Chain& chain = chains[line.substr(begin, line.find(' ', begin) - begin)];
    ++chain.rules;
    if (line.find("MARK ") == std::string::npos && line.find("VTARGET ") == std::string::npos) {
        return;
    }
    const uint32_t bits = written_bits(words_of(line));
    chain.first_writer = bits != 0 && chain.first_writer.empty() ? line : chain.first_writer;
    chain.bits |= bits;
}

bool is_writer(const Claim& field, const std::string& chain) {
    return std::any_of(field.writers.begin(), field.writers.end(), [&chain](const std::string& pattern) {
        return fnmatch(pattern.c_str(), chain.c_str(), 0) == 0;
    });
}

void judge_marks(OwnersView& view, const Chain& chain) {
    for (const Claim& field : view.claims()) {
        const uint32_t bits = field.resource == Resource::Mark ? field.first & chain.bits : 0;
        if (bits == 0) {
            continue;
        }
        const Present thing{Resource::Mark, "", chain.place + " " + chain.name, field.first,
                            std::to_string(chain.rules) + " rules"};
        (void)view.enter(thing);
        if (!is_writer(field, chain.name)) {
            view.stranger(
                thing, field.owner,
                "it writes the field of the mark for the " + field.purpose + ": " + chain.first_writer);
        }
    }
}

bool is_segments(const Claim& claim) {
    return claim.name.back() == '*';
}

void judge_chain(OwnersView& view, const Chain& chain, const Names& described) {
    const Present thing{Resource::Chain, chain.place, chain.name, 0, std::to_string(chain.rules) + " rules"};
    const Claim* const claim = view.enter(thing);
    if (claim == nullptr) {
        if (chain.name.rfind("BASE_", 0) == 0) {
            view.stranger(thing, "base rules", "they have no such chain");
        }
        return;
    }
    const bool has_count = !claim->shape.empty();
    if (has_count && std::to_string(chain.rules) != claim->shape) {
        view.stranger(
            thing, claim->owner,
            "it has " + std::to_string(chain.rules) + " rules, and its owner writes " + claim->shape);
    } else if (is_segments(*claim) && chain.rules > 0 && described.count(chain.name) == 0) {
        view.stranger(thing, claim->owner, "no document has the segment that it is for");
    }
}

void judge_table(OwnersView& view, const std::string& place, Chains& chains, const Names& described) {
    for (auto& [name, chain] : chains) {
        chain.place = place;
        chain.name = name;
        judge_chain(view, chain, described);
        judge_marks(view, chain);
    }
    chains.clear();
}

void look_at_chains(OwnersView& view, const std::string& command, const Names& described) {
    const CommandText output = read_command("/sbin/" + command + "-save");
    if (!output.reason.empty()) {
        view.unread("chains of " + command, output.reason);
        return;
    }
    std::string place;
    Chains chains;
    for (const std::string& line : lines_of(output.text)) {
        switch (line.empty() ? '#' : line.front()) {
            case '*':
                place = command + " " + line.substr(1);
                break;
            case ':':
                (void)chains[line.substr(1, line.find(' ') - 1)];
                break;
            case '-':
                add_rule(line, chains);
                break;
            default:
                if (line == "COMMIT") {
                    judge_table(view, place, chains, described);
                }
        }
    }
}

}  // namespace

void look_at_filters(OwnersView& view) {
    if (geteuid() != 0) {
        view.unread("sets and chains", "only root can see them");
        return;
    }
    look_at_sets(view);
    const Names described = described_chains(view);
    look_at_chains(view, "iptables", described);
    look_at_chains(view, "ip6tables", described);
}

}  // namespace nm
