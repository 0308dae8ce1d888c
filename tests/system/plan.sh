#!/bin/bash
# nm_bin plan: what it says of a request is what the request then does, for each family; and a plan, whole, killed or
# beside an apply, changes nothing.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/plan_world.sh"

# What each is about, and its words.
readonly REQUESTS='a WAN port and its load|Setup_wanif "{$(of PORT1 63 1)}"
an address|Setup_waninfo "{$(of swdev1 15 1)}"
a DHCP client without a server|Setup_waninfo "$(alter swdev1 "{ID: \"1\", IP4_TYPE: \"DHCP\", IP6_TYPE: \"DISABLED\"}")"
a private circuit|Setup_privateinfo "{$(of swdev2 15 1)}"
an RGLink|Setup_rglinkinfo "{$(of swdev3 15 1)}"
the bridge of a VLAN|Setup_vlanbr "{$(of 10 7 1)}"
a LAN of both families|Setup_laninfo "{$(of swdev5 31 1)}"
a DHCP server|Setup_dhcpservice "{$(of swdev5 511 1 /etc/networkmanagement/dhcp_service.json)}"
segments|Apply_segment /etc/networkmanagement/segment.json /run/network/segment.curr
the firewall|Apply_firewall /etc/networkmanagement/firewall.json /run/network/firewall.curr
classes and steering|Apply_policy /etc/networkmanagement/policy.json /run/network/policy.curr
port forwards|Apply_dnat /etc/networkmanagement/firewall.json /run/network/dnat.curr
static routes|Apply_static_route /etc/networkmanagement/static_route.json /run/network/static_route.curr
a stored member|set PORT1 mtu 1400
a port that is not there|Setup_wanif "{$(of PORT9 63 1)}"
what goes|Setup_waninfo "{$(of swdev1 15 2)}"
the whole bring-up|setup_all_iface_by_config'

# killed_at SECONDS: a plan of the whole bring-up, killed then.
killed_at() {
    nm_bin plan setup_all_iface_by_config >/dev/null 2>&1 &
    sleep "$1"
    kill -9 $! 2>/dev/null || true
    wait $! 2>/dev/null || true
}

says() {
    local status=0 output
    output=$("${@:4}" 2>&1) || status=$?
    same "$1: exit status" "$2" "$status"
    check "$1: what is said" grep -qE -- "$3" <<<"$output"
    check "$1: no secret and no control character" bash -c '! grep -qP "$0|[\x01-\x08\x0e-\x1f]"' "$SECRET" <<<"$output"
}

check_no_effect() {
    local rest n
    nm_bin Setup_privateinfo "{$(of swdev2 15 3)}" >/dev/null 2>&1
    state "$scratch/before"
    rest=$(outside)
    for n in 0.05 0.15 0.3 0.5 0.8; do
        killed_at "$n"
    done
    check "killed plans leave no process, no namespace, no mount and no file" eventually 10 is_outside "$rest"
    (while :; do nm_bin plan setup_all_iface_by_config >/dev/null 2>&1 || true; done) &
    daemons+=("$!")
    for n in 1 2 3; do
        same "an apply beside plans" "0" "$(nm_bin Setup_privateinfo "{$(of swdev2 15 3)}" 2>/dev/null | sed 's/ .*//;q')"
    done
    kill "${daemons[-1]}"
    wait "${daemons[-1]}" 2>/dev/null || true
    check "and nothing of them stays" eventually 10 is_outside "$rest"
    eventually 10 eval 'state "$scratch/after" && cmp -s "$scratch/before" "$scratch/after"' || true
    check "the network is as it was" cmp "$scratch/before" "$scratch/after"
}

check_answers() {
    local name='a;>x$(b)"#'
    says "a lock that is held" 0 'would answer 0' flock /run/lock/network/swdev2.lck nm_bin plan --text Setup_privateinfo "{$(of swdev2 15 3)}"
    says "no privileges" 77 '^try: only root' setpriv --reuid 65534 --regid 65534 --clear-groups nm_bin plan Setup_wanif '{}'
    says "no namespaces" 2 '^nm_bin: no rehearsal: namespaces of its own are refused' setpriv --bounding-set -sys_admin nm_bin plan Setup_wanif '{}'
    same "no namespaces: as JSON" '["reason"]' "$(setpriv --bounding-set -sys_admin nm_bin --json plan Setup_wanif '{}' 2>/dev/null | jq -c keys)"
    says "no request" 2 'not a request: list' nm_bin plan list
    says "an event of a process outside" 2 'not a request: Lease_event' nm_bin plan Lease_event swdev1 add
    echo '{"WAN_PORT": {' >"$NEW"
    says "a broken document" 1 '^would answer -1032 NM_ERR_PARSE' nm_bin plan --text Setup_wanif "$(of_new PORT1 4 3)"
    says "a password in what would be stored" 0 '^    \+ .*"PASSWORD" : "\*\*\*"' nm_bin plan --text set swdev1 password "$SECRET-new"
    says "a command for people that fails" 1 'PORT9' nm_bin plan --text set PORT9 mtu 1400
    jq '.WAN_IFACE_INFO.swdev1.PASSWORD = 12345678' "$DEVICE_INFO" >"$scratch/number" && cp "$scratch/number" "$DEVICE_INFO"
    says "a password that is a number" 0 '^    - .*"PASSWORD" : \*\*\*,?$' nm_bin plan --text set swdev1 password "$SECRET-new"
    ip link add "$name" type veth peer name other
    says "a device whose name is no word" 0 '^  link a;>x' nm_bin plan --text Setup_wanif "{$(of PORT1 4 3)}"
    says "a target that moves the cursor" 1 'would answer of .\[2J' nm_bin plan --text Setup_wanif "{$(of '\u001b[2J' 4 3)}"
}

# A device whose /run and /tmp are links to directories elsewhere.
check_links() {
    local root=$scratch/root entry
    mkdir "$root" && mount -t tmpfs root "$root" && mkdir "$root"/{memory,spare}
    for entry in /*; do
        if [[ -L $entry ]]; then
            cp -a "$entry" "$root"
        elif [[ -d $entry && $entry != /run && $entry != /tmp ]]; then
            mkdir "$root$entry" && mount --rbind "$entry" "$root$entry"
        fi
    done
    mount --rbind /run "$root/memory" && ln -s memory "$root/run" && ln -s spare "$root/tmp"
    ip link set swdev1 mtu 1300
    same "links in the place of directories" '[0,"swdev1",[]]' \
        "$(chroot "$root" nm_bin --json plan Setup_wanif "{$(of PORT1 4 3)}" | jq -c '[.answer.code, .changes[0].name, .unlike]')"
    umount -Rl "$root"
}

make_site
while IFS='|' read -r name words; do
    eval "planned_and_made '$name' $words"
done <<<"$REQUESTS"
check_no_effect
check_links
check_answers
finish
