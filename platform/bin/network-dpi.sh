#!/bin/bash
# Switches packet inspection for an interface. A plain machine has no inspection engine, so what is left to
# do is to keep the state that the engine would be given: one file per inspected interface, with its role.
#
# usage: network-dpi.sh setup_dpi UNKNOWN|WAN|LAN|OTHER ENABLE|DISABLE IFNAME
set -euo pipefail

readonly STATE_DIR=/run/network/dpi

usage() {
    echo "usage: network-dpi.sh setup_dpi UNKNOWN|WAN|LAN|OTHER ENABLE|DISABLE IFNAME" >&2
    exit 2
}

[[ $# == 4 && $1 == setup_dpi ]] || usage
[[ $2 =~ ^(UNKNOWN|WAN|LAN|OTHER)$ ]] || usage
# The name becomes a file name.
[[ $4 =~ ^[A-Za-z0-9_.:@-]{1,15}$ && $4 != . && $4 != .. ]] || usage

case $3 in
    ENABLE)
        mkdir -p "$STATE_DIR"
        echo "$2" >"$STATE_DIR/$4"
        ;;
    DISABLE) rm -f "$STATE_DIR/$4" ;;
    *) usage ;;
esac
