// Setup of the small sections of the device document: their rows.
#include "control/setup_sections.h"

#include <memory>

#include "config/nmconfig.h"
#include "control/setup_frame.h"
#include "services/sections/Misc.h"
#include "services/sections/Services.h"
#include "services/sections/Topology.h"
#include "utils/call_notes.h"

namespace {

template <class Section>
using Factory = int (*)(Section** out, std::string type, uint32_t act, uint32_t opt, std::string path);

template <class Section>
int setup_section(const char* class_name, Factory<Section> create, const std::string& type, uint32_t act,
                  uint32_t opt, const std::string& path) {
    NM_LOG(Debug) << "Enter";
    return NM_EXIT(nm::shielded([&] {
        Section* created = nullptr;
        const int ret = create(&created, type, act, opt, act == ACT_DEL ? kDeviceInfoPath : path);
        const std::unique_ptr<Section> section(created);
        if (ret != NM_OK) {
            NM_LOG(Error) << "Create " << class_name << " instance failed, ret=" << ret;
            return ret;
        }
        return section->setup_info();
    }));
}

/// Works all members until one asks for nothing, or does not say where.
int setup_topology(const char* json) {
    Json::Value root;
    const int ret = nm::parse_request(json, root);
    if (ret != NM_OK) {
        return ret;
    }
    int failures = 0;
    for (auto entry = root.begin(); entry != root.end(); ++entry) {
        nm::SectionMember member;
        if (nm::read_section_member(entry, member) != NM_OK) {
            return NM_ERR_BAD_FORMAT;
        }
        if (member.ops == 0 || member.path.empty()) {
            NM_LOG(Error) << "No opt or empty config path.";
            return NM_ERR_BAD_FORMAT;
        }
        const int setup_ret = nm::work_target(member.name, [&member] {
            return nm::shielded(
                [&] { return __setup_topology(member.name, member.path, member.ops, member.act); });
        });
        if (setup_ret != NM_OK) {
            NM_LOG(Error) << "Setup " << member.name << " failed, ret: " << setup_ret;
            ++failures;
        }
    }
    return failures != 0 ? NM_ERR_BAD_ACT : NM_OK;
}

}  // namespace

int _setup_service(std::string type, uint32_t act, uint32_t opt, std::string path) {
    return setup_section("Services", create_Services, type, act, opt, path);
}

int setup_services(char* json) {
    return nm::run_section_request(json, _setup_service);
}

int Setup_services(char* json) {
    return nm::run_entry(__PRETTY_FUNCTION__, [json] { return setup_services(json); });
}

int _setup_misc(std::string type, uint32_t act, uint32_t opt, std::string path) {
    return setup_section("Misc", create_Misc, type, act, opt, path);
}

int setup_misc(char* json) {
    return nm::run_section_request(json, _setup_misc);
}

int Setup_misc(char* json) {
    return nm::run_entry(__PRETTY_FUNCTION__, [json] { return setup_misc(json); });
}

int __setup_topology(std::string& type, std::string& path, uint32_t opt, uint32_t act) {
    return type == "VPN" ? Vpn(type, path, opt, act).setup() : NM_ERR_BAD_FORMAT;
}

int Setup_topology(char* json) {
    return nm::run_entry(__PRETTY_FUNCTION__, [json] { return setup_topology(json); });
}
