#!/bin/bash
# LANs as VLAN bridges on one trunk, each with one member and an address: by nm_bin (one request for each family of
# targets), by ip -batch and ipset restore, and by systemd-networkd from its files. Times of one run in the machine of
# scripts/vm, whose processor is emulated: ratios and growth count. The name service is not there; it would be
# restarted for every LAN.
set -euo pipefail

[[ -e /run/network/.sandbox ]] || {
    echo "lan_setup: not in the test machine; run scripts/bench" >&2
    exit 2
}

readonly DIR=/etc/networkmanagement LOG=/var/log/network/main.log NETWORKD=/lib/systemd/systemd-networkd
readonly COUNTS=(10 50 200)
BUILD=$(readlink -f "${NM_BUILD_DIR:-build}")
export PATH=$BUILD/bin:$PATH
declare -A took
failures=/run/bench.errors

fail() {
    echo "lan_setup: $1" >&2
    [[ ! -s $failures ]] || tail -n 5 "$failures" >&2
    exit 1
}

make_world() {
    touch /run/network/.boot_fin
    modprobe 8021q
    modprobe bridge
    ip link add swdev2 type veth peer name far2
    ip link set swdev2 up
    ip link set far2 up
    nm-base-rules
    printf 'model=KERO_201\ndevid=1\nlocal_mgmt=0\n' >"$DIR/ncaas.conf"
    ncaas &
    peer=$!
    trap 'kill "$peer"' EXIT
    until [[ -S /run/vservice/ncaas.sock ]]; do sleep 0.05; done
    cp /etc/hosts /run/hosts.before
}

# The documents and requests of N LANs: VLAN n has the bridge br_v<n> and the network 10.1.<n>.0/24.
store_documents() {
    local n=$1
    jq -n --argjson n "$n" '[range(1; $n + 1) | tostring] | {
        VLAN_SEG: (map({(.): {INTERFACE: "br_v\(.)", VLANS: [.], MTU: "1500", STP: "0"}}) | add),
        LAN_PORT: {PORT2: {INTERFACE: "swdev2", DEV_TYPE: "ethernet", MTU: "1500", VLANS: .}},
        LAN_IFACE_INFO: (map({"br_v\(.)": {IP4_TYPE: "STATIC", IP4_ADDR: "10.1.\(.).1", IP4_PREFIX: "24"}}) | add)
        }' >"$DIR/device_info.json"
    jq '{DHCP_SERVICE: (.LAN_IFACE_INFO | map_values((.IP4_ADDR | rtrimstr(".1")) as $net | {SERVICE: "SERVER",
        START_IP: "\($net).10", END_IP: "\($net).99", LEASE_TIME: "3600"}))}' "$DIR/device_info.json" >/run/dhcp.json
    write_request vlanbr 7 .VLAN_SEG
    write_request lanif 63 .LAN_PORT
    write_request laninfo 3 .LAN_IFACE_INFO
    write_request dhcpservice 511 .LAN_IFACE_INFO /run/dhcp.json
}

write_request() {
    jq -c --arg path "${4:-$DIR/device_info.json}" --argjson ops "$2" \
        "$3 | map_values({act: 1, ops: \$ops, path: \$path})" "$DIR/device_info.json" >"/run/$1.request"
}

by_library() {
    local family
    for family in vlanbr lanif laninfo ${2:+dhcpservice}; do
        nm_bin "Setup_$family" "@/run/$family.request" >/run/result 2>"$failures" || fail "$family: $(</run/result)"
    done
}

write_batch() {
    local n
    for ((n = 1; n <= $1; n++)); do
        echo "link add br_v$n type bridge
link add link swdev2 name swdev2.$n type vlan id $n
link set swdev2.$n address 02:00:00:00:00:$(printf %02x "$n")
link set swdev2.$n up master br_v$n
link set br_v$n up
address add 10.1.$n.1/24 dev br_v$n"
    done >/run/batch.ip
    for ((n = 1; n <= $1; n++)); do
        printf 'add localip 10.1.%d.1\nadd LANIFSET 10.1.%d.0/24,br_v%d\nadd ip4_lan 10.1.%d.0/24\n' "$n" "$n" "$n" "$n"
    done >/run/batch.sets
}

# The daemons read what the library has made for the same LANs.
by_batch() {
    local n
    ip -batch /run/batch.ip 2>"$failures" || fail "ip -batch"
    ipset restore </run/batch.sets
    [[ -n ${2:-} ]] || return 0
    for ((n = 1; n <= $1; n++)); do
        : >"/run/batch.leases$n"
        dhcpd -4 -q -cf "/run/dhcpd$n.conf" -lf "/run/batch.leases$n" -pf "/run/batch.dhcpd$n.pid" "br_v$n" \
            2>"$failures" || fail "dhcpd"
    done
}

write_networkd_files() {
    local n dir=/run/systemd/network
    rm -rf /etc/systemd/network "$dir"
    mkdir -p "$dir" /run/systemd/netif/{links,leases,lldp}
    chown -R systemd-network: /run/systemd/netif
    {
        printf '[Match]\nName=swdev2\n[Network]\nLinkLocalAddressing=no\n'
        for ((n = 1; n <= $1; n++)); do echo "VLAN=swdev2.$n"; done
    } >"$dir/10-trunk.network"
    for ((n = 1; n <= $1; n++)); do
        printf '[NetDev]\nName=br_v%d\nKind=bridge\n' "$n" >"$dir/20-bridge$n.netdev"
        printf '[NetDev]\nName=swdev2.%d\nKind=vlan\n[VLAN]\nId=%d\n' "$n" "$n" >"$dir/20-vlan$n.netdev"
        printf '[Match]\nName=swdev2.%d\n[Network]\nBridge=br_v%d\n' "$n" "$n" >"$dir/30-vlan$n.network"
        printf '[Match]\nName=br_v%d\n[Network]\nAddress=10.1.%d.1/24\nLinkLocalAddressing=no\n%s' "$n" "$n" \
            "${2:+$'DHCPServer=yes\n[DHCPServer]\nPoolOffset=10\nPoolSize=90\n'}" >"$dir/30-bridge$n.network"
    done
}

