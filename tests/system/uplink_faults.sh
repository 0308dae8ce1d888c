#!/bin/bash
# What goes wrong around the addressing of an uplink, and what it ends in all the same: a service of the overlay
# that stalls, two ports at once, a setup that is killed half-way, and the same thing over and over.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/world.sh"
source "$support_dir/uplink_world.sh"

SERVICES=(VelanWsd.service VelanWmd rmgmtd)
[[ $kind != PRIVATE ]] || unset 'SERVICES[2]'  # it has no site of IPsec

# signal_service SERVICE SIGNAL: to the process that serves it.
signal_service() {
    pkill "-$2" -P "$overlay" -x "${1:0:15}"
}

delete_both() {
    { run 2 15 1 && run 2 15 2; } >/dev/null
}

stands() {
    diff <(uplink 1 | grep -E '^(address|rule|route|set)') <(grep -E '^(address|rule|route|set)' <<<"$first")
}

check_stalls() {
    local service caller
    for service in "${SERVICES[@]}"; do
        delete_both
        signal_service "$service" STOP
        run 1 15 >"$scratch/result" &
        caller=$!
        check "$service stalls: the uplink stands" eventually 5 stands
        check "$service stalls: the port is locked" eval "! flock --nonblock /var/lock/network/swdev1.lck true"
        signal_service "$service" CONT
        wait "$caller"
        same "$service stalls: result" "0 NM_OK success" "$(cat "$scratch/result")"
    done
}

# The device side and the addressing of one port keep out of each other's way.
check_levels() {
    local callers=()
    delete_both
    signal_service VelanWmd STOP
    run 1 15 >"$scratch/result" &
    callers+=("$!")
    eventually 5 stands >/dev/null || true
    document "$scratch/device.json" 'ports.PORT1.MTU = "1400"'
    nm_bin "Setup_${kind,,}if" "{\"PORT1\":{\"ops\":4,\"act\":3,\"path\":\"$scratch/device.json\"}}" >"$scratch/device" &
    callers+=("$!")
    sleep 2
    same "the device waits while its addressing is set up" 1500 "$(</sys/class/net/swdev1/mtu)"
    signal_service VelanWmd CONT
    wait "${callers[@]}"
    same "then it has its turn" "0 NM_OK success 0 NM_OK success 1400" \
        "$(<"$scratch/result") $(<"$scratch/device") $(</sys/class/net/swdev1/mtu)"
    ip link set swdev1 mtu 1500
}

# An alteration that could not edit the sets, and once more.
check_failed_edits() {
    move
    mv /usr/sbin/firewall.sh "$scratch"
    run 3 1 >/dev/null
    mv "$scratch/firewall.sh" /usr/sbin
    run 3 1 >/dev/null
    same "a repetition heals sets that could not be edited" "$moved" "$(uplink 1)"
}

# killed DELAY [SERVICE]: an alteration is killed after so many seconds, while the service stalls if one is named;
# the same request again ends undisturbed.
killed() {
    cp "$DEVICE_INFO" "$NEW"
    { run 2 15 && run 1 15; } >/dev/null
    move
    [[ -z ${2:-} ]] || signal_service "$2" STOP
    run 3 1 >/dev/null &
    sleep "$1"
    pkill -KILL -x nm_bin || true
    wait $!
    [[ -z ${2:-} ]] || signal_service "$2" CONT
    run 3 1 >/dev/null
    same "killed after $1 s${2:+ in a call of $2}, and once more" "$moved" "$(uplink 1)"
}

move() {
    document "$NEW" 'infos.swdev1 += {IP4_ADDR: "10.1.0.77", IP4_PREFIX: "25"}'
}

# Files, sets, rules and routes that an uplink could leave behind, counted.
belongings() {
    find /etc /run /var/lock -xdev -type f -not -name '*.lck' | wc -l
    (ip rule && ip route show table all && ipset save) | wc -l
}

make_uplinks
build uplink_cycles networkinterface jsoncpp
ip rule add iif lo fwmark 0x700000/0x700000 priority 20000 lookup 999
ip route add unreachable default table 999
document "$DEVICE_INFO"
cp "$DEVICE_INFO" "$NEW"
{ run 1 15 1 && run 1 15 2; } >/dev/null
first=$(uplink 1) both=$(uplink 1 && uplink 2)
check_stalls
check_levels
delete_both
run 1 15 1 >/dev/null & other=$!
run 1 15 2 >/dev/null
wait "$other"
same "two ports at once end as one after the other" "$both" "$(uplink 1 && uplink 2)"
move
run 3 1 >/dev/null
moved=$(uplink 1)
{ run 2 15 && cp "$DEVICE_INFO" "$NEW" && run 1 15; } >/dev/null
check_failed_edits
for service in "${SERVICES[@]}"; do
    killed 1 "$service"
done
for delay in 0.02 0.04 0.06 0.08 0.1 0.12 0.14 0.16 0.18 0.2 0.25 0.3; do
    killed "$delay"
done
printf 'model=VM\ndevid=0\n' >/etc/networkmanagement/ncaas.conf  # no link daemons, which take most of the time
delete_both
cp "$DEVICE_INFO" "$NEW"
before=$(belongings)
same "over and over in one process" "0 failed, 0 descriptors more" "$("$scratch/uplink_cycles" "Setup_${kind,,}info" "${NM_CYCLES:-40}" \
    "{\"swdev1\":{\"ops\":15,\"act\":1,\"path\":\"$NEW\"}}" '{"swdev1":{"ops":15,"act":2,"path":"/etc/networkmanagement/device_info.json"}}' | tail -n 1)"
same "over and over: nothing is left" "$before" "$(belongings)"
kill "$overlay"
wait "$overlay" 2>/dev/null || true
same "no service of the overlay is there: result" "0 NM_OK success" "$(run 1 15)"
check "no service of the overlay is there: the uplink stands" stands
same "what others have in rules and routes is still there" "20000: unreachable" \
    "$(ip rule | grep -o '^20000:') $(ip route show table 999 | grep -o '^unreachable')"
finish
