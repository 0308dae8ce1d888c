#!/bin/bash
# Trunks with 802.1Q VLANs in the bridges of their segments, guests, and the renamed VLAN ports of virtual machines.
set -euo pipefail
source "$(dirname "$0")/../support/world.sh"

readonly NEW=/etc/networkmanagement/new.json
: >/run/network/.boot_fin
serve ncaas ncaas
serve DnsmasqMgr dnsmasqmgr

# document VLANS [ACCESS]: three segments with addresses, a trunk of these VLANs, segment 12 for guests or not.
document() {
    jq -n --argjson vlans "$1" --arg access "${2:-TRUE}" '
        def segment($mtu): {INTERFACE: "br_v\(.)", VLANS: [.], MTU: $mtu, STP: "0"};
        def lan($net): {IP4_TYPE: "STATIC", IP4_ADDR: "10.0.\($net).1", IP4_PREFIX: "24"};
        {VLAN_SEG: {"10": ("10" | segment("9000")), "11": ("11" | segment("1400")), "12": ("12" | segment("1500"))},
         LAN_PORT: {PORT2: {INTERFACE: "swdev2", DEV_TYPE: "ethernet", MTU: "1500", VLANS: $vlans}},
         LAN_IFACE_INFO: {br_v10: lan(10), br_v11: lan(11), br_v12: (lan(12) + {ACCESS_TO_LOCAL: $access})}}'
}

# apply ENTRY ACT OPS NAME...: one request for these targets; its code has to be 0.
apply() {
    local request
    request=$(jq -nc --arg path "$NEW" --argjson act "$2" --argjson ops "$3" \
        '[$ARGS.positional[] | {(.): {act: $act, ops: $ops, path: $path}}] | add' --args "${@:4}")
    same "$1 $request" "0 NM_OK success" "$(nm_bin "$1" "$request" 2>>"$scratch/stderr" | head -n 1)"
}

facts() {
    ip -j link show "$1" | jq -c ".[0] | [$2]"
}

# client VID: a host in this VLAN behind the trunk's far end.
client() {
    ip netns add "c$1"
    ip link add link far2 name eth0 netns "c$1" type vlan id "$1"
    ip -n "c$1" addr add "10.0.$1.2/24" dev eth0
    ip -n "c$1" link set eth0 up
    ip -n "c$1" route add default via "10.0.$1.1"
}

reaches() {
    ip netns exec "$1" ping -c 1 -W 2 -q "$2"
}

modprobe 8021q
ip link add swdev2 address 02:00:00:00:02:02 type veth peer name far2
ip link set far2 mtu 9000 up
nm-base-rules

echo model=KERO_201 >/etc/networkmanagement/ncaas.conf
document '["10", "11"]' >"$NEW"
cp "$NEW" "$DEVICE_INFO"
apply Setup_vlanbr 1 7 10 11 12
apply Setup_lanif 1 63 PORT2
apply Setup_laninfo 1 31 br_v10 br_v11 br_v12
same "the trunk is raised for VLAN 10 and not lowered for VLAN 11" '[9000]["br_v10",9000]["br_v11",1400][1400]' \
    "$(facts swdev2 .mtu)$(facts swdev2.10 '.master, .mtu')$(facts swdev2.11 '.master, .mtu')$(facts br_v11 .mtu)"
same "members have addresses of their own" '["02:00:0a:00:02:02"]["02:00:0b:00:02:02"]' \
    "$(facts swdev2.10 .address)$(facts swdev2.11 .address)"
client 10 && client 11 && client 12
check "clients of two LANs reach each other" eventually 20 reaches c10 10.0.11.2

# VLAN 11 leaves, 12 comes, 10 stays and must not lose a packet meanwhile. A plan has said what that changes.
document '["12", "10"]' >"$NEW"
nm_bin --json plan Setup_lanif "$(jq -nc --arg path "$NEW" '{PORT2: {act: 3, ops: 2, path: $path}}')" >"$scratch/plan"
same "a copy of trunk and bridges is like them" "[]" "$(jq -c .unlike "$scratch/plan")"
kernel_call network_state "$scratch/state.before" >/dev/null
before=$(facts swdev2.10 '.ifindex, .address, .master')$(ip -4 -o addr show br_v10)
ip netns exec c10 ping -q -i 0.05 -W 5 10.0.10.1 >"$scratch/pings" &
pinger=$!
sleep 0.5
apply Setup_lanif 3 2 PORT2
sleep 0.5
kill -INT "$pinger"
wait "$pinger" || true
check "no packet of the VLAN that stays was lost" grep -q ' 0% packet loss' "$scratch/pings"
same "the VLAN that stays is as it was" "$before" \
    "$(facts swdev2.10 '.ifindex, .address, .master')$(ip -4 -o addr show br_v10)"
