#!/bin/bash
# What an operator sees of a device with 200 ports and 10,000 rules of the firewall: the time of nm_bin owners, status and
# explain against that of reading the same things with ip, ipset and iptables alone. Ratios of one run count. For drift, which
# boots the device in a copy, the time of one run and its peak memory.
set -euo pipefail

[[ -e /run/network/.sandbox ]] || {
    echo "views: not in the sandbox; run scripts/bench" >&2
    exit 2
}

readonly UPLINKS=100 PORTS=200 RULES=10000 ROUNDS=5

# A port in two is an uplink with a table and rules, as a set-up writes them.
make_ports() {
    local n index
    for ((n = 1; n <= PORTS; n++)); do
        printf '%s\n' "link add swdev$n type veth peer name far$n" "link set far$n up" "link set swdev$n up" "addr add 10.$n.0.1/24 dev swdev$n"
    done | ip -batch -
    for ((n = 1; n <= UPLINKS; n++)); do
        index=$(<"/sys/class/net/swdev$n/ifindex")
        printf '%s\n' "rule add pref $((index * 16 + 1)) from 10.$n.0.1 lookup $((index + 256))" \
            "rule add pref $((index * 16 + 2)) oif swdev$n lookup $((index + 256))" \
            "route add 10.$n.0.0/24 dev swdev$n table $((index + 256)) proto static"
    done | ip -batch -
}

store_documents() {
    jq -n --argjson uplinks $UPLINKS --argjson ports $PORTS '
        def entries($from; $to; value): [range($from; $to + 1) | {key: "\(.)", value: value}];
        def ports: with_entries(.key |= "PORT" + .);
        def infos: with_entries(.key |= "swdev" + .);
        def port: {DEV_TYPE: "virtio", INTERFACE: "swdev\(.)", PRIO: "1", TX_RATE: "1000000000"};
        def info: {ID: "\(.)", IP4_TYPE: "STATIC", IP4_ADDR: "10.\(.).0.1", IP4_PREFIX: "24", IP6_TYPE: "DISABLED"};
        {WAN_PORT: (entries(1; $uplinks; port) | from_entries | ports), LAN_PORT: (entries($uplinks + 1; $ports; port) | from_entries | ports),
         WAN_IFACE_INFO: (entries(1; $uplinks; info) | from_entries | infos),
         LAN_IFACE_INFO: (entries($uplinks + 1; $ports; info) | from_entries | infos)}' >/etc/networkmanagement/device_info.json
}

load_rules() {
    local i
    {
        echo '*mangle'
        for ((i = 0; i < RULES; i++)); do
            echo "-A FIREWALL -s 10.$((i / 62500)).$((i / 250 % 250)).$((i % 250)) -j MARK --set-xmark 0x400/0xc00"
        done
        echo COMMIT
    } | iptables-restore -n
}

read_owned() {
    ip -N rule && ip -6 -N rule && ip -N route show table all && ip -6 -N route show table all
    ipset list -t && iptables-save && ip6tables-save
}

read_state() {
    ip -j -s link && ip -j addr && iptables-save -c && ip6tables-save -c
}

# best COMMAND [ARG]...: the least time of some rounds, in microseconds.
best() {
    local round begun taken least=999999999
    for ((round = 0; round < ROUNDS; round++)); do
        begun=${EPOCHREALTIME/./}
        "$@" >/dev/null 2>&1 || true  # something that is not ours lies here
        taken=$((${EPOCHREALTIME/./} - begun))
        least=$((taken < least ? taken : least))
    done
    echo "$least"
}

# compare NAME READER COMMAND...
compare() {
    local plain own
    plain=$(best "$2")
    own=$(best "${@:3}")
    printf '%-16s %6d ms, plain reading %6d ms, ratio %d.%02d\n' "$1" $((own / 1000)) $((plain / 1000)) \
        $((own / plain)) $((own * 100 / plain % 100))
}

nm-base-rules 2>/dev/null
make_ports
store_documents
load_rules
compare owners read_owned nm_bin owners --json
compare status read_state nm_bin status --json
compare explain read_owned nm_bin --json explain 10.150.0.2 10.160.0.2 tcp 80
compare "its picture" read_state nm_bin status --picture /run/picture.svg
begun=${EPOCHREALTIME/./}
peak=$( { command time -f %M nm_bin drift --json >/run/drift.json; } 2>&1 | tail -n 1 || true)
printf '%-16s %6d ms, peak memory %d MiB\n' drift $(((${EPOCHREALTIME/./} - begun) / 1000)) $((peak / 1024))
