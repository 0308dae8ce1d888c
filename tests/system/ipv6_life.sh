#!/bin/bash
# IPv6 by traffic: two uplinks that number themselves and have prefixes delegated, LANs numbered from those, and LANs that
# share an uplink's prefix. Who answers tells the way of a packet: everybody has the same address behind both providers.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/world.sh"
source "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib/ipv6-world"

# What a provider's server says besides: an option that the client hands to its hook.
# shellcheck disable=SC2016  # nobody is to expand it
readonly HOSTILE='$(touch /tmp/owned1)`touch /tmp/owned2`";touch /tmp/owned3;touch /tmp/owned4'

# plug_provider N: uplink swdevN and its provider isp<N>, whose answers begin with hop limit N1.
plug_provider() {
    ip netns add "isp$1"
    at_once "isp$1"
    ip link add "swdev$1" address "02:00:00:00:0$1:02" index $((10 + $1)) type veth peer name far netns "isp$1"
    ip link set "swdev$1" up
    ip -n "isp$1" link set far up
    provider6 "$1" "isp$1" far "fe80::ff:fe00:${1}02"
}

# set_up wan|lan NAME ACT: the result of setting up the IPv6 of a port.
set_up() {
    nm_bin "Setup_${1}info" "{\"$2\":{\"ops\":2,\"act\":$3,\"path\":\"$DEVICE_INFO\"}}" 2>>"$scratch/stderr" | cut -d' ' -f1
}

# answers NAMESPACE [SOURCE]: which provider answers to the address that both have; nothing for nobody.
answers() {
    ip netns exec "$1" ping -c 1 -W 1 ${2:+-I "$2"} "$EVERYWHERE6" | sed -n 's/.*ttl=\(.\).*/\1/p'
}

answered() {
    [[ $(answers "$1" "${3:-}") == "$2" ]]
}

# numbered NAMESPACE PREFIX [COUNT]: the computer likes to use so many addresses like this.
numbered() {
    [[ $(address6 "$1" "$2" | wc -l) == "${3:-1}" ]]
}

# leaves NAMESPACE N PREFIX: what it sends from its address with this prefix is answered by provider N.
leaves() {
    local source
    source=$(address6 "$1" "$3" | grep -m 1 .) && answered "$1" "$2" "$source"
}

# state: the rules, routes, proxied addresses, set members and units of IPv6.
state() {
    local unit
    {
        ip -6 rule
        ip -6 route show table all | grep -vE 'table local|^fe80|^ff00|^multicast|proto ra'
        ip -6 neigh show proxy
        ipset save | grep '^add ip6'
        for unit in nm-dhcpcd@swdev{1,2} nm-dhcpd6@br_v2 nm-6relayd@br_v{3,4}; do
            systemctl --quiet is-active "$unit" && echo "unit $unit"
        done
    } | sed 's/ expires .*//' | sort || true
}

# The state without the hosts that relays have learned, who are learned anew when they speak.
lasting() {
    state | grep -vE ' proxy|proto 106' || true
}

is_settled() {
    [[ $(lasting) == "$settled" ]]
}

# Events are worked in the background.
is_quiet() {
    settled=$(lasting)
    sleep 2
    is_settled
}

# A server behind provider 2 that says back what it hears, and a call to it that stays open.
keep_talking() {
    ip netns exec isp2 python3 -c 'import socket
server = socket.create_server(("::", 7), family=socket.AF_INET6)
while True:
    peer = server.accept()[0]
    while data := peer.recv(99):
        peer.send(data)' &
    daemons+=("$!")
    eventually 5 ip netns exec isp2 bash -c ': <>/dev/tcp/::1/7' 2>/dev/null
    mkfifo "$scratch/said"
    ip netns exec pc2 python3 -c 'import socket, sys
call = socket.create_connection((sys.argv[1], 7), timeout=3)
for word in iter(sys.stdin.readline, ""):
    call.send(word.encode())
    print(call.recv(99).decode(), end="", flush=True)' "$EVERYWHERE6" <"$scratch/said" >"$scratch/heard" &
    daemons+=("$!")
    exec {said}>"$scratch/said"
}

# say WORD: it comes back by the open call.
say() {
    echo "$1" >&"$said"
    eventually 5 grep -qx "$1" "$scratch/heard"
}

