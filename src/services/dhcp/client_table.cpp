// The table of an interface's DHCP clients, for the service daemon.
#include <algorithm>

#include "log.h"
#include "result_codes.h"
#include "services/dhcp/DhcpService.h"
#include "services/dhcp/dhcp_files.h"
#include "services/dhcp/server_leases.h"
#include "services/dhcp/server_reservations.h"
#include "utils/handles.h"
#include "utils/json_text.h"

namespace {

using Leases = std::map<std::string, std::map<std::string, std::string>>;

Json::Value lease_list(const Leases& leases) {
    if (leases.empty()) {
        NM_LOG(Debug) << "no lease info.";
        return "";
    }
    Json::Value list(Json::arrayValue);
    for (const auto& [address, lease] : leases) {
        Json::Value record(Json::objectValue);
        for (const auto& [key, value] : lease) {
            record[key] = value;
        }
        record["ALIVE"] = 0;
        list.append(record);
    }
    return list;
}

/// Callers hand in a zeroed buffer and read up to its first zero: no terminator is written.
int copy_out(const std::string& text, char* out, size_t size) {
    constexpr size_t kZeroed = 8;
    const auto length = static_cast<uint32_t>(text.size());
    if (static_cast<uint32_t>(size) <= length) {
        NM_LOG(Error) << "The buffer storing client_table_list_str is insufficient. Status_length:  "
                      << length << "  Buffer_size  :" << size;
        return NM_ERR_BUFFER;
    }
    std::fill_n(out, kZeroed, '\0');
    (void)text.copy(out, text.size());
    return NM_OK;
}

}  // namespace

int DhcpService::fill_client_table(char* out, size_t size) const {
    if (service_type == "DISABLED") {
        NM_LOG(Error) << "dhcpserver interface " << ifname << ", dhcp_status not enable.";
        return NM_ERR_BAD_TYPE;
    }
    Json::Value table;
    int ret = get_reserved_ip(ifname, table);
    if (ret != NM_OK) {
        return ret;
    }
    Leases leases;
    ret = get_dhcpserver_lease(ifname, leases);
    if (ret != NM_OK) {
        return ret;
    }
    table["LEASE"] = lease_list(leases);
    return copy_out(nm::write_compact_json(table), out, size);
}

int DhcpService::get_dhcp_client_table(char* out, size_t size) {
    NM_LOG(Debug) << "Enter";
    if (out == nullptr) {
        NM_LOG(Error) << "client_table_jsonout is Null pointer.";
        return NM_EXIT(NM_ERR_NULL_ARG);
    }
    if (size == 0) {
        NM_LOG(Error) << "client_table_buffer_size is not more than zero.";
        return NM_EXIT(NM_ERR_BUFFER);
    }
    nm::LockGuard lock(nm::kDhcpLock);
    if (lock.handle() < 0) {
        return NM_EXIT(lock.handle());
    }
    const int ret = fill_client_table(out, size);
    return NM_EXIT(lock.release() == NM_ERR_LOCK_MEM ? NM_ERR_LOCK_MEM : ret);
}
