#!/bin/bash
# The packet policy by packets: what firewall, policy, forwards and static routes, applied by the library, do to TCP and
# UDP on each journey of docs/packet-path.md. A server says who it is and whom it sees, and the mark that a packet
# carries at each hop is recorded in a set.
set -euo pipefail
source "$(dirname "$0")/../support/world.sh"

readonly CALLER=198.51.100.9 FAR=203.0.113
readonly HOPS=(in through out)
# Every bit of the mark that no chain writes.
readonly FOREIGN=0xffffc030

readonly SERVER='my $name = shift; my $all = IO::Select->new;
    for my $address (@ARGV) { for my $kind ([Proto => "udp"], [Proto => "tcp", Listen => 9]) {
        $all->add(IO::Socket::INET->new(LocalAddr => $address, @$kind) || die "$address: $!") } }
    print "ready\n"; STDOUT->flush;
    while (my @ready = $all->can_read) { for my $socket (@ready) {
        if ($socket->socktype == SOCK_STREAM) {
            my $call = $socket->accept or next; print $call "$name " . $call->peerhost . "\n"; close $call;
        } else { $socket->recv(my $text, 99); $socket->send("$name " . $socket->peerhost . "\n") } } }'

serve_calls() {
    local name=$1
    shift
    ip netns exec "$name" perl -MIO::Socket::INET -MIO::Select -e "$SERVER" "$name" "$@" \
        >"$scratch/$name.ready" 2>>"$scratch/stderr" &
    daemons+=("$!")
}

make_world() {
    local n i
    for n in 1 2; do
        i=$((10 + n))
        printf '%s\n' "route add local "{$FAR,10.8{1,2,3}.0}".0/24 dev lo" "addr add $CALLER dev lo" \
            "route add 10.$n.0.1 dev far src $CALLER" "route add 192.168.8.0/24 via 10.$n.0.1" |
            plug "isp$n" "swdev$n" "10.$n.0.1" "10.$n.0.2" index $i
        kernel_call set_ip4_rule $i "10.$n.0.1" 32 1 >/dev/null
        kernel_call set_ip4_route $i "10.$n.0.1" 24 "10.$n.0.2" 24 >/dev/null
    done
    plug line swdev3 10.3.0.1 10.3.0.2 <<<$'addr add 10.73.0.9 dev lo\nroute add default via 10.3.0.1'
    ip link add br_v8 up type bridge
    ip addr add 192.168.8.1/24 dev br_v8
    plug pc swdev8 - 192.168.8.2 master br_v8 <<<'route add default via 192.168.8.1'
    plug web swdev7 - 192.168.8.3 master br_v8 <<<'route add default via 192.168.8.1'
    plug other swdev9 192.168.9.1 192.168.9.2 <<<'route add default via 192.168.9.1'
    ip route add default via 10.1.0.2 metric 1 table 253
}

make_world6() {
    ip addr add 2001:db8:8::1/64 dev br_v8 nodad
    ip addr add 2001:db8:2::1/64 dev swdev2 nodad
    printf '%s\n' "addr add 2001:db8:8::2/64 dev far nodad" "route add default via 2001:db8:8::1" | ip -n pc -b -
    printf '%s\n' "addr add 2001:db8:2::2/64 dev far nodad" "addr add 2001:db8:82::9 dev lo nodad" \
        "route add 2001:db8:8::/64 via 2001:db8:2::1" | ip -n isp2 -b -
    firewall6.sh edit_ip6_ipset add ip6_lan 2001:db8:8::/64
}

start_servers() {
    local n far=()
    for n in 9 {16..23} 66 77 88; do far+=("$FAR.$n:80"); done
    for n in 1 2; do serve_calls "isp$n" "${far[@]}" 10.8{1,2,3}.0.9:80; done
    serve_calls line 10.73.0.9:80
    serve_calls web 192.168.8.3:80
    serve_calls pc 192.168.8.2:2222
    serve_calls other 192.168.9.2:80
    for n in isp1 isp2 line web pc other; do
        eventually 60 test -s "$scratch/$n.ready"
    done
}

