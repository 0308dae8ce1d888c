// The one source that the validator is compiled in: its headers take as long as many others together.
//
// The validator reports what failed and where, and again for each object above. What is kept are the
// innermost ones, told in the words of the schema's own descriptions. Beyond draft 7 the schemas have two
// words of ours: the values of `format` (formats.h), and `x-range`, the bounds of a number that stands in a
// text.
#include "inspect/schema_check.h"

// It would end the program otherwise, where it meets what it does not expect.
#define VALIJSON_USE_EXCEPTIONS 1

#include <algorithm>
#include <exception>
#include <memory>
#include <set>
#include <valijson/adapters/jsoncpp_adapter.hpp>
#include <valijson/constraint_builder.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validator.hpp>

#include "inspect/formats.h"
#include "utils/file_io.h"
#include "utils/json_text.h"

namespace nm {

namespace {

using valijson::adapters::Adapter;
using valijson::adapters::JsonCppAdapter;
using valijson::constraints::Constraint;
using Context = std::vector<std::string>;

constexpr const char* kBadText = "text";
constexpr const char* kFormatWord = "x-format";
constexpr const char* kSchemaDirectory = NM_SCHEMA_DIR "/";

/// A rule for a value that can be read as text, number or not.
class TextConstraint : public valijson::constraints::PolyConstraint {
public:
    bool validate(const Adapter& target, const Context& context,
                  valijson::ValidationResults* results) const override {
        std::string text;
        const bool is_bad = !target.isArray() && !target.isObject() && target.asString(text) && !fits(text);
        if (is_bad && results != nullptr) {
            results->pushError(context, kBadText);
        }
        return !is_bad;
    }

private:
    virtual bool fits(const std::string& text) const = 0;
};

class FormatConstraint : public TextConstraint {
public:
    explicit FormatConstraint(const Adapter& rule) : format_(rule.asString()) {}

private:
    bool fits(const std::string& text) const override { return has_format(format_, text); }
    Constraint* cloneInto(void* memory) const override { return new (memory) FormatConstraint(*this); }
    size_t sizeOf() const override { return sizeof(*this); }

    std::string format_;
};

class RangeConstraint : public TextConstraint {
public:
    explicit RangeConstraint(const Adapter& rule) {
        rule.applyToArray([this](const Adapter& bound) {
            bounds_.push_back(static_cast<long>(bound.asInteger()));
            return true;
        });
    }

private:
    bool fits(const std::string& text) const override {
        const long number = leading_number(text);
        return number >= bounds_.front() && number <= bounds_.back();
    }
    Constraint* cloneInto(void* memory) const override { return new (memory) RangeConstraint(*this); }
    size_t sizeOf() const override { return sizeof(*this); }

    std::vector<long> bounds_;
};

template <class Made>
class Builder : public valijson::ConstraintBuilder {
public:
    Constraint* make(const Adapter& rule) const override { return new Made(rule); }
};

/// A node of the schema, with its references resolved.
class SchemaText {
public:
    explicit SchemaText(const Json::Value& root) : root_(root) {}

    /// All nodes that say something about the value that the names lead to.
    std::vector<const Json::Value*> nodes_at(const Context& names) const {
        std::vector<const Json::Value*> nodes;
        spread(root_, nodes);
        for (const std::string& name : names) {
            std::vector<const Json::Value*> next;
            for (const Json::Value* const node : nodes) {
                descend(*node, name, next);
            }
            nodes = next;
        }
        return nodes;
    }

private:
    /// The node with all that it is composed of. Conditions are taken for fulfilled: what did not apply did
    /// not fail.
    void spread(const Json::Value& node, std::vector<const Json::Value*>& nodes) const {
        constexpr size_t kPrefix = sizeof("#/definitions/") - 1;
        const std::string reference = json_string_or(node, "$ref", "");
        if (!reference.empty()) {
            spread(json_member(json_member(root_, "definitions"), reference.substr(kPrefix)), nodes);
            return;
        }
        for (const Json::Value& part : json_member(node, "allOf")) {
            spread(part, nodes);
        }
        if (!json_member(node, "then").isNull()) {
            spread(json_member(node, "then"), nodes);
        }
        nodes.push_back(&node);
    }

