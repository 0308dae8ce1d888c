// What people can set: the families of targets, and the members of their entries under names of their own.
#pragma once

#include <json/value.h>

#include <string>
#include <string_view>
#include <vector>

#include "nm_bin/entries.h"

namespace nm_bin {

/// The families in the order in which additions are made: devices before what lies on them.
enum class FamilyId {
    WanPort,
    PrivatePort,
    RglinkPort,
    Vlan,
    LanPort,
    WanInfo,
    PrivateInfo,
    RglinkInfo,
    LanInfo,
    Dhcp
};

/// One section of a document: the kind that people call it by, the key's meaning, and the entry that applies
/// it.
struct Family {
    FamilyId id;
    std::string_view kind;
    std::string_view document;
    std::string_view section;
    bool is_port;  // keyed by port, else by interface or VLAN id
    std::string_view entry;
    unsigned add_ops;
    unsigned delete_ops;
};

/// How a member's value is checked, and what it becomes.
enum class ValueKind {
    Number,
    Choice,
    Address4,
    Network4,
    Address6,
    Network6,
    List4,
    List6,
    Vlans,
    Name,
    Text,
    Secret
};

/// A member of an entry. `range` is "LEAST..MOST" of a number, "A|B|C" of a choice; a network is an address
/// whose prefix length goes into the key `prefix_key`.
struct Member {
    unsigned families;  // mask of bits of FamilyId
    std::string_view name;
    std::string_view key;
    unsigned ops;
    ValueKind kind;
    std::string_view range;
    std::string_view fallback;
    std::string_view meaning;
    std::string_view prefix_key = {};
    bool is_fixed = false;  // given when the entry is added, and never changed
};

const std::vector<Family>& families();
const std::vector<Member>& members();

/// The family of the entry ("Setup_wanif"), null if it has none.
const Family* family_of_entry(std::string_view entry);

bool has_member(const Family& family, const Member& member);

/// The member of this name, null if the family has none.
const Member* find_member(const Family& family, const std::string& name);

/// Puts the value that `word` stands for into the entry. Empty, or what is wrong with the word.
std::string set_member(const Member& member, const std::string& word, Json::Value& entry);

/// A member's value as people write it, secrets masked; empty if the entry has none.
std::string show_member(const Member& member, const Json::Value& entry);

/// What the word may be, for complaints and completion: "68..65535", "ENABLED|DISABLED", "an IPv4 address".
std::string describe_values(const Member& member);

/// What is wrong with the entry as a whole; empty if nothing is.
std::string check_entry(const Family& family, const Json::Value& entry);

}  // namespace nm_bin
