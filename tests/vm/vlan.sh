#!/bin/bash
# 802.1Q devices as the full kernel has them: made, mapped, told apart and deleted.
set -euo pipefail
source "$(dirname "$0")/../support/world.sh"

# call EXPECTED FUNCTION [ARG]...: its result; what it reported on standard error is in $scratch/told.
call() {
    same "${*:2}" "$1" "$(kernel_call "${@:2}" 2>"$scratch/told")"
}
told() {
    same "it tells: $1" "$1" "$(<"$scratch/told")"
}
link() {
    ip -j -d link show "$1" | jq -c ".[0] | [$2]"
}
modprobe 8021q
ip link add nw0 type veth peer name nw1
ip link set nw0 up
ip link set nw1 up
call 0 add_vlanif nw0 5
told ""
same "a device of its own, up" '["nw0","vlan",5,"802.1Q",true]' "$(link nw0.5 '.link, .linkinfo.info_kind,
    .linkinfo.info_data.id, .linkinfo.info_data.protocol, (.flags | index("UP") != null)')"
call 0 add_vlan nw0 4094
same "without the second step it is down" '["DOWN"]' "$(link nw0.4094 .operstate)"
call 0 add_vlan nw0 1
told "WARNING:  VLAN 1 does not work with many switches,
consider another number if you have problems."
call -1203 add_vlan nw0 5
told "ERROR: trying to add VLAN #5 to IF -:nw0:-  error: File exists"
call -1201 add_vlan nw0 4096
call -1203 add_vlan nw0 4095
told "ERROR: trying to add VLAN #4095 to IF -:nw0:-  error: Numerical result out of range"
call -1203 del_vlanif nw0
told "ERROR: trying to del VLAN device nw0  error: Invalid argument"
call 1 is_vlan_interface nw0.5
call 0 is_vlan_interface nw0
call -1205 edit_vlan_egress_prio nw0.of.eighteen.ch 1 1

call 0 edit_vlanif_prio nw0.5 7 6
call 0 edit_vlan_egress_prio nw0.5 3 0
call 0 edit_vlan_egress_prio nw0.5 2 6
same "priorities are mapped" '[{"from":0,"to":3},{"from":6,"to":2}]' "$(link nw0.5 '.linkinfo.info_data.egress_qos[]')"
call -1203 edit_vlan_egress_prio nw0 1 1
told "ERROR: trying to add mapping SKB PRIO#1 to VLAN QOS#1 on IF -:nw0:-  error: Invalid argument"
# And on the wire: a datagram of priority 6 arrives with the tag of VLAN 5 and priority 2.
ip addr add 192.0.2.1/24 dev nw0.5
ip neigh add 192.0.2.2 lladdr 02:00:00:00:00:02 dev nw0.5
tc qdisc add dev nw0.5 clsact
tc filter add dev nw0.5 egress matchall action skbedit priority 6
tc qdisc add dev nw1 clsact
tc filter add dev nw1 ingress protocol 802.1q flower vlan_id 5 vlan_prio 2 vlan_ethtype ip dst_ip 192.0.2.2 action drop
echo marked >/dev/udp/192.0.2.2/9
seen() {
    tc -s -j filter show dev nw1 ingress | jq -e '[.. | .packets? // 0] | max == 1' >/dev/null
}
check "a frame carries its VLAN and priority" eventually 5 seen

call 0 del_vlanif nw0.5
call 0 del_vlan nw0.4094
same "deleted devices are gone, the others stay" nw0.1@nw0 "$(ip -br link show type vlan | cut -d ' ' -f 1)"
call -1203 del_vlanif nw0.5
told "ERROR: trying to del VLAN device nw0.5  error: No such device"
finish
