// The stored documents as people's commands see and change them: entries of sections, found by the names of
// ports, interfaces and VLANs.
#pragma once

#include <json/value.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "nm_bin/members.h"

namespace nm_bin {

/// Documents by path.
using Documents = std::map<std::string, Json::Value>;

/// The document in the file, without lock and log; an empty object if the file is absent or empty, nothing if
/// it holds something else than an object.
std::optional<Json::Value> read_document(const std::string& path);

/// Their paths.
std::vector<std::string> document_paths();

/// The stored documents of all families, read like that; one that is no document counts as empty.
Documents read_documents();

/// An entry's place.
struct Place {
    const Family* family;
    std::string key;
};

/// The entry at the place, a null value if there is none.
Json::Value entry_at(const Documents& documents, const Place& place);

/// Where a name has entries: a port's and those of its interface, a VLAN's ("vlan10", "10") and those of its
/// bridge, an interface's; devices first.
std::vector<Place> find_places(const Documents& documents, const std::string& name);

/// All names that find_places() knows, each once, in the order of the families.
std::vector<std::string> target_names(const Documents& documents);

/// The places of all entries.
std::vector<Place> all_places(const Documents& documents);

/// One entry that becomes another: null where there is none before or after, and the mask of what changes.
struct Change {
    Place place;
    Json::Value before;
    Json::Value after;
    unsigned ops;
};

/// Makes the changes of this document in it.
void apply_changes(const std::vector<Change>& changes, const std::string& path, Json::Value& document);

}  // namespace nm_bin
