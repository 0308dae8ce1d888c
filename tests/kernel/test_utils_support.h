// What the tests of the utilities share: their subject.
#pragma once

#include <stdlib.h>

#include "kernel/Utils.h"
#include "kernel/utils/handles.h"
#include "result_codes.h"
#include "sandbox_fixture.h"

namespace fixture {

using Texts = std::vector<std::string>;

}  // namespace fixture