    void descend(const Json::Value& node, const std::string& name,
                 std::vector<const Json::Value*>& nodes) const {
        const Json::Value& own = json_member(json_member(node, "properties"), name);
        for (const Json::Value* const next :
             {&own, own.isNull() ? &json_member(node, "additionalProperties") : &Json::Value::nullSingleton(),
              &json_member(node, "items")}) {
            if (next->isObject()) {
                spread(*next, nodes);
            }
        }
    }

    const Json::Value& root_;
};

bool has_type(const Json::Value& value, const std::string& type) {
    static const std::map<std::string, bool (Json::Value::*)() const> kTypes{
        {"string", &Json::Value::isString}, {"number", &Json::Value::isNumeric},
        {"integer", &Json::Value::isInt64}, {"boolean", &Json::Value::isBool},
        {"null", &Json::Value::isNull},     {"array", &Json::Value::isArray},
        {"object", &Json::Value::isObject}};
    const auto row = kTypes.find(type);
    return row != kTypes.end() && (value.*row->second)();
}

bool is_of_types(const Json::Value& types, const Json::Value& value) {
    return types.isString() ? has_type(value, types.asString())
                            : std::any_of(types.begin(), types.end(), [&value](const Json::Value& type) {
                                  return has_type(value, type.asString());
                              });
}

bool is_listed(const Json::Value& list, const Json::Value& value) {
    return std::any_of(list.begin(), list.end(), [&value](const Json::Value& each) { return each == value; });
}

bool is_in_range(const Json::Value& bounds, const Json::Value& value) {
    const long number = leading_number(json_scalar(value));
    return value.isArray() || value.isObject() ||
           (number >= bounds[0].asInt64() && number <= bounds[1].asInt64());
}

bool fits_format(const Json::Value& format, const Json::Value& value) {
    return value.isArray() || value.isObject() || has_format(format.asString(), json_scalar(value));
}

/// The rules of a node for a value itself, not for what is in it.
struct Rule {
    const char* word;
    bool (*allows)(const Json::Value& argument, const Json::Value& value);
};

constexpr Rule kRules[] = {
    {"type", is_of_types},
    {"enum", is_listed},
    {"x-range", is_in_range},
    {"format", fits_format},
    {"minLength",
     [](const Json::Value& least, const Json::Value& value) {
         return !value.isString() || value.asString().size() >= least.asUInt();
     }},
    {"minProperties",
     [](const Json::Value& least, const Json::Value& value) {
         return !value.isObject() || value.size() >= least.asUInt();
     }},
    {"minItems", [](const Json::Value& least,
                    const Json::Value& value) { return !value.isArray() || value.size() >= least.asUInt(); }},
    {"maxItems", [](const Json::Value& most,
                    const Json::Value& value) { return !value.isArray() || value.size() <= most.asUInt(); }},
};

bool refuses(const Json::Value& node, const Json::Value& value) {
    return std::any_of(std::begin(kRules), std::end(kRules), [&](const Rule& rule) {
        const Json::Value& argument = json_member(node, rule.word);
        return !argument.isNull() && !rule.allows(argument, value);
    });
}

/// What a node wants, in its own words.
std::string words_of(const std::vector<const Json::Value*>& nodes, const Json::Value* refused) {
    std::string words;
    for (const Json::Value* const node : nodes) {
        const std::string own = json_string_or(*node, "description", "");
        if (!own.empty() && (refused == nullptr || refuses(*node, *refused))) {
            return own;
        }
        words = own.empty() ? words : own;
    }
    return words.empty() ? "see the schema" : words;
}

/// What the validator cannot take: strings longer than any that is right are cut, as its patterns use the
/// stack for each character, and numbers that no int holds become text.
void tame(Json::Value& value) {
    constexpr size_t kLongest = 1000;
    if (value.isString() && value.asString().size() > kLongest) {
        value = value.asString().substr(0, kLongest);
    } else if (value.isNumeric() && !value.isInt()) {
        value = value.asString();
    }
    for (Json::Value& each : value) {
        tame(each);
    }
}

/// The validator's own `format` reads every value as a text, and fails on what is none.
void hide_formats(Json::Value& node) {
    if (node.isObject() && node["format"].isString()) {
        node[kFormatWord] = node["format"];
    }
    if (node.isObject()) {
        node.removeMember("format");
    }
    for (Json::Value& each : node) {
        hide_formats(each);
    }
}

const Json::Value& value_at(const Json::Value& root, const Context& names) {
    const Json::Value* value = &root;
    for (const std::string& name : names) {
        value = value->isArray() ? &(*value)[static_cast<Json::ArrayIndex>(std::stoul(name))]
                                 : &json_member(*value, name);
    }
    return *value;
}

/// The names in the validator's context, which begins with that of the root and has brackets round each.
Context names_of(const Context& context) {
    Context names;
    for (size_t i = 1; i < context.size(); ++i) {
        names.push_back(context[i].substr(1, context[i].size() - 2));
    }
    return names;
}

std::string between_quotes(const std::string& text) {
    const size_t open = text.find('\'') + 1;
    return text.substr(open, text.rfind('\'') - open);
}

std::string complaint_of(const Place& place, const Json::Value& value) {
    if (value.empty() && (value.isObject() || value.isNull())) {
        return "the entry is empty";
    }
    if (value.isArray() && !value.empty()) {
        return "a list of " + std::to_string(value.size()) + " is not valid";
    }
    return show_value(place, value) + " is not valid";
}

/// Turns the errors of one document into findings, each value's once.
class Interpreter {
public:
    Interpreter(const CheckedDocument& document, const Json::Value& schema, Findings& findings)
        : document_(document), schema_(schema), findings_(findings) {}

