// The restart of dnsmasq.
#include "services/dns/dnsmasq.h"

#include <exception>
#include <string>

#include "log.h"
#include "peers/bus/service_bus.h"
#include "result_codes.h"
#include "utils/files.h"

void restart_dnsmasq() {
    NM_LOG(Debug) << "Enter";
    if (!is_file_exists("/var/run/network/.boot_fin")) {
        return;
    }
    try {
        std::string request;
        std::string reply;
        const int ret = vservice_call("DnsmasqMgr", "Restart", request, reply, false);
        if (ret != NM_OK) {
            NM_LOG(Error) << "restart dnsmasq failed, ret: " << ret;
        }
    } catch (const std::exception& error) {
        NM_LOG(Error) << "Unknown Error: " << error.what();
    }
}
