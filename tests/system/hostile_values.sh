#!/bin/bash
# Values of requests and documents that are made to be run: no call starts a program that they name.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/world.sh"

readonly EVIL='e;id>/pwned;$(id>/pwned)`id>/pwned`"'\''&&id>/pwned'
readonly EVIL_NAME='$(id)`id`;id&id'
: >/run/network/.boot_fin
nm-base-rules
jq -n --arg evil "$EVIL" '{DEV_TYPE: "virtio", INTERFACE: $evil, PRIO: "1", TX_RATE: "9", MTU: $evil, VLANS: ["0"],
        VLAN_ID: "7", STP: "0", IP4_TYPE: "STATIC", IP4_ADDR: "10.1.0.2", IP4_PREFIX: "24", IP4_GW: $evil,
        IP6_TYPE: "DISABLED", ACCESS_TO_LOCAL: "FALSE"} as $entry |
    {WAN_PORT: {PORT1: $entry}, LAN_PORT: {PORT1: $entry}, VLAN_SEG: {($evil): $entry},
     WAN_IFACE_INFO: {($evil): $entry}, LAN_IFACE_INFO: {($evil): $entry}}' >"$DEVICE_INFO"

# harmless ENTRY ARGUMENT...: it comes back, and of all programs that were started none was named by a value.
harmless() {
    local programs
    strace -f -qq -e trace=execve -e signal=none -o "$scratch/trace" nm_bin "$@" >"$scratch/line" 2>>"$scratch/stderr" || true
    programs=$(sed -n 's/.*execve("\([^"]*\)".* = 0$/\1/p' "$scratch/trace" | sort -u | xargs)
    check "$1: it was watched (${programs//\/usr/})" grep -q . <<<"$programs"
    same "$1: a result, no program, no file" "1 0 0" \
        "$(grep -c NM_ "$scratch/line") $(grep -c /id <<<"$programs") $(find /pwned 2>/dev/null | wc -l)"
}
# nm_bin takes names only that a device can have.
harmless Add_hosts 192.0.2.1 "$EVIL_NAME"
harmless Del_hosts "$EVIL_NAME"
harmless Reload_tcpmss "{\"path\":\"$DEVICE_INFO\"}"
for target in Setup_wanif:PORT1 Setup_lanif:PORT1 "Setup_vlanbr:$EVIL" "Setup_waninfo:$EVIL" "Setup_laninfo:$EVIL" \
    "Setup_dhcpservice:$EVIL"; do
    for act in 1 3 2; do
        harmless "${target%%:*}" "$(jq -n --arg name "${target#*:}" --arg path "$DEVICE_INFO" --argjson act $act \
            '{($name): {ops: 63, act: $act, path: $path}}')"
    done
done
harmless Lease_event "$EVIL_NAME" add
finish
