// Bring-up of all interfaces, in its fixed order.
#include "control/bring_up.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <string>

#include "config/document_scope.h"
#include "config/nmconfig.h"
#include "config/port_lookup.h"
#include "config/schema.h"
#include "control/setup_dhcp.h"
#include "control/setup_frame.h"
#include "control/setup_lan.h"
#include "control/setup_private.h"
#include "control/setup_rglink.h"
#include "control/setup_sections.h"
#include "control/setup_wan.h"
#include "interfaces/lan/VlanBrif.h"
#include "log.h"
#include "peers/bus/appliance_services.h"
#include "peers/bus/service_bus.h"
#include "policy/balance/load_balance.h"
#include "policy/edge/tcp_mss.h"
#include "result_codes.h"
#include "services/dhcp/DhcpService.h"
#include "services/dhcp/dhcp_defaults.h"
#include "services/radv/radvd.h"
#include "utils/call_notes.h"
#include "utils/json_text.h"
#include "utils/run_scope.h"

namespace {

using Clock = std::chrono::steady_clock;

/// A section of the device document whose members are ports, segments or interfaces.
struct Section {
    const char* name;
    const char* label;
    uint32_t mask;
    nm::TargetFunction target;
};

/// In the order in which they come up.
constexpr Section kSections[] = {
    {"WAN_PORT", "setup_wanif: ", 63, _setup_wanif},
    {"PRIVATE_PORT", "setup_privateif: ", 63, _setup_privateif},
    {"RGLINK_PORT", "setup_rglinkif: ", 63, _setup_rglinkif},
    {"VLAN_SEG", "setup_vlanbr: ", 7, _setup_vlanbr},
    {"LAN_PORT", "setup_lanif: ", 63, _setup_lanif},
    {"WAN_IFACE_INFO", "setup_waninfo: ", 15, _setup_waninfo},
    {"PRIVATE_IFACE_INFO", "setup_privateinfo: ", 1, _setup_privateinfo},
    {"RGLINK_IFACE_INFO", "setup_rglinkinfo: ", 7, _setup_rglinkinfo},
    {"LAN_IFACE_INFO", "setup_laninfo: ", 31, _setup_laninfo},
};
constexpr uint32_t kMiscMask = 32;
constexpr uint32_t kDhcpMask = 511;
constexpr int kHealthManagerSeconds = 120;

/// What depends on the set of uplinks, in order.
struct FollowUp {
    const char* label;
    nm::FollowUp work;
};

constexpr FollowUp kBalancing[] = {
    {"setup_site_to_site_load_balance: ", setup_site_to_site_load_balance},
    {"setup_lan_to_wan_load_balance: ", setup_lan_to_wan_load_balance},
    {"setup_local_single_wan_nf_condiftion: ", setup_local_single_wan_nf_condiftion},
};

/// One bring-up.
class Run {
public:
    Run(uint32_t opt, bring_up_report report, void* data) : opt_(opt), report_(report), data_(data) {}

    int all();

private:
    using Member = std::function<int(const std::string& key, uint32_t opt)>;

    /// What the walk over a section is handed.
    struct Walk {
        Run& run;
        const char* label;
        uint32_t opt;
        Member work;
    };

    static int work_member(std::string key, void* data);
    int step(const char* label, const std::string& key, const std::function<int()>& work, bool counts = true);
    /// One that the result of the run does not look at.
    int extra(const char* label, const std::function<int()>& work) { return step(label, "", work, false); }
    void fail_at(const char* label, const std::string& key, int ret);
    void walk(Json::Value& document, const char* section, const Walk& walk);
    void set_up_ports(Json::Value& device);
    void set_up_parameters(Json::Value& device);
    void set_up_dhcp_services();
    void finish();

    uint32_t opt_;
    bring_up_report report_;
    void* data_;
    int ret_ = NM_OK;
};

/// Whoever watches the run knows the step by its label as far as the colon, and its key.
std::string name_of(const std::string& label, const std::string& key) {
    const std::string name = label.substr(0, label.rfind(": "));
    return key.empty() ? name : name + " " + key;
}

int Run::step(const char* label, const std::string& key, const std::function<int()>& work, bool counts) {
    const auto begun = Clock::now();
    const int ret = nm::work_target(name_of(label, key), [&work] { return nm::shielded(work); });
    const auto spent = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begun);
    ret_ = counts && ret < NM_OK ? ret : ret_;
    if (report_ != nullptr) {
        const bring_up_step ended{label, key.c_str(), ret, static_cast<uint64_t>(spent.count()), counts};
        report_(&ended, data_);
    }
    return ret;
}

