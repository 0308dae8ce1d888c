// Restarts the stored DHCP service of an interface with another router, as its LAN does when its address
// changes.
#include <networkinterface.h>

#include <cstdio>
#include <memory>

int main(int argc, char** argv) {
    DhcpService* made = nullptr;
    if (argc != 3 || create_DHCP_SERVICE(&made, argv[1], kDhcpServicePath) != NM_OK) {
        return 1;
    }
    const std::unique_ptr<DhcpService> service(made);
    service->update_option_router(argv[2]);
    std::printf("%d\n", service->restart_service());
    return 0;
}
