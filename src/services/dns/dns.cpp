// The global name servers.
#include "services/dns/dns.h"

#include <json/value.h>
#include <sys/socket.h>

#include <map>
#include <memory>

#include "config/actions.h"
#include "config/nmconfig.h"
#include "log.h"
#include "result_codes.h"
#include "services/dns/name_servers.h"
#include "utils/files.h"
#include "utils/ip_text.h"
#include "utils/json_text.h"

namespace {

constexpr const char* kOwner = "global";
constexpr int kNoDocument = 1;

int first_failure(int first, int second) {
    return first != NM_OK ? first : second;
}

std::string text_of(int code, const std::string& path) {
    static const std::map<int, std::string> kTexts{
        {NM_ERR_NULL_ARG, "dns is NULL."},
        {NM_ERR_NO_KEY, "Cannot find [SERVICES]."},
        {NM_ERR_NO_SUBKEY, "Cannot find [DNS_INFO] in [SERVICES]."},
    };
    const auto text = kTexts.find(code);
    return text != kTexts.end() ? text->second : path + " is not existed.";
}

int create(std::unique_ptr<DNS>& dns, const std::string& path, const char* what) {
    DNS* created = nullptr;
    const int ret = create_DNS(&created, path);
    dns.reset(created);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Create " << what << " instance failed, ret=" << ret;
    }
    return ret;
}

}  // namespace

DNS::DNS(std::string path) : path(std::move(path)) {
    if (this->path.empty()) {
        throw NM_ERR_NULL_ARG;
    }
    const int ret = get_config();
    if (ret < NM_OK) {
        throw ret;
    }
}

int DNS::get_config() {
    Json::Value document;
    if (json_file_to_mem(path, document) != NM_OK) {
        return kNoDocument;
    }
    const Json::Value& services = nm::json_member(document, "SERVICES");
    if (services.empty()) {
        return NM_ERR_NO_KEY;
    }
    const Json::Value& info = nm::json_member(services, "DNS_INFO");
    if (info.empty()) {
        return NM_ERR_NO_SUBKEY;
    }
    manually = nm::json_string_or(info, "DNS_MANUALLY", "");
    const std::string server4 = nm::json_string_or(info, "DNS4", "");
    if (is_valid_ip(server4.c_str())) {
        dns4.push_back(server4);
    }
    const std::string server6 = nm::json_string_or(info, "DNS6", "");
    if (is_valid_ip6(server6.c_str())) {
        dns6.push_back(server6);
    }
    const Json::Value& servers = nm::json_member(info, "DNS_SERVERS");
    for (const Json::Value& entry : servers.isArray() ? servers : Json::Value::nullSingleton()) {
        const std::string server = entry.isString() ? entry.asString() : "";
        if (is_valid_ip(server.c_str())) {
            dns4.push_back(server);
        }
        if (is_valid_ip6(server.c_str())) {
            dns6.push_back(server);
        }
    }
    return NM_OK;
}

int DNS::add_dns() {
    NM_LOG(Debug) << "Enter";
    const int ret4 = dns4.empty() ? NM_OK : insert_dns_server(dns4, kOwner);
    const int ret6 = dns6.empty() ? NM_OK : insert_dns_server(dns6, kOwner);
    return NM_EXIT(first_failure(ret4, ret6));
}

int DNS::del_dns() {
    NM_LOG(Debug) << "Enter";
    const int ret4 = dns4.empty() ? NM_OK : remove_dns_server(kOwner, AF_INET);
    const int ret6 = dns6.empty() ? NM_OK : remove_dns_server(kOwner, AF_INET6);
    return NM_EXIT(first_failure(ret4, ret6));
}

int DNS::alt_dns(uint32_t opt) {
    NM_LOG(Debug) << "Enter";
    if ((opt & (OPT_IP6 | OPT_LINK)) == 0) {
        NM_LOG(Debug) << "nameservers have not been changed; return.";
        return NM_EXIT(NM_OK);
    }
    std::unique_ptr<DNS> original;
    int ret = create(original, kDeviceInfoPath, "original DNS");
    if (ret != NM_OK) {
        return NM_EXIT(ret);
    }
    ret = original->del_dns();
    if (ret == NM_OK) {
        ret = add_dns();
    }
    if (ret != NM_OK) {
        NM_LOG(Error) << "Do alt_dns failed. Restore dns to an earlier time.";
        ret = original->reset_dns(opt);
    }
    return NM_EXIT(ret);
}

int DNS::reset_dns(uint32_t opt) {
    NM_LOG(Debug) << "Enter";
    const int ret = (opt & OPT_NO_DHCP_REFRESH) != 0 ? NM_OK : writeValue(nm::kNameServersPath, "", true);
    if (ret != NM_OK) {
        NM_LOG(Error) << "writeValue with empty string to " << nm::kNameServersPath << " failed; return.";
        return NM_EXIT(ret);
    }
    return NM_EXIT(add_dns());
}

int create_DNS(DNS** dns, std::string path) {
    if (dns == nullptr || *dns != nullptr) {
        NM_LOG(Error) << "dns is not NULL";
        return NM_ERR_NOT_NULL;
    }
    try {
        *dns = new DNS(path);
        return NM_OK;
    } catch (int code) {
        NM_LOG(Error) << text_of(code, path);
        return code;
    }
}

int _setup_dns(uint32_t act, uint32_t opt, std::string path) {
    NM_LOG(Debug) << "Enter";
    std::unique_ptr<DNS> dns;
    const int ret = create(dns, act == ACT_DEL ? kDeviceInfoPath : path, "DNS");
    if (ret != NM_OK) {
        return NM_EXIT(ret);
    }
    switch (act) {
        case ACT_ADD:
            return NM_EXIT(dns->add_dns());
        case ACT_DEL:
            return NM_EXIT(dns->del_dns());
        case ACT_ALT:
            return NM_EXIT(dns->alt_dns(opt));
        default:
            NM_LOG(Error) << "Unknown act: " << act;
            return NM_EXIT(NM_ERR_BAD_ACT);
    }
}

int _reset_dns(uint32_t opt, std::string path) {
    NM_LOG(Debug) << "Enter";
    std::unique_ptr<DNS> dns;
    const int ret = create(dns, path, "DNS");
    return NM_EXIT(ret == NM_OK ? dns->reset_dns(opt) : ret);
}

int bootup_dns() {
    return _reset_dns(OPT_NO_DHCP_REFRESH, kDeviceInfoPath);
}
