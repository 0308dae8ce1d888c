#!/bin/bash
# The events of a DHCP uplink: the server goes away, comes back with another address and without a router; and
# what foreign servers, clients that were ended and a held lock do to an event. Then an uplink by DHCPv6.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/world.sh"
source "$support_dir/uplink_world.sh"

readonly ROUTER='option routers 10.1.0.1;'

# event WORDS [ADDRESS [LINE]...]: the server ends, and another one takes its place; then the uplink as it settles.
event() {
    kill "$dhcpd" 2>/dev/null || true
    wait "$dhcpd" || true
    [[ -z ${2:-} ]] || dhcp_server "range $2 $2;" "${@:3}"
    settled "${2:-}" || echo "the address is not '${2:-}'"
    eventually 20 eval "[[ \$(uplink 1 | grep -c 'route default') == $(($# > 2)) ]]" || echo "routes are wrong"
    eventually 20 is_quiet
    echo "== $1" && uplink 1 && calls
}

server_story() {
    event "another address" 10.1.0.30 "$ROUTER"
    event "the server is gone, and the lease has run out"
    event "the server is back" 10.1.0.40 "$ROUTER"
    event "no router any more" 10.1.0.40
    event "the router is back" 10.1.0.40 "$ROUTER" 'option domain-name-servers 10.1.0.53;'
}

# Asked over the bus to renew, the port takes a new lease long before the old one ends, from a server that knows nothing
# of that.
check_renewal() {
    serve networkmanagement nm_serviced
    kill "$dhcpd"
    dhcp_server 'range 10.1.0.25 10.1.0.25;' "$ROUTER"
    same "a renewal is answered" '{"data":"","error":0,"meta":{"version":"1.1"}}' \
        "$(vsh networkmanagement.RenewDHCPClientIP '{"portname": "PORT1"}')"
    check "the renewed lease" settled 10.1.0.25
    check "its routes" eventually 20 eval '[[ $(uplink 1 | grep -c "route default") == 1 ]]'
}

# Whoever stops the client holds the lock that its hook waits for.
check_stop_under_lock() {
    flock /var/lock/network/swdev1.lck sleep 30 &
    systemctl start nm-dhclient@swdev1
    check "an event waits for the lock" eventually 20 pgrep -f 'nm_bin Lease_event'
    check "its client can be stopped meanwhile" timeout 5 systemctl stop nm-dhclient@swdev1
    check "no event is left behind" eventually 5 is_quiet
    pkill -P $! sleep
}

# Reports with a hostile or incomplete environment: the result and the address afterwards, what is reported.
check_reports() {
    local expected values result
    while IFS='|' read -r expected values; do
        result=$(eval "env reason=BOUND $values nm_bin Lease_event swdev1 add" 2>&1 || true)
        same "a report of $values" "$expected" "${result%% *} $(addresses)"
    done <<'END'
-1022 |new_subnet_mask=255.255.255.0
-1022 |new_subnet_mask=255.255.255.0 new_ip_address='10.1.0.5;touch /pwned'
-1022 |new_subnet_mask=255.255.255.0 new_ip_address=10.1.0.5.111.111.111.111
-1022 |new_ip_address=10.1.0.5
-1009 |new_subnet_mask=255.0.0.0 new_ip_address=127.0.0.5
-1009 |new_subnet_mask=255.255.255.0 new_ip_address=224.0.0.5
0 |new_subnet_mask=255.255.255.0 new_ip_address=10.1.0.5 pid=4194300
-1022 10.1.0.5|new_subnet_mask=255.255.255.0 new_ip_address=10.1.0.5 new_routers='$(touch /pwned)'
0 10.1.0.6|new_subnet_mask=255.255.255.0 new_ip_address=10.1.0.6 new_routers='10.1.0.1 10.1.0.9'
END
    : >"$JOURNAL"
    check "a client that was started anew" env reason=REBOOT new_subnet_mask=255.255.255.0 new_ip_address=10.1.0.6 \
        new_routers=10.1.0.1 nm_bin Lease_event swdev1 add
    same "has nothing taken down for the lease that is in force" 0 "$(grep -c '"op":"del"' "$JOURNAL")"
    same "the last one alone is left" "" "$(uplink 1 | grep 10.1.0.5; ls /pwned 2>/dev/null || true)"
    same "an act that is none" -1001 "$(reason=BOUND nm_bin Lease_event swdev1 renew | cut -d' ' -f1)"
    same "a port of another type" -1008 "$(reason=BOUND nm_bin Lease_event swdev2 add | cut -d' ' -f1)"
}

