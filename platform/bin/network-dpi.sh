#!/bin/sh
# Switches packet inspection for an interface. A plain machine has no inspection engine, so what is left to
# do is to keep the state that the engine would be given: one file per interface, with its role, empty while it is not
# inspected. It is run several times for each LAN and uplink, so it starts no other program where it can.
#
# usage: network-dpi.sh setup_dpi UNKNOWN|WAN|LAN|OTHER ENABLE|DISABLE IFNAME
set -eu

readonly STATE_DIR=/run/network/dpi

usage() {
    echo "usage: network-dpi.sh setup_dpi UNKNOWN|WAN|LAN|OTHER ENABLE|DISABLE IFNAME" >&2
    exit 2
}

[ $# = 4 ] || usage
[ "$1" = setup_dpi ] || usage
# The name becomes a file name.
[ ${#4} -le 15 ] || usage
case $4 in
    '' | . | .. | *[!A-Za-z0-9_.:@-]*) usage ;;
esac
case $2 in
    UNKNOWN | WAN | LAN | OTHER) ;;
    *) usage ;;
esac

case $3 in
    ENABLE)
        [ -d "$STATE_DIR" ] || mkdir -p "$STATE_DIR"
        echo "$2" >"$STATE_DIR/$4"
        ;;
    DISABLE) [ ! -s "$STATE_DIR/$4" ] || : >"$STATE_DIR/$4" ;;
    *) usage ;;
esac
