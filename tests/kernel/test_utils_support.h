// What the tests of the utilities share: their subject, and a directory of their own.
#pragma once

#include <stdlib.h>

#include "kernel/Utils.h"
#include "kernel/utils/handles.h"
#include "result_codes.h"
#include "sandbox_fixture.h"

namespace fixture {

using Texts = std::vector<std::string>;

struct ScratchDir {
    ~ScratchDir() { fs::remove_all(path); }
    std::string operator/(const std::string& name) const { return path + "/" + name; }
    char name[18] = "/tmp/utils-XXXXXX";
    const std::string path = mkdtemp(name);
};

}  // namespace fixture
