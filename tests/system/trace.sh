#!/bin/bash
# nm_bin trace: a request does what it does without a trace, and where its time went is said by step, also of one that
# fails, waits or is killed.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/plan_world.sh"

readonly TRACE=$scratch/trace.json
# Each step with the targets and operations around it, which are those that begin before it and end behind it.
readonly STEPS='[.traceEvents[] | select(.ph == "X" and .tid == .pid)] as $all | $all[] | . as $one |
    [$all[] | select(.ts <= $one.ts and .ts + .dur >= $one.ts + $one.dur) | select(.cat == ("entry", "target", "operation")) | .name] as $around |
    "\($around | join(" > ")) | \(.cat) \(.name) | \(.dur / 1000 | floor) | \(.args.result) \(.args.holder) \(.args.unfinished)"'

# traced NAME STEP REQUEST...: the request has a trace with a step like this, and makes the same output and status as when
# it is made again without, after what takes it back.
traced() {
    local status=0 plain=0
    nm_bin trace --out "$TRACE" "${@:3}" >"$scratch/out" 2>"$scratch/tables" || status=$?
    [[ $3 != set ]] || nm_bin undo >/dev/null 2>&1
    nm_bin "${@:3}" >"$scratch/plain" 2>/dev/null || plain=$?
    same "$1: exit status" "$plain" "$status"
    check "$1: output" diff "$scratch/plain" "$scratch/out"
    has_step "$1" "$2"
    check "$1: the tables" grep -qE '^in all +[0-9.]+$' "$scratch/tables"
}

has_step() {
    jq -r "$STEPS" "$TRACE" >"$scratch/steps"
    check "$1: its steps" grep -qE -- "$2" "$scratch/steps"
    check "$1: no secret" bash -c '! grep -q "$@"' - "$SECRET" "$TRACE" "$scratch/tables"
}

check_requests() {
    traced "a port's size" '^Setup_wanif > PORT1 > alter WanInterface \| ioctl SIOCSIFMTU swdev1 ' Setup_wanif "{$(of PORT1 4 3)}"
    traced "a LAN" '^Setup_laninfo > swdev5 > add LanIfaceInfo \| netlink RTM_NEWADDR swdev5 ' Setup_laninfo "{$(of swdev5 31 1)}"
    traced "the firewall" ' \| process read .*iptables-restore' \
        Apply_firewall /etc/networkmanagement/firewall.json /run/network/firewall.curr
    traced "a call" ' \| bus ' Setup_waninfo "{$(of swdev1 15 1)}"
    traced "a request that fails" '^Setup_wanif > PORT9 \| target PORT9 \| [0-9]+ \| -' Setup_wanif "{$(of PORT9 63 1)}"
    traced "a password" '^Setup_waninfo > swdev1 > ' set swdev1 password "$SECRET-new"
}

# child_sleeps PID: the process that it has started.
child_sleeps() {
    grep -qs nanosleep "/proc/$(pgrep -P "$1")/wchan"
}

# waits_for_lock REQUEST...: its trace is under way, and sleeps.
waits_for_lock() {
    nm_bin trace --out "$TRACE" "$@" 2>"$scratch/tables" &
    daemons+=("$!")
    eventually 20 child_sleeps "${daemons[-1]}"
}

check_waits() {
    local holder peer status=0
    flock --no-fork /run/lock/network/swdev2.lck sleep 120 &
    holder=$!
    eventually 10 bash -c '! flock --nonblock /run/lock/network/swdev2.lck true'
    waits_for_lock Setup_privateif "{$(of PORT2 4 3)}" >"$scratch/out"
    kill "$holder"
    wait "${daemons[-1]}" || failed "the request that waited"
    has_step "a lock that is held" "^Setup_privateif > PORT2 \| lock take swdev2 \| [0-9]{3,} \| null sleep \(process $holder\) "
    check "a lock that is held: the tables" grep -q "^ .* lock take swdev2, held by sleep (process $holder) (Setup_privateif > PORT2)" "$scratch/tables"
    flock --no-fork /run/lock/network/swdev2.lck sleep 120 &
    daemons+=("$!")
    eventually 10 bash -c '! flock --nonblock /run/lock/network/swdev2.lck true'
    waits_for_lock Setup_privateif "{$(of PORT2 4 3)}" >"$scratch/out"
    kill -TERM "${daemons[-1]}"
    wait "${daemons[-1]}" || status=$?
    same "a trace that is ended: exit status" 143 "$status"
    has_step "a trace that is ended" "^Setup_privateif > PORT2 \| lock take swdev2 \| [0-9]+ \| null .* true"
    kill "${daemons[-2]}"
    ip link set swdev1 mtu 1500
    peer=$(pgrep -x ncaas)
    kill -STOP "$peer"
    (sleep 2 && kill -CONT "$peer") &
    nm_bin trace --out "$TRACE" setup_all_iface_by_config >"$scratch/out" 2>"$scratch/tables" || true
    wait $!
    has_step "the bring-up" '^setup_all_iface_by_config > setup_wanif PORT1 > add WanInterface \| ioctl SIOCSIFMTU'
    has_step "a service that stalls" '^setup_all_iface_by_config > get_model \| bus ncaas [a-z_]+ \| [0-9]{3,} '
    traced "a DHCP server" '^Setup_dhcpservice > swdev5 > .* \| unit (re)?start nm-dhcpd@swdev5 \| [0-9]+ \| 0 ' \
        Setup_dhcpservice "{$(of swdev5 511 1 /etc/networkmanagement/dhcp_service.json)}"
}

says() {
    local status=0 output
    output=$("${@:4}" 2>&1) || status=$?
    same "$1: exit status" "$2" "$status"
    check "$1: what is said" grep -qE -- "$3" <<<"$output"
}

check_refusals() {
    ip link set swdev1 mtu 1500
    says "a file that cannot be written" 1 'cannot write /proc/none/x: No such file' nm_bin trace --out /proc/none/x Setup_wanif "{$(of PORT1 4 3)}"
    says "a directory" 1 'cannot write /run: Is a directory' nm_bin trace --out /run Setup_wanif "{$(of PORT1 4 3)}"
    same "nothing was worked" 1500 "$(</sys/class/net/swdev1/mtu)"
    says "no privileges" 77 '^try: only root' setpriv --reuid 65534 --regid 65534 --clear-groups nm_bin trace Setup_wanif '{}'
    says "no request" 2 'not a request: list' nm_bin trace list
    says "no file" 2 'out takes a file' nm_bin trace --out
    says "a full disk" 0 'cannot write /dev/full: No space left' nm_bin trace --out /dev/full Setup_wanif "{$(of PORT1 4 3)}"
    same "JSON alone is on standard output" '["X","M"]' \
        "$(nm_bin trace --json set PORT1 mtu 1400 2>/dev/null | jq -c '[.traceEvents[].ph] | unique | reverse')"
}

make_site
check_requests
check_waits
check_refusals
finish
