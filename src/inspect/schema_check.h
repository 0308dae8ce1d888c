// Documents against their JSON schemas, those that editors read for completion.
#pragma once

#include <string>

#include "inspect/document_set.h"
#include "inspect/findings.h"

namespace nm {

/// Adds what the schema of the document does not allow. Empty, or why there is no schema to check with.
std::string check_schema(const CheckedDocument& document, Findings& findings);

}  // namespace nm
