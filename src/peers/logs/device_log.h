// Messages to the device log, which the management service shows to the operator.
#pragma once

#include <cstdint>
#include <string>

#pragma GCC visibility push(default)

/// Reports event `msg_id` of the port's PPPoE dialling, with the present time; of the port's name the part
/// behind "PORT" is sent. A failure is logged only: no dialling may hang on it.
void pppoe_dial_log(std::string& port, uint32_t msg_id);

#pragma GCC visibility pop
