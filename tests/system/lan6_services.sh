#!/bin/bash
# Router advertisements and DHCPv6 on two LANs by the real daemons: how clients number themselves, what a change of
# one LAN means for the other, and what is left when they go.
set -euo pipefail

source "$(dirname "${BASH_SOURCE[0]}")/../support/world.sh"

: >/run/network/.boot_fin
for lan in 0 1; do
    ip netns add "clients$lan"
    ip link add "lan$lan" up type veth peer name eth0 netns "clients$lan"
    ip addr add "2001:db8:$lan::1/64" dev "lan$lan" nodad
    ip -n "clients$lan" link set eth0 up
done
echo 1 >/proc/sys/net/ipv6/conf/all/forwarding
build lan6 networkinterface jsoncpp

lan6() {
    "$scratch/lan6" "$1" "lan$2" "2001:db8:$2::"
}

# numbered LAN PATTERN: the LAN's client has an address like this.
numbered() {
    ip -n "clients$1" -6 addr show dev eth0 scope global | grep -qE "inet6 $2"
}

# routed LAN: the client has a default route, learnt from an advertisement.
routed() {
    ip -n "clients$1" -6 route show default | grep -q 'proto ra'
}

# leased LAN: the address that a DHCPv6 client gets there, "none" within a quarter of a minute.
leased() {
    rm -f "$scratch/client.leases"
    timeout 15 ip netns exec "clients$1" dhclient -6 -1 -v -lf "$scratch/client.leases" -pf "$scratch/dhclient.pid" \
        -sf /bin/true eth0 >"$scratch/dhclient.log" 2>&1 || true
    sed -n 's/^ *iaaddr \([0-9a-f:]*\) .*/\1/p' "$scratch/client.leases" 2>/dev/null | tail -n 1 | grep . || echo none
    [[ ! -s $scratch/dhclient.pid ]] || kill "$(<"$scratch/dhclient.pid")" 2>/dev/null || true
}

active() {
    systemctl --quiet is-active "$1"
}

same "advertisements of a LAN start" "0 yes" "$(lan6 advertise 0) $(active nm-radvd && echo yes)"
check "its client numbers itself" eventually 20 numbered 0 2001:db8::
check "and has a route" eventually 10 routed 0
same "a second LAN joins, managed" "0 yes" "$(lan6 manage 1) $(active nm-radvd && echo yes)"
check "its client has a route" eventually 20 routed 1
check "and no address of its own making" eventually 1 bash -c '! ip -n clients1 -6 addr show dev eth0 | grep -q 2001'
same "its DHCPv6 server starts, and the other LAN's" "0 0 yes" \
    "$(lan6 serve 1) $(lan6 serve 0) $(active nm-dhcpd6@lan1 && active nm-dhcpd6@lan0 && echo yes)"
check "the client may speak" eventually 10 bash -c 'ip -n clients1 -6 addr show dev eth0 scope link | grep -v tentative | grep -q fe80'
same "each LAN's client gets its own server's address" "2001:db8:1::100 2001:db8::100" "$(leased 1) $(leased 0)"
same "it goes" "0 no yes" \
    "$(lan6 leave 1) $(active nm-dhcpd6@lan1 || echo no) $(active nm-dhcpd6@lan0 && echo yes)"
same "the file has the other LAN only" "interface lan0" "$(grep interface /etc/radvd.conf)"
same "the last one leaves nothing, and the unit alone" "0  0 yes" \
    "$(lan6 leave 0) $(find /etc/networkmanagement/dhcp6 /var/lib/dhcpd6 /run/network/ipv6 -type f ! -name '*.withdrawn') $(
        stat -c %s /etc/radvd.conf) $(active nm-radvd && echo yes)"
finish
