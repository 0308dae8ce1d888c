// Foreign bytes as a stored document of the format that the first byte chooses: a second migration changes
// nothing, no member of the document is lost, and the report of the difference says whether there is one.
#include <cstdint>
#include <cstdlib>

#include "config/DictDiffer.h"
#include "control/migrate_documents.h"
#include "utils/json_text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static const std::vector<std::string> names = migrated_documents();
    Json::Value before;
    if (size == 0 ||
        !nm::parse_json(std::string(reinterpret_cast<const char*>(bytes) + 1, size - 1), before)) {
        return 0;
    }
    const std::string& name = names[bytes[0] % names.size()];
    Json::Value once = before;
    const int code = nm::migrate_document(name, once);
    Json::Value twice = once;
    bool sound = nm::migrate_document(name, twice) == code && twice == once;
    for (const std::string& member : before.isObject() ? before.getMemberNames() : Json::Value::Members()) {
        sound = sound && once.isMember(member);
    }
    const Json::Value report = DictDiffer(before, once).report();
    sound = sound && report["differences"].empty() == (before == once) && !show_difference(report).empty();
    return sound ? 0 : (std::abort(), 0);
}
