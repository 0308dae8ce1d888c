#!/bin/bash
# Load balancing by traffic: two uplinks with rates of 3 to 1, hosts of the LAN behind the base chains, and the
# rules of the library with the kernel's own match `condition`.
set -euo pipefail
source "$(dirname "$0")/../support/world.sh"

readonly CONNECTIONS=2000
readonly CHANCE=97  # five standard deviations of 2,000 choices at 3 to 1
readonly CONDITIONS=/proc/net/nf_condition

make_world() {
    local n i
    for n in 1 2; do
        i=$((10 + n))
        printf '%s\n' "addr add 203.0.113."{9,10}" dev lo" "route add 192.168.8.0/24 via 10.$n.0.1" |
            plug "isp$n" "swdev$n" "10.$n.0.1" "10.$n.0.2" index $i
        kernel_call set_ip4_rule $i "10.$n.0.1" 32 1 >/dev/null
        kernel_call set_ip4_route $i "10.$n.0.1" 24 "10.$n.0.2" 24 >/dev/null
    done
    printf '%s\n' "addr add 2001:db8:8::2/64 dev far nodad" "route add default via "{192.168.8.1,2001:db8:8::1} |
        plug lan swdev8 192.168.8.1 192.168.8.2
    ip addr add 2001:db8:8::1/64 dev swdev8 nodad
    ip -6 route add 2001:db8:9::/64 via fe80::2 dev swdev2 onlink
    plug line swdev3 10.3.0.1 10.3.0.2 <<<$'addr add 10.73.0.9 dev lo\nroute add default via 10.3.0.1'
    ip route add 10.73.0.0/24 dev swdev3 table 251
    # A round comes at once, and each uplink's neighbour has to be known by then.
    for n in 1 2; do
        eventually 30 ping -c 1 -W 1 "10.$n.0.2"
    done >/dev/null
    nm-base-rules
    firewall.sh edit_ipset add LANIFSET 192.168.8.0/24,swdev8
    firewall.sh edit_ipset add lan 192.168.8.0/24
    firewall6.sh edit_ip6_ipset add ip6_lan 2001:db8:8::/64
    firewall6.sh edit_ip6_ipset add ip6_rlan 2001:db8:9::/64
    : >/run/network/.boot_fin
}

# balance [FILTER]: the ports come as a jq filter of the usual two says.
balance() {
    jq -n '{WAN_PORT: {PORT1: {DEV_TYPE: "virtio", INTERFACE: "swdev1", PRIO: "1", TX_RATE: "30"},
                       PORT2: {DEV_TYPE: "virtio", INTERFACE: "swdev2", PRIO: "2", TX_RATE: "10"}}} | '"${1:-.}" \
        >"$DEVICE_INFO"
    setup "{\"PORT1\":{\"ops\":16,\"act\":3,\"path\":\"$DEVICE_INFO\"}}"
}

alive() {
    echo "$2" >"$CONDITIONS/$1"
    echo "$2" >"$CONDITIONS/${1}_ncsi"
}

# IPv4 is counted where it arrives, IPv6 by its mark: between sites it is the overlay that carries it.
arrived() {
    ip netns exec "isp$1" awk '/^Udp: [0-9]/ {print $3}' /proc/net/snmp
}
marked() {
    ip6tables -t mangle -xnvL POSTROUTING | awk -v "mark=0x$1/0xf" '$NF == mark {print $1}'
}

# rounds COUNT TO BETWEEN: two rounds of the same connections, to an address that had none before, as the source
# ports may be those of earlier ones. $first and $second hold what each uplink got.
rounds() {
    local count=$1 to=$2 between=$3
    local start=("$("$count" 1)" "$("$count" 2)")
    mkfifo "$scratch/go"
    ip netns exec lan uplink_probe "$to" "count=$CONNECTIONS" <"$scratch/go" &
    exec {go}>"$scratch/go"
    wait_for() {
        echo >&"$go"
        all() { (($("$count" 1) + $("$count" 2) - start[0] - start[1] >= $1)); }
        eventually 60 all "$1" || true
    }
    wait_for "$CONNECTIONS"
    first=("$(($("$count" 1) - start[0]))" "$(($("$count" 2) - start[1]))")
    $between
    wait_for $((2 * CONNECTIONS))
    second=("$(($("$count" 1) - start[0] - first[0]))" "$(($("$count" 2) - start[1] - first[1]))")
    exec {go}>&-
    wait "$!"
    rm "$scratch/go"
}

spreads() {
    check "$1: all went, 3 to 1 ($2, $3)" test $(($2 + $3)) = "$CONNECTIONS" -a \
        $(($2 - CONNECTIONS * 3 / 4)) -le "$CHANCE" -a $((CONNECTIONS * 3 / 4 - $2)) -le "$CHANCE"
}

# loads NAME S2SLB WITHOUT_MPLS WANLB IP6 [FILTER]: so many rules of each chain are there afterwards.
loads() {
    balance "${6:-.}"
    same "$1: rules" "${*:2:4}" "$(iptables-save -t mangle | awk '
        $1 == "-A" {++n[$2]} END {print n["S2SLB"] + 0, n["S2SLB_WITHOUT_MPLS"] + 0, n["WANLB"] + 0}') $(
        ip6tables-save -t mangle | grep -c '^-A S2SLB')"
}

die() {
    alive swdev1 0
}

make_world
loads "one port" 6 3 5 3 'del(.WAN_PORT.PORT2)'
nm-base-rules
same "it is the only one, also for a second run of the base rules" 1 "$(<"$CONDITIONS/single_wan_condition")"
loads "eight ports, two of them private" 27 15 20 13 '.WAN_PORT as $p | reduce range(3; 7) as $n (.;
    .WAN_PORT["PORT\($n)"] = $p.PORT2 + {INTERFACE: "swdev\($n)"}) | reduce range(7; 9) as $n (.;
    .PRIVATE_PORT["PORT\($n)"] = $p.PORT2 + {INTERFACE: "swdev\($n)"})'
loads "a set that cannot be loaded leaves the old one" 27 15 20 13 '.WAN_PORT.PORT1.INTERFACE = "a/b"'
loads "two ports" 9 5 8 5
same "neither is the only one" 0 "$(<"$CONDITIONS/single_wan_condition")"
alive swdev1 1
alive swdev2 1
rounds arrived 203.0.113.9 :
spreads "IPv4" "${first[@]}"
for to in 10.3.0.2 10.73.0.9; do
    check "a private line and a static route by it are not balanced ($to)" ip netns exec lan ping -qc 1 -W 2 "$to"
done
same "connections keep their uplink" "${first[*]}" "${second[*]}"
rounds arrived 203.0.113.10 die
spreads "IPv4 again" "${first[@]}"
same "those of a dead uplink move" "0 $CONNECTIONS" "${second[*]}"
alive swdev1 1
for n in 1 2; do
    ip6tables -t mangle -A POSTROUTING -m mark --mark "$n/0xf"
done
rounds marked 2001:db8:9::9 die
spreads "IPv6" "${first[@]}"
same "IPv6 connections stay where they are" "${first[*]}" "${second[*]}"
rounds marked 2001:db8:9::10 :
same "IPv6: new ones avoid a dead uplink" "0 $CONNECTIONS 0 $CONNECTIONS" "${first[*]} ${second[*]}"
finish
