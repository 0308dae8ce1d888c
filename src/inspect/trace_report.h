// What is reported of the steps of a call.
#pragma once

#include <json/value.h>

#include <vector>

#include "inspect/step_record.h"
#include "utils/secrets.h"

namespace nm {

/// The kind of the step that lies around all others.
constexpr const char* kRequestKind = "request";

/// `traceEvents`, `times` and `locks` of steps that lie in each other, the first around all but the times
/// that locks are held. Events belong to the process `pid`.
Json::Value report_steps(const std::vector<RecordedStep>& steps, int pid, const secret_words& secrets);

}  // namespace nm
