// What a look at the owners has gathered: the claims of the design, what lies in each, and what is wrong.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

namespace nm {

enum class Resource { Mark, Table, Priority, Set, Chain, File, Unit, Lock };

/// A part of a resource, its owner by design, and what it is for. Numbers are a range (of a mark `first` has
/// the bits), names a shell pattern (glob(7)).
struct Claim {
    Resource resource;
    std::string place;  ///< of a rule its family ("4"), of a chain command and table, of a file its directory
    std::string name;   ///< empty where numbers count
    uint32_t first = 0;
    uint32_t last = 0;
    std::string owner;
    std::string purpose;
    std::string shape = {};  ///< what it has to be: the words of a rule, the type of a set, how many rules
    std::vector<std::string> writers = {};  ///< of a mark: patterns of the chains that write it
};

/// Something that is there. `number` is the priority, table or mask where numbers count.
struct Present {
    Resource resource;
    std::string place;
    std::string name;
    uint32_t number = 0;
    std::string detail = {};
};

class OwnersView {
public:
    explicit OwnersView(std::vector<Claim> claims);

    const std::vector<Claim>& claims() const { return claims_; }

    /// The narrowest claim that covers it, null if there is none.
    const Claim* find(const Present& thing) const;

    /// Enters it below its claim, which is returned; what nobody claims is left out.
    const Claim* enter(const Present& thing);

    void stranger(const Present& thing, const std::string& owner, const std::string& what);
    void collision(const Present& thing, const std::string& owner, const std::string& what);

    /// `what` could not be looked at.
    void unread(const std::string& what, const std::string& reason);

    bool has_findings() const { return !findings_.empty(); }
    bool is_partial() const { return !unread_.empty(); }
    Json::Value report() const;

private:
    void add(const char* grade, const Present& thing, const std::string& owner, const std::string& what);

    std::vector<Claim> claims_;
    std::vector<Json::Value> present_;  // of each claim
    Json::Value findings_ = Json::arrayValue;
    Json::Value unread_ = Json::arrayValue;
    size_t omitted_ = 0;
};

/// The claims of the library and of what belongs to it. The one table of ownership; what has a number or a
/// name in the code has it here from there.
std::vector<Claim> library_claims();

/// The claims of the base rules, from the lines in which `nm-base-rules --list` has them.
std::vector<Claim> base_claims(const std::string& lines);

/// Both. `reason` says why those of the base rules are missing; it is empty if they are there.
std::vector<Claim> all_claims(std::string& reason);

/// Claims of different owners that are the same, or of which neither is a part of the other.
void find_design_collisions(OwnersView& view);

/// Looks at the kernel's rules and routing tables.
void look_at_routing(OwnersView& view);

/// Looks at sets, at chains, and at who writes the mark.
void look_at_filters(OwnersView& view);

/// Looks at files, units and locks.
void look_at_files(OwnersView& view);

}  // namespace nm
