#!/bin/bash
# What an appliance does when it boots: its directories are made, its units are sound, the packet policy has its
# base, and daemons that ports start anew in quick succession are started each time.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/world.sh"

# restarts UNIT: ten starts in a row succeed.
restarts() {
    local n
    for n in 1 2 3 4 5 6 7 8 9 10; do
        systemctl restart "$1" || { echo "start $n failed" && return 1; }
    done
    systemctl stop "$1"
}

mapfile -t directories < <(awk '$1 == "d" {print $2}' /usr/lib/tmpfiles.d/networkinterface.conf)
rm -rf "${directories[@]}"
(umask 077 && systemd-tmpfiles --create networkinterface.conf)
same "the directories are there, for root alone to write to" "755 root:root" \
    "$(stat -L -c '%n %a %U:%G' "${directories[@]}" | sed '\|^/run/lock/network 700 root:root$|d; s/^[^ ]* //' | sort -u)"
same "only root can open a lock file" "700 root:root" "$(stat -c '%a %U:%G' /run/lock/network)"
: >/run/network/.boot_fin
: >/run/network/resolv.dnsmasq
same "and all that a request needs" "0 0" "$(nm_bin Add_hosts 192.0.2.1 swdev1 | cut -d' ' -f1) $(
    kernel_call insert_dns_server 192.0.2.53 swdev1)"
check "and it is logged" test -s "$MAIN_LOG"

units=(/usr/lib/systemd/system/{nm-*,dnsmasqmgr,ncaas,overlayd}.service)
check "the units are there" test "${#units[@]}" -gt 6
same "systemd finds no fault in them" "" "$(systemd-analyze verify --man=no "${units[@]}" 2>&1)"

# What systemd-analyze makes of how far each unit is shut in, in tenths at most.
declare -rA LIMITS=([ncaas]=20 [overlayd]=20 [nm-base-rules]=30 [nm-dhcpd@]=30 [nm-dhcpd6@]=30 [nm-dhcrelay@]=30 [nm-radvd]=30 [dnsmasqmgr]=30)
exposed() {
    local unit name tenths
    for unit in "${units[@]}"; do
        name=$(basename "$unit" .service)
        tenths=$(systemd-analyze security --offline=yes --no-pager "$unit" | sed -n 's/.*exposure level.*: \([0-9]*\)\.\([0-9]\) .*/\1\2/p')
        [[ $((10#${tenths:-100})) -le ${LIMITS[$name]:-40} ]] || echo "$name $tenths"
    done
}
same "each is shut in as far as its work allows" "" "$(exposed)"
systemctl start nm-base-rules
same "the base rules are laid once, at boot" "active 1" \
    "$(systemctl is-active nm-base-rules) $(iptables -t mangle -S | grep -c -- '-N WANLB')"
ip link add swdev1 up type veth peer name far
check "a link daemon is started as often as its port changes" restarts nm-mlmd@swdev1
check "a DHCP client as well" restarts nm-dhclient@swdev1
rm /usr/sbin/dlmd
same "a daemon whose program is missing is reported, and not tried again" "refused not waiting" \
    "$(systemctl start nm-dlmd@swdev1 2>/dev/null || echo refused) $([[ $(systemctl is-active nm-dlmd@swdev1) == activating ]] || echo not waiting)"
finish
