# shellcheck shell=bash
# The site of the demo, brought up as a boot does it. Sourced.
source "$(dirname "${BASH_SOURCE[0]}")/world.sh"
source "$support_dir/../../scripts/lib/site"

make_site() {
    "$SITE_LIB/stock-netfilter" install
    site_plug && site_serve && site_store
    : >/run/network/resolv.dnsmasq
    systemctl start nm-base-rules
    serve ncaas ncaas
    serve rmgmtd overlayd "$scratch/calls"
    boot_site
    check "the second uplink has a lease" eventually 40 eval '[[ $(ip -4 -br addr show swdev2) == *192.0.2.130* ]]'
    rm -f /run/network/.sandbox  # not a file of the appliance
    settle_site
}

# What a boot does; a further one repairs.
boot_site() {
    local step
    nm-base-rules 2>/dev/null
    for step in "boot begin" setup_all_iface_by_config "boot finish"; do
        # shellcheck disable=SC2086  # the words of a command
        nm_bin $step >/dev/null 2>&1 || true
    done
}

settle_site() {
    check "its event is over" eventually 40 eval '! pgrep -f "nm_bin Lease_event" >/dev/null'
    check "and no address is being probed" eventually 40 eval '[[ -z $(ip -6 -o addr show tentative) ]]'
}

# unit NAME: a unit that has nothing to do with us runs.
unit() {
    printf '[Service]\nExecStart=/bin/sleep inf\n' >"/run/systemd/system/$1.service"
    systemctl daemon-reload
    systemctl start "$1"
}
