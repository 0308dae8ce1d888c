// Router advertisements: the interfaces' blocks, the daemon's file and the unit.
#include "services/radv/radvd.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include "log.h"
#include "result_codes.h"
#include "services/files/generated_file.h"
#include "services/radv/radv_files.h"
#include "utils/directories.h"
#include "utils/files.h"
#include "utils/process.h"
#include "utils/units.h"

namespace {

constexpr const char* kUnit = "nm-radvd";
constexpr const char* kDirectory = "/var/run/network/ipv6/";
constexpr const char* kSuffix = ".radvd.conf";

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

std::string prefix_text(const radvd_iface& iface) {
    return "  prefix " + iface.prefix + "/" + std::to_string(iface.prefix_len) +
           "\n  {\n    AdvOnLink on;\n    AdvAutonomous " + on_off(!iface.managed) +
           ";\n    AdvRouterAddr off;\n" + lifetime_line("AdvPreferredLifetime", iface.preferred_lifetime) +
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
           prefix_text(iface) + dns_text(iface) + "};\n\n";
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
    return NM_EXIT(ret == NM_OK ? nm::replace_locked(block_path(iface->ifname), block_text(*iface)) : ret);
}

int radvd_iface_unset(std::string ifname) {
    NM_LOG(Debug) << "Enter";
    const int named = nm::check_ifname(ifname);
    if (named != NM_OK) {
        return NM_EXIT(named);
    }
    const std::string path = block_path(ifname);
    NM_LOG(Info) << "Unset file: " << path;
    if (unlink(path.c_str()) != 0) {
        const int reason = errno;
        NM_LOG(Error) << path << ": " << strerror(reason);
        return NM_EXIT(NM_OK);
    }
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
    ret = service_restart(kUnit, nullptr, nullptr);
    if (ret != NM_OK) {
        NM_LOG(Error) << "Failed to restart service " << kUnit << "!";
    }
    return NM_EXIT(ret);
}

int radvd_service_stop() {
    return service_stop(kUnit, nullptr, nullptr);
}
