// Comments that say where a rule comes from.
#include "policy/common/rule_sources.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace nm {

namespace {

constexpr const char* kComment = "-m comment --comment nm-source-";
constexpr const char* kAppend = "-A ";

RuleSources* listener = nullptr;

/// Behind the chain's name.
std::string commented(const std::string& line, const std::string& comment) {
    const size_t chain = std::string(kAppend).size();
    const size_t end = line.compare(0, chain, kAppend) == 0 ? line.find(' ', chain) : std::string::npos;
    return end == std::string::npos ? line : line.substr(0, end) + comment + line.substr(end);
}

}  // namespace

RuleSources::RuleSources() {
    listener = this;
}

RuleSources::~RuleSources() {
    listener = nullptr;
}

const RuleSource* RuleSources::take(std::string& rule) const {
    const size_t begin = rule.find(kComment);
    if (begin == std::string::npos) {
        return nullptr;
    }
    const size_t digits = begin + std::string(kComment).size();
    const size_t number = strtoul(rule.c_str() + digits, nullptr, 10);
    rule.erase(begin, std::min(rule.find(' ', digits), rule.size() - 1) + 1 - begin);
    return number < sources_.size() ? &sources_[number] : nullptr;
}

std::string from_source(const RuleSource& source, const std::string& lines) {
    if (listener == nullptr) {
        return lines;
    }
    const std::string comment = " " + std::string(kComment) + std::to_string(listener->sources_.size());
    listener->sources_.push_back(source);
    std::istringstream text(lines);
    std::string marked;
    for (std::string line; std::getline(text, line);) {
        marked += commented(line, comment) + "\n";
    }
    return marked;
}

}  // namespace nm
