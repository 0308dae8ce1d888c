#!/bin/bash
# The set-up of 4, 16 and 64 static uplinks, a third of each kind, by one request for each kind, against ip -batch and
# ipset restore with the same end state; and how both grow. All peers answer; the device has no id, so that no link
# daemon is started, whose unit would be most of the time.
set -euo pipefail

source "$(dirname "$0")/../scripts/lib/bench-world"
readonly ROUNDS=9 KINDS=(WAN PRIVATE RGLINK)

plug_in() {
    local n
    ip netns add isp
    for ((n = 1; n <= 64; n++)); do
        echo "link add swdev$n type veth peer name far$n netns isp"
        echo "link set swdev$n up"
    done | ip -batch -
    for ((n = 1; n <= 64; n++)); do echo "link set far$n up"; done | ip -n isp -batch -
}

# store COUNT: the document, and for each kind a request that adds (1) and one that deletes (2).
store() {
    local kind act
    jq -n --argjson count "$1" '["WAN", "PRIVATE", "RGLINK"] as $kinds | reduce range(1; $count + 1) as $n ({};
        $kinds[$n % 3] as $kind |
        .[$kind + "_PORT"]["PORT\($n)"] = {DEV_TYPE: "virtio", INTERFACE: "swdev\($n)", ISP_BW: "1000000000"} |
        .[$kind + "_IFACE_INFO"]["swdev\($n)"] = {IP4_TYPE: "STATIC", IP4_ADDR: "10.1.\($n).2", IP4_PREFIX: "24",
            IP4_GW: "10.1.\($n).1", IP6_TYPE: "DISABLED"})' >"$DOCUMENT"
    for kind in "${KINDS[@]}"; do
        for act in 1 2; do
            jq -c --argjson act $act --arg path "$DOCUMENT" ".${kind}_IFACE_INFO | map_values({\$act, ops: 1, \$path})" \
                "$DOCUMENT" >"/run/request.$kind.$act"
        done
    done
}

ours() {
    local kind
    for kind in "${KINDS[@]}"; do
        nm_bin "Setup_${kind,,}info" "@/run/request.$kind.$1" >/dev/null
    done
}

# The same addresses, rules, routes and members of sets, as they are read back from a set-up by the library.
write_bare() {
    local n table rule
    ours 1
    for ((n = 1; n <= $1; n++)); do
        table=$((256 + $(</sys/class/net/swdev$n/ifindex)))
        echo "address add 10.1.$n.2/24 dev swdev$n"
        ip rule show table $table | while IFS=: read -r priority rule; do
            echo "rule add priority $priority ${rule/lookup/table}"
        done
        ip -o route show table $table | sed "s/.*/route add & table $table onlink/"
    done | sed -E 's/ +(onlink)? *$/ \1/; /via/! s/ onlink$//' >/run/bare.ip
    { sed -n 's/^address add/address del/p' /run/bare.ip && sed -n 's/^rule add/rule del/p' /run/bare.ip; } >/run/bare.undo
    ipset save | sed -n 's/^add \(localip\|WANIFSET\) .*/& -exist/p' >/run/bare.sets
    ours 2
}

bare() {
    ip -batch /run/bare.ip && ipset restore </run/bare.sets
}

undo_bare() {
    ip -batch /run/bare.undo && sed 's/^add/del/' /run/bare.sets | ipset restore
}

# milliseconds COMMAND...: how long it takes.
milliseconds() {
    local begun=$EPOCHREALTIME
    "$@"
    local ended=$EPOCHREALTIME
    echo $(((${ended/./} - ${begun/./}) / 1000))
}

median() {
    sort -n | sed -n "$(((ROUNDS + 1) / 2))p"
}

measure() {
    local round
    : >/run/ours && : >/run/bare
    for ((round = 0; round < ROUNDS; round++)); do
        milliseconds ours 1 >>/run/ours
        ours 2
        milliseconds bare >>/run/bare
        undo_bare
    done
    echo "$1 $(median </run/ours) $(median </run/bare)"
}

# Of a set-up of sixteen, whose log does not roll over yet.
by_step() {
    store 16
    : >"$LOG"
    ours 1
    awk -v requests=16 -f "$(dirname "$0")/log_steps.awk" "$LOG" | sort -rn
    ours 2
}

prepare_device 0
start_peers
plug_in
for count in 4 16 64; do
    store $count
    write_bare $count
    measure $count
done | awk '{printf "%3d uplinks: ours %6d ms, bare %5d ms, ratio %5.1f\n", $1, $2, $3, $2 / ($3 > 0 ? $3 : 1)}
    NR == 1 {first = $1; ours = $2; bare = $3}
    END {printf "growth from %d to %d: ours %.2f, bare %.2f\n", first, $1,
        log($2 / ours) / log($1 / first), log($3 / (bare > 0 ? bare : 1)) / log($1 / first)}'
printf '\nWhere the time of an uplink goes (ms, from the log):\n%s\n' "$(by_step)"
