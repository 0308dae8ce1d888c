# shellcheck shell=bash
# A whole site (scripts/lib/site) in force, and packets that are explained first and then really sent. Sourced.
source "$(dirname "${BASH_SOURCE[0]}")/world.sh"
source "$support_dir/../../scripts/lib/site"

# More rules and forwards than the demo has, IPv6 of an uplink and two LANs, the translation that an owner of the uplinks
# adds, and a LAN whose hosts are believed their addresses only if an answer would go there.
more_documents() {
    local device=/etc/networkmanagement/device_info.json firewall=/etc/networkmanagement/firewall.json
    jq '.WAN_IFACE_INFO.swdev1 += {IP6_TYPE: "STATIC", IP6_ADDR: "2001:db8:1::2", IP6_PREFIX: "64", IP6_GW: "2001:db8:1::1"} |
        .LAN_IFACE_INFO.swdev5 += {IP6_TYPE: "STATIC", IP6_ADDR: "2001:db8:5::1", IP6_PREFIX: "64"} |
        .LAN_IFACE_INFO.swdev6 += {IP6_TYPE: "STATIC", IP6_ADDR: "2001:db8:6::1", IP6_PREFIX: "64"}' "$device" >"$scratch/new" && cp "$scratch/new" "$device"
    jq '.RULES.SITE += [{ACTION: "DENY", SRC_IP: "10.0.30.0/24", PROTOCOL: "udp", DST_PORT: "53"}, {ACTION: "ALLOW", DST_IP: "10.0.20.2", PROTOCOL: "tcp", DST_PORT: "80"},
            {ACTION: "DENY", DST_IP: "10.0.20.0/24", PROTOCOL: "tcp"}, {ACTION: "DENY", DST_HOSTNAME: "closed.example"}] |
        .PORT_FORWARDING += [{TYPE: "port_forwarding", ACTION: "ENABLE", WAN_PORTNAME: "PORT2", LAN_IP: "10.0.30.2", UDP_WAN_PORT: "5353", LAN_PORT: "53"}]' \
        "$firewall" >"$scratch/new" && cp "$scratch/new" "$firewall"
}

more_networks() {
    local n
    for n in 1 5 6; do
        ip -n "far$n" addr add "2001:db8:$n::$((n == 1 ? 1 : 2))/64" dev eth0 nodad
        ip -n "far$n" -6 route add default via "2001:db8:$n::$((n == 1 ? 2 : 1))"
    done
    ip -n far5 addr add 10.0.20.66/24 dev eth0
    ip -n far6 addr add 10.0.30.66/24 dev eth0
    ip -n far1 -6 addr add 2001:db8:ffff::9/128 dev lo
    iptables -t nat -A POSTROUTING -o swdev1 -j SNAT --to-source 198.51.100.2
    iptables -t nat -A POSTROUTING -o swdev2 -j MASQUERADE
    iptables -I FORWARD -s 10.0.20.66 -j DROP
    echo 1 >/proc/sys/net/ipv4/conf/swdev6/rp_filter
}

# Where the kernel has what the rule sets need, they are loaded as they are.
make_site() {
    local n
    modprobe -q xt_VTARGET 2>/dev/null || "$SITE_LIB/stock-netfilter" install
    build flows
    site_plug && site_serve && site_store && more_documents
    : >/run/network/resolv.dnsmasq
    nm-base-rules 2>/dev/null
    serve ncaas ncaas
    serve rmgmtd overlayd "$scratch/calls"
    nm_bin boot begin >/dev/null 2>&1 || true
    nm_bin setup_all_iface_by_config >/dev/null 2>&1 || true
    nm_bin boot finish >/dev/null 2>&1 || true
    check "the second uplink has a lease" eventually 40 site_leased
    more_networks
    check "no address is being probed" eventually 40 eval '[[ -z $(ip -6 -o addr show tentative) ]]'
    for n in 1 2 3 4 5 6; do
        ip netns exec "far$n" "$scratch/flows" watch "swdev$n" >>"$scratch/seen" &
        daemons+=("$!")
    done
}

# what_left PROTOCOL SPORT: device, source, port, destination and port of the packet that came out, each once; for an echo
# the port is its identifier.
what_left() {
    awk -v protocol="$1" -v port="$2" '$2 == protocol && $4 == port && $7 == "new" {print $1, $3, $4, $5, $6}' "$scratch/seen" | sort -u
}

# is_answered PROTOCOL SPORT: whether somebody has answered it, with a packet of its protocol or an error.
is_answered() {
    awk -v port="$2" '$6 == port && $7 == "answer" {found = 1} END {exit !found}' "$scratch/seen"
}

# told FILE ECHO_ID: the same of an explanation.
told() {
    jq -r --arg id "$2" 'select(.verdict == "sent") | "\(.uplink.cable) \(.left.source) \(.left.source_port // $id) \(.left.destination) \(.left.destination_port // $id)"' "$1"
}

# really PLACE SOURCE DESTINATION PROTOCOL SPORT DPORT: sends it; PLACE is a port's number, or - for the device itself.
really() {
    if [[ $1 == - ]]; then
        "$scratch/flows" call "${@:2}"
    else
        ip netns exec "far$1" "$scratch/flows" send "${@:2}"
    fi
}
