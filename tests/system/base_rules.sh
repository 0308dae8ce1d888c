#!/bin/bash
# The base chains, sets and rules: packets of two uplinks, a private line and two LANs meet what has been filled in,
# in the order that the hooks say, and a second run changes nothing.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/world.sh"

state() {
    { iptables-save && ip6tables-save && ipset save && ip rule && ip -6 rule; } | sed 's/^#.*//; s/initval.*//' | sort
}

# plug_both N NAMESPACE: swdevN with 10.N.0.1 and 2001:db8:N::1, and the far end with .2 and ::2; providers have more. The
# private line has an index like that of a session after many redials.
plug_both() {
    printf '%s\n' "addr add 2001:db8:$1::2/64 dev far nodad" "route add default via "{"10.$1.0.1","2001:db8:$1::1"} |
        plug "$2" "swdev$1" "10.$1.0.1" "10.$1.0.2" index $(($1 == 3 ? 2048 : 10 + $1))
    ip addr add "2001:db8:$1::1/64" dev "swdev$1" nodad
    ip netns exec "$2" bash -c "echo ${1}1 | tee /proc/sys/net/ipv{4/ip_default_ttl,6/conf/far/hop_limit}" >/dev/null
}

# ping NAME EXPECTED SOURCE TO [OPTION]...: from that namespace; who answered: provider 1 or 2, the private line 3, or
# the LAN 5 (by the hop counts that they begin with), 6 for all others, or nobody.
ping() {
    same "$1" "$2" "$(nsenter --net="/run/netns/$3" /bin/ping -c 1 -W $((${#2} > 0 ? 5 : 1)) "${@:4}" |
        sed -n 's/.*ttl=\(.\).*/\1/p' | xargs)"
}

# clamped NAME MSS SOURCE TO SEEN_BY: the size that a SYN carries where it arrives.
clamped() {
    rm -f "$scratch/notes"
    ip netns exec "$5" timeout 10 tcpdump -nni far -c 1 "(tcp[13] == 2 or ip6[53] == 2) and port 81" \
        >"$scratch/syn" 2>"$scratch/notes" &
    eventually 5 grep -qs listening "$scratch/notes"
    ip netns exec "$3" timeout 5 bash -c ": <>/dev/tcp/$4/81" 2>/dev/null || true
    wait $! || true
    same "$1" "$2" "$(sed -n 's/.*\[mss \([0-9]*\).*/\1/p' "$scratch/syn")"
}