# provider6 POOL: isp2 advertises itself, and a DHCPv6 server there gives an address and delegates a prefix of POOL.
provider6() {
    printf '%s\n' 'interface far { AdvSendAdvert on; AdvManagedFlag on; MinRtrAdvInterval 3; MaxRtrAdvInterval 4;' \
        'prefix 2001:db8:2::/64 { AdvAutonomous off; }; };' >/etc/radvd.conf
    printf '%s\n' 'default-lease-time 12; preferred-lifetime 8; option dhcp-renewal-time 4;' \
        "subnet6 2001:db8:2::/64 { range6 2001:db8:2::7 2001:db8:2::7; prefix6 $1:: $1:: /56; }" >"$scratch/dhcpd6.conf"
    : >"$scratch/dhcpd6.leases"
    ip -n isp2 addr replace 2001:db8:2::1/64 dev far nodad
    ip netns exec isp2 dhcpd -6 -f -q --no-pid -cf "$scratch/dhcpd6.conf" -lf "$scratch/dhcpd6.leases" far 2>/dev/null &
    dhcpd=$!
    daemons+=("$dhcpd")
}

# uplink6: what there is of the port's IPv6 in its record, the kernel, the sets and the names, a line each.
uplink6() {
    jq -r '"lease \(.curr_ip)/\(.curr_prefix_length) \(.curr_pd_prfx)/\(.curr_pd_prfx_len)"' \
        /run/network/ipv6/swdev2.json 2>/dev/null || true
    ip -6 rule | sed -n 's/^[0-9]*:\t\(.*\) lookup 268$/rule \1/p'
    { ip -6 route show table 268 && ip -6 route show table 253; } 2>/dev/null | sed 's/fe80:[^ ]*/ROUTER/; s/ metric.*//; s/^/route /'
    ipset save ip6_localip | sed -n 's/^add /set /p'
    sed -n '/2001.*swdev2/s/ .*//p' /etc/hosts
}

is_settled6() {
    [[ $(uplink6) == "$1" ]]
}

check_ipv6() {
    local routed
    routed=$(printf '%s\n' "rule from 2001:db8:2::7 fwmark 0/0xf" "rule from all fwmark 0/0xf oif swdev2" \
        "rule from all fwmark 0x1002/0x100f" "rule from all fwmark 0x2002/0x200f" "route 2001:db8:2::/64 dev swdev2 proto static" \
        "route default via ROUTER dev swdev2 proto static" "route default via ROUTER dev swdev2 proto static" \
        "set ip6_localip 2001:db8:2::7" "2001:db8:2::7")
    ipset create ip6_localip hash:ip family inet6
    ip netns exec isp2 sysctl -qw net.ipv6.conf.all.forwarding=1
    ip -n isp2 addr add 2001:db8:ffff::1/128 dev lo && ip -n isp2 link set lo up
    provider6 2001:db8:100
    ip netns exec isp2 radvd -n -p "$scratch/radvd.pid" 2>/dev/null &
    daemons+=("$!")
    document "$NEW" '.WAN_IFACE_INFO.swdev2 += {IP6_TYPE: "DHCPV6", IP6_DHCP_PD: "ENABLED"}'
    cp "$NEW" "$DEVICE_INFO"
    same "IPv6 is asked for" "0 NM_OK success" "$(run 1 2 2)"
    check "a lease, a prefix and a router" eventually 30 is_settled6 "lease 2001:db8:2::7/64 2001:db8:100::/56
$routed"
    check "packets pass by it" ping -6 -c 1 -W 5 -I 2001:db8:2::7 2001:db8:ffff::1
    ip -n isp2 link set far down
    check "unplugged, nothing is routed" eventually 10 is_settled6 "lease / /"
    kill "$dhcpd"
    wait "$dhcpd" || true
    ip -n isp2 link set far up
    provider6 2001:db8:200
    check "plugged in at another server, it has its prefix" eventually 40 is_settled6 "lease 2001:db8:2::7/64 2001:db8:200::/56
$routed"
    kill "$dhcpd"
    wait "$dhcpd" || true
    check "with the server gone, the lease ends" eventually 40 is_settled6 "lease / /"
    same "it goes" "0 NM_OK success" "$(run 2 2 2)"
    check "and leaves nothing" eventually 10 eval '! pgrep -f "nm_bin Lease6_event" >/dev/null'
    same "no record, block or client is left" "" "$(uplink6; find /run/network/ipv6 /etc/networkmanagement -name '*swdev2*'
        systemctl is-active nm-dhcpcd@swdev2 | grep -w active || true)"
}

make_uplinks
document "$DEVICE_INFO" '.WAN_IFACE_INFO.swdev1.IP4_TYPE = "DHCP"'
cp "$DEVICE_INFO" "$NEW"
dhcp_server 'range 10.1.0.20 10.1.0.20; default-lease-time 3600; max-lease-time 3600;' "$ROUTER"
run 1 1 >/dev/null
check "the first lease" settled 10.1.0.20
check_renewal
calls >/dev/null
transcript wan_dhcp_server "$(server_story)"
run 2 1 >/dev/null
same "nothing is left of the uplink" "" "$(uplink 1)"
cp "$DEVICE_INFO" "$NEW"
document "$DEVICE_INFO"
run 3 1 >/dev/null
check "a lease is worked before its document is the stored one" settled 10.1.0.40
cp "$NEW" "$DEVICE_INFO"
run 2 1 >/dev/null
check_stop_under_lock
check_reports
check_ipv6
finish
