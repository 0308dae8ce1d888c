// The object of one interface's DHCP service: its configuration and its operations.
#include "services/dhcp/DhcpService.h"

#include <net/if.h>

#include <functional>
#include <memory>

#include "config/actions.h"
#include "config/nmconfig.h"
#include "kernel/address.h"
#include "log.h"
#include "result_codes.h"
#include "services/dhcp/dhcp_files.h"
#include "services/files/generated_file.h"
#include "utils/handles.h"
#include "utils/json_text.h"

namespace {

constexpr int kWholeAddress = 32;

void log_construction_failure(int code, const std::string& ifname, const std::string& path) {
    switch (code) {
        case NM_ERR_NULL_ARG:
            NM_LOG(Error) << "Service is NULL.";
            break;
        case NM_ERR_NOT_FOUND:
            NM_LOG(Error) << "File loading failed; path:" << path;
            break;
        case NM_ERR_NO_SECTION:
            NM_LOG(Error) << "Cannot find [" << ifname << "]'s configuration in " << path;
            break;
        case NM_ERR_NO_IFACE:
            NM_LOG(Error) << "Cannot find [" << ifname << "]'s LAN_IFACE_INFO.";
            break;
    }
}

int do_nothing() {
    NM_LOG(Info) << "Do nothing";
    return NM_OK;
}

/// Runs the operation under the lock of all DHCP services.
int run_locked(const std::function<int()>& operation) {
    nm::LockGuard lock(nm::kDhcpLock);
    if (!lock.held()) {
        return NM_ERR_LOCK;
    }
    const int ret = operation();
    return lock.release() == NM_ERR_LOCK_MEM ? NM_ERR_LOCK_MEM : ret;
}

}  // namespace

DhcpService::DhcpService(std::string name, std::string document)
    : ifname(std::move(name)), path(std::move(document)) {
    if (ifname.empty() || path.empty()) {
        throw NM_ERR_NULL_ARG;
    }
    NM_LOG(Info) << "\nifname: " << ifname << "\npath: " << path << "\n";
    const int ret = get_config();
    if (ret < 0) {
        throw ret;
    }
}

int DhcpService::get_config() {
    const int ret = read_address();
    if (ret != NM_OK) {
        return ret;
    }
    Json::Value document;
    if (json_file_to_mem(path, document) < 0) {
        return NM_ERR_NOT_FOUND;
    }
    const Json::Value& entry = nm::json_member(nm::json_member(document, "DHCP_SERVICE"), ifname);
    if (entry.empty()) {
        return NM_ERR_NO_SECTION;
    }
    read_entry(entry);
    return NM_OK;
}

int DhcpService::read_address() {
    const unsigned int ifindex = if_nametoindex(ifname.c_str());
    if (ifindex == 0) {
        NM_LOG(Error) << ifname << ": could not get ifindex.";
        return NM_ERR_NO_IFACE;
    }
    std::string address;
    if (get_ipv4_addr(ifindex, address) != NM_OK || address.empty()) {
        NM_LOG(Error) << ifname << ": could not get ip.";
        return NM_ERR_NO_IFACE;
    }
    const std::size_t slash = address.find('/');
    prefix = slash == std::string::npos ? kWholeAddress : std::stoi(address.substr(slash + 1));
    option_router = address.substr(0, slash);
    return NM_OK;
}

void DhcpService::read_entry(const Json::Value& entry) {
    service_type = nm::json_text(entry, "SERVICE");
    start_ip = nm::json_text(entry, "START_IP");
    end_ip = nm::json_text(entry, "END_IP");
    lease_time = nm::json_text(entry, "LEASE_TIME");
    reserved_ip = nm::json_member(entry, "RESERVED_IP");
    relay_servers = nm::json_member(entry, "RELAY_SERVERS");

    const Json::Value& further = nm::json_member(entry, "DNS_SERVERS");
    for (Json::ArrayIndex i = 0; further.isArray() && i < further.size(); ++i) {
        dns_servers.push_back(further[i].asString());
    }
    for (const char* key : {"PRIMARY_DNS", "SECONDARY_DNS"}) {
        const std::string server = nm::json_text(entry, key);
        if (!server.empty()) {
            dns_servers.push_back(server);
        }
    }
    if (dns_servers.empty()) {
        dns_servers.push_back(option_router);
    }
}

