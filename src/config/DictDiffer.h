// The difference of two documents: which members were added, removed and changed. Members are named by JSON
// pointers (RFC 6901), and the values of secrets are masked.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#pragma GCC visibility push(default)

/// Compares two documents. Elements that two lists have in common at their beginning and at their end are
/// paired with each other, those between by their place: one that was added, removed or changed alone is
/// found as such.
class DictDiffer {
public:
    enum class Kind { Added, Removed, Changed };

    struct Difference {
        Kind kind;
        std::string pointer;  ///< into the new document; into the old one for what was removed
        Json::Value before;   ///< null for what was added
        Json::Value after;    ///< null for what was removed
    };

    DictDiffer(const Json::Value& before, const Json::Value& after);

    /// In the order of the documents, secrets masked.
    const std::vector<Difference>& differences() const { return differences_; }

    /// {"added": 1, "removed": 0, "changed": 2, "differences": [{"kind": "added", "pointer":
    /// "/WAN_PORT/PORT2", "after": ...}, ...]}: the numbers are of all, the list ends after 1,000.
    Json::Value report() const;

private:
    void compare(const Json::Value& before, const Json::Value& after, const std::string& pointer);
    void compare_members(const Json::Value& before, const Json::Value& after, const std::string& pointer);
    void compare_lists(const Json::Value& before, const Json::Value& after, const std::string& pointer);
    void add(Kind kind, const std::string& pointer, const Json::Value& before, const Json::Value& after);

    std::vector<Difference> differences_;
};

/// A report (DictDiffer::report(), or one of list_difference_reports()) as lines for people: "+" what was
/// added,
/// "-" what was removed, "~" what was changed, the pointer, and the values. Ends with a line of numbers.
std::string show_difference(const Json::Value& report);

/// Keeps `report` as that of the document `name` ("device_info"), dated now, under /var/log/network, for root
/// alone; the newest ten of each document stay. `path` becomes that of the report. 0; NM_ERR_OPEN;
/// NM_ERR_WRITE.
int store_difference_report(std::string name, Json::Value report, std::string& path);

/// The reports that are kept of `name`, or of all documents if that is empty, by document, the oldest first:
/// {"document": ..., "date": "2026-01-31T12:00:00Z", "path": ..., and the members of the report}. One that
/// cannot be read is left out, which is logged.
Json::Value list_difference_reports(std::string name);

#pragma GCC visibility pop
