// QoS rates.
#include "peers/bus/qos_rate.h"

#include <json/value.h>

#include "log.h"
#include "peers/bus/bus_exchange.h"
#include "result_codes.h"

int setup_qos_rate(std::string device_path, std::string config_path, int) {
    NM_LOG(Debug) << "Enter";
    Json::Value request;
    request["op"] = "2";
    request["dev"] = device_path;
    request["conf"] = config_path;
    return NM_EXIT(nm::ask_service("VelanWsd.service", "Setup_QOS", request, NM_OK));
}
