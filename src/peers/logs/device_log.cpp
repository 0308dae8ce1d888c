// Messages to the device log.
#include "peers/logs/device_log.h"

#include <array>
#include <cstdio>
#include <ctime>

#include "log.h"
#include "peers/bus/service_bus.h"
#include "peers/logs/event_log.h"
#include "utils/json_field.h"

void pppoe_dial_log(std::string& port, uint32_t msg_id) {
    std::array<char, 256> text{};
    const int length =
        snprintf(text.data(), text.size(), "{\"msg_id\":%d,\"timestamp\":%lu,\"values\":[\"%s\"]}",
                 static_cast<int>(msg_id), static_cast<unsigned long>(time(nullptr)),
                 nm::json_field(port_number_text(port)).c_str());
    if (length < 0 || static_cast<std::size_t>(length) >= text.size()) {
        NM_LOG(Error) << "DeviceLog msg of " << port << " is too long, not sent.";
        return;
    }
    std::string message = text.data();
    std::string reply;
    NM_LOG(Debug) << "DeviceLog send msg : " << message;
    (void)vservice_call("nm-grpc-handler", "DeviceLog", message, reply, false);  // it logs its failures
}