same "one VLAN left and one came" "swdev2.10 swdev2.12" "$(ip -br link show type vlan | cut -d @ -f 1 | sort | xargs)"
check "the VLAN that left was removed first" awk '/delete swdev2.11 successfully/ {left = NR}
    /setup swdev2.12 successfully/ {came = NR} END {exit !(left && came > left)}' "$MAIN_LOG"
kernel_call network_state "$scratch/state.after" >/dev/null
kernel_call compare_network_states "$scratch/state.before" "$scratch/state.after" "$scratch/changes" >/dev/null
# Whether a new VLAN device has its link-local address from its parent's MAC or from its own is a race in the kernel.
settled() {
    jq -S 'map(select(.domain != "address" or ([.added[], .removed[]] | any(endswith("scope link") | not))))'
}
check "what changed was planned" diff <(jq .changes "$scratch/plan" | settled) <(settled <"$scratch/changes")
cp "$NEW" "$DEVICE_INFO"

check "a new LAN reaches the others" eventually 20 reaches c12 10.0.10.2
document '["12", "10"]' FALSE >"$NEW"
apply Setup_laninfo 3 4 br_v12
check "guests do not reach another LAN" eval "! reaches c12 10.0.10.2"
check "nor it them" eval "! reaches c10 10.0.12.2"
check "they reach the appliance" reaches c12 10.0.12.1
document '["12", "10"]' >"$NEW"
apply Setup_laninfo 3 4 br_v12
check "with access they do again" reaches c12 10.0.10.2

apply Setup_lanif 2 63 PORT2
apply Setup_vlanbr 2 7 10 11 12
same "nothing is left but the trunk" "swdev2" \
    "$(ip -br link | grep -E '^(br_v|swdev)' | cut -d ' ' -f 1 | cut -d @ -f 1 | xargs)"

# All of it at once, from nothing and once more.
brought_up() {
    nm_bin --json setup_all_iface_by_config 2>/dev/null |
        jq -r 'select(.key // "" | test("^(1|PORT|br_)")) | "\(.step) \(.key) \(.code)"' | paste -sd,
}
lan_state() {
    ip -j link show | jq -c '.[] | [.ifname, .ifindex, .mtu, .master, .address]'
    ip -j -4 addr show | jq -c '.[].addr_info' && bridge vlan && ip rule && ip route && ipset save && iptables-save | grep -v '^[#:]'
}
cp "$NEW" "$DEVICE_INFO"
order="setup_vlanbr 10 0,setup_vlanbr 11 0,setup_vlanbr 12 0,setup_lanif PORT2 0,setup_laninfo br_v10 0,setup_laninfo br_v11 0,setup_laninfo br_v12 0"
same "bring-up makes the segments, the port, then the addresses" "$order" "$(brought_up)"
check "clients reach each other" eventually 20 reaches c12 10.0.10.2
before=$(lan_state)
same "a further one works the same" "$order" "$(brought_up)"
same "and changes nothing" "$before" "$(lan_state)"
apply Setup_lanif 2 63 PORT2
apply Setup_vlanbr 2 7 10 11 12

# A virtual machine: the port is a VLAN device that has the interface's name; a change of VLAN makes another one.
echo model=VM >/etc/networkmanagement/ncaas.conf
ip link set swdev2 down
ip link set swdev2 name hw2
echo '{"PORT3": {"HW_PORT": "hw2", "INTERFACE": "lan3"}}' >/etc/networkmanagement/hw_port_info.json
echo '{"LAN_PORT": {"PORT3": {"INTERFACE": "lan3", "DEV_TYPE": "virtio", "MTU": "9000", "VLAN_ID": "3"}},
    "LAN_IFACE_INFO": {"lan3": {"IP4_TYPE": "STATIC", "IP4_ADDR": "10.0.3.1"}}}' >"$DEVICE_INFO"
vlan_of_port() {
    ip -j -d link show lan3 | jq -c '.[0] | [.link, .linkinfo.info_data.id, (.flags | index("UP") != null), .mtu, .address]'
}
cp "$DEVICE_INFO" "$NEW"
apply Setup_lanif 1 63 PORT3
same "the port is a VLAN device by its own name" '["hw2",3,true,9000,"02:00:03:00:02:02"]' "$(vlan_of_port)"
apply Setup_laninfo 1 3 lan3
sed -i 's/"3"/"4"/' "$NEW"
apply Setup_lanif 3 6 PORT3
same "another VLAN is another device" '["hw2",4,true,9000,"02:00:04:00:02:02"]' "$(vlan_of_port)"
same "with the address of the port" '10.0.3.1/24' "$(ip -4 -o addr show lan3 | awk '{print $4}')"
check "which the firewall knows" ipset test localip 10.0.3.1
cp "$NEW" "$DEVICE_INFO"
apply Setup_lanif 2 63 PORT3
check "a deleted port is gone" test ! -e /sys/class/net/lan3
finish
