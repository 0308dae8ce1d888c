// The files of documents: replaced in one step, and changed as one step.
#pragma once

#include <json/value.h>

#include <functional>
#include <string>

namespace nm {

/// Puts `value` in the place of the document at `path`: a file beside it, of the same owner and access, is
/// complete and on the disk before it is renamed. Whatever happens, `path` holds the old document or the new
/// one. The caller holds the lock of `path`. 0 or NM_ERR_WRITE.
int replace_document(const std::string& path, const Json::Value& value);

/// Reads the document at `path` (null where there is none), lets `edit` change it, and stores what was
/// changed, all under the document's lock: no other writer comes between. The configuration service is asked
/// to make the file current before and after. The result of `edit`, which ends it if negative; NM_ERR_PARSE
/// for a file that is not JSON, which stays; NM_ERR_WRITE; the code of a lock that was not obtained.
int edit_document(const std::string& path, const std::function<int(Json::Value& document)>& edit);

}  // namespace nm
