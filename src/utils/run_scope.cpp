// One run over what may be set up already.
#include "utils/run_scope.h"

#include <exception>

#include "log.h"
#include "utils/process.h"

namespace nm {

namespace {

thread_local RunScope* scope = nullptr;

}  // namespace

RunScope::RunScope() : is_outermost_(scope == nullptr) {
    scope = is_outermost_ ? this : scope;
}

RunScope::~RunScope() {
    scope = is_outermost_ ? nullptr : scope;
}

bool RunScope::stands() {
    return scope != nullptr;
}

std::optional<std::string> RunScope::look(const std::string& command) {
    if (scope == nullptr) {
        return std::nullopt;
    }
    const auto known = scope->seen_.find(command);
    if (known != scope->seen_.end()) {
        return known->second;
    }
    try {
        const std::string text = exec(command.c_str());
        if (!text.empty()) {  // or it could not be started
            scope->seen_[command] = text;
        }
        return text;
    } catch (const std::exception& error) {
        NM_LOG(Error) << error.what() << " cmd: " << command;
        return std::nullopt;
    }
}

void RunScope::forget(const std::string& command) {
    if (scope != nullptr) {
        scope->seen_.erase(command);
    }
}

}  // namespace nm