/// What fails before there is a member to work is a step of its own, for whoever follows the run.
void Run::fail_at(const char* label, const std::string& key, int ret) {
    (void)step(label, key, [ret] { return ret; });
}

int Run::work_member(std::string key, void* data) {
    const Walk& walk = *static_cast<const Walk*>(data);
    const int ret = walk.run.step(walk.label, key, [&] { return walk.work(key, walk.opt); });
    if (ret < NM_OK) {
        NM_LOG(Error) << walk.label << key << " failed!";
    }
    return ret;
}

void Run::walk(Json::Value& document, const char* section, const Walk& walk) {
    if (!document.isObject() || !document.isMember(section)) {
        NM_LOG(Debug) << "no [" << section << "]";
        return;
    }
    Walk handed = walk;
    const int ret = json_key_foreach_value_do(document, section, false, work_member, &handed);
    if (ret < NM_OK && !document[section].isObject()) {
        fail_at(walk.label, section, ret);
    }
}

void Run::set_up_ports(Json::Value& device) {
    std::string model;
    if (step("get_model: ", "", [&] { return get_model(model); }) != NM_OK) {
        NM_LOG(Error) << "Could not get [MODEL] through ncaas, return.";
        return;
    }
    const nm::RadvdHold advertisements;
    const bool tag_based = std::count(tag_based_model_list.begin(), tag_based_model_list.end(), model) != 0;
    for (const Section& section : kSections) {
        if (section.target == _setup_vlanbr && !tag_based) {
            continue;
        }
        walk(device, section.name,
             {*this, section.label, opt_ | section.mask, [&](const std::string& key, uint32_t opt) {
                  return section.target(key, ACT_ADD, opt, kDeviceInfoPath, device);
              }});
    }
}

void Run::set_up_parameters(Json::Value& device) {
    walk(device, "MISC", {*this, "setup_misc: ", opt_ | kMiscMask, [](const std::string& key, uint32_t opt) {
                              return _setup_misc(key, ACT_ADD, opt, kDeviceInfoPath);
                          }});
}

void Run::set_up_dhcp_services() {
    Json::Value services;
    const int ret = json_file_to_mem(kDhcpServicePath, services);
    if (ret < 0) {
        NM_LOG(Error) << "Could not get " << kDhcpServicePath << ", return.";
        if (ret != NM_ERR_NOT_FOUND) {  // a device without a DHCP service may have no document
            fail_at("json_file_to_mem: ", kDhcpServicePath, ret);
        }
        return;
    }
    (void)step("migrate_dhcp_service: ", "",
               [&] { return migrate_dhcp_service(services, kDhcpServicePath); });
    walk(services, "DHCP_SERVICE",
         {*this, "setup_dhcpservice: ", opt_ | kDhcpMask, [](const std::string& key, uint32_t opt) {
              return _setup_dhcpservice(key, ACT_ADD, opt, kDhcpServicePath);
          }});
}

/// None of it changes the result: the ports are set up, and each logs what it could not do.
void Run::finish() {
    (void)extra("set_tcp_mss: ", [] { return set_tcp_mss(kDeviceInfoPath); });
    (void)extra("update_network_info: ", [] { return update_network_info(kHealthManagerSeconds); });
}

int Run::all() {
    NM_LOG(Debug) << "Enter";
    const nm::DocumentScope documents;
    const nm::RunScope run;
    Json::Value device;
    int ret = json_file_to_mem(kDeviceInfoPath, device);
    ret = ret == NM_OK && !device.isObject() ? NM_ERR_BAD_FORMAT : ret;
    if (ret < 0) {
        NM_LOG(Error) << "Could not get " << kDeviceInfoPath << ", return.";
        return NM_EXIT(ret);
    }
    set_up_ports(device);
    set_up_parameters(device);
    for (const FollowUp& balancing : kBalancing) {
        (void)extra(balancing.label, [&] { return balancing.work(kDeviceInfoPath); });
    }
    if (extra("copy_save_to_curr: ", copy_save_to_curr) < NM_OK) {
        NM_LOG(Error) << "Doing copy_save_to_curr failed";
    }
    set_up_dhcp_services();
    finish();
    return NM_EXIT(ret_);
}

}  // namespace

int setup_all_iface_by_config(uint32_t opt, bring_up_report report, void* data) {
    return nm::run_entry(__PRETTY_FUNCTION__, [=] { return Run(opt, report, data).all(); });
}

int setup_all_iface_by_config(uint32_t opt) {
    return setup_all_iface_by_config(opt, nullptr, nullptr);
}
