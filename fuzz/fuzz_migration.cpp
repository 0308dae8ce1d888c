// Foreign bytes as a stored document of the format that the first byte chooses: a second migration changes
// nothing, no member of the document is lost, and the report of the difference says whether there is one.

#include "config/DictDiffer.h"
#include "control/migrate_documents.h"
#include "target.h"
#include "utils/json_text.h"

bool holds(const std::string& input) {
    static const std::vector<std::string> names = migrated_documents();
    Json::Value before;
    if (input.empty() || !nm::parse_json(input.substr(1), before)) {
        return true;
    }
    const std::string& name = names[static_cast<unsigned char>(input[0]) % names.size()];
    Json::Value once = before;
    const int code = nm::migrate_document(name, once);
    Json::Value twice = once;
    bool sound = nm::migrate_document(name, twice) == code && twice == once;
    for (const std::string& member : before.isObject() ? before.getMemberNames() : Json::Value::Members()) {
        sound = sound && once.isMember(member);
    }
    const Json::Value report = DictDiffer(before, once).report();
    return sound && report["differences"].empty() == (before == once) && !show_difference(report).empty();
}