nm-base-rules
for edit in "0 add localip 192.0.2.1" "0 add localip 192.0.2.1" "0 del localip 192.0.2.2" "0 flush localip" \
    "1 add ip6_localip 192.0.2.1" "1 flush no_such_set" "2 add localip -file" "2 destroy localip"; do
    status=0
    # shellcheck disable=SC2086  # the words of a call
    firewall.sh edit_ipset ${edit#* } >/dev/null 2>&1 || status=$?
    same "$edit" "${edit%% *}" "$status"
done
for n in 1 2 3; do
    plug_both "$n" "isp$n"
    index=$(<"/sys/class/net/swdev$n/ifindex")
    printf 'addr add %s dev lo\n' 203.0.113.9 2001:db8:9::9 "10.7$n.0.9" "10.8$n.0.9" "2001:db8:7$n::9" | ip -n "isp$n" -b -
    kernel_call set_ip4_rule "$index" "10.$n.0.1" 32 $((n < 3)) >/dev/null
    kernel_call set_ip4_route "$index" "10.$n.0.1" 24 "10.$n.0.2" 24 >/dev/null
    kernel_call set_ip6_rule "$index" "2001:db8:$n::1" 32 1 "swdev$n" >/dev/null
    kernel_call set_ip6_route "$index" "2001:db8:$n::1" 64 "2001:db8:$n::2" 0 24 >/dev/null
    firewall.sh edit_ipset add localip "10.$n.0.1"
done
for n in 5 6; do
    plug_both "$n" "lan$n"
    firewall.sh edit_ipset add localip "10.$n.0.1"
    firewall.sh edit_ipset add LANIFSET "10.$n.0.0/24,swdev$n"
    firewall.sh edit_ipset add lan "10.$n.0.0/24"
    firewall6.sh edit_ip6_ipset add lan "2001:db8:$n::/64"
    kernel_call set_ip6_routerule_by_oifindex $((10 + n)) 11 "2001:db8:$n::1" 64 2001:db8:1::2 1 1 >/dev/null
done
ln -s /proc/self/ns/net /run/netns/here
ip addr add 198.18.254.1/30 dev swdev5
printf 'route add default via %s table 253\n' 10.1.0.2 2001:db8:1::2 | ip -b -
ping "an empty policy lets everything pass" 1 lan5 203.0.113.9
check "IPv6 as well" eventually 10 ip netns exec lan5 ping -q -c 1 -W 1 2001:db8:9::9

ip link set swdev1 mtu 1400
echo '{"WAN_IFACE_INFO":{"swdev1":{"IP4_TYPE":"STATIC"}}}' >"$DEVICE_INFO"
nm_bin Reload_tcpmss '{}' >/dev/null
clamped "a SYN to the internet is clamped" 1360 lan5 203.0.113.9 isp1
clamped "a SYN from there as well" 1360 isp1 10.5.0.2 lan5
clamped "IPv6 to the internet" 1340 lan5 2001:db8:9::9 isp1

iptables -A ATTACK_DEFENSE -p icmp -m length --length 1500:65535 -j DROP
ping "an attack is dropped on its way through" "" lan5 10.6.0.2 -s 1473
ping "the appliance may do the same to itself" 6 here 127.0.0.1 -s 1473
iptables -A GUESTFORWARD -i swdev6 -m set --match-set lan dst -j DROP
ip6tables -A GUESTFORWARD -i swdev6 -m set --match-set lan dst -j DROP
ping "an isolated LAN" "" lan6 10.5.0.2
ping "in IPv6 too, by the same set" "" lan6 2001:db8:5::2
for command in iptables ip6tables; do
    "$command" -F GUESTFORWARD
done

iptables -t mangle -A STEER -d 203.0.113.9 -m statistic --mode nth --every 1000 --packet 0 -j MARK --set-mark 2/15
ping "what steered the first packet holds for the connection" "2 2" lan5 203.0.113.9 -c 2 -i 0.2
# Stock rules that come to the same marks as the generated ones, which need modules that this kernel lacks.
iptables-restore -n <<'RULES'
*mangle
-F STEER
-A WANLB -j CONNMARK --restore-mark --nfmask 0x200f --ctmask 0x200f
-A WANLB -m mark ! --mark 0x0/0xf -j RETURN
-A WANLB -j MARK --set-mark 8194/0x200f
-A WANLB -j CONNMARK --save-mark --nfmask 0x200f --ctmask 0x200f
-A DNATPREROUTING -m conntrack --ctstate DNAT --ctorigdst 10.2.0.1 -j MARK --set-mark 4098/4111
-A DNATPREROUTING -m mark --mark 4096/4096 -j ACCEPT
COMMIT
*nat
-A PORT_FORWARDING -i swdev2 -p icmp -j DNAT --to-destination 10.5.0.2
-A HAIRPIN_FWD -p icmp -j DNAT --to-destination 10.5.0.2
-A HAIRPIN_MASQ -d 10.5.0.2 -p icmp -j MASQUERADE
COMMIT
RULES
ping "balancing chooses the uplink" 2 lan5 203.0.113.9
ping "the appliance's own packets are not balanced" 1 here 203.0.113.9
ping "a forwarded connection is answered by its own uplink" 5 isp2 10.2.0.1 -I 203.0.113.9
iptables -A INPUT -p icmp -d 10.2.0.1 -j DROP
ping "a host next to the server reaches it from outside" 5 lan5 10.2.0.1
ping "the address for management stays the appliance's" 6 lan5 198.18.254.1
iptables -D INPUT -p icmp -d 10.2.0.1 -j DROP
iptables -t nat -F HAIRPIN_FWD

# Static routes as they stand in both tables. The wide ones contain every network here.
for table in 251 1; do
    printf 'route add %s table %s\n' "10.73.0.0/24 dev swdev3" $table "10.0.0.0/8 via 10.3.0.2" $table \
        "2001:db8:73::/48 via 2001:db8:3::2" $table "2001:db8::/45 via 2001:db8:3::2" $table | ip -b -
done
firewall.sh edit_ipset add static_route 10.83.0.0/24
while read -r answer from to options; do
    # shellcheck disable=SC2086  # the words of a call
    ping "routes: $from calls $to $options" "$answer" "$from" "$to" $options
done <<'CASES'
3 lan5 10.3.0.2
1 lan5 10.1.0.2
3 lan5 10.73.0.9
3 lan5 10.83.0.9
6 lan5 10.2.0.1
6 lan5 10.6.0.2
5 isp1 10.5.0.2 -I 203.0.113.9
5 here 10.5.0.2
5 here 10.5.0.2 -I 10.2.0.1
3 here 10.73.0.9 -I 10.1.0.1
3 here 203.0.113.9 -I 10.3.0.1
3 lan5 2001:db8:3::2
3 lan5 2001:db8:73::9
3 isp1 2001:db8:73::9
6 lan5 2001:db8:1::1
6 lan5 2001:db8:6::2
5 here 2001:db8:5::2 -I 2001:db8:1::1
1 here 2001:db8:9::9
CASES

# Who may call a host of a LAN by IPv6: what curl says of a closed port (7) or of silence (28).
firewall6.sh edit_ip6_ipset add ip6_open 2001:db8:5::2,tcp:82
firewall6.sh edit_ip6_ipset add ip6_rlan 2001:db8:73::/48
ip6tables -t mangle -A S2SLB -j MARK --set-mark 8192/0x200f
ip -n lan5 addr add 2001:db8:5::3/64 dev far nodad
while read -r verdict from to source; do
    status=0
    ip netns exec "$from" curl -s -m $((verdict == 7 ? 5 : 1)) --interface "$source" "http://$to/" || status=$?
    same "$source calls $to" "$verdict" "$status"
done <<'CASES'
7 lan5 [2001:db8:9::9]:81 2001:db8:5::2
7 lan6 [2001:db8:5::2]:81 2001:db8:6::2
7 isp3 [2001:db8:5::2]:81 2001:db8:73::9
28 isp1 [2001:db8:5::2]:81 2001:db8:9::9
7 isp1 [2001:db8:5::2]:82 2001:db8:9::9
28 isp1 [2001:db8:5::3]:82 2001:db8:9::9
CASES

# Messages of ICMPv6 that belong to no connection, by type.
rm -f "$scratch/notes"
ip netns exec lan5 tcpdump -nni far -l 'icmp6 and src 2001:db8:9::9' >"$scratch/types" 2>"$scratch/notes" &
daemons+=("$!")
eventually 5 grep -qs listening "$scratch/notes"
ip netns exec isp1 python3 - <<'SENDER'
import socket
sender = socket.socket(socket.AF_INET6, socket.SOCK_RAW, socket.IPPROTO_ICMPV6)
sender.bind(("2001:db8:9::9", 0))
for kind in [100, 127, 130, 133, 135, 137, 138, 139, 140, 200, 1, 2, 3, 4, 128, 129, 144, 145, 146, 147]:
    sender.sendto(bytes([kind, 0]) + bytes(62 + kind), ("2001:db8:5::3", 0))
SENDER
eventually 5 grep -q 'length 211' "$scratch/types"
same "errors, echo and mobility cross, nothing else" "65 66 67 68 192 193 208 209 210 211" \
    "$(sed -n 's/.*> 2001:db8:5::3.*length //p' "$scratch/types" | xargs)"

before=$(state)
nm-base-rules
same "a second run changes nothing" "$before" "$(state)"
iptables -D FORWARD -j BASE_FORWARD
ip6tables -t mangle -F BASE_PREROUTING
ipset destroy DNAT99
ip rule del pref 10
ip -6 rule del pref 1044500
nm-base-rules
same "another one repairs" "$before" "$(state)"
finish