int DhcpService::start_by_type(uint32_t opt) {
    if (service_type == "RELAY") {
        return start_relay();
    }
    if (service_type != "SERVER") {
        return do_nothing();
    }
    const int checked = (opt & OPT_DHCP_CHECK) != 0 ? check_reserved_ip_jsonformat() : NM_OK;
    if (checked != NM_OK) {
        NM_LOG(Error) << "check_reserved_ip_jsonformat failed. ret = " << checked;
        return checked;
    }
    return start_server();
}

int DhcpService::stop_by_type() {
    if (service_type == "SERVER") {
        return stop_server(true);
    }
    return service_type == "RELAY" ? stop_relay() : do_nothing();
}

int DhcpService::restart_by_type() {
    if (service_type == "SERVER") {
        return restart_server();
    }
    return service_type == "RELAY" ? restart_relay() : do_nothing();
}

int DhcpService::add_service(uint32_t opt) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(start_by_type(opt));
}

int DhcpService::del_service(uint32_t) {
    NM_LOG(Debug) << "Enter";
    if (service_type != "SERVER" && service_type != "RELAY") {
        NM_LOG(Info) << ifname << " service type is already disable.";
        return NM_EXIT(NM_OK);
    }
    return NM_EXIT(stop_by_type());
}

int DhcpService::alt_service(uint32_t opt) {
    NM_LOG(Debug) << "Enter";
    DhcpService* created = nullptr;
    int ret = create_DHCP_SERVICE(&created, ifname, kDhcpServicePath);
    const std::unique_ptr<DhcpService> old(created);
    if (ret != NM_OK) {
        NM_LOG(Error) << ifname << " does not exist in " << kDhcpServicePath;
        return NM_EXIT(ret);
    }
    ret = old->stop_by_type();
    if (ret != NM_OK) {
        NM_LOG(Error) << "Stop dhcp " << (old->service_type == "RELAY" ? "relay " : "server ") << ifname
                      << " failed; return.";
        return NM_EXIT(ret);
    }
    return NM_EXIT(start_by_type(opt));
}

int DhcpService::stop_service() {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(run_locked([this] { return stop_by_type(); }));
}

int DhcpService::restart_service() {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(run_locked([this] { return restart_by_type(); }));
}

void DhcpService::update_option_router(std::string ip) {
    option_router = std::move(ip);
}

std::string DhcpService::get_ifname() const {
    return ifname;
}

std::string DhcpService::get_service_type() const {
    return service_type;
}

int create_DHCP_SERVICE(DhcpService** service, std::string ifname, std::string path) {
    if (service == nullptr) {
        NM_LOG(Error) << "service is Null pointer.";
        return NM_ERR_NULL_ARG;
    }
    if (*service != nullptr) {
        NM_LOG(Error) << "service is not NULL";
        return NM_ERR_NOT_NULL;
    }
    try {
        *service = new DhcpService(ifname, path);
        return NM_OK;
    } catch (int code) {
        log_construction_failure(code, ifname, path);
        return code;
    } catch (const Json::Exception& error) {
        NM_LOG(Error) << "[" << ifname << "] in " << path << " is not valid format: " << error.what();
        return NM_ERR_BAD_FORMAT;
    }
}

int remove_dhcpserver_conf() {
    NM_LOG(Debug) << "Enter";
    nm::Directory directory(nm::kDhcpDirectory);
    if (!directory) {
        NM_LOG(Error) << "Directory does not exist. path: " << nm::kDhcpDirectory;
        return NM_EXIT(NM_ERR_NULL_ARG);
    }
    while (const dirent* const entry = directory.next()) {
        const std::string path = std::string(nm::kDhcpDirectory) + "/" + entry->d_name;
        if (path.find("dhcpd") != std::string::npos) {
            nm::remove_generated(path);
        }
    }
    return NM_EXIT(NM_OK);
}
