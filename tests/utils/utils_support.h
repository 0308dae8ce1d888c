// What the tests of the utilities share: their subject.
#pragma once

#include <stdlib.h>

#include "sandbox_fixture.h"
#include "utils/Utils.h"
#include "utils/handles.h"

namespace fixture {

using Texts = std::vector<std::string>;

}  // namespace fixture
