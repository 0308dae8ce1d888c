// Tables of cases beside their tests, where documents and texts are as they are stored and shown.
#pragma once

#include "sandbox_fixture.h"

namespace fixture {

/// The rows of golden/NAME.json in the directory of the group.
inline Json::Value golden(const std::string& name) {
    Json::Value rows;
    EXPECT_TRUE(nm::parse_json(slurp(NM_TEST_DIR "/golden/" + name + ".json"), rows) && !rows.empty())
        << name;
    return rows;
}

}  // namespace fixture
