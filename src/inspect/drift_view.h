// What two worlds, the described one and the running one, come to.
#pragma once

#include <json/value.h>

#include <map>
#include <set>
#include <string>

#include "inspect/owners_view.h"
#include "inspect/world.h"

namespace nm {

/// Indexes of devices by name.
using Indexes = std::map<std::string, unsigned int>;

/// Takes out of both worlds what no document describes, as it moves by itself, and gives the described one
/// the indexes of the running devices: bridges and VLANs have got others in the copy, and the numbers of
/// tables and rules follow from them.
void level_worlds(World& described, const Indexes& described_indexes, World& running,
                  const Indexes& running_indexes);

/// Of the changes those that a `later` look shows likewise. What only one of the two looks shows, or each
/// otherwise, cannot be judged, and goes to `unread`.
Json::Value lasting_changes(const Json::Value& changes, const Json::Value& later, Json::Value& unread);

/// Differences by classes.
class DriftView {
public:
    /// `devices` are those that the documents name.
    DriftView(const OwnersView& owners, std::set<std::string> devices)
        : owners_(owners), devices_(std::move(devices)) {}

    /// Judges a change, in the form of append_differences(), from the described world to the running one.
    void judge(const Json::Value& change);

    const Json::Value& findings() const { return findings_; }
    const Json::Value& outside() const { return outside_; }

private:
    struct Piece;
    void judge_piece(const Piece& piece);
    void enter(const Piece& piece, Json::Value& list) const;
    bool is_whole(const Piece& piece) const;
    void judge_rules(const Json::Value& change);
    bool is_our_device(const std::string& name) const;
    bool is_ours(const Piece& piece, const std::string& line) const;
    std::string owner_of(const Piece& piece) const;

    const OwnersView& owners_;
    std::set<std::string> devices_;
    Json::Value findings_ = Json::arrayValue;
    Json::Value outside_ = Json::arrayValue;
};

}  // namespace nm
