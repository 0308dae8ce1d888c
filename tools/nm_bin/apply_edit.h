// Changes of stored documents, made whole or not at all.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "nm_bin/console.h"
#include "nm_bin/places.h"

namespace nm_bin {

/// Makes the changes from the stored documents; empty, or why there can be none.
using Plan = std::function<std::string(const Documents& documents, std::vector<Change>& changes)>;

/// Under the lock of all editors: plans the changes, requests them from the library by a copy of the
/// documents, and stores them when every one has succeeded; else what has been altered is altered back, and
/// the stored documents stay as they are. With --dry-run the changes are only shown. The exit status.
int edit_documents(const Plan& plan, const Options& options);

/// The changes of the last edit, turned round; empty, or why that cannot be.
std::string plan_undo(const Documents& documents, std::vector<Change>& changes);

/// The members in which entries differ, as rows of target, member, before, after.
void print_changes(const std::vector<Change>& changes, const Options& options);

}  // namespace nm_bin
