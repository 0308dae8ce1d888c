#!/bin/bash
# A static uplink from request to first packet: nm_bin Setup_waninfo against ip -batch and ipset restore, with the
# peers answering and with none of them there; where the library's time goes; the processes of one request.
set -euo pipefail

source "$(dirname "$0")/../scripts/lib/bench-world"
readonly ROUNDS=30

# The provider's router, and behind it a host, which is the router itself.
make_world() {
    prepare_device 1
    ip netns add isp
    ip link add swdev1 type veth peer name uplink netns isp
    ip link set swdev1 up
    ip -n isp link set lo up
    ip -n isp link set uplink up
    ip -n isp addr add 10.1.0.1/24 dev uplink
    ip -n isp addr add 203.0.113.9/32 dev lo
}

store_document() {
    jq -n '{WAN_PORT: {PORT1: {INTERFACE: "swdev1", DEV_TYPE: "ethernet", MTU: "1500", PRIO: "1",
        ISP_BW: "1000000000"}}, WAN_IFACE_INFO: {swdev1: {ID: "1", IP4_TYPE: "STATIC", IP4_ADDR: "10.1.0.2",
        IP4_PREFIX: "24", IP4_GW: "10.1.0.1", IP6_TYPE: "DISABLED"}}}' >"$DOCUMENT"
    for act in 1 2; do
        jq -nc --arg path "$DOCUMENT" --argjson act "$act" \
            '{swdev1: {ops: 1, act: $act, path: $path}}' >"/run/request$act"
    done
}

# The same address, rules, routes and members of sets, as they were read back from a set-up by the library.
write_bare() {
    local table rule
    nm_bin Setup_waninfo @/run/request1 >/dev/null
    table=$((256 + $(cat /sys/class/net/swdev1/ifindex)))
    {
        echo "address add 10.1.0.2/24 dev swdev1"
        ip rule show table "$table" | while IFS=: read -r priority rule; do
            echo "rule add priority $priority ${rule/lookup/table}"
        done
        ip -o route show table "$table" | sed "s/.*/route add & table $table onlink/"
    } | sed -E 's/ +(onlink)? *$/ \1/; /via/! s/ onlink$//' >/run/bare.ip
    { echo "address del 10.1.0.2/24 dev swdev1" && grep ^rule /run/bare.ip | sed s/add/del/; } >/run/bare.undo
    printf 'add %s -exist\n' "localip 10.1.0.2" "WANIFSET 10.1.0.2,swdev1" >/run/bare.sets
    printf 'del %s -exist\n' "localip 10.1.0.2" "WANIFSET 10.1.0.2,swdev1" >/run/bare.sets.undo
    nm_bin Setup_waninfo @/run/request2 >/dev/null
}

compare() {
    bench_uplink_setup "$1" $ROUNDS "nm_bin Setup_waninfo @/run/request1 >/dev/null" \
        "nm_bin Setup_waninfo @/run/request2 >/dev/null" \
        "ip -batch /run/bare.ip && ipset restore </run/bare.sets" \
        "ip -batch /run/bare.undo && ipset restore </run/bare.sets.undo" 2>/run/bench.errors ||
        { cat /run/bench.errors >&2 && return 1; }
}

by_step() {
    local round
    for ((round = 0; round < ROUNDS; round++)); do
        : >"$LOG"
        nm_bin Setup_waninfo @/run/request1 >/dev/null
        cat "$LOG" >>/run/steps.log
        nm_bin Setup_waninfo @/run/request2 >/dev/null
    done
    awk -v requests="$ROUNDS" -f "$(dirname "$0")/log_steps.awk" /run/steps.log | sort -rn
}

# The tracer stands aside, so that this goes on when nm_bin ends and not with the last daemon that it started.
count_processes() {
    strace -D -f -q -e trace=execve -e status=successful -o /run/processes nm_bin Setup_waninfo @/run/request1 \
        >/dev/null
    nm_bin Setup_waninfo @/run/request2 >/dev/null
    sed -E 's/^[0-9]+ +execve\("[^"]*\/([^"\/]*)".*/\1/' /run/processes | grep -v '[^a-zA-Z0-9._-]' | sort | uniq -c |
        sort -rn | awk '{total += $1; list = list (NR > 1 ? ", " : "") $1 " " $2} END {print total ": " list}'
}

make_world
store_document
start_peers
write_bare
echo "Medians of $ROUNDS rounds: ms to the first packet and to the end of the request, ours, bare and ratio."
printf '%-22s %9s %9s %9s %9s %9s %9s\n' "" packet bare ratio request bare ratio
compare "all peers answer"
steps=$(by_step)
processes=$(count_processes)
end_peers
compare "no peer is there"
printf '\nWhere the time of a request goes when all peers answer (ms a request, from the log):\n%s\n' "$steps"
printf '\nPrograms run by one request, nm_bin among them, those of the stand-in for systemctl too:\n  %s\n' "$processes"
