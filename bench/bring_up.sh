#!/bin/bash
# Bring-up of 10, 50 and 200 ports, a fifth of them uplinks: nm_bin against ip -batch and ipset restore of the same end
# state, and against systemd-networkd from its files; the second run against the first; memory; where the time goes.
set -euo pipefail

[[ -e /run/network/.sandbox ]] || {
    echo "bring_up: not in the sandbox; run scripts/bench" >&2
    exit 2
}
HERE=$(cd "$(dirname "$0")" && pwd -P)
readonly HERE SIZES=(10 50 200) DEVICE_INFO=/etc/networkmanagement/device_info.json
readonly NETWORKD=/lib/systemd/systemd-networkd

# Each measurement has a network of its own, in which nothing is set up.
if [[ ${1:-} != inside ]]; then
    printf '%5s %-18s %9s %9s %9s   %s\n' ports "" "wall s" "cpu s" "peak MB" ""
    for size in "${SIZES[@]}"; do
        unshare --net --mount --pid --fork --kill-child bash -c '
            "$1/../scripts/lib/private-proc" / && mount -t sysfs sysfs /sys && ip link set lo up && exec "$1/bring_up.sh" inside "$2"' \
            - "$HERE" "$size"
    done | tee /tmp/bring_up.figures
    awk '$2 == "first" {wall[$1] = $3; cpu[$1] = $4}
        END {printf "\nGrowth from 50 to 200 ports: exponent %.2f of the wall clock, %.2f of the processor time.\n",
             log(wall[200] / wall[50]) / log(4), log(cpu[200] / cpu[50]) / log(4)}' /tmp/bring_up.figures
    exit
fi

readonly PORTS=$2 UPLINKS=$(($2 / 5))

plug() {
    local n
    ip netns add far 2>/dev/null || true
    for ((n = 1; n <= PORTS; n++)); do
        echo "link add swdev$n type veth peer name far$n"
        echo "link set far$n up"
        echo "link set swdev$n up"
    done | ip -batch -
}

unplug() {
    local n
    for ((n = 1; n <= PORTS; n++)); do echo "link del swdev$n"; done | ip -batch -
}

store() {
    jq -n --argjson ports "$PORTS" --argjson uplinks "$UPLINKS" 'reduce range(1; $ports + 1) as $n ({};
        {DEV_TYPE: "virtio", INTERFACE: "swdev\($n)", MTU: "1400"} as $port | if $n <= $uplinks then
        .WAN_PORT["PORT\($n)"] = $port + {PRIO: "1", ISP_BW: "1000000000"} |
        .WAN_IFACE_INFO["swdev\($n)"] = {ID: "\($n)", IP4_TYPE: "STATIC", IP4_ADDR: "10.\($n).0.2", IP4_PREFIX: "24",
            IP4_GW: "10.\($n).0.1", IP6_TYPE: "DISABLED"}
        else .LAN_PORT["PORT\($n)"] = $port | .LAN_IFACE_INFO["swdev\($n)"] = {IP4_TYPE: "STATIC",
            IP4_ADDR: "172.16.\($n).1", IP4_PREFIX: "24", IP6_TYPE: "DISABLED"} end)' >"$DEVICE_INFO"
    echo '{"DHCP_SERVICE":{}}' >/etc/networkmanagement/dhcp_service.json
    printf 'model=VM\ndevid=0\nlocal_mgmt=0\n' >/etc/networkmanagement/ncaas.conf
    : >/run/network/resolv.dnsmasq
}

# measure LABEL COMMAND...: its wall clock, processor time and the largest memory of one of its processes.
measure() {
    local label=$1 figures
    figures=$( { command time -f '%e %U %S %M' "${@:2}" >/dev/null 2>/tmp/measured || true; } && tail -n 1 /tmp/measured)
    awk -v ports="$PORTS" -v label="$label" '{printf "%5d %-18s %9.2f %9.2f %9.1f\n", ports, label, $1, $2 + $3, $4 / 1024}' <<<"$figures"
}

