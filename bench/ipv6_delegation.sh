#!/bin/bash
# An uplink that asks for an address and a prefix by DHCPv6, and a LAN that is numbered from it: the time from the request
# to the first answer that a client of the LAN gets from the internet, by nm_bin and by systemd-networkd from its files,
# with the same provider; and what part of ours our own programs take. Ratios count. Then how long 1, 10 and 50 LANs take to
# follow another prefix, and until a client of the first has an address of it.
set -euo pipefail

source "$(dirname "$0")/../scripts/lib/bench-world"
source "$(dirname "$0")/../scripts/lib/ipv6-world"
readonly ROUNDS=${ROUNDS:-7} NETWORKD=/lib/systemd/systemd-networkd
networkd=""

make_world() {
    prepare_device 0
    start_peers
    ip netns add isp1
    at_once isp1
    ip link add swdev1 up type veth peer name far netns isp1
    ip -n isp1 link set far up
    provider6 1 isp1 far "$(link_address swdev1)"
    advertise6 1 isp1 far on
    delegate6 1 isp1 far 2001:db8:100::/48 56 600
    peers+=("$(<"$world6/kea1.pid")")
    computer6 pc br_v1
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

# write_lans COUNT: as many LANs, numbered from a prefix of 48 bits.
write_lans() {
    write_document
    jq --argjson count "$1" 'def digit: . as $n | "0123456789abcdef"[$n:$n + 1]; def hex: (. / 16 | floor | digit) + (. % 16 | digit);
        .LAN_IFACE_INFO.br_v1 as $lan | reduce range(1; $count + 1) as $n (.; .LAN_IFACE_INFO["br_v\($n)"] = $lan + {
            IP6_ADDR: "2001:db8:100:\($n | hex)::1", IP6_PD_PREFIX: "2001:db8:100::/48"})' "$DOCUMENT" >/run/lans.json
    mv /run/lans.json "$DOCUMENT"
}

lans() {
    nm_bin Setup_laninfo "$(jq -c --argjson act "$1" --arg path "$DOCUMENT" '.LAN_IFACE_INFO | map_values({ops: 2, $act, $path})' \
        "$DOCUMENT")" >/dev/null 2>>/run/bench.errors
}

eventually_numbered() {
    local deadline=$((SECONDS + 60))
    until [[ -n $(address6 pc "$1") ]]; do
        ((SECONDS < deadline)) || { echo "ipv6_delegation: no address of $1" >&2 && exit 1; }
        sleep 0.02
    done
}

# renumber PREFIX: as an event of the client does when the provider delegates this prefix.
renumber() {
    local record=/run/network/ipv6/swdev1.json begun=$EPOCHREALTIME ended
    jq -c --arg prefix "$1" '.dhcp6.prefixes = [{prefix: $prefix, length: "48", pltime: "3000", vltime: "4000"}] |
        .pdInfo = .dhcp6.prefixes | .curr_pd_prfx = $prefix | .curr_pd_prfx_len = "48"' "$record" >/run/record.json
    cp /run/record.json "$record"
    nm_bin Lease6_event swdev1 apply >/dev/null
    ended=$EPOCHREALTIME
    eventually_numbered "${1%::}:"
    echo "$begun $ended $EPOCHREALTIME"
}

# measure_renumbering COUNT: medians of three rounds, milliseconds of the event and until the client has an address.
measure_renumbering() {
    local round prefix
    write_lans "$1"
    request wan swdev1 1
    until jq -e '.curr_gateway != "" and .curr_pd_prfx != ""' /run/network/ipv6/swdev1.json >/dev/null; do sleep 0.1; done
    lans 1
    for round in 1 2 3; do
        prefix=2001:db8:$((100 + round))::
        renumber "$prefix"
    done | awk '{print ($2 - $1) * 1000, ($3 - $1) * 1000}' >/run/took.renumbering
    printf 'renumbering of %2d LANs: %6.0f ms, a client has an address after %6.0f ms\n' "$1" \
        "$(median renumbering 1)" "$(median renumbering 2)"
    lans 2
    request wan swdev1 2
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
for ((n = 2; n <= 50; n++)); do echo "link add br_v$n up type veth peer name far$n"; done | ip -batch -
for count in 1 10 50; do measure_renumbering "$count"; done
