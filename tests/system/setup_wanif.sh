#!/bin/bash
# WAN ports set up through nm_bin on a real kernel: what reaches the interfaces, and how two callers keep out of each
# other's way.
set -euo pipefail

source "$(dirname "${BASH_SOURCE[0]}")/../support/world.sh"

readonly LOCK=/var/lock/network/swdev1.lck

make_world() {
    local n
    ip netns add isp
    for n in 1 2; do
        ip link add "swdev$n" type veth peer name "far$n" netns isp
        ip link set "swdev$n" up
        ip -n isp link set "far$n" up
    done
    eventually 30 eval '[[ $(ip -br link show type veth; ip -n isp -br link show type veth) != *DOWN* ]]'
    : >/run/network/.boot_fin
    # This kernel lacks the match that the load balancing's rules need; tests/vm loads them.
    for n in ip ip6; do
        printf '#!/bin/sh\nexec cat >>%s/rules\n' "$scratch" | install -m 755 /dev/stdin "/sbin/${n}tables-restore"
    done
    echo model=VM >/etc/networkmanagement/ncaas.conf
    serve ncaas ncaas
}

# document FILE [FILTER]: two WAN ports, changed by a jq filter.
document() {
    jq -n '{WAN_PORT: ({} |
        .PORT1 = {DEV_TYPE: "virtio", INTERFACE: "swdev1", MTU: "1500", PRIO: "1",
                  RX_RATE: "300000000", TX_RATE: "200000000"} |
        .PORT2 = (.PORT1 + {INTERFACE: "swdev2"}))} | '"${2:-.}" >"$1"
}

# port N OPS ACT [PATH]: one member of a request.
port() {
    echo "\"PORT$1\":{\"ops\":$2,\"act\":$3,\"path\":\"${4:-$DEVICE_INFO}\"}"
}

mtu() {
    ip -j link show "$1" | jq '.[0].mtu'
}

lock_is_free() {
    flock --nonblock "$LOCK" true
}

# sets NAME EXPECTED REQUEST [FILTER]: the code, and the MTU of both ports afterwards.
sets() {
    document "$DEVICE_INFO" "${4:-.}"
    setup "$3"
    same "$1" "$2" "$result $(mtu swdev1) $(mtu swdev2)"
}

check_changes() {
    local missing='.WAN_PORT.PORT1.INTERFACE = "swdev9"'
    sets "alter sets the MTU" "0 1400 1500" "{$(port 1 4 3)}" '.WAN_PORT.PORT1.MTU = "1400"'
    same "the result is told in words" "NM_OK success" "${line#* }"
    check "the log names the change" grep -q 'Set MTU\[1400\] OK, Interface : swdev1' "$MAIN_LOG"
    sets "a mask without the link bit leaves it" "0 1400 1500" "{$(port 1 3 3)}"
    sets "a VLAN of a port stands for the port" "0 1500 1500" "{$(port 1.100 4 3)}"
    check "an alteration leaves the load balancing alone" test ! -e "$scratch/rules"
    sets "add on a missing device" "-1002 1500 1500" "{$(port 1 4 1)}" "$missing"
    logged "add on a missing device: log" 'swdev9 does not exist'
    same "an addition balances the load anew" "-F S2SLB -F S2SLB_WITHOUT_MPLS -F S2SLB -F WANLB" \
        "$(grep ^-F "$scratch/rules" | xargs)"
    sets "two ports, the first fails" "0 1500 1300" "{$(port 1 4 1),$(port 2 4 3)}" \
        "$missing | .WAN_PORT.PORT2.MTU = \"1300\""
    logged "two ports, the first fails: log" 'swdev9 does not exist'
    sets "two ports, the last fails" "-1007 1350 1300" "{$(port 1 4 3),$(port 2 4 3)}" \
        '.WAN_PORT.PORT1.MTU = "1350" | .WAN_PORT.PORT2.MTU = "10"'
    logged "two ports, the last fails: log" 'Set MTU\[10\] failed, Interface : swdev2'
    check "the lock is free after all of this" lock_is_free
    same "nothing was printed besides results and why" "" "$(grep -vE '^(error|failed|try|warning):' "$scratch/stderr")"
}

# timed FILE REQUEST: the milliseconds of one call and the printed line.
timed() {
    local begin=${EPOCHREALTIME/./} printed
    printed=$(nm_bin Setup_wanif "$2" 2>&1 || echo "status $?")
    echo "$(((${EPOCHREALTIME/./} - begin) / 1000)) $printed" >"$1"
}

check_locks() {
    local before elapsed printed waiter
    document "$DEVICE_INFO" '.WAN_PORT[].MTU = "1333"'
    before=$(mtu swdev1)
    flock "$LOCK" sleep 12 &
    daemons+=($!)
    eventually 30 bash -c "! flock --nonblock $LOCK true"
    : >"$MAIN_LOG"
    timed "$scratch/waiting" "{$(port 1 4 3)}" &
    waiter=$!
    timed "$scratch/beside" "{$(port 2 4 3)}"
    read -r elapsed printed <"$scratch/beside"
    same "another port is set up meanwhile" "0 NM_OK success 1333" "$printed $(mtu swdev2)"
    check "another port does not wait: $elapsed ms" test "$elapsed" -lt 5000
    wait "$waiter"
    read -r elapsed printed <"$scratch/waiting"
    same "a held lock: result" "-1015 NM_ERR_LOCK the lock was not obtained" "$printed"
    check "a held lock: by whom" grep -q '^try: .*swdev1.lck is held by flock (process [0-9]*)' "$scratch/waiting"
    check "a held lock: exit status" grep -q '^status 75$' "$scratch/waiting"
    check "a held lock: ten tries, $elapsed ms" test "$elapsed" -ge 9500 -a "$elapsed" -le 11500
    same "a held lock: the interface is untouched" "$before" "$(mtu swdev1)"
    logged "a held lock: log" 'Get LOCK failed: swdev1, pid: [0-9]+'
    wait "${daemons[-1]}"
    sets "once it is released, the setup works" "0 1333 1333" "{$(port 1 4 3)}" '.WAN_PORT[].MTU = "1333"'
}

make_world
check_changes
check_locks
finish
