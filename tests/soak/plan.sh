#!/bin/bash
# Generated requests, each planned and then made: the changes, calls and code of the plan have to be those of the
# request. Between them plans are killed at random moments, which must leave nothing. Prints what differs, then the counts.
#
# usage: tests/soak/plan.sh [COUNT [SEED]]     (200, 1)
set -euo pipefail
source "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/../support/plan_world.sh"
RANDOM=${2:-1}

# any WORD...: one of them; below N: a number.
any() {
    local words=("$@")
    printf '%s' "${words[RANDOM % $#]}"
}
below() {
    echo $((RANDOM % $1))
}

# network N: the filter that gives an interface any static addressing in the net of port N.
network() {
    echo ".IP4_ADDR = \"10.$1.$(below 3).$(below 256)\" | .IP4_PREFIX = \"$(any 8 16 24 30 33 x)\" | .IP4_GW = \"10.$1.0.$(below 3)\" |
        .IP4_DNS = $(any '[]' '["9.9.9.9"]' "[\"10.$1.0.1\",\"9.9.9.$(below 5)\"]") | .IP6_TYPE = \"$(any DISABLED DISABLED STATIC)\" |
        .IP6_ADDR = \"2001:db8:$1::$(below 9)\" | .IP6_PREFIX = \"64\" | .IP6_GW = \"2001:db8:$1::ff\""
}

# port KIND N / info KIND N: the words for any change of port N, or of its addressing.
port() {
    jq ".${1^^}_PORT.PORT$2 += {MTU: \"$(any 1280 1400 1500 1501 x)\", RX_RATE: \"$(any 1000000 300000000)\"}" "$DEVICE_INFO" >"$NEW"
    words=("Setup_${1}if" "$(of_new "PORT$2" "$(below 64)" "$(any 1 2 3 3 3)")")
}
info() {
    jq ".${1^^}_IFACE_INFO.swdev$2 |= ($(network "$2"))" "$DEVICE_INFO" >"$NEW"
    words=("Setup_${1}info" "$(of_new "swdev$2" "$(any 1 15 31)" "$(any 1 2 3 3 3)")")
}

rule() {
    echo "{ACTION: \"$(any ALLOW DENY)\", SRC_IP: \"10.$(below 9).0.0/$(any 8 16 24)\", PROTOCOL: \"$(any tcp udp)\", DST_PORT: \"$(any 80 443 1000-2000 0)\"}"
}

# document NAME KIND FILTER: the words that apply a stored document as the filter makes it anew.
document() {
    jq -n "$3" >"/tmp/$1.json"
    words=("Apply_$2" "/tmp/$1.json" "/run/network/$2.curr")
}

generate() {
    local n
    case $(below 14) in
        0 | 1) port wan 1 ;;
        2) port private 2 ;;
        3 | 4) info wan 1 ;;
        5) info private 2 ;;
        6) info rglink 3 ;;
        7 | 8) info lan "$(any 4 5)" ;;
        9) n=$(any 10 10 11) && jq ".VLAN_SEG[\"$n\"] = {INTERFACE: \"br_v$n\", VLANS: [\"$n\"], MTU: \"$(any 1400 1500)\", STP: \"$(any 0 1)\"}" \
            "$DEVICE_INFO" >"$NEW" && words=(Setup_vlanbr "$(of_new "$n" 7 "$(any 1 2 3)")") ;;
        10) document segment segment "{closed: [\"203.0.113.$(below 256)/32\"], s$(below 3): [\"10.9.$(below 9).0/24\"]}" ;;
        11) document firewall firewall "{RULES: {SITE: [$(rule), $(rule)]}, ATTACK_DEFENSE: \"$(below 4)\"}" ;;
        12) document static_route static_route "{META: {VERSION: \"1.1.0\"}, STATIC_ROUTE: [{ACTION: \"ENABLE\", IP: \"10.$(below 99).0.0\",
            NETMASK: \"$(any 16 24 33)\", NEXTHOP_ADDRESS: \"10.2.0.1\", METRIC: \"$(below 9)\"}]}" ;;
        13) words=(set "$(any PORT1 PORT2 swdev4)" "$(any mtu mtu address)" "$(any 1400 1500 10.0.10.9/24)") ;;
    esac
}

make_site
words=()
for ((i = 1; i <= ${1:-200}; i++)); do
    generate
    nm_bin plan "${words[@]}" >/dev/null 2>&1 &
    sleep "0.$(below 10)"
    kill -9 $! 2>/dev/null || true
    wait $! 2>/dev/null || true
    planned_and_made "$i ${words[*]}" "${words[@]}" >>"$scratch/results"
done
grep -v '^ok' "$scratch/results" || true
echo "$((i - 1)) requests: $(grep -c '^ok' "$scratch/results" || true) checks passed, $(grep -c '^not ok' "$scratch/results" || true) failed"
eventually 10 eval '! pgrep -x nm_bin >/dev/null' || echo "not ok a plan has left a process"