    void take(const valijson::ValidationResults::Error& error) {
        constexpr const char* kMissing = "Missing required property";
        const bool is_outer = error.description.rfind("Failed to validate", 0) == 0 ||
                              error.description.rfind("Cannot validate", 0) == 0;
        if (is_outer) {
            return;
        }
        Context names = names_of(error.context);
        const bool is_missing = error.description.rfind(kMissing, 0) == 0;
        if (is_missing) {
            names.push_back(between_quotes(error.description));
        }
        Place place{document_.name, ""};
        for (const std::string& name : names) {
            place = place / name;
        }
        if (!told_.insert(place.pointer).second) {
            return;
        }
        const Json::Value& value = value_at(document_.root, names);
        findings_.error(place, is_missing ? names.back() + " is missing" : complaint_of(place, value),
                        words_of(schema_.nodes_at(names), is_missing ? nullptr : &value));
    }

private:
    const CheckedDocument& document_;
    SchemaText schema_;
    Findings& findings_;
    std::set<std::string> told_;
};

}  // namespace

namespace {

void validate(const CheckedDocument& document, const Json::Value& text, Findings& findings) {
    Json::Value rules = text;
    hide_formats(rules);
    valijson::SchemaParser parser;
    parser.addConstraintBuilder(kFormatWord, new Builder<FormatConstraint>);  // the parser deletes both
    parser.addConstraintBuilder("x-range", new Builder<RangeConstraint>);
    valijson::Schema schema;
    parser.populateSchema(JsonCppAdapter(rules), schema);
    Json::Value tamed = document.root;
    tame(tamed);
    valijson::ValidationResults results;
    valijson::Validator().validate(schema, JsonCppAdapter(tamed), &results);
    Interpreter interpreter(document, text, findings);
    for (const auto& error : results) {
        interpreter.take(error);
    }
}

}  // namespace

std::string check_schema(const CheckedDocument& document, Findings& findings) {
    const std::string path = kSchemaDirectory + document.name + ".json";
    Json::Value text;
    if (!parse_json(read_file(path).value_or(""), text) || !text.isObject()) {
        return "there is no schema " + path;
    }
    try {
        validate(document, text, findings);
    } catch (const std::exception& failure) {
        return std::string("the validator failed: ") + failure.what();
    }
    return "";
}

}  // namespace nm
