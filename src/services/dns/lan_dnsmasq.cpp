// The listening addresses of dnsmasq.
#include "services/dns/lan_dnsmasq.h"

#include <json/value.h>

#include "log.h"
#include "peers/bus/service_bus.h"
#include "result_codes.h"
#include "utils/json_text.h"

int setup_lan_dnsmasq(int add, std::string address) {
    NM_LOG(Debug) << "Enter";
    Json::Value request;
    request["addr"] = address;
    std::string input = nm::write_compact_json(request);
    std::string reply;
    const int ret = vservice_call("DnsmasqMgr", add != 0 ? "Add_addr" : "Del_addr", input, reply, false);
    if (ret != NM_OK) {
        NM_LOG(Error) << "setup_lan_dnsmasq failed, ret: " << ret;
    }
    return NM_EXIT(ret);
}
