// The codes of the PPPoE library among those of this one.
#pragma once

#include <vpppoe.h>

#include "result_codes.h"

namespace nm {

/// They lie below our own.
inline int session_code(int retval) {
    return retval == VPPPOE_SUCCESS ? NM_OK : retval + NM_ERR_SESSION;
}

}  // namespace nm
