#!/bin/bash
# Requests to the service daemon by the minute and by the ten thousand: first queries and applies by many clients at
# once, then each method with every kind of request, for which the commands of packet filter and units do nothing, as the
# daemon alone is looked at. Every reply is checked; the daemon may hold no more descriptors and hardly more memory than
# after the first tenth, and no lock may stay taken. Takes half an hour, so it is no part of scripts/test.
#
# usage: tests/soak/bus.sh [COUNT [SECONDS [CLIENTS]]]     (10000 requests a method, 180 seconds, 64 clients; 0: not at all)
set -euo pipefail
source "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/../support/world.sh"
source "$support_dir/uplink_world.sh"

readonly COUNT=${1:-10000} DURATION=${2:-180} CLIENTS=${3:-64} STORE=/etc/networkmanagement

# make_documents PORTS
make_documents() {
    document "$DEVICE_INFO" "reduce range(1; 1 + $1) as \$n (.; ports[\"PORT\\(\$n)\"] +=
        {INTERFACE: \"swdev\\(\$n)\", PRIO: \"1\"})"
    jq -n '{RULES: {SITE: [{ACTION: "DENY", DST_IP: "10.0.0.1"}]}}' >$STORE/firewall.json
    jq -n '{RULES: {SITE: [{GROUP: 2, STEERING: "DIRECT", INTERFACE: "PORT1", DST_IP: "10.0.0.2"}]}}' >$STORE/policy.json
    jq -n '{a: ["10.0.0.0/8"]}' >$STORE/segment.json
    jq -n '{STATIC_ROUTE: [{ACTION: "ENABLE", IP: "10.9.0.0", NETMASK: "24", NEXTHOP_ADDRESS: "10.1.0.1"}]}' \
        >$STORE/static_route.json
    jq -n '{staticRoute6: []}' >$STORE/static_route6.json
    jq -n '{QOS: {DEFAULT_CLASS: "3"}}' >$STORE/qos.json
}

is_free() {
    flock -n "$1" true
}

no_lock_left() {
    local file
    for file in /run/lock/network/*.lck; do
        is_free "$file" || echo "$file"
    done
}

# storm ARG...: what it says, and that the daemon's memory has stayed.
storm() {
    local status=0
    bus_storm "$@" "$daemon" | tee "$scratch/storm" || status=$?
    same "$1: no wrong reply, no descriptor left" 0 "$status"
    check "$1: the memory stays" test "$(sed -nE 's/^wrong.*memory (-?[0-9]+) kB more/\1/p' "$scratch/storm")" -lt 2048
    same "$1: no lock stays" "" "$(no_lock_left)"
}

make_uplinks
ip addr add 10.1.0.2/24 dev swdev1
"$support_dir/../../scripts/lib/stock-netfilter" install
nm-base-rules
make_documents "$CLIENTS"
nm_serviced &
daemon=$!
daemons+=("$daemon")
eventually 20 test -S /run/vservice/networkmanagement.sock
[[ $DURATION == 0 ]] || storm mixed "$DURATION" "$CLIENTS"
make_documents 2
for command in {,/usr}/sbin/{ip,ip6}tables{,-restore} {,/usr}/sbin/ipset /usr/sbin/firewall{,6}.sh /usr/bin/systemctl; do
    [[ ! -e $command ]] || ln -sf /usr/bin/true "$command"
done
[[ $COUNT == 0 ]] || storm each "$COUNT"
finish