# The same addresses, rules, routes, sets and chains, read back from what the library has set up.
write_bare() {
    {
        ip -j -4 addr show scope global | jq -r '.[] | .ifname as $dev | .addr_info[] |
            "addr add \(.local)/\(.prefixlen) dev \($dev)", "link set \($dev) mtu 1400"'
        ip rule | sed -nE 's/^([0-9]+):\t(.*lookup [0-9]+) *$/rule add priority \1 \2/p' | sed 's/lookup/table/'
        ip -o route show table all | grep -v 'table local\|proto kernel' | sed -E 's/^/route add /; s/ (onlink|linkdown)//g; s/$/ onlink/; /via/! s/ onlink$//'
    } >/tmp/bare.ip
    ipset save | sed -n 's/^add /add -exist /p' >/tmp/bare.sets
    { iptables-save && :; } >/tmp/bare.rules
}

# How much there is of each kind.
amounts() {
    echo "$(ip -4 -br addr show scope global | wc -l) addresses, $(ip rule | wc -l) rules, $(ip route show table all | grep -vc 'table local') routes, $(ipset save | grep -c ^add) members"
}

by_step() {
    nm_bin --json setup_all_iface_by_config 2>/dev/null | jq -rs '[.[] | select(.step)] | group_by(.step) |
        map([.[0].step, length, (map(.seconds) | add)]) | sort_by(-.[2]) | .[:4] | map("\(.[0]) \(.[1]) x \(.[2] * 1000 / .[1] | round) ms") | join(", ")'
}

networkd_files() {
    local n
    mkdir -p /run/systemd/network /run/systemd/netif
    for ((n = 1; n <= PORTS; n++)); do
        printf '[Match]\nName=swdev%d\n[Link]\nMTUBytes=1400\n[Network]\nAddress=172.%d.%d.1/24\nLinkLocalAddressing=no\nIPv6AcceptRA=no\n' \
            "$n" $((16 + n / 250)) $((n % 250)) >"/run/systemd/network/$n.network"
    done
}

# Until the last port has its address; its own memory, which no child shares.
networkd() {
    local daemon begun=$EPOCHREALTIME deadline=$((SECONDS + 60))
    mount -o remount,bind,ro /sys  # by which it knows that there is no udev to wait for
    SYSTEMD_LOG_LEVEL=err "$NETWORKD" >/tmp/networkd.log 2>&1 &
    daemon=$!
    until [[ $(ip -4 -br addr show scope global | grep -c swdev) == "$PORTS" ]]; do
        [[ -d /proc/$daemon && $SECONDS -lt $deadline ]] || { echo "$PORTS networkd  not measured: $(tail -n 1 /tmp/networkd.log)" && return; }
        sleep 0.02
    done
    awk -v ports="$PORTS" -v begun="$begun" -v now="$EPOCHREALTIME" -v ticks="$(awk '{print $14 + $15}' "/proc/$daemon/stat")" \
        -v peak="$(awk '$1 == "VmHWM:" {print $2}' "/proc/$daemon/status")" \
        'BEGIN {printf "%5d %-18s %9.2f %9.2f %9.1f   addresses and MTU alone\n", ports, "networkd", now - begun, ticks / 100, peak / 1024}'
    kill "$daemon"
}

plug
store
nm-base-rules 2>/dev/null
ncaas &
overlayd /dev/null 2>/dev/null &
until [[ -S /run/vservice/ncaas.sock && -S /run/vservice/nm-hmgr.sock ]]; do sleep 0.05; done
measure "first" nm_bin setup_all_iface_by_config
measure "second" nm_bin setup_all_iface_by_config
write_bare
state=$(amounts)
echo "      where: $(by_step)"
sed -n 's/^rule add/rule del/p' /tmp/bare.ip | ip -force -batch -
ipset flush
unplug
plug
measure "ip -batch" sh -c 'ip -force -batch /tmp/bare.ip; ipset restore </tmp/bare.sets; iptables-restore </tmp/bare.rules'
[[ $(amounts) == "$state" ]] || echo "      not the same: $(amounts) for $state"
unplug
plug
networkd_files
networkd
