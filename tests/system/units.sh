#!/bin/bash
# The life of every daemon's unit: it starts, comes back after a kill, stops, and is given up when it is started without
# end. Under the machine's systemd alone: the stand-in of systemctl does not watch what it has started.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/world.sh"

# Daemons of the device and of its ports: swdev1 is an uplink, swdev2 a LAN, swdev3 a relayed one.
readonly DAEMONS=(ncaas overlayd dnsmasqmgr nm-serviced nm-radvd nm-{mlmd,plmd,dlmd,dhclient,dhcpcd,pppoe}@swdev1
    nm-{dhcpd,dhcpd6}@swdev2 nm-{dhcrelay,6relayd}@swdev3)

# of FUNCTION: what it prints of each daemon.
of() {
    local unit
    for unit in "${DAEMONS[@]}"; do
        "$1" "$unit"
    done
}

pid_of() {
    systemctl show -p MainPID --value "$1"
}

start_refused() {
    systemctl start "$1" 2>/dev/null || echo "$1"
}

# Daemons that fork are known by their file of a process number, which is there when they are.
has_process() {
    [[ $(systemctl is-active "$1") == active && $(pid_of "$1") != 0 ]]
}

without_process() {
    eventually 20 has_process "$1" || echo "$1"
}

kill_daemon() {
    first[$1]=$(pid_of "$1")
    kill -9 "${first[$1]}"
}

note_second() {
    second[$1]=$(pid_of "$1")
}

not_back() {
    eventually 40 eval "has_process $1 && [[ \$(pid_of $1) != ${first[$1]} ]]" || echo "$1"
}

# What it may take of the memory and of the processes is less than all.
unbounded() {
    [[ $(systemctl show -p MemoryMax --value "$1") =~ ^[0-9]+$ && $(systemctl show -p TasksMax --value "$1") == 512 ]] || echo "$1"
}

not_ended() {
    systemctl stop "$1" && [[ $(systemctl is-active "$1") == inactive && ! -d /proc/${second[$1]} ]] || echo "$1"
}

# A unit that is started again and again, as by a script that has gone wild: how often it starts.
starts() {
    local n
    systemctl reset-failed "$1" 2>/dev/null || true  # one that is not loaded any more has no count
    for ((n = 0; n < 50; n++)); do
        systemctl restart "$1" 2>/dev/null || break
    done
    echo "$n $(systemctl is-active "$1")"
}

declare -A first=() second=()
for n in 1 2 3; do
    printf 'addr add 2001:db8:%s::2/64 dev far nodad\n' $n | plug "far$n" "swdev$n" "10.$n.0.1" "10.$n.0.2"
    ip addr add "2001:db8:$n::1/64" dev "swdev$n" nodad
done
mkdir -p /etc/networkmanagement/dhcp{,6} /etc/vpppoe/{peers,env}
printf 'model=VM\ndevid=2\n' >/etc/networkmanagement/ncaas.conf
echo 'subnet 10.2.0.0 netmask 255.255.255.0 { range 10.2.0.10 10.2.0.20; }' >/etc/networkmanagement/dhcp/dhcpd_swdev2.conf
echo 'subnet6 2001:db8:2::/64 { range6 2001:db8:2::10 2001:db8:2::20; }' >/etc/networkmanagement/dhcp6/dhcpd6_swdev2.conf
printf 'SERVERS="10.1.0.2"\nUIF_CMD="-iu swdev1"\n' >/etc/networkmanagement/dhcp/dhcrelay_swdev3
printf 'UPLINK=swdev1\nMODE=-N\n' >/run/network/.nm-6relayd@swdev3.env
echo 'interface swdev2 { AdvSendAdvert on; prefix 2001:db8:2::/64 {}; };' >/etc/radvd.conf
: >/etc/vpppoe/peers/swdev1
mkdir -p /run/systemd/system/service.d
printf '[Service]\nRestartSec=1\n' >/run/systemd/system/service.d/soon.conf  # most rest for five seconds
nm-base-rules 2>/dev/null
systemctl daemon-reload

same "each daemon that is installed is looked at" \
    "$(grep -L '^Type=oneshot' /usr/lib/systemd/system/{nm-*,ncaas,overlayd,dnsmasqmgr}.service | xargs -n 1 basename -s .service | sort | xargs)" \
    "$(printf '%s\n' "${DAEMONS[@]}" | sed 's/@.*/@/' | sort | xargs)"
same "none may take all of the memory, or all processes" "" "$(of unbounded)"
same "every daemon starts" "" "$(of start_refused)$(of without_process)"
check "the one that sets up LANs may write the leases of their servers" \
    nsenter -t "$(pid_of nm-serviced)" -m touch /var/lib/dhcpd/leases /var/lib/dhcpd6/leases
of kill_daemon
same "and comes back when it was killed" "" "$(of not_back)"
of note_second
same "and ends when it is stopped" "" "$(of not_ended)"
same "a server of a LAN starts forty times in five minutes, and no more" "40 failed" "$(starts nm-dhcrelay@swdev3)"
finish
