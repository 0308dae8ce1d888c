#!/bin/sh
# Edits the sets that the firewall matches, for the library and for whoever else fills them. Adding what is there
# and deleting what is not count as done. firewall6.sh is this script for members that are IPv6 addresses. It is run
# for every address of every port, so it starts ipset once and nothing else where it can.
#
# usage: firewall.sh edit_ipset add|del SET MEMBER
#        firewall.sh edit_ipset flush SET
#        firewall6.sh edit_ip6_ipset ...
# Exits with the status of ipset, whose message says what was wrong; 2 on wrong usage.
set -eu

PATH=/usr/sbin:/sbin:$PATH
name=${0##*/}

misused() {
    echo "$name: $1" >&2
    exit 2
}

# Rules of both families match the name lan. On the base of nm-base-rules it is a list, and what is edited is the set
# of this family in it: that is tried first, and looked for only if it fails.
edit_lan() {
    action=$1
    shift
    ! ipset -exist "$action" "${family}lan" "$@" 2>/dev/null || exit 0
    set=lan
    ! ipset -quiet -name list "${family}lan" >/dev/null || set=${family}lan
    exec ipset -exist "$action" "$set" "$@"
}

edit() {
    case $1:$# in
        add:3 | del:3 | flush:2) ;;
        *) misused "cannot edit: $*" ;;
    esac
    action=$1
    shift
    for word in "$@"; do
        # What begins with a dash would be an option to ipset.
        case $word in
            '' | -*) misused "no set or member: '$word'" ;;
        esac
    done
    set=$1
    shift
    [ "$set" != lan ] || edit_lan "$action" "$@"
    exec ipset -exist "$action" "$set" "$@"
}

case ${1:-} in
    edit_ipset) family=ip4_ ;;
    edit_ip6_ipset) family=ip6_ ;;
    *) misused "unknown command: '${1:-}'" ;;
esac
[ $# -ge 3 ] || misused "an action and a set are needed"
shift
edit "$@"
