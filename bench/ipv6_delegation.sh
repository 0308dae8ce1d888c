#!/bin/bash
# An uplink that asks for an address and a prefix by DHCPv6, and a LAN that is numbered from it: the time from the request
# to the first answer that a client of the LAN gets from the internet, by nm_bin and by systemd-networkd from its files,
# with the same provider; and what part of ours our own programs take. Ratios count.
set -euo pipefail

[[ -e /run/network/.sandbox ]] || {
    echo "ipv6_delegation: not in the sandbox; run scripts/bench" >&2
    exit 2
}

source "$(dirname "$0")/../scripts/lib/ipv6-world"
BUILD=$(readlink -f "${NM_BUILD_DIR:-build}")
readonly BUILD ROUNDS=${ROUNDS:-7} NETWORKD=/lib/systemd/systemd-networkd
readonly LOG=/var/log/network/main.log DOCUMENT=/etc/networkmanagement/device_info.json
export PATH=$BUILD/bin:$PATH
peers=()
networkd=""
trap 'kill "${peers[@]}"; systemctl stop dnsmasqmgr' EXIT

make_world() {
    touch /run/network/.boot_fin
    : >/run/network/resolv.dnsmasq
    nm-base-rules 2>/dev/null
    printf 'model=VM\ndevid=0\nlocal_mgmt=0\n' >/etc/networkmanagement/ncaas.conf
    ncaas &
    peers+=("$!")
    overlayd /dev/null &
    peers+=("$!")
    systemctl start dnsmasqmgr
    ip netns add isp1
    at_once isp1
    ip link add swdev1 up type veth peer name far netns isp1
    ip -n isp1 link set far up
    provider6 1 isp1 far "$(link_address swdev1)"
    advertise6 1 isp1 far on
    delegate6 1 isp1 far 2001:db8:100::/48 56 600
    peers+=("$(<"$world6/kea1.pid")")
    computer6 pc br_v1
    until [[ -S /run/vservice/VelanWmd.sock && -S /run/vservice/ncaas.sock ]]; do sleep 0.05; done
}

write_document() {
    jq -n '{WAN_PORT: {PORT1: {INTERFACE: "swdev1", DEV_TYPE: "ethernet"}},
        WAN_IFACE_INFO: {swdev1: {ID: "1", IP4_TYPE: "DISABLED", IP6_TYPE: "DHCPV6", IP6_DHCP_PD: "ENABLED"}},
        LAN_IFACE_INFO: {br_v1: {IP4_TYPE: "DISABLED", IP6_TYPE: "STATIC", IP6_ADDR: "2001:db8:100:1::1", IP6_PREFIX: "64",
            IP6_UPLINK: "PORT1", IP6_SERVICE_TYPE: "SLAAC_RDNSS", IP6_DHCP_PD: "ENABLED",
            IP6_PD_PREFIX: "2001:db8:100::/56"}}}' >"$DOCUMENT"
}

write_networkd_files() {
    mkdir -p /run/systemd/network /run/systemd/netif/{links,leases,lldp}
    rm -rf /etc/systemd/network
    chown -R systemd-network: /run/systemd/netif
    printf '%s\n' '[Match]' Name=swdev1 '[Network]' DHCP=ipv6 IPv6AcceptRA=yes IPForward=ipv6 '[DHCPv6]' \
        PrefixDelegationHint=::/56 >/run/systemd/network/10-wan.network
    printf '%s\n' '[Match]' Name=br_v1 '[Network]' DHCPPrefixDelegation=yes IPv6SendRA=yes IPForward=ipv6 \
        '[DHCPPrefixDelegation]' UplinkInterface=swdev1 SubnetId=1 >/run/systemd/network/20-lan.network
}

request() {
    nm_bin "Setup_$1info" "{\"$2\":{\"ops\":2,\"act\":$3,\"path\":\"$DOCUMENT\"}}" >/dev/null 2>>/run/bench.errors
}

by_library() {
    request wan swdev1 1
    request lan br_v1 1
    requested=$EPOCHREALTIME
}

# Without udev it has to believe that it is in a container, where /sys is read-only.
by_networkd() {
    unshare -m sh -c 'mount -o bind /sys /sys && mount -o remount,bind,ro /sys && exec "$0"' "$NETWORKD" 2>/run/networkd.log &
    networkd=$!
}

undo_library() {
    request lan br_v1 2
    request wan swdev1 2
}

undo_networkd() {
    kill "$networkd"
    wait "$networkd" || true
    ip -6 addr flush dev swdev1 scope global
    ip -6 addr flush dev br_v1 scope global
    ip -6 route flush proto dhcp
    ip -6 route flush proto ra
}

# A computer that has just been switched on.
reset_client() {
    ip -n pc link set eth0 down
    ip -n pc link set eth0 up
    link_address br_v1 >/dev/null
    link_address eth0 pc >/dev/null
}

await_answer() {
    local deadline=$((SECONDS + 60))
    until ip netns exec pc ping -q -c 1 -W 0.2 "$EVERYWHERE6" >/dev/null 2>&1; do
        ((SECONDS < deadline)) || { echo "ipv6_delegation: $1: no answer" >&2 && tail -n 5 /run/bench.errors >&2; exit 1; }
        sleep 0.02
    done
}

# Seconds that the events of the lease took, by the log: from where each began to where it ended.
event_seconds() {
    awk 'function at(t) {split(t, part, ":"); return part[1] * 3600 + part[2] * 60 + part[3]}
        /Lease6_event\(/ {begun[$3] = at($2)} $3 in begun {ended[$3] = at($2)}
        END {for (id in begun) sum += ended[id] - begun[id]; print sum + 0}' "$LOG"
}

# measure WAY: milliseconds until the answer; of the library also those of its requests and of its events.
measure() {
    local begun
    reset_client
    : >"$LOG"
    requested=0
    begun=$EPOCHREALTIME
    "by_$1"
    await_answer "$1"
    awk -v a="$begun" -v b="$EPOCHREALTIME" -v c="$requested" -v e="$(event_seconds)" \
        'BEGIN {print (b - a) * 1000, (c > 0 ? c - a : 0) * 1000, e * 1000}' >>"/run/took.$1"
    "undo_$1" || true
}

# median WAY COLUMN
median() {
    awk -v c="$2" '{print $c}' "/run/took.$1" | sort -n | awk '{v[NR] = $1} END {print v[int((NR + 1) / 2)]}'
}

[[ -x $NETWORKD ]] || { echo "ipv6_delegation: $NETWORKD is missing" >&2 && exit 1; }
make_world
write_document
write_networkd_files
for ((round = 0; round < ROUNDS; round++)); do
    measure library
    measure networkd
done
printf 'ms, medians of %d: request to the first answer\n' "$ROUNDS"
printf '%-10s %8.0f\n' ours "$(median library 1)" networkd "$(median networkd 1)"
printf 'of ours: requests %.0f, events %.0f (%.0f %%)\n' "$(median library 2)" "$(median library 3)" \
    "$(awk -v t="$(median library 1)" -v r="$(median library 2)" -v e="$(median library 3)" 'BEGIN {print 100 * (r + e) / t}')"
