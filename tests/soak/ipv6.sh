#!/bin/bash
# The life of IPv6 with a real server and short leases, seen by what clients of the LANs reach: renewals, another server,
# none, and one again; uplinks without a client or a delegation; LANs and their uplink set up at once; set-ups, events and
# renumberings that are killed and repeated. Takes a quarter of an hour, so it is no part of scripts/test.
#
# usage: tests/soak/ipv6.sh [ROUNDS]     (of conflicts and of kills, 10)
set -euo pipefail
source "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/../support/world.sh"
source "$support_dir/ipv6_world.sh"
readonly ROUNDS=${1:-10} RECORD=/run/network/ipv6/swdev1.json
longest=0 results=""

# reach NAME: all four computers are answered by their provider.
reach() {
    local case
    for case in "pc1 1" "pc2 2" "pc3 2" "pc4 1"; do
        # shellcheck disable=SC2086  # a computer and a provider
        check "$1: $case" eventually 60 answered $case
    done
}

heard() {
    (($(grep -c "dhcp6 $1" "$scratch/dhcp6") >= $2))
}

end_server() {
    kill "$(<"$world6/kea1.pid")"
    while kill -0 "$(<"$world6/kea1.pid")" 2>/dev/null; do sleep 0.1; done
    rm -f "$world6/kea1.pid" /var/lib/kea/kea-dhcp6-serverid
}

# alter FILTER: uplink 1 becomes what the filter makes of its entry.
alter() {
    jq ".WAN_IFACE_INFO.swdev1 |= ($1)" "$DEVICE_INFO" >"$scratch/new.json"
    nm_bin Setup_waninfo "{\"swdev1\":{\"ops\":2,\"act\":3,\"path\":\"$scratch/new.json\"}}" | cut -d' ' -f1
    cp "$scratch/new.json" "$DEVICE_INFO"
}

# timed KIND NAME: sets a port up anew; its seconds and its result.
timed() {
    local begun=$EPOCHREALTIME
    echo "$(set_up "$1" "$2" 3) $(awk -v a="$begun" -v b="$EPOCHREALTIME" 'BEGIN {print b - a}')"
}

# at_once_set_up PORT...: several ports, a moment apart; keeps the longest time and all results.
at_once_set_up() {
    local port jobs=()
    for port in "$@"; do
        # shellcheck disable=SC2086  # a kind and a name
        timed $port >"$scratch/took.$((${#jobs[@]}))" &
        jobs+=("$!")
        sleep "0.$((RANDOM % 3))"
    done
    wait "${jobs[@]}"
    longest=$(cat "$scratch"/took.* | awk -v max="$longest" '$2 > max {max = $2} END {print max}')
    results+=$(cut -d' ' -f1 "$scratch"/took.*)$'\n'
}

# while_locked NAME SECONDS COMMAND...: somebody else holds the lock of this interface so long.
while_locked() {
    flock "/var/lock/network/$1.lck" sleep "$2" &
    daemons+=("$!")
    sleep 0.2
    "${@:3}"
}

# killed COMMAND...: dies at some moment, and is repeated.
killed() {
    timeout -s KILL "0.$(printf %03d $((RANDOM % 400 + 1)))" "$@" >/dev/null 2>&1 || true
    "$@" >/dev/null 2>&1 || true
}

kill_an_event() {
    local pid=""
    eventually 20 eval 'pid=$(pgrep -of "nm_bin Lease6_event swdev1 apply")' || return 0
    sleep "0.$(printf %03d $((RANDOM % 600)))"
    kill -KILL "$pid" 2>/dev/null || true
}

is_at() {
    [[ $(jq -r '.LAN_IFACE_INFO.br_v1 | "\(.IP6_ADDR) \(.IP6_PD_PREFIX)"' "$DEVICE_INFO") == "$1:1::1 $1::/56" ]] &&
        [[ $(ip -6 -o addr show dev br_v1 scope global | awk '{print $4}') == "$1:1::1/64" ]] &&
        grep -q "prefix $1:1::/64" /etc/radvd.conf && jq -e . "$DEVICE_INFO" >/dev/null && leaves pc1 1 "$1:1:"
}

