// Values and files of the router advertisements and of the DHCPv6 servers.
#include "services/radv/radv_files.h"

#include <algorithm>

#include "log.h"
#include "result_codes.h"
#include "utils/shell_text.h"

namespace nm {

int check_ifname(const std::string& ifname) {
    if (ifname.empty()) {
        NM_LOG(Error) << "Interface name is empty.";
        return NM_ERR_NO_IFACE;
    }
    if (!is_plain(ifname) || ifname.find('/') != std::string::npos) {
        NM_LOG(Error) << "Bad interface name: " << ifname;
        return NM_ERR_BAD_FORMAT;
    }
    return NM_OK;
}

int check_values(std::initializer_list<std::string> values) {
    for (const std::string& value : values) {
        std::string words = value;
        words.erase(std::remove(words.begin(), words.end(), ' '), words.end());
        if (!words.empty() && !is_plain(words)) {
            NM_LOG(Error) << "Bad value: " << value;
            return NM_ERR_BAD_FORMAT;
        }
    }
    return NM_OK;
}

}  // namespace nm