# Recorders stand behind everything else in their hooks.
record_marks() {
    local row
    for row in in,PREROUTING through,FORWARD out,POSTROUTING; do
        ipset create "hop_${row%,*}" hash:ip,mark
        iptables -t mangle -A "${row#*,}" -j SET --add-set "hop_${row%,*}" src,src
    done
}

# The base and what others own, then one uplink that balancing may choose, so that what is not steered takes it.
make_base() {
    nm-base-rules
    local n
    for n in 8,br_v8 9,swdev9; do
        firewall.sh edit_ipset add LANIFSET "192.168.${n%,*}.0/24,${n#*,}"
        firewall.sh edit_ipset add lan "192.168.${n%,*}.0/24"
    done
    for n in 10.{1,2,3}.0.1 192.168.{8,9}.1; do firewall.sh edit_ipset add localip "$n"; done
    for n in nat mangle; do iptables -t $n -N FOREIGN && iptables -t $n -A FOREIGN -s 192.0.2.1 -j RETURN; done
    ipset create foreign hash:net
    ip route add 192.0.2.0/24 dev swdev9 table 250
    : >/run/network/.boot_fin
    device_document '.WAN_PORT |= {PORT1}'
    setup "{\"PORT1\":{\"ops\":16,\"act\":3,\"path\":\"$DEVICE_INFO\"}}"
    echo 1 >/proc/net/nf_condition/swdev1_ncsi
    device_document .
}

device_document() {
    jq -n '{WAN_PORT: {}, WAN_IFACE_INFO: {}, PRIVATE_PORT: {PORT3: {DEV_TYPE: "virtio", INTERFACE: "swdev3"}}} |
        reduce (1, 2) as $n (.; .WAN_PORT["PORT\($n)"] = {DEV_TYPE: "virtio", INTERFACE: "swdev\($n)", PRIO: "1",
            TX_RATE: "10"} | .WAN_IFACE_INFO["swdev\($n)"] = {ID: "\($n)", IP4_TYPE: "STATIC", IP4_PREFIX: "24",
            IP4_ADDR: "10.\($n).0.1", IP4_GW: "10.\($n).0.2", IP6_TYPE: "DISABLED"}) | '"$1" >"$DEVICE_INFO"
}

# apply KIND FILTER: a document by a jq filter; prints the code and what is said.
apply() {
    jq -n "$2" >"$scratch/new"
    nm_bin "Apply_$1" "$scratch/new" "$scratch/old.$1" 2>&1 | sed -n 's/^nm_bin: //p; s/^\(-\?[0-9]\+\) .*/\1/p' |
        sort -r | paste -sd' '
}

# ask NAMESPACE PROTOCOL ADDRESS PORT: the shell would read a datagram's first character only.
ask() {
    local place=(ip netns exec "$1")
    [[ $1 != appliance ]] || place=()
    "${place[@]}" timeout 6 bash -c 'exec 3<>"/dev/$1/$2/$3" && echo call >&3 && timeout 5 head -n 1 <&3' ask "${@:2}" \
        >"$scratch/answer.$2" 2>/dev/null || true
    [[ -s $scratch/answer.$2 ]] || echo nothing >"$scratch/answer.$2"
    cat "$scratch/answer.$2"
}

hop() {
    ipset save "hop_$1" | sed -n 's/^add [^ ]* \(.*\),0x0*\([0-9a-f]\+\)$/\1=\2/p' | sort | xargs
}