for n in 1 2; do plug_provider "$n"; done
for n in 1 2 3 4; do computer6 "pc$n" "br_v$n"; done
nm-base-rules 2>/dev/null
: >/run/network/.boot_fin
: >/run/network/resolv.dnsmasq
printf 'model=VM\ndevid=2\n' >/etc/networkmanagement/ncaas.conf
serve ncaas ncaas
systemctl start dnsmasqmgr
overlayd "$scratch/journal" 2>>"$scratch/stderr" &
daemons+=("$!")
check "the overlay serves" eventually 30 test -S /run/vservice/rmgmtd.sock
jq -n 'def lan: {IP4_TYPE: "DISABLED", IP6_TYPE: "STATIC", IP6_PREFIX: "64", IP6_LIFETIME: "600"};
    {WAN_PORT: {}, WAN_IFACE_INFO: {}, LAN_IFACE_INFO: {
        br_v1: (lan + {IP6_ADDR: "2001:db8:100:1::1", IP6_UPLINK: "PORT1", IP6_SERVICE_TYPE: "SLAAC_RDNSS",
            IP6_DHCP_PD: "ENABLED", IP6_PD_PREFIX: "2001:db8:100::/56", IP6_DNS_SERVERS: ["2001:db8:100:1::1"]}),
        br_v2: (lan + {IP6_ADDR: "2001:db8:200:2::1", IP6_UPLINK: "PORT2", IP6_SERVICE_TYPE: "STATEFUL",
            IP6_RANGE_START: "2001:db8:200:2::100", IP6_RANGE_END: "2001:db8:200:2::1ff",
            IP6_DHCP_PD: "ENABLED", IP6_PD_PREFIX: "2001:db8:200::/56"}),
        br_v3: {IP4_TYPE: "DISABLED", IP6_TYPE: "RELAY", IP6_UPLINK: "PORT2"},
        br_v4: (lan + {IP6_ADDR: "2001:db8:1::f1", IP6_UPLINK: "PORT1", IP6_SERVICE_TYPE: "SLAAC_RDNSS"})}} |
    reduce (1, 2) as $n (.; .WAN_PORT["PORT\($n)"] = {INTERFACE: "swdev\($n)", DEV_TYPE: "ethernet", PRIO: "\($n)"} |
        .WAN_IFACE_INFO["swdev\($n)"] = {ID: "\($n)", IP4_TYPE: "DISABLED", IP6_TYPE: "DHCPV6", IP6_DHCP_PD: "ENABLED"}) |
    .WAN_IFACE_INFO.swdev2.IP6_TYPE = "SLAAC"' >"$DEVICE_INFO"
before=$(state)

advertise6 1 isp1 far on
advertise6 2 isp2 far off
for n in 1 2; do
    ip netns exec "isp$n" sh -c "echo ${n}1 >/proc/sys/net/ipv6/conf/far/hop_limit"
    delegate6 "$n" "isp$n" far "2001:db8:${n}00::/56" 56 3 "$HOSTILE"
done
same "uplinks and LANs are set up" "0 0 0 0 0 0" "$(for port in "wan swdev"{1,2} "lan br_v"{1,2,3,4}; do
    # shellcheck disable=SC2086  # a kind and a name
    set_up $port 1
done | xargs)"
check "SLAAC behind the one" eventually 15 numbered pc1 2001:db8:100:1:
check "DHCPv6 behind the other" lease6 pc2
check "a relay hands advertisements on" eventually 15 numbered pc3 2001:db8:2:
check "a LAN in the uplink's prefix numbers its clients" eventually 15 numbered pc4 2001:db8:1:
for case in "pc1 1" "pc2 2" "pc3 2" "pc4 1"; do
    # shellcheck disable=SC2086  # a computer and a provider
    check "each prefix leaves by its own uplink: $case" eventually 40 answered $case
done
check "the appliance reaches a relayed host from the uplink's address" \
    ping -q -c 1 -W 5 -I "$(ip -j -6 addr show swdev2 scope global | jq -r '[.[].addr_info[].local | values][0]')" \
    "$(address6 pc3 2001:db8:2:)"
for case in "1 pc1 2001:db8:100:1:" "2 pc3 2001:db8:2:"; do
    read -r n name prefix <<<"$case"
    status=0
    ip netns exec "isp$n" curl -s -m 1 --interface "$EVERYWHERE6" "http://[$(address6 "$name" "$prefix")]/" || status=$?
    same "who calls $name from outside hears nothing" 28 "$status"
done
same "nothing was executed" "" "$(find /tmp /run /etc -name 'owned[1-4]')"

keep_talking
check "a call through the other LAN" say before
delegate6 1 isp1 far 2001:db8:180::/56 56 3 "$HOSTILE"
check "the provider delegates another prefix: a client has it" eventually 20 numbered pc1 2001:db8:180:1:
check "and leaves by it" eventually 10 leaves pc1 1 2001:db8:180:1:
check "and does not like the old one any more" eventually 10 numbered pc1 2001:db8:100: 0
same "the document says so" "2001:db8:180:1::1 2001:db8:180::/56" \
    "$(jq -r '.LAN_IFACE_INFO.br_v1 | "\(.IP6_ADDR) \(.IP6_PD_PREFIX)"' "$DEVICE_INFO")"
check "the call through the other LAN goes on" say after

ip -n isp1 link set far down
check "an uplink is unplugged: nobody answers" eventually 10 answered pc1 ""
ip -n isp1 link set far up
provider6 1 isp1 far fe80::ff:fe00:102
check "and plugged in: the provider answers" eventually 25 answered pc1 1
check "the call goes on" say still

settled=""
eventually 20 is_quiet
timeout -s KILL 0.3 nm_bin Setup_waninfo "{\"swdev1\":{\"ops\":2,\"act\":3,\"path\":\"$DEVICE_INFO\"}}" >/dev/null 2>&1 || true
same "a killed set-up is repeated" 0 "$(set_up wan swdev1 3)"
check "and all is as it was" eventually 20 is_settled
check "for its clients, too" eventually 15 answered pc4 1
for port in "lan br_v"{1,2,3,4} "wan swdev"{1,2}; do
    # shellcheck disable=SC2086  # a kind and a name
    set_up $port 2
done >"$scratch/deleted"
same "what is deleted leaves nothing" "$before" "$(state)"
finish
