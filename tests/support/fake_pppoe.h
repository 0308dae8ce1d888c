// The PPPoE library's questions about a session, answered from one record that a test sets.
#pragma once

#include <vpppoe.h>

namespace fixture {

/// The session of every port; one that is not running answers with a code.
inline pppoe_status session;
inline constexpr int kNoSession = -7;

}  // namespace fixture

extern "C" [[gnu::weak]] int get_pppoe_runtime_cfg(const char* /*ifname*/, pppoe_runtime_cfg* cfg) {
    *cfg = fixture::session.cfg;
    return fixture::session.running != 0 ? VPPPOE_SUCCESS : fixture::kNoSession;
}

extern "C" [[gnu::weak]] int get_pppoe_status(const char* ifname, pppoe_status* status) {
    *status = fixture::session;
    return get_pppoe_runtime_cfg(ifname, &status->cfg);
}
