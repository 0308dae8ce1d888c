// What a check has found: each finding with its place, what is wrong and what would be right.
#pragma once

#include <json/value.h>

#include <cstddef>
#include <string>
#include <vector>

#include "inspect/document_set.h"

namespace nm {

/// An error is refused by a setup, does not come into force, or cannot work. What a warning is about is
/// accepted and passed over, or is in force and hardly meant.
enum class Grade { Error, Warning };

/// A value in a document.
struct Place {
    std::string document;
    std::string pointer;

    Place operator/(const std::string& member) const;
    Place operator/(Json::ArrayIndex index) const;
};

struct Finding {
    Place place;
    Grade grade;
    std::string what;
    std::string right;
    std::string other;  // document that the finding depends on as well, empty if none
    size_t offset;      // where it stands in a text that has no values, else npos
};

class Findings {
public:
    /// `other` names a second document whose content makes the finding.
    void error(const Place& place, const std::string& what, const std::string& right,
               const std::string& other = "");
    void warn(const Place& place, const std::string& what, const std::string& right,
              const std::string& other = "");

    /// The same for a byte of a text that is not JSON, or not only.
    void error_at(const std::string& document, size_t offset, const std::string& what,
                  const std::string& right);
    void warn_at(const std::string& document, size_t offset, const std::string& what,
                 const std::string& right);

    /// Those in the documents that were asked for, and those that depend on one of them, in the order of
    /// their documents and lines.
    Json::Value report(const DocumentSet& documents) const;

    /// How many were left out, as nobody reads so many.
    size_t omitted() const { return omitted_; }

    bool has_errors(const DocumentSet& documents) const;

private:
    bool is_asked(const Finding& finding, const DocumentSet& documents) const;
    void add(const Finding& finding);

    std::vector<Finding> findings_;
    size_t omitted_ = 0;
};

/// A value for people, in quotes and cut where it is long; masked if one of the pointer's names is a
/// secret's.
std::string show_value(const Place& place, const Json::Value& value);

}  // namespace nm
