#!/bin/bash
# Kills and fails the system calls of requests one at a time, those of all children too, and compares the documents and
# the state of the machine afterwards. A request that was killed and is then repeated must end as if nothing had
# happened, no document may be torn, and a wrong state under a good result needs an error line that the undisturbed
# request does not have. Takes hours, so it is no part of scripts/test.
#
# usage: tests/soak/faults.sh [--every N] [--errno N] [SCENARIO]...     (N 7: every seventh call, 1; errno 5, EIO)
set -euo pipefail
source "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/../support/world.sh"
source "$support_dir/uplink_world.sh"

readonly SCENARIOS=(mtu static-add static-alter static-delete lan-add dhcp-service lan6-add address6 renumber6)
readonly SERVICE=/etc/networkmanagement/dhcp_service.json
every=1 error=5 scenarios=()
request=()
declare -A count=()

parse() {
    while [[ $# -gt 0 ]]; do
        case $1 in
            --every) every=$2 && shift ;;
            --errno) error=$2 && shift ;;
            *) scenarios+=("$1") ;;
        esac
        shift
    done
    [[ ${#scenarios[@]} -gt 0 ]] || scenarios=("${SCENARIOS[@]}")
}

make_world() {
    make_uplinks
    nm-base-rules
    printf 'model=VM\ndevid=0\n' >/etc/networkmanagement/ncaas.conf
    ip link add br_v10 index 20 up type bridge
    ip link add br_v11 index 21 up type veth peer name client
    ip link set client up
    echo 0 | tee /proc/sys/net/ipv6/conf/{br_v11,swdev2}/accept_dad >/dev/null
    g++ -std=c++17 -O1 -Wall -Wextra -Werror -o "$scratch/fault_injector" "$support_dir/../soak/fault_injector.cpp"
    document "$DEVICE_INFO" '. + {VLAN_SEG: {"10": {INTERFACE: "br_v10", VLANS: ["10"], MTU: "1500", STP: "0"}},
        LAN_IFACE_INFO: {br_v10: {IP4_TYPE: "STATIC", IP4_ADDR: "10.0.10.1", IP4_PREFIX: "24"},
            br_v11: {IP4_TYPE: "DISABLED", IP6_TYPE: "STATIC", IP6_ADDR: "2001:db8:200:1::1", IP6_UPLINK: "PORT2",
                IP6_SERVICE_TYPE: "STATEFUL", IP6_RANGE_START: "2001:db8:200:1::10", IP6_RANGE_END: "2001:db8:200:1::ff",
                IP6_DHCP_PD: "ENABLED", IP6_PD_PREFIX: "2001:db8:200::/56"}}} |
        .WAN_IFACE_INFO.swdev2 += {IP6_TYPE: "DHCPV6", IP6_DHCP_PD: "ENABLED"}'
    jq -n '{DHCP_SERVICE: {br_v10: {SERVICE: "SERVER", START_IP: "10.0.10.10", END_IP: "10.0.10.99",
        LEASE_TIME: "600"}}}' >"$SERVICE"
    mkdir "$scratch/clean"
    cp -a /etc/hosts /run/network/resolv.dnsmasq "$scratch/clean"
    cp -a /etc/networkmanagement "$scratch/documents"
    ipset save >"$scratch/sets"
}

# quietly ENTRY ACT OPS NAME [PATH]: one undisturbed request.
quietly() {
    nm_bin "$1" "{\"$4\":{\"act\":$2,\"ops\":$3,\"path\":\"${5:-$DEVICE_INFO}\"}}" >/dev/null 2>&1 || true
}

# lease6 ADDRESS PREFIX: what the client of swdev2 was given, by its record; only 2001:db8:2::7 and 2001:db8:200:: are in
# force by then.
lease6() {
    jq -nc --arg address "$1" --arg prefix "$2" 'def lease($address; $prefix): {curr_ip: $address, curr_prefix_length: "64",
            curr_gateway: "fe80::9", curr_pd_prfx: $prefix, curr_pd_prfx_len: "56", dns: []};
        lease($address; $prefix) + {type: "DHCPV6", path: "'"$DEVICE_INFO"'", pdInfo: [],
            in_force: lease("2001:db8:2::7"; "2001:db8:200::")}' >/run/network/ipv6/swdev2.json
    ip addr replace "$1/128" dev swdev2 nodad
}