# journey NAME NAMESPACE ADDRESS:PORT ANSWER IN THROUGH OUT: both protocols, and the marks at the hops.
journey() {
    local name=$1 from=$2 to=${3%:*} port=${3#*:} hop marks=()
    for hop in "${HOPS[@]}"; do ipset flush "hop_$hop"; done
    ask "$from" udp "$to" "$port" >"$scratch/udp" &
    local other=$!
    ask "$from" tcp "$to" "$port" >"$scratch/tcp"
    wait "$other"
    for hop in "${HOPS[@]}"; do marks+=("$(hop "$hop")"); done
    same "$name" "$4, $4, ${5//_/ }, ${6//_/ }, ${7//_/ }" \
        "$(<"$scratch/tcp"), $(<"$scratch/udp"), ${marks[0]}, ${marks[1]}, ${marks[2]}"
}

# Verdict, class and uplink of one connection, chosen by three bits of its destination, among foreign bits.
every_combination() {
    local foreign=$1 bits to port class verdict mark
    for bits in {0..7}; do
        to=$FAR.$((16 + bits))
        verdict=$((bits & 1 ? 0x400 : 0)) class=$((bits & 2 ? 0x140 : 0xc0)) port=$((bits & 4 ? 2 : 1))
        mark=$(printf %x $((0x2000 + verdict + class + port | foreign)))
        journey "foreign bits $foreign, verdict $verdict, class $class, port $port" pc "$to:80" "isp$port 192.168.8.2" \
            "192.168.8.2=$(printf %x $((0x2000 + port | foreign)))_$to=0" "192.168.8.2=${mark}_$to=c0" "192.168.8.2=${mark}_$to=c0"
    done
}

apply_policies() {
    local forward='{TYPE: "port_forwarding", ACTION: "ENABLE"}'
    same "segments are applied" 0 "$(apply segment '{"branch-1": ["203.0.113.88/32"]}')"
    same "the firewall is applied" 0 "$(apply firewall '{RULES: {SITE: ([17, 19, 21, 23 | {ACTION: "ALLOW",
        DST_IP: "203.0.113.\(.)"}] + [{ACTION: "DENY", DST_IP: "203.0.113.66"}, {ACTION: "DENY", DST_HOSTNAME: "evil.example"},
        {ACTION: "DENY", DST_SEG: "branch-1"}, {ACTION: "ALLOW", DST_IP: "192.168.8.3", DST_PORT: "80"}])}}')"
    firewall.sh edit_ipset add HOSTNAME0 203.0.113.77
    same "classes and steering are applied" 0 "$(apply policy '{RULES: {SITE: ([18, 19, 22, 23 | {GROUP: 5,
        DST_IP: "203.0.113.\(.)"}] + [{GROUP: 5, SRC_IP: "192.168.8.3", SRC_PORT: "80"}, {STEERING: "DIRECT",
        INTERFACE: "PORT2", DST_IP: "203.0.113.20-203.0.113.23"}])}}')"
    same "forwards are applied" 0 "$(apply dnat "{PORT_FORWARDING: [$forward + {WAN_PORTNAME: \"PORT2\", LAN_IP: \"192.168.8.3\",
        TCP_WAN_PORT: \"8080\", UDP_WAN_PORT: \"8080\", LAN_PORT: \"80\"}, $forward + {WAN_PORTNAME: \"PORT1\",
        LAN_IP: \"192.168.8.2\", TCP_WAN_PORT: \"2222\", UDP_WAN_PORT: \"2222\", ALLOWED_REMOTE_IPS: [\"198.51.100.0/25\"]},
        $forward + {WAN_PORTNAME: \"PORT2\", LAN_IP: \"192.168.8.2\", TCP_WAN_PORT: \"2222\", UDP_WAN_PORT: \"2222\",
        ALLOWED_REMOTE_IPS: [\"192.0.2.0/24\"]}]}")"
    same "static routes are applied" 0 "$(apply static_route '{META: {VERSION: "1.1.0"}, STATIC_ROUTE: ([
        ["81", {NEXTHOP_ADDRESS: "10.2.0.2"}], ["82", {NEXTHOP_INTERFACE: "swdev2"}], ["83", {NEXTHOP_WAN: "PORT2"}],
        ["73", {NEXTHOP_WAN: "PORT3"}], ["84", {NEXTHOP_INTERFACE: "late0"}]] |
        map({ACTION: "ENABLE", IP: "10.\(.[0]).0.0", NETMASK: "24"} + .[1]))}')"
    same "static routes of IPv6 are applied" 0 "$(apply static_route6 '{staticRoute6: [{enable: true,
        destination: "2001:db8:82::", prefixLength: 48, nextHopInterface: "PORT2", nextHopIp: "2001:db8:2::2"}]}')"
}

