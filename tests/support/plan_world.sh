# shellcheck shell=bash
# A small site, and requests that are planned first and then made. Sourced.
source "$(dirname "${BASH_SOURCE[0]}")/world.sh"

readonly SECRET=geheim-7
readonly NEW=/tmp/new.json JOURNAL=$scratch/journal
# Written by daemons that a unit or a call has started, not by the request.
readonly BY_DAEMONS='\.leases~?$|\.pid$|/dnsmasq\.listen$|/dpi/|/[mpd]lmd-'

make_site() {
    local n
    "$support_dir/../../scripts/lib/stock-netfilter" install
    nm-base-rules 2>/dev/null
    for n in 1 2 3 4 5; do
        ip link add "swdev$n" index $((10 + n)) address "02:00:00:00:0$n:02" type veth peer name "far$n"
        ip link set "swdev$n" up
        ip link set "far$n" up
    done
    : >/run/network/.boot_fin
    : >/run/network/resolv.dnsmasq
    printf 'model=VM\ndevid=2\nlocal_mgmt=0\n' >/etc/networkmanagement/ncaas.conf
    install -m 600 "$support_dir"/../../scripts/lib/site-documents/*.json /etc/networkmanagement/
    store
    sed -i 's/swdev4/swdev5/; s/10\.0\.10/10.0.20/' /etc/networkmanagement/dhcp_service.json
    serve ncaas ncaas
    serve rmgmtd overlayd "$JOURNAL"
    eventually 20 test -S /run/network/wanipd.sock
    eventually 20 is_probed
    ip link set swdev4 address 02:00:00:00:44:02  # and keeps the link-local address of before
    state "$scratch/after"
}

store() {
    jq -n --arg secret "$SECRET" 'def port($n): {DEV_TYPE: "virtio", INTERFACE: "swdev\($n)", ISP_BW: "1000000000", RX_RATE: "300000000",
            TX_RATE: "200000000", MTU: "1450"};
        def at($net; $id): {ID: "\($id)", IP4_TYPE: "STATIC", IP4_ADDR: "\($net).2", IP4_PREFIX: "24", IP4_GW: "\($net).1", IP6_TYPE: "DISABLED"};
        {WAN_PORT: {PORT1: port(1)}, PRIVATE_PORT: {PORT2: port(2)}, RGLINK_PORT: {PORT3: port(3)},
         VLAN_SEG: {"10": {INTERFACE: "br_v10", VLANS: ["10"], MTU: "1400", STP: "0"}}, LAN_PORT: {PORT4: port(4), PORT5: port(5)},
         WAN_IFACE_INFO: {swdev1: (at("10.1.0"; 1) + {IP4_DNS: ["10.1.0.1"], PASSWORD: $secret})},
         PRIVATE_IFACE_INFO: {swdev2: at("10.2.0"; 2)}, RGLINK_IFACE_INFO: {swdev3: at("10.3.0"; 3)},
         LAN_IFACE_INFO: {swdev4: at("10.0.10"; 4), swdev5: (at("10.0.20"; 5) + {IP6_TYPE: "STATIC", IP6_ADDR: "2001:db8:5::1", IP6_PREFIX: "64"})}}' >"$DEVICE_INFO"
}

is_probed() {
    [[ -z $(ip -6 -o addr show tentative) ]]
}

# of TARGET OPS ACT [DOCUMENT]: a member of a request.
of() {
    echo "\"$1\":{\"ops\":$2,\"act\":$3,\"path\":\"${4:-$DEVICE_INFO}\"}"
}
of_new() {
    echo "{$(of "$@" "$NEW")}"
}

# alter INTERFACE FILTER: the request to alter a WAN interface as the filter changes it.
alter() {
    jq ".WAN_IFACE_INFO.$1 |= ($2)" "$DEVICE_INFO" >"$NEW"
    of_new "$1" 15 3
}

state() {
    kernel_call network_state "$1" >/dev/null
}

# What the calls of a plan are in the journal of the overlay's services.
calls_of() {
    jq -r '.calls[] | select(.peer != null and .peer != "ncaas" and .peer != "DnsmasqMgr") | "\(.peer).\(.method)"' "$1" | sort
}

# differences BEFORE AFTER: what the one state has otherwise than the other, but for daemons and secrets.
differences() {
    kernel_call compare_network_states "$scratch/$1" "$scratch/$2" "$scratch/changes" >/dev/null
    changes <"$scratch/changes" | sed "s/$SECRET/***/g; s/\(\\\\\"key\\\\\" : \\\\\"\)[^\\\\]*/\1***/g"
}

is_as_planned() {
    state "$scratch/after"
    differences before after >"$scratch/made"
    cmp -s "$scratch/planned" "$scratch/made"
}

# planned_and_made NAME WORDS...: $scratch/after is the state so far.
planned_and_made() {
    local code
    : >"$JOURNAL"
    nm_bin --json plan "${@:2}" >"$scratch/plan" 2>"$scratch/stderr" || true
    jq .changes "$scratch/plan" | changes >"$scratch/planned"
    state "$scratch/before"
    same "$1: the plan changes nothing" "" "$(differences after before; cat "$JOURNAL")"
    code=$(nm_bin "${@:2}" 2>"$scratch/stderr" | sed 's/ .*//;q') || true
    eventually 10 is_as_planned || true
    check "$1: the changes are those that were planned" diff "$scratch/planned" "$scratch/made"
    [[ $2 != Setup_* ]] || same "$1: the code" "$code" "$(jq .answer.code "$scratch/plan")"
    check "$1: the calls" diff <(calls_of "$scratch/plan") <(sed 's/ .*//' "$JOURNAL" | sort)
    same "$1: the copy is like the device" "[]" "$(jq -c .unlike "$scratch/plan")"
}

# A change a line.
changes() {
    jq -cS --arg daemons "$BY_DAEMONS" '.[] | select(.name | test($daemons) | not)'
}
