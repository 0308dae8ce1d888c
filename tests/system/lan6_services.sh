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
exec {writer}</etc/radvd.conf
whole=$(</etc/radvd.conf)
flock "$writer"
echo "interface lan0 {" >/etc/radvd.conf
systemctl restart nm-radvd {writer}<&- &
eventually 20 pgrep -f "/etc/radvd.conf /usr/sbin/radvd" >/dev/null || true
echo "$whole" >/etc/radvd.conf
exec {writer}<&-
status=0
wait $! || status=$?
same "a start waits for who writes the file" 0 $status
same "the last one leaves nothing, and the unit alone" "0  0 yes" \
    "$(lan6 leave 0) $(find /etc/networkmanagement/dhcp6 /var/lib/dhcpd6 /run/network/ipv6 -type f ! -name '*.withdrawn') $(
        stat -c %s /etc/radvd.conf) $(active nm-radvd && echo yes)"

# LANs of a document: lan0 is numbered from the prefix that swdev1 is delegated, lan1 has one of its own.
document_lans() {
    ip link add swdev1 up type veth peer name isp netns clients1
    ip addr add 2001:db8:f::1/64 dev swdev1 nodad
    ip -n clients0 -6 addr flush dev eth0 scope global
    cat >"$DEVICE_INFO" <<EOF
{"WAN_PORT": {"PORT1": {"INTERFACE": "swdev1"}}, "WAN_IFACE_INFO": {"swdev1": {"IP4_TYPE": "DISABLED",
  "IP6_TYPE": "STATIC", "IP6_ADDR": "2001:db8:f::1", "IP6_PREFIX": "64", "IP6_GW": "2001:db8:f::2"}},
 "LAN_IFACE_INFO": {
  "lan0": {"IP4_TYPE": "DISABLED", "IP6_TYPE": "STATIC", "IP6_UPLINK": "PORT1", "IP6_SERVICE_TYPE": "SLAAC_RDNSS",
    "IP6_DHCP_PD": "ENABLED", "IP6_ADDR": "2001:db8:a:1::1", "IP6_PD_PREFIX": "2001:db8:a::/48"},
  "lan1": {"IP4_TYPE": "DISABLED", "IP6_TYPE": "STATIC", "IP6_UPLINK": "PORT1", "IP6_SERVICE_TYPE": "SLAAC_RDNSS",
    "IP6_ADDR": "2001:db8:c:1::1"}}}
EOF
}

# echoed TEXT: what comes back over the connection of the client of lan1.
echoed() {
    local reply
    echo "$1" >&"${connection[1]}"
    read -rt 10 -u "${connection[0]}" reply && echo "$reply"
}

document_lans
same "LANs of a document come up" "0 NM_OK success" "$(nm_bin Setup_laninfo '{"lan0": {"act": 1, "ops": 2,
    "path": "/etc/networkmanagement/device_info.json"}, "lan1": {"act": 1, "ops": 2}}' | head -n 1)"
check "a client numbers itself from the delegation" eventually 20 numbered 0 2001:db8:a:1:
check "one of the other LAN by its own prefix" eventually 20 numbered 1 2001:db8:c:1:
python3 -c 'import socket
with socket.create_server(("::", 7000), family=socket.AF_INET6) as server:
    peer = server.accept()[0]
    while text := peer.recv(99): peer.sendall(text)' &
daemons+=("$!")
check "a server listens" eventually 10 bash -c "ss -6ltn | grep -q :7000"
coproc connection { ip netns exec clients1 bash -c 'exec 3<>/dev/tcp/2001:db8:c:1::1/7000; cat <&3 & cat >&3'; }
daemons+=("$connection_PID")
same "the other LAN's client has a connection" before "$(echoed before)"
same "another delegation" 0 "$("$scratch/lan6" renumber swdev1 2001:db8:b::/48)"
check "renumbers the client" eventually 20 numbered 0 '2001:db8:b:1:.*'
check "which gives its old address up" eventually 20 numbered 0 '2001:db8:a:1:.* deprecated'
check "and no new one" bash -c '! ip -n clients0 -6 addr show dev eth0 deprecated | grep -q 2001:db8:b'
same "the store has it" "2001:db8:b:1::1 2001:db8:b::/48" \
    "$(jq -r '.LAN_IFACE_INFO.lan0 | .IP6_ADDR + " " + .IP6_PD_PREFIX' "$DEVICE_INFO")"
same "the other LAN's connection lives on" after "$(echoed after)"
finish
