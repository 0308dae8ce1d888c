#!/bin/bash
# Routing truth by traffic: two uplinks whose far ends carry the same destination, and packets that leave by
# the one that their source address, their device or their firewall mark says.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/world.sh"

# call EXPECTED FUNCTION [ARG]...
call() {
    same "${*:2}" "$1" "$(kernel_call "${@:2}" 2>>"$scratch/stderr")"
}

# As a WAN port does it (mark 1) or a private one (mark 0): wipe, rules, routes.
bring_up() {
    local n=$1 mark=$2 i=$((10 + $1))
    call 0 set_ip4_route $i - 0 - 25
    call 0 set_ip4_rule $i "10.$n.0.1" 32 "$mark"
    call 0 set_ip4_route $i "10.$n.0.1" 24 "10.$n.0.2" 24
    call 0 delete_routerule "swdev$n" $i 10
    call 0 set_ip6_rule $i "2001:db8:$n::1" 32 "$mark" "swdev$n"
    call 0 set_ip6_route $i "2001:db8:$n::1" 64 "2001:db8:$n::2" 0 24
}

# Datagrams that came to a far end so far, of both families; it counts those to its closed port.
arrived() {
    ip netns exec "isp$1" awk '/^Udp: [0-9]/ {n += $3} $1 == "Udp6NoPorts" {n += $2} END {print n + 0}' \
        /proc/net/snmp /proc/net/snmp6
}

# leaves NAME UPLINK TO [OPTION]...: one datagram arrives there and none at the other; uplink 0: it can't go.
leaves() {
    local before1 before2 got=0
    before1=$(arrived 1) before2=$(arrived 2)
    if uplink_probe "${@:3}"; then
        there() { got=$(($(arrived 1) - before1 + 2 * ($(arrived 2) - before2))) && [[ $got != 0 ]]; }
        eventually 3 there || got=lost
    fi
    same "$1" "$2" "$got"
}

# leaves_both NAME UPLINK SOURCE_UPLINK [OPTION]...
leaves_both() {
    leaves "IPv4 $1" "$2" 203.0.113.9 "from=10.$3.0.1" "${@:4}"
    leaves "IPv6 $1" "$2" 2001:db8:9::9 "from=2001:db8:$3::1" "${@:4}"
}

# Rules with this text, or with "-v" without, and the routes of the tables that follow.
policy() {
    local table
    (ip rule && ip -6 rule) | grep "$1" "$2" || true
    for table in "${@:3}"; do
        (ip -d route show table "$table" && ip -6 -d route show table "$table") 2>/dev/null || true
    done
}

for n in 1 2; do
    printf 'addr add %s nodad\n' "2001:db8:$n::2/64 dev far" {203.0.113.9,2001:db8:9::9}" dev lo" |
        plug "isp$n" "swdev$n" "10.$n.0.1" "10.$n.0.2" index $((10 + n))
    ip addr add "2001:db8:$n::1/64" dev "swdev$n" nodad
done
ip rule add iif lo fwmark 0x700000/0x700000 priority 20000 lookup 999
ip -6 route add unreachable default table 999
leaves_both "without tables no packet goes" 0 1
bring_up 1 1
bring_up 2 1
for n in 1 2; do
    other=$((3 - n))
    leaves_both "by source address $n" $n $n
    leaves "IPv4 by device $n" $n 203.0.113.9 device=swdev$n
    leaves "IPv6 by device $n" $n 2001:db8:9::9 device=swdev$n
    leaves_both "a LAN mark of $n, with more bits, beats source $other" $n $other mark=$((0xab0000 + 8192 + n))
    leaves_both "a NAT mark of $n beats source $other" $n $other mark=$((4096 + n))
done
leaves_both "an unknown port leads nowhere, whatever the source" 0 1 mark=8195
before=$(policy -v 267 268 999 main)
call 0 delete_routerule swdev1 11 2
leaves "IPv4 of uplink 1 is gone" 0 203.0.113.9 from=10.1.0.1
leaves "IPv6 is still there" 1 2001:db8:9::9 from=2001:db8:1::1
call 0 delete_routerule swdev1 11 10
same "nothing of uplink 1 is left" "" "$(policy -e 267 267)"
leaves_both "uplink 1 is gone" 0 1
leaves_both "uplink 2 is there" 2 2
bring_up 1 0
leaves_both "unmarked rules: by source, whatever the mark says" 1 1 mark=8194
leaves_both "unmarked rules: no NAT mark" 0 2 mark=4097
same "the rest is untouched" "$before" "$(policy -v 267 268 999 main)"
finish
