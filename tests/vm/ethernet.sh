#!/bin/bash
# Ethernet settings of an emulated NIC, as its driver has them.
set -euo pipefail
source "$(dirname "$0")/../support/world.sh"

# call EXPECTED FUNCTION [ARG]...: its result, then the values of its output parameters.
call() {
    same "${*:2}" "$1" "$(kernel_call "${@:2}" 2>>"$scratch/stderr" | xargs)"
}
# "Speed Duplex Auto-negotiation" as the driver tells them.
state() {
    ethtool "$nic" | sed -nE 's/^\s+(Speed|Duplex|Auto-negotiation): //p' | xargs
}
is_state() {
    [[ $(state) == "$1" ]]
}
modes() {
    ethtool "$nic" | sed -n "/$1 link modes:/,/pause frame/p" | grep -o '[0-9]*base[^ ]*' | xargs
}

nic=$(basename "$(dirname "$(dirname "$(grep -l DRIVER=e1000e /sys/class/net/*/device/uevent | head -n 1)")")")
ip link set "$nic" up
check "it negotiates at first" eventually 20 is_state "1000Mb/s Full on"
call "0 e1000e" get_iface_driver "$nic"
call 1000 get_eth_max_speed "$nic"
call "0 1000 1 1" get_physical_info "$nic"

call 0 set_physical_info "$nic" 100 1 1
same "100 full is advertised" 100baseT/Full "$(modes Advertised)"
ethtool -s "$nic" autoneg off speed 10 duplex half
call 0 set_physical_info "$nic" 100 1 1
check "100 full is forced where it does not negotiate" eventually 20 is_state "100Mb/s Full off"
call "0 100 1 0" get_physical_info "$nic"
call -1012 set_physical_info "$nic" 20000 1 1
call -1007 set_physical_info "$nic" 2500 1 1

call 0 set_physical_info "$nic" 0 1 0
check "speed 0 turns negotiation on" eventually 20 is_state "1000Mb/s Full on"
same "all that is supported is advertised" "$(modes Supported)" "$(modes Advertised)"
finish
