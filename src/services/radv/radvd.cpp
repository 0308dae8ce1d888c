// Router advertisements: the interfaces' blocks, the daemon's file and the unit.
#include "services/radv/radvd.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <utility>

#include "log.h"
#include "result_codes.h"
#include "services/files/generated_file.h"
#include "services/radv/radv_files.h"
#include "services/radv/withdrawn.h"
#include "utils/directories.h"
#include "utils/file_io.h"
#include "utils/files.h"
#include "utils/process.h"
#include "utils/unit_names.h"
#include "utils/units.h"

namespace {

constexpr const char* kDirectory = "/var/run/network/ipv6/";
constexpr const char* kSuffix = ".radvd.conf";

/// Of this thread: a daemon works several requests at a time.
thread_local int holds = 0;
thread_local bool is_refresh_due = false;

std::string block_path(const std::string& ifname) {
    return kDirectory + ifname + kSuffix;
}

bool has_blocks() {
    return !get_cfgs_name_in_dir(kDirectory, kSuffix).empty();
}

const char* on_off(bool on) {
    return on ? "on" : "off";
}

std::string lifetime_line(const char* name, uint32_t seconds) {
    return seconds != 0 ? std::string("    ") + name + " " + std::to_string(seconds) + ";\n" : "";
}

std::string prefix_name(const radvd_iface& iface) {
    return iface.prefix + "/" + std::to_string(iface.prefix_len);
}

std::string prefix_text(const radvd_iface& iface) {
    return "  prefix " + prefix_name(iface) + "\n  {\n    AdvOnLink on;\n    AdvAutonomous " +
           on_off(!iface.managed) + ";\n    AdvRouterAddr off;\n" +
           lifetime_line("AdvPreferredLifetime", iface.preferred_lifetime) +
           lifetime_line("AdvValidLifetime", iface.valid_lifetime) + "  };\n";
}

std::string dns_text(const radvd_iface& iface) {
    if (iface.dns.empty()) {
        return "";
    }
    NM_LOG(Debug) << "RDNSS  enabling ifname : " << iface.ifname;
    return "  RDNSS " + iface.dns + "\n  {\n    AdvRDNSSLifetime 60;\n  };\n";
}

std::string block_text(const radvd_iface& iface) {
    return "interface " + iface.ifname + "\n{\n  AdvSendAdvert on;\n  AdvManagedFlag " +
           on_off(iface.managed) + ";\n  AdvOtherConfigFlag " + on_off(iface.other) +
           ";\n  MaxRtrAdvInterval 30;\n  MinRtrAdvInterval 10;\n  AdvDefaultLifetime " +
           std::to_string(iface.router_lifetime) + ";\n  AdvDefaultPreference high;\n  AdvLinkMTU 1500;\n" +
           prefix_text(iface) + nm::withdrawn_text(iface.ifname) + dns_text(iface) + "};\n\n";
}

/// Runs a command that rewrites the daemon's file while nobody else does. Its exit code.
int rewrite(const std::string& command) {
    return system_cmd(("/usr/bin/flock /etc/radvd.conf -c \"" + command + "\"").c_str());
}

int radvd_cfg_generate() {
    return rewrite("/usr/bin/cat /var/run/network/ipv6/*.radvd.conf > /etc/radvd.conf");
}

int radvd_cfg_reset() {
    return rewrite(" /usr/bin/echo -n > /etc/radvd.conf");
}

}  // namespace

int radvd_iface_set(const radvd_iface* iface) {
    NM_LOG(Debug) << "Enter";
    if (iface == nullptr) {
        NM_LOG(Error) << "iface is Null pointer.";
        return NM_EXIT(NM_ERR_NULL_ARG);
    }
    int ret = nm::check_ifname(iface->ifname);
    if (ret == NM_OK) {
        ret = nm::check_values({iface->dns, iface->prefix});
    }
    if (ret != NM_OK) {
        return NM_EXIT(ret);
    }
    const std::string path = block_path(iface->ifname);
    nm::keep_withdrawn(iface->ifname, nm::read_file(path).value_or(""), prefix_name(*iface));
    return NM_EXIT(nm::replace_locked(path, block_text(*iface)));
}

int radvd_iface_unset(std::string ifname) {
    NM_LOG(Debug) << "Enter";
    const int named = nm::check_ifname(ifname);
    if (named != NM_OK) {
        return NM_EXIT(named);
    }
    const std::string path = block_path(ifname);
    NM_LOG(Info) << "Unset file: " << path;
    const std::string block = nm::read_file(path).value_or("");
    if (unlink(path.c_str()) != 0) {
        const int reason = errno;
        NM_LOG(Error) << path << ": " << strerror(reason);
        return NM_EXIT(NM_OK);
    }
    nm::keep_withdrawn(ifname, block, "");
    return NM_EXIT(has_blocks() ? radvd_cfg_generate() : radvd_cfg_reset());
}

bool radvd_iface_exist(std::string ifname) {
    return is_file_exists(block_path(ifname));
}

int radvd_service_start() {
    NM_LOG(Debug) << "Enter";
    if (!has_blocks()) {
        NM_LOG(Debug) << "There are no existed iface radvd config in " << kDirectory
                      << "; skip start service.";
        return NM_EXIT(NM_OK);
    }
    int ret = radvd_cfg_generate();
    if (ret != NM_OK) {
        NM_LOG(Error) << "Failed to generate radvd conf!";
        return NM_EXIT(ret);
    }
    ret = service_restart(nm::kAdvertiserUnit, nullptr, nullptr);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Failed to restart service " << nm::kAdvertiserUnit << "!";
    }
    return NM_EXIT(ret);
}

int radvd_service_stop() {
    return service_stop(nm::kAdvertiserUnit, nullptr, nullptr);
}

namespace nm {

int refresh_radvd() {
    if (holds > 0) {
        is_refresh_due = true;
        return NM_OK;
    }
    return has_blocks() ? radvd_service_start() : radvd_service_stop();
}

RadvdHold::RadvdHold() {
    ++holds;
}

RadvdHold::~RadvdHold() {
    (void)release();  // logged there
}

int RadvdHold::release() {
    if (!std::exchange(is_held_, false) || --holds > 0) {
        return NM_OK;
    }
    return std::exchange(is_refresh_due, false) ? refresh_radvd() : NM_OK;
}

}  // namespace nm
