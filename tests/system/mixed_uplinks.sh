#!/bin/bash
# Many uplinks of all kinds beside each other: each source address leaves by its own, and none of them loses a
# packet while others come and go.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/world.sh"

readonly COUNT=64 KINDS=(WAN PRIVATE RGLINK) FAR_HOST=203.0.113.9

# One provider has the far ends of all cables, and counts by cable and by source what comes in.
plug_in() {
    local n
    ip netns add isp
    for ((n = 1; n <= COUNT; n++)); do
        echo "link add swdev$n index $((100 + n)) type veth peer name far$n netns isp"
        echo "link set swdev$n up"
    done | ip -batch -
    for ((n = 1; n <= COUNT; n++)); do
        echo "link set far$n up"
        echo "addr add 10.1.$n.1/24 dev far$n"
    done | ip -n isp -batch -
    ip -n isp addr add "$FAR_HOST/32" dev lo
    ip -n isp link set lo up
    {
        echo '*filter'
        for ((n = 1; n <= COUNT; n++)); do
            echo "-A INPUT -i far$n -s 10.1.$n.2 -p udp --dport 9"
        done
        echo 'COMMIT'
    } | ip netns exec isp iptables-restore
}

kind_of() {
    echo "${KINDS[$1 % 3]}"
}

store() {
    jq -n --argjson count $COUNT '["WAN", "PRIVATE", "RGLINK"] as $kinds | reduce range(1; $count + 1) as $n ({};
        $kinds[$n % 3] as $kind |
        .[$kind + "_PORT"]["PORT\($n)"] = {DEV_TYPE: "virtio", INTERFACE: "swdev\($n)", ISP_BW: "1000000000"} |
        .[$kind + "_IFACE_INFO"]["swdev\($n)"] = {IP4_TYPE: "STATIC", IP4_ADDR: "10.1.\($n).2", IP4_PREFIX: "24",
            IP4_GW: "10.1.\($n).1", IP6_TYPE: "DISABLED"})' >"$DEVICE_INFO"
}

# set_up ACT N...: one request for each kind among these uplinks.
set_up() {
    local act=$1 kind n names
    shift
    for kind in "${KINDS[@]}"; do
        names=()
        for n; do [[ $(kind_of "$n") != "$kind" ]] || names+=("swdev$n"); done
        [[ ${#names[@]} == 0 ]] || nm_bin "Setup_${kind,,}info" "$(jq -nc --argjson act "$act" --arg path "$DEVICE_INFO" \
            '[$ARGS.positional[] | {(.): {$act, ops: 1, $path}}] | add' --args "${names[@]}")" 2>>"$scratch/stderr" || true
    done
}

# What came in by each cable from its own source, and whatever else did.
arrivals() {
    ip netns exec isp iptables -nvxL INPUT | awk '$NF ~ /:9$/ {print $1}' | sort | uniq -c | xargs
}

ping_all() {
    local n
    for n in $(seq 2 $COUNT); do
        ping -q -i 0.2 -c 60 -W 5 -I "10.1.$n.2" "$FAR_HOST" >"$scratch/ping$n" &
        pings+=("$!")
    done
}

touch /run/network/.boot_fin
printf 'create localip hash:ip\ncreate WANIFSET hash:net,iface\n' | ipset restore
printf 'model=VM\ndevid=0\n' >/etc/networkmanagement/ncaas.conf  # no link daemons, which have no part in this
serve ncaas ncaas
plug_in
store
same "all are added" "0 NM_OK success x3" "$(set_up 1 $(seq $COUNT) | grep -v '^ ' | uniq -c | sed 's/ *\([0-9]*\) \(.*\)/\2 x\1/')"
for n in $(seq $COUNT); do
    uplink_probe "$FAR_HOST" "from=10.1.$n.2" || echo "not sent from 10.1.$n.2" >>"$scratch/stderr"
done
same "each source leaves by its own uplink" "$COUNT 1" "$(arrivals)"

others=$(ip rule | grep -v 'from 10\.1\.1\.2\|swdev1$\|lookup 357' | md5sum)
pings=()
ping_all
for round in 1 2 3; do
    same "uplink 1 goes, round $round" "0 NM_OK success" "$(set_up 2 1)"
    same "uplink 1 comes, round $round" "0 NM_OK success" "$(set_up 1 1)"
done
wait "${pings[@]}"
same "meanwhile no other one lost a packet" "$((COUNT - 1)) 60 packets transmitted, 60 received, 0% packet loss" \
    "$(sed -n 's/, time.*//p' "$scratch"/ping* | sort | uniq -c | xargs)"
same "their rules are the same" "$others" "$(ip rule | grep -v 'from 10\.1\.1\.2\|swdev1$\|lookup 357' | md5sum)"
set_up 2 $(seq $COUNT) >/dev/null
same "all are deleted" "" "$(ip rule | grep -v 'lookup \(local\|main\|default\)$'; ipset save | grep ^add; ip -4 addr show | grep 10\.1)"
finish