# The same world for every fault, whatever the last one left.
reset_world() {
    local table name
    quietly Setup_dhcpservice 2 511 br_v10 "$SERVICE"
    rm -rf /etc/networkmanagement /etc/.[a-z]*hosts* && cp -a "$scratch/documents" /etc/networkmanagement
    quietly Setup_laninfo 2 2 br_v11 "$scratch/documents/device_info.json"
    for table in 267 268 276 277; do
        while ip rule del table $table 2>/dev/null || ip -6 rule del table $table 2>/dev/null; do :; done
        ip route flush table $table 2>/dev/null || true
        ip -6 route flush table $table 2>/dev/null || true
    done
    for name in swdev2 br_v11; do ip -6 addr flush dev "$name" scope global; done
    ip -6 route flush table 253 2>/dev/null || true
    rm -f /run/network/ipv6/* /var/lib/dhcpd6/*
    ip link set swdev1 mtu 1500 up
    ip addr flush dev swdev1
    ip addr flush dev br_v10
    ipset flush && ipset restore -exist <"$scratch/sets"
    cp -a "$scratch/clean/hosts" /etc/hosts
    cp -a "$scratch/clean/resolv.dnsmasq" /run/network/resolv.dnsmasq
}

# Each scenario makes the state that the request meets, and names the request.
prepare() {
    local name=swdev1 entry=Setup_waninfo act=1 ops=15 path=$DEVICE_INFO
    reset_world
    case $1 in
        mtu)
            document "$NEW" '.WAN_PORT.PORT1.MTU = "1400"'
            name=PORT1 entry=Setup_wanif act=3 ops=4 path=$NEW
            ;;
        static-add) ;;
        static-alter)
            quietly Setup_waninfo 1 15 swdev1
            document "$NEW" '.WAN_IFACE_INFO.swdev1 += {IP4_ADDR: "10.1.0.77", IP4_PREFIX: "25"}'
            act=3 ops=1 path=$NEW
            ;;
        static-delete)
            quietly Setup_waninfo 1 15 swdev1
            act=2
            ;;
        lan-add) name=br_v10 entry=Setup_laninfo ops=3 ;;
        dhcp-service)
            ip addr add 10.0.10.1/24 dev br_v10
            name=br_v10 entry=Setup_dhcpservice ops=511 path=$SERVICE
            ;;
        lan6-add)
            lease6 2001:db8:2::7 2001:db8:200::
            name=br_v11 entry=Setup_laninfo ops=2
            ;;
        address6 | renumber6)
            lease6 2001:db8:2::7 2001:db8:200::
            quietly Setup_laninfo 1 2 br_v11
            [[ $1 != address6 ]] || lease6 2001:db8:2::8 2001:db8:200::
            [[ $1 != renumber6 ]] || lease6 2001:db8:2::7 2001:db8:280::
            request=(nm_bin Lease6_event swdev2 apply)
            return
            ;;
        *) echo "faults.sh: no such scenario: $1" >&2 && exit 2 ;;
    esac
    request=(nm_bin "$entry" "{\"$name\":{\"act\":$act,\"ops\":$ops,\"path\":\"$path\"}}")
}

# What a request may change, as text. Leases carry the time. Lines of hosts have no order, and a repeated request may
# write one twice, which changes no answer.
state() {
    local file
    ip -o addr | sed 's/^[0-9]*: //; s/ *\\.*//'
    ip -6 rule && ip -6 route show table all
    ip -o link | sed -E 's/^[0-9]+: ([^:@]*)[^<]*<([^>]*)>.* (mtu [0-9]+).*/\1 \2 \3/'
    ip rule && ip route show table all && ipset save && iptables-save | sed '/^#/d; s/\[.*\]//'
    systemctl is-active nm-dhcpd@br_v10 nm-dhcpd6@br_v11 nm-6relayd@br_v11 nm-radvd || true
    sort -u /etc/hosts
    while IFS= read -r file; do
        echo "== $file"
        [[ $file == *.leases* || $file == *.pid || $file == *.withdrawn ]] || cat "$file"
    done < <(find /etc/networkmanagement /etc/hosts?* /etc/.hosts* /run/network /var/lib/dhcpd{,6} /etc/radvd.conf -type f -not -name '*.lck' -not -name '*~' \
        2>/dev/null | sort)
}