# Without udev it has to believe that it is in a container, where /sys is read-only. It is done when it has told the
# last address, and with servers when all of them listen.
by_networkd() {
    local line seen=0
    unshare -m sh -c 'mount -o bind /sys /sys && mount -o remount,bind,ro /sys && exec "$0"' "$NETWORKD" \
        >"$failures" 2>&1 &
    networkd=$!
    while [[ $seen -lt $1 ]] && read -r -t 120 -u "$monitor" line; do
        [[ $line != *" br_v"*"inet 10.1."* ]] || seen=$((seen + 1))
    done
    while [[ -n ${2:-} && $(grep -c ':0043 ' /proc/net/udp) -lt $1 ]]; do sleep 0.05; done
}

# check N WAY: the end state has to be there, or the time means nothing.
check() {
    local state
    state="$(ip -br -4 address show type bridge | grep -c '10\.1\.')
$(ip -br link show type vlan | grep -c UP) $(bridge link | grep -c 'swdev2.* master br_v')"
    [[ ${state//$'\n'/ } == "$1 $1 $1" ]] || fail "$2: not $1 LANs but ${state//$'\n'/ }"
    [[ -z ${3:-} || $(grep -c ':0043 ' /proc/net/udp) -ge $1 ]] || fail "$2: not $1 DHCP servers"
}

clear_lans() {
    local n pid
    # Only this machine's own daemons are there.
    for pid in $(pidof dhcpd); do
        kill -KILL "$pid"
    done
    if [[ -n ${networkd:-} ]]; then
        kill "$networkd"
        wait "$networkd" || true
        networkd=""
    fi
    for ((n = 1; n <= $1; n++)); do
        printf 'link del swdev2.%d\nlink del br_v%d\n' "$n" "$n"
    done | ip -batch -
    for n in localip LANIFSET ip4_lan; do
        ipset flush "$n"
    done
    cp /run/hosts.before /etc/hosts
    rm -rf /run/nm-dhcpd_* "$DIR"/dhcp/* /var/lib/dhcpd/*
}

# measure WAY N [SERVERS]: stores the seconds of one way.
measure() {
    local start end
    rm -f "$LOG".*.gz
    : >"$LOG"
    exec {monitor}< <(exec ip -o -4 monitor address)
    sleep 0.5
    start=$EPOCHREALTIME
    "by_$1" "$2" "${3:-}"
    end=$EPOCHREALTIME
    exec {monitor}<&-
    check "$2" "$1" "${3:-}"
    took[$1 $2${3:+ servers}]=$(awk -v a="$start" -v b="$end" 'BEGIN {print b - a}')
}

keep_dhcp_files() {
    local n
    for ((n = 1; n <= $1; n++)); do
        cp "$DIR/dhcp/dhcpd_br_v$n.conf" "/run/dhcpd$n.conf"
    done
}

# Full logs were put aside; of very many LANs only the latest copies are kept, and their share counts.
list_steps() {
    printf '\nWhere the time goes with %d LANs (ms a LAN, from the log):\n' "$1"
    cat <(zcat -f "$LOG".*.gz 2>/dev/null) "$LOG" |
        awk -v requests="$1" -f "$(dirname "$0")/../log_steps.awk" | sort -rn | head -n 6
} >>/run/steps

# compare N [SERVERS]
compare() {
    local key="$1${2:+ servers}"
    store_documents "$1"
    write_batch "$1"
    write_networkd_files "$1" "${2:-}"
    measure library "$1" "${2:-}"
    [[ -n ${2:-} ]] || list_steps "$1"
    [[ -z ${2:-} ]] || keep_dhcp_files "$1"
    clear_lans "$1"
    measure batch "$1" "${2:-}"
    clear_lans "$1"
    measure networkd "$1" "${2:-}"
    clear_lans "$1"
    printf '%-22s %9.2f %9.2f %9.2f %11.2f %11.2f\n' "$1 LANs${2:+, DHCP servers}" "${took[library $key]}" \
        "${took[batch $key]}" "${took[networkd $key]}" "$(ratio library batch "$key")" \
        "$(ratio library networkd "$key")"
}

ratio() {
    awk -v a="${took[$1 $3]}" -v b="${took[$2 $3]}" 'BEGIN {print a / b}'
}

growth() {
    awk -v a="${took[$1 ${COUNTS[0]}]}" -v b="${took[$1 ${COUNTS[-1]}]}" -v n="${COUNTS[0]}" -v m="${COUNTS[-1]}" \
        'BEGIN {print log(b / a) / log(m / n)}'
}

[[ -x $NETWORKD ]] || fail "$NETWORKD is missing; scripts/install-deps bench brings it"
make_world
printf '%-22s %9s %9s %9s %11s %11s\n' seconds ours batch networkd ours/batch ours/networkd
for count in "${COUNTS[@]}"; do
    compare "$count"
done
compare "${COUNTS[0]}" servers
printf '%-22s %9.2f %9.2f %9.2f\n' "growth exponent" "$(growth library)" "$(growth batch)" "$(growth networkd)"
cat /run/steps