make_journeys() {
    local pc=192.168.8.2 web=192.168.8.3
    while read -r name from to answer in through out; do
        journey "${name//_/ }" "$from" "$to" "${answer/_/ }" "${in#-}" "${through#-}" "${out#-}"
    done <<ROWS
denied_address pc $FAR.66:80 nothing $pc=2001 $pc=28c1 -
denied_name pc $FAR.77:80 nothing $pc=2001 $pc=28c1 -
denied_segment pc $FAR.88:80 nothing $pc=2001 $pc=28c1 -
forward isp2 10.2.0.1:8080 web_$CALLER $CALLER=0 ${web}=1142_$CALLER=4c0 ${web}=1142_$CALLER=4c0
forward_of_an_admitted_caller isp1 10.1.0.1:2222 pc_$CALLER $CALLER=0 ${pc}=10c1_$CALLER=c0 ${pc}=10c1_$CALLER=c0
hairpin pc 10.2.0.1:8080 web_192.168.8.1 ${pc}=0_$web=0 ${pc}=4c0_$web=140 ${pc}=4c0_$web=140
LAN_to_LAN pc 192.168.9.2:80 other_$pc ${pc}=0_192.168.9.2=0 ${pc}=c0_192.168.9.2=c0 ${pc}=c0_192.168.9.2=c0
static_route_by_a_gateway pc 10.81.0.9:80 isp2_$pc 10.81.0.9=0_$pc=0 10.81.0.9=c0_$pc=c0 10.81.0.9=c0_$pc=c0
static_route_by_an_interface pc 10.82.0.9:80 isp2_$pc 10.82.0.9=0_$pc=2001 10.82.0.9=c0_$pc=20c1 10.82.0.9=c0_$pc=20c1
static_route_by_an_uplink pc 10.83.0.9:80 isp2_$pc 10.83.0.9=0_$pc=2001 10.83.0.9=c0_$pc=20c1 10.83.0.9=c0_$pc=20c1
static_route_to_a_private_port pc 10.73.0.9:80 line_$pc 10.73.0.9=0_$pc=2001 10.73.0.9=c0_$pc=20c1 10.73.0.9=c0_$pc=20c1
the_appliance appliance $FAR.9:80 isp1_10.1.0.1 $FAR.9=0 - 10.1.0.1=0
the_appliance_by_a_static_route appliance 10.81.0.9:80 isp2_10.2.0.1 10.81.0.9=0 - 10.2.0.1=0
ROWS
    same "a caller that is not admitted gets no answer" nothing "$(ask isp2 tcp 10.2.0.1 2222)"
    check "IPv6 takes its static route" eventually 10 ip netns exec pc ping -qc 1 -W 2 2001:db8:82::9
}

foreign_things() {
    iptables-save | grep -c -- '-A FOREIGN -s 192.0.2.1/32 -j RETURN' || true
    ipset list -name foreign
    ip route show table 250
}

# saved TABLE: its rules without their counters.
saved() {
    iptables-save -t "$1" | sed '/^#/d; s/\[.*//'
}

# forward MEMBERS...: a list of a single entry on PORT1, of which all but the members is fine.
forward() {
    echo "{PORT_FORWARDING: [{TYPE: \"port_forwarding\", ACTION: \"ENABLE\", WAN_PORTNAME: \"PORT1\", LAN_IP: \"192.168.8.3\"} + {$1}]}"
}

