// Whether what is printed and stored is what the installed schemas say.
#pragma once

#include <valijson/adapters/jsoncpp_adapter.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validator.hpp>

#include "sandbox_fixture.h"

namespace fixture {

inline bool conforms(const std::string& schema_name, const Json::Value& data) {
    Json::Value text;
    EXPECT_TRUE(nm::parse_json(slurp("/usr/share/networkmanagement/schema/" + schema_name), text))
        << schema_name;
    valijson::Schema schema;
    valijson::SchemaParser().populateSchema(valijson::adapters::JsonCppAdapter(text), schema);
    return valijson::Validator().validate(schema, valijson::adapters::JsonCppAdapter(data), nullptr);
}

}  // namespace fixture
