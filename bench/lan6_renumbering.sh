#!/bin/bash
# Renumbering of 1, 10 and 50 LANs by another delegated prefix, from the report of the uplink's client to the start of
# the advertisements, with radvd, and with and without dnsmasq, which is started anew for each name and address.
set -euo pipefail

source "$(dirname "${BASH_SOURCE[0]}")/../tests/support/world.sh"

: >/run/network/.boot_fin
: >/run/network/resolv.dnsmasq
ip link add swdev1 up type veth peer name isp
ip addr add 2001:db8:f::1/64 dev swdev1 nodad

# document LANS: the device document, with LANs lan1 to lanN that are numbered from 2001:db8:1::/48.
document() {
    jq -n --argjson lans "$1" '{WAN_PORT: {PORT1: {INTERFACE: "swdev1"}}, WAN_IFACE_INFO: {swdev1: {IP4_TYPE: "DISABLED",
        IP6_TYPE: "STATIC", IP6_ADDR: "2001:db8:f::1", IP6_PREFIX: "64", IP6_GW: "2001:db8:f::2"}},
        LAN_IFACE_INFO: ([range(1; $lans + 1) | {("lan" + tostring): {IP4_TYPE: "DISABLED", IP6_TYPE: "STATIC",
            IP6_UPLINK: "PORT1", IP6_SERVICE_TYPE: "SLAAC_RDNSS", IP6_DHCP_PD: "ENABLED",
            IP6_ADDR: ("2001:db8:1:" + tostring + "::1"), IP6_PD_PREFIX: "2001:db8:1::/48"}}] | add)}' >"$DEVICE_INFO"
}

# renumber PREFIX: the report of the client, in milliseconds.
renumber() {
    local begin
    echo "{\"curr_pd_prfx\": \"$1\", \"curr_pd_prfx_len\": \"48\"}" >/run/network/ipv6/swdev1.json
    begin=$(date +%s%N)
    nm_bin Lease6_event swdev1 apply >/dev/null
    echo $((($(date +%s%N) - begin) / 1000000))
}

measure() {
    local lans=$1 number times=()
    for ((number = 1; number <= lans; ++number)); do
        [[ -e /sys/class/net/lan$number ]] || ip link add "lan$number" up type veth peer name "far$number"
        ip link set "far$number" up
    done
    document "$lans"
    nm_bin Setup_laninfo "$(jq '.LAN_IFACE_INFO | map_values({act: 1, ops: 2,
        path: "/etc/networkmanagement/device_info.json"})' "$DEVICE_INFO")" >/dev/null
    for number in 2 3 4; do
        times+=("$(renumber "2001:db8:$number::")")
        [[ $(ip -6 -o addr show scope global | grep -c "2001:db8:$number:") == "$lans" ]] || echo "not all were renumbered"
    done
    printf '%3d LANs, %-15s %6d ms (of 3 runs: %s)\n' "$lans" "$2:" \
        "$(printf '%s\n' "${times[@]}" | sort -n | sed -n 2p)" "${times[*]}"
    nm_bin Setup_laninfo "$(jq '.LAN_IFACE_INFO | map_values({act: 2, ops: 2})' "$DEVICE_INFO")" >/dev/null
}

for count in 1 10 50; do
    measure "$count" "without dnsmasq"
done
systemctl start dnsmasqmgr
for count in 1 10 50; do
    measure "$count" "with dnsmasq"
done
