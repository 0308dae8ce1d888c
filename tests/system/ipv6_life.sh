#!/bin/bash
# IPv6 by traffic: two uplinks that number themselves and have prefixes delegated, LANs numbered from those, and LANs that
# share an uplink's prefix. Who answers tells the way of a packet: everybody has the same address behind both providers.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/world.sh"
source "$support_dir/ipv6_world.sh"

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

make_world6
set_up_world6
check "SLAAC behind the one" eventually 15 numbered pc1 2001:db8:100:1:
check "DHCPv6 behind the other" lease6 pc2
check "a relay hands advertisements on" eventually 15 numbered pc3 2001:db8:2:
check "a LAN in the uplink's prefix numbers its clients" eventually 15 numbered pc4 2001:db8:1:
for case in "pc1 1" "pc2 2" "pc3 2" "pc4 1"; do
    # A LAN that meets a report of its uplink waits ten seconds for it, and so does the report; then it follows.
    # shellcheck disable=SC2086  # a computer and a provider
    check "each prefix leaves by its own uplink: $case" eventually 60 answered $case
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