# Each form of an entry in one list, in the kernel: rules of the three chains of NAT, and of the marks.
every_form() {
    local e='{TYPE: "port_forwarding", ACTION: "ENABLE", WAN_PORTNAME: "PORT1", LAN_IP: "192.168.8.3"}' all=""
    local member
    for member in 'TCP_WAN_PORT: "80", LAN_PORT: "8080"' 'UDP_WAN_PORT: "8000-8010", LAN_PORT: "9000-9010"' \
        'TCP_WAN_PORT: "81,443"' 'TCP_WAN_PORT: "82,83", UDP_WAN_PORT: "5", LAN_PORT: "7"' 'PROTOCOL: "ESP"' 'PROTOCOL: "ah"' \
        'TCP_WAN_PORT: "22", ALLOWED_REMOTE_IPS: ["1.2.3.4", "198.51.100.0/24"]' 'TYPE: "foo", TCP_WAN_PORT: "1"' \
        'TCP_WAN_PORT: "2", ACTION: "DISABLE"' 'TYPE: "1to1NAT", WAN_PORTNAME: "PORT2"'; do
        all+=", $e + {$member}"
    done
    same "every form is applied" 0 "$(apply dnat "{PORT_FORWARDING: [${all#,}]}")"
    same "and there" "10 DNATPREROUTING 8 HAIRPIN_FWD 8 HAIRPIN_MASQ 9 PORT_FORWARDING" "$({ saved nat && saved mangle; } |
        sed -nE 's/^-A (HAIRPIN_MASQ|HAIRPIN_FWD|PORT_FORWARDING|DNATPREROUTING) .*/\1/p' | sort | uniq -c | xargs)"
}

# Killed at any time, and beside another one: every table has the one list or the other, whole.
killed_forwards() {
    local lists=() both=() delay n table
    for n in 80 443; do
        same "list $n" 0 "$(apply dnat "$(forward "TCP_WAN_PORT: \"$n\"")")"
        cp "$scratch/new" "$scratch/list.$n"
        for table in nat mangle; do lists+=("$(saved $table)"); done
    done
    whole() {
        local nat mangle
        nat=$(saved nat) mangle=$(saved mangle)
        [[ $nat == "${lists[0]}" || $nat == "${lists[2]}" ]] && [[ $mangle == "${lists[1]}" || $mangle == "${lists[3]}" ]]
    }
    for delay in 0.05 0.2 0.4 0.7 1 1.4; do
        n=$((n == 80 ? 443 : 80))
        setsid nm_bin Apply_dnat "$scratch/list.$n" "$scratch/old.killed" >/dev/null 2>&1 &
        sleep "$delay"
        kill -9 -- "-$!" 2>/dev/null || true
        wait "$!" 2>/dev/null || true
        check "killed after $delay s" whole
    done
    for n in 80 443; do
        nm_bin Apply_dnat "$scratch/list.$n" "$scratch/old.$n" >/dev/null 2>&1 &
        both+=("$!")
    done
    wait "${both[@]}" || true
    check "two at once" whole
    same "the next apply heals" 0 "$(apply dnat "$(forward 'TCP_WAN_PORT: "443"')")"
    same "all of it" "${lists[2]} ${lists[3]}" "$(saved nat) $(saved mangle)"
}

late_uplink() {
    same "a route whose interface is not there is left out" "" "$(ip route show table 251 | grep 10.84 || true)"
    ip link add late0 up type dummy
    cp "$scratch/old.static_route" /etc/networkmanagement/static_route.json
    same "a reload when it is" "0 NM_OK success" "$(nm_bin Reload_static_route '{"family": "4"}' 2>>"$scratch/stderr")"
    same "writes it to both tables" "2" "$(ip route show table all | grep -c '10.84.0.0/24 dev late0 table \(1\|251\) ')"
    same "a list that cannot be read" -1012 "$(apply static_route '{STATIC_ROUTE: [{}]}')"
    same "leaves the routes" 10 "$(ip route show table all | grep -cE '10\.(7|8)[0-9]\.0\.0/24 .*table (1|251) ')"
}

make_world
make_base
make_world6
record_marks
start_servers
apply_policies
check "the uplinks' neighbours are known" eventually 20 ping -qc 1 -W 1 10.1.0.2
every_combination 0
iptables -t mangle -I PREROUTING -i br_v8 -s 192.168.8.2 -j MARK --or-mark "$FOREIGN"
every_combination "$FOREIGN"
iptables -t mangle -D PREROUTING 1
make_journeys
every_form
killed_forwards
late_uplink
same "what others own is still there" "2 foreign 192.0.2.0/24 dev swdev9 scope link" "$(foreign_things | xargs)"
finish
