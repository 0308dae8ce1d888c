// The stored documents brought to the current format, where they lie: once at boot and after an update,
// before anything reads them.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#pragma GCC visibility push(default)

/// Brings stored documents of /etc/networkmanagement/ to their current formats: those in `names`
/// ("device_info", "firewall", ...), or all of them if there are none. `report` becomes a list with an object
/// for each:
///
///     {"document": "firewall", "path": "/etc/networkmanagement/firewall.json", "state": "migrated",
///      "from": "0.0.0", "to": "1.0.2", "difference": {...}, "report": "/var/log/network/diff_..."}
///
/// `state` is
///  - "current": nothing to do; "absent": there is no such file, and none is made;
///  - "newer": of a later version than this code's, left as it is;
///  - "migrated": replaced in one step by its current form; `difference` (DictDiffer::report()) says what
///  changed,
///    and is kept as the report `report`;
///  - "repaired": it was not a document of its format (`reason`), and now lies beside, byte for byte, under
///  the
///    name in `kept`; the stored document is the one that was in force last, else the default one, else an
///    empty one (`source` names the file, "template" the last);
///  - "failed": it could not be read, kept or written (`code`), and is as it was.
///
/// With `dry_run` nothing is written, and the report says what would be. Each document is worked under its
/// lock. 0; NM_ERR_BAD_ACT for a name that no document has, with nothing done; else the code of the first
/// that failed.
int migrate_documents(const std::vector<std::string>& names, bool dry_run, Json::Value& report);

/// The names of the documents, in the order in which migrate_documents() works them.
std::vector<std::string> migrated_documents();

#pragma GCC visibility pop

namespace nm {

/// Brings the document `name` to its current format in memory. 0; NM_ERR_BAD_ACT for a name that none has;
/// NM_ERR_BAD_FORMAT.
int migrate_document(const std::string& name, Json::Value& document);

}  // namespace nm
