// One step of a LAN's IPv6 service, as its set-up takes it: a record with fixed values, a unit, or another
// delegated prefix of an uplink.
#include <networkinterface.h>

#include <cstdio>
#include <string>

namespace {

int advertise(const std::string& ifname, const std::string& prefix, bool managed) {
    radvd_iface iface;
    iface.ifname = ifname;
    iface.managed = iface.other = managed;
    iface.prefix = prefix;
    iface.prefix_len = 64;
    iface.router_lifetime = 1800;
    return radvd_iface_set(&iface);
}

int serve(const std::string& ifname, const std::string& prefix) {
    const dhcpd6_iface iface{ifname, true, prefix + "53", 600, prefix, 64, prefix + "100", prefix + "100"};
    const int ret = dhcpd6_iface_set(&iface);
    return ret != NM_OK ? ret : dhcpd6_service_start(ifname);
}

int step(const std::string& verb, const std::string& ifname, const std::string& prefix) {
    if (verb == "advertise" || verb == "manage") {
        const int ret = advertise(ifname, prefix, verb == "manage");
        return ret != NM_OK ? ret : radvd_service_start();
    }
    if (verb == "renumber") {
        INITIALIZE_LOG("MAIN");
        return reconfig_pd_downlinks(ifname, prefix);
    }
    if (verb == "serve") {
        return serve(ifname, prefix);
    }
    const int stopped = dhcpd6_service_stop(ifname);
    int ret = stopped != NM_OK ? stopped : dhcpd6_iface_unset(ifname);
    ret = ret != NM_OK ? ret : radvd_iface_unset(ifname);
    return ret != NM_OK ? ret : radvd_service_start();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        return 1;
    }
    std::printf("%d\n", step(argv[1], argv[2], argv[3]));
    return 0;
}