make_world6
ip netns exec isp1 tcpdump -lnni far udp port 547 >"$scratch/dhcp6" 2>/dev/null &
daemons+=("$!")
set_up_world6
check "a lease of the LAN" lease6 pc2
reach "set up"

check "leases are renewed beyond their lifetime" eventually 60 heard renew 10
reach "renewed"
end_server
delegate6 1 isp1 far 2001:db8:100::/56 56 3
check "another server is asked" eventually 40 heard rebind 1
reach "rebound"
end_server
check "without a server the lease ends" eventually 60 eval '[[ -z $(ip -6 addr show dev swdev1 scope global) ]]'
check "and with it what was delegated" eventually 60 answered pc1 ""
answered pc2 2 && echo "ok the other uplink does not mind"
delegate6 1 isp1 far 2001:db8:100::/56 56 3
reach "the server is back"

same "a static uplink" 0 "$(alter '. + {IP6_TYPE: "STATIC", IP6_ADDR: "2001:db8:1::2", IP6_PREFIX: "64", IP6_GW: "2001:db8:1::1"}')"
reach "static"
same "DHCPv6 without a delegation" 0 "$(alter '{ID, IP4_TYPE, IP6_TYPE: "DHCPV6"}')"
reach "undelegated"
same "and with one again" 0 "$(alter '. + {IP6_DHCP_PD: "ENABLED"}')"
reach "delegated"

eventually 60 is_quiet
: >"$MAIN_LOG"
while_locked swdev1 40 timed lan br_v1 >"$scratch/waited"
check "a LAN waits ten seconds for its uplink: $(<"$scratch/waited")" \
    awk '{exit !($1 == 0 && $2 >= 9 && $2 < 20)}' "$scratch/waited"
check "is skipped" grep -q "br_v1 has no source route until it or its uplink changes, or the uplink's client reports" "$MAIN_LOG"
check "and follows by itself" eventually 60 is_settled
jq -c '.in_force = {}' "$RECORD" >"$scratch/record" && cp "$scratch/record" "$RECORD"
: >"$MAIN_LOG"
check "a LAN that is in use when its uplink changes is skipped" \
    while_locked br_v1 40 eventually 39 grep -q "br_v1 follows swdev1 when it is free" "$MAIN_LOG"
check "and follows by itself, too" eventually 90 is_settled
for ((round = 0; round < ROUNDS; round++)); do
    at_once_set_up "wan swdev1" "lan br_v1" "lan br_v4"
    at_once_set_up "lan br_v4" "lan br_v1" "wan swdev1"
done
check "who waits, waits no longer than for the locks" awk -v max="$longest" 'BEGIN {exit !(max < 35)}'
echo "# longest $longest s; results: $(sort <<<"$results" | uniq -c | xargs)"
check "at once: all follow in the end" eventually 90 is_settled
reach "at once"

for ((round = 0; round < ROUNDS; round++)); do
    killed nm_bin Setup_laninfo "{\"br_v1\":{\"ops\":2,\"act\":3,\"path\":\"$DEVICE_INFO\"}}"
    check "a killed set-up of a LAN, repeated ($round)" eventually 60 is_settled
    jq -c '.in_force = {}' "$RECORD" >"$scratch/record" && cp "$scratch/record" "$RECORD"
    killed nm_bin Lease6_event swdev1 apply
    check "a killed event, repeated ($round)" eventually 60 is_settled
done
for ((round = 1; round <= ROUNDS; round++)); do
    delegate6 1 isp1 far "2001:db8:1$((80 + round))::/56" 56 3
    kill_an_event
    check "a killed renumbering, reported again ($round)" eventually 90 is_at "2001:db8:1$((80 + round))"
done
reach "killed"
finish
