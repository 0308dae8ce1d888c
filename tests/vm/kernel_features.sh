#!/bin/bash
# The machine that the tests of this directory run on has what they come here for, and our build is in it.
set -euo pipefail
# shellcheck source=tests/support/tap.sh
. "$(dirname "$0")/../support/tap.sh"

kind_of() {
    ip -j -d link show "$1" | jq -r '.[0].linkinfo.info_kind'
}
link_modes() {
    ethtool "$1" | grep -cE '^\s+Supported link modes: +10baseT/Half 10baseT/Full'
}

check "it is a world of its own" test -e /run/network/.sandbox
same "lo is up" UNKNOWN "$(ip -br link show lo | awk '{print $2}')"

ip link add kf_bond type bond
ip link add kf_dummy type dummy
same "bonding" bond "$(kind_of kf_bond)"
same "dummy devices" dummy "$(kind_of kf_dummy)"
ip link add link kf_dummy name kf_dummy.7 type vlan id 7 egress-qos-map 3:5
same "802.1Q with egress priorities" '{"from":3,"to":5}' \
    "$(ip -j -d link show kf_dummy.7 | jq -c '.[0].linkinfo.info_data.egress_qos[0]')"
ip link del kf_dummy
ip link del kf_bond

nic=$(basename "$(dirname "$(dirname "$(grep -l DRIVER=e1000e /sys/class/net/*/device/uevent)")")")
same "the emulated NIC answers requests for its settings" 1 "$(link_modes "$nic")"
check "a module of our own making: the match on conditions" iptables -A OUTPUT -m condition --condition kf -j ACCEPT
same "it has its file" 0 "$(cat /proc/net/nf_condition/kf)"
iptables -F OUTPUT

same "our build runs" 2 "$(nm_bin >/dev/null 2>&1 || echo $?)"
finish
