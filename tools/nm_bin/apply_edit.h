// Changes of stored documents, made whole or not at all.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "nm_bin/console.h"
#include "nm_bin/places.h"

namespace nm_bin {

/// Makes the changes from the stored documents. Where that fails a result code, or what is wrong with what
/// was asked for as `complaint`; with both, `complaint` says what the code means.
using Plan =
    std::function<int(const Documents& documents, std::vector<Change>& changes, std::string& complaint)>;

/// Under the lock of all editors: plans the changes, requests them from the library by a copy of the
/// documents, and stores them in all documents when every one has succeeded; else what has been altered or
/// deleted is put back, and the stored documents stay as they are. What could not be put back is reported.
/// With --dry-run the changes are only shown. The exit status.
int edit_documents(const Plan& plan, const Options& options);

/// The changes of the last edit, turned round.
int plan_undo(const Documents& documents, std::vector<Change>& changes, std::string& complaint);

/// The members in which entries differ, as rows of target, member, before, after.
void print_changes(const std::vector<Change>& changes, const Options& options);

}  // namespace nm_bin
