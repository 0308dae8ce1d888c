#!/bin/bash
# Edits the sets that the firewall matches, for the library and for whoever else fills them. Adding what is there
# and deleting what is not count as done. firewall6.sh is this script for members that are IPv6 addresses.
#
# usage: firewall.sh edit_ipset add|del SET MEMBER
#        firewall.sh edit_ipset flush SET
#        firewall6.sh edit_ip6_ipset ...
# Exits with the status of ipset, whose message says what was wrong; 2 on wrong usage.
set -euo pipefail

PATH=/usr/sbin:/sbin:$PATH
name=${0##*/}

misused() {
    echo "$name: $1" >&2
    exit 2
}

# Rules of both families may match one name: then it is a list, and what is edited is the set of this family in it.
find_set() {
    if ipset -quiet -name list "$family$1" >/dev/null; then
        set=$family$1
    else
        set=$1
    fi
}

edit() {
    local action=$1 set=$2 word
    case $action:$# in
        add:3 | del:3 | flush:2) ;;
        *) misused "cannot edit: $*" ;;
    esac
    for word in "${@:2}"; do
        # What begins with a dash would be an option to ipset.
        [[ -n $word && $word != -* ]] || misused "no set or member: '$word'"
    done
    find_set "$set"
    ipset -exist "$action" "$set" "${@:3}"
}

case ${1:-} in
    edit_ipset) family=ip4_ ;;
    edit_ip6_ipset) family=ip6_ ;;
    *) misused "unknown command: '${1:-}'" ;;
esac
[[ $# -ge 3 ]] || misused "an action and a set are needed"
edit "${@:2}"