# The error lines of the last request, without their times and processes.
error_lines() {
    sed -nE 's/^[^ ]+ [^ ]+ [^ ]+ ERROR //p' "$MAIN_LOG" | sort
}

# meet NUMBER ACTION: the request with that fault; sets `result`, empty if there is none.
meet() {
    : >"$MAIN_LOG"
    result=$(timeout -s KILL 90 "$scratch/fault_injector" "$scratch/met" "$1" "$2" "${request[@]}" \
        2>"$scratch/stderr") || true
    result=${result%% *}
    state >"$scratch/state"
}

torn() {
    local file
    for file in /etc/networkmanagement/*.json; do
        jq -e type "$file" >/dev/null 2>&1 || return 0
    done
    return 1
}

# What became of the request: one word.
judge() {
    local good=$scratch/good
    if torn; then
        echo torn
    elif [[ -z $result ]]; then
        "${request[@]}" >/dev/null 2>&1 || true
        state >"$scratch/state"
        cmp -s "$good" "$scratch/state" && echo healed || echo unhealed
    elif [[ $result == -* ]]; then
        echo refused
    elif cmp -s "$good" "$scratch/state"; then
        echo harmless
    elif error_lines | comm -13 "$scratch/good.errors" - | grep -q .; then
        echo reported
    else
        echo silent
    fi
}

describe_call() {
    tail -n 1 "$scratch/met" | while read -r number _ _ call program; do
        echo "call $number $(awk -v nr="$call" '$3 == nr {sub("__NR_", "", $2); print $2; exit}' \
            /usr/include/x86_64-linux-gnu/asm/unistd_64.h) of $program"
    done
}

# tell SCENARIO ACTION VERDICT: a line for what must not be, with what is wrong.
tell() {
    echo "not ok $1: $2 $(describe_call): $3"
    diff "$scratch/good" "$scratch/state" | grep '^[<>]' | head -n 4 | sed 's/^/    # /'
}

# The numbers of the calls to meet. What the loader does for one program is the same in all processes of it.
points() {
    awk -v every="$every" '{
        number = $1; step = $3; $1 = $2 = $3 = $4 = ""
        if (step > 25 || !(($0, step) in seen)) { if (met++ % every == 0) print number }
        seen[$0, step] = 1
    }' "$scratch/calls"
}

run_scenario() {
    local scenario=$1 number action verdict
    prepare "$scenario"
    meet 0 kill
    [[ $result == 0 ]] || { echo "faults.sh: $scenario undisturbed: '$result'" >&2 && exit 1; }
    cp "$scratch/state" "$scratch/good"
    cp "$scratch/met" "$scratch/calls"
    error_lines >"$scratch/good.errors"
    count=()
    while read -r number; do
        for action in kill "$error"; do
            prepare "$scenario"
            meet "$number" "$action"
            verdict=$(judge)
            count[$verdict]=$((${count[$verdict]:-0} + 1))
            case $verdict in
                torn | unhealed | silent) tell "$scenario" "$action" "$verdict" && tap_failed=$((tap_failed + 1)) ;;
            esac
        done
    done < <(points)
    printf '%-14s %5d calls:' "$scenario" "$(wc -l <"$scratch/calls")"
    for verdict in harmless refused reported healed silent unhealed torn; do
        printf ' %s %d' "$verdict" "${count[$verdict]:-0}"
    done
    echo
}

parse "$@"
make_world
for scenario in "${scenarios[@]}"; do
    run_scenario "$scenario"
done
finish
