#!/bin/bash
# nm_bin explain: what becomes of packets on a whole site, by which rule of which document, and that the packet which is
# then really sent goes there; and that asking changes nothing.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/flow_world.sh"

# What it is, the uplinks that are alive, where it is really sent (a port's number, - for the device itself, nothing for not at
# all), the packet, the device that it comes in by, and what is said of it.
readonly FLOWS='out, steered by the mark, and translated on uplink 2|1 2|5|10.0.20.2 203.0.113.5 tcp 21001 80||(.is_random | not) and .uplink.port == "PORT2" and .routing.rule.source.pointer == "/WAN_IFACE_INFO/swdev2" and written("port by which the packet leaves") == "policy.json/RULES/SITE/1" and written("class of the traffic") == "policy.json/RULES/SITE/0" and .left.source == "192.0.2.130" and .translation[0].before == {address: "10.0.20.2", port: 21001} and any(.steps[]; .text == "-o swdev2 -j MASQUERADE" and .source.owner == "not of this system")
drawn by lot|1 2||10.0.20.2 203.0.113.9 tcp 80||.is_random
balanced, with uplink 1 alone, and translated there|1|6|10.0.30.2 203.0.113.9 tcp 21003 80||.uplink.device == "swdev1" and .left.source == "198.51.100.2" and written("balanced over the uplinks") == "device_info.json/WAN_PORT/PORT1"
denied by a segment|1|5|10.0.20.2 203.0.113.13 udp 21002 53||.verdict == "dropped" and .dropped_by == "rule" and .steps[-1].source.owner == "nm-base-rules" and written("verdict of the firewall") == "firewall.json/RULES/SITE/0" and any(.steps[].sets[]; .set == "seg-closed")
denied by address and port|1||10.0.30.66 203.0.113.9 17 53||.verdict == "dropped" and written("verdict of the firewall") == "firewall.json/RULES/SITE/1"
allowed before a rule that denies|1|6|10.0.30.2 10.0.20.2 tcp 21004 80||.uplink.device == "swdev5" and written("verdict of the firewall") == "firewall.json/RULES/SITE/2" and .translation == []
denied from LAN to LAN|1|6|10.0.30.2 10.0.20.2 tcp 21005 22||.verdict == "dropped" and written("verdict of the firewall") == "firewall.json/RULES/SITE/3"
denied by a host name|1||10.0.30.2 203.0.113.20 tcp 443||.verdict == "dropped" and written("verdict of the firewall") == "firewall.json/RULES/SITE/4" and any(.steps[].sets[]; .set == "HOSTNAME0")
dropped by a stranger|1||10.0.20.66 203.0.113.9 icmp||.verdict == "dropped" and .steps[-1].source.owner == "not of this system" and (.why | test("10.0.20.66"))
a forward|1|1|203.0.113.9 198.51.100.2 tcp 21006 8080|swdev1|.left.destination == "10.0.20.2" and .left.destination_port == 80 and any(.steps[]; .source.pointer == "/PORT_FORWARDING/0") and .routing.route == "10.0.20.0/24 dev swdev5"
a forward by UDP, of uplink 2|1|2|203.0.113.9 192.0.2.130 udp 21007 5353|swdev2|.left.destination == "10.0.30.2" and .uplink.port == "PORT6" and any(.steps[]; .source.pointer == "/PORT_FORWARDING/1")
a static route|1|5|10.0.20.2 10.81.0.9 icmp||.uplink.port == "PORT3" and .routing.source.pointer == "/STATIC_ROUTE/0" and .routing.rule.source.owner == "nm-base-rules"
to the device|1||10.0.20.2 10.0.20.1 udp 53||.verdict == "delivered" and .routing.table == "255"
from the device, by its address|1|-|192.0.2.130 203.0.113.9 udp 21009 53||.packet.is_local and .uplink.device == "swdev2" and .routing.rule.source.pointer == "/WAN_IFACE_INFO/swdev2"
from the device to itself|1||10.0.20.1 10.0.30.1 tcp 22||.verdict == "delivered"
a source that is not believed|1|6|10.0.20.2 10.81.0.9 tcp 21010 80|swdev6|.verdict == "dropped" and .dropped_by == "kernel" and (.why | test("rp_filter"))
no way|1||10.0.20.2 172.31.0.1 tcp 80|swdev1|.verdict == "dropped" and .dropped_by == "kernel" and (.why | test("no route"))
by IPv6, out|1||2001:db8:5::2 2001:db8:ffff::9 tcp 443||.left.source == "2001:db8:5::2" and .uplink.port == "PORT1"
by IPv6, from LAN to LAN|1|5|2001:db8:5::2 2001:db8:6::2 udp 21011 5000||.uplink.port == "PORT6" and .routing.rule.priority == 10
by IPv6, into a LAN from outside|1||2001:db8:ffff::9 2001:db8:5::2 tcp 22|swdev1|.verdict == "dropped" and .steps[-1].chain == "BASE_INWARD"'

# What is asked is no packet, or cannot be answered whole.
readonly REFUSED="2|not an address: 10.0.20|10.0.20 10.0.30.2
2|of different families|10.0.20.2 2001:db8::1
2|tcp needs a destination port|10.0.20.2 10.0.30.2 tcp
2|not a protocol: 256|10.0.20.2 10.0.30.2 256
2|icmp has no ports|10.0.20.2 10.0.30.2 icmp 7
2|neither a port nor the name of a service: none|10.0.20.2 10.0.30.2 tcp none
2|is not a service of udp|10.0.20.2 10.0.30.2 udp 'SQL Server'
2|between two hosts|10.0.20.2 224.0.0.1
2|with --in DEVICE|203.0.113.9 10.0.20.2
2|are neighbours behind swdev5|10.0.20.2 10.0.20.9
2|not a device: swdev9|10.0.20.2 10.0.30.2 --in swdev9
2|nothing comes in by lo|10.0.20.2 10.0.30.2 --in lo
2|--in takes a device|10.0.20.2 10.0.30.2 --in
2|has no carrier|10.0.20.2 10.0.30.2 --in swdev7"

# What wrote a field of the mark last, by document and pointer.
readonly FILTER='def written($field): first(.mark[] | select(.field == $field) | (.source.document | split("/")[-1]) + .source.pointer);'

state() {
    ip rule && ip -6 rule && ip route show table all && ip -j link show | jq -c '.[] | [.ifname, .mtu, .flags]'
    ipset save | sort
    { iptables-save && ip6tables-save; } | grep -v '^#' | sed 's/\[.*//'
    find /etc/networkmanagement /run/network /run/lock/network -printf '%p %m %s\n' | sort
    readlink /proc/[0-9]*/ns/{net,mnt} 2>/dev/null | sort -u
    wc -l <"$scratch/calls"
}

is_as_before() {
    [[ $(state) == "$before" ]]
}

explained() {
    # shellcheck disable=SC2086  # words
    nm_bin --json explain $1 ${2:+--in "$2"} >"$scratch/way" 2>"$scratch/stderr" || true
}

is_as_told() {
    [[ $(what_left "$1" "$2") == "$(told "$scratch/way" "$2")" ]]
}

# send PLACE SOURCE DESTINATION PROTOCOL [SPORT DPORT]: as it was explained.
send() {
    local number sport=${5:-21000}
    number=$(jq -n "{icmp: 1, tcp: 6, udp: 17}.$4")
    really "$1" "$2" "$3" "$number" "$sport" "${6:-0}"
    check "and so it is: $(told "$scratch/way" "$sport")" eventually 5 is_as_told "$number" "$sport"
}

check_flows() {
    local name uplinks place words device filter alive=""
    while IFS='|' read -r name uplinks place words device filter; do
        # shellcheck disable=SC2086
        [[ $alive == "$uplinks" ]] || site_uplinks $uplinks
        alive=$uplinks
        explained "$words" "$device"
        check "$name" jq -e "$FILTER $filter" "$scratch/way" || cat "$scratch/stderr"
        same "$name: nothing is left open" "[] []" "$(jq -c .unread,.unlike "$scratch/way" | xargs)"
        # shellcheck disable=SC2086
        [[ -z $place ]] || send "$place" $words
    done <<<"$FLOWS"
}

check_refusals() {
    local status text words code
    ip link add swdev7 type veth peer name loose && ip link set swdev7 up
    while IFS='|' read -r status text words; do
        code=0
        eval "nm_bin explain $words" >"$scratch/out" 2>&1 || code=$?
        same "$words: refused" "$status 1" "$code $(grep -c -- "$text" "$scratch/out")"
    done <<<"$REFUSED"
    same "no privileges" 77 "$(setpriv --reuid 65534 --regid 65534 --clear-groups nm_bin explain 10.0.20.2 10.0.30.2 >/dev/null 2>&1; echo $?)"
}

check_rest() {
    nm_bin --text explain 10.0.30.66 203.0.113.9 udp 53 >"$scratch/text" 2>&1 && failed "a packet that is dropped" "ends with 0"
    check "a person reads why" grep -q 'mark: verdict of the firewall 2 \[firewall.json#/RULES/SITE/1\]' "$scratch/text"
    same "and no secret" "" "$(grep geheim "$scratch/text" "$scratch/way" || true)"
    explained "10.0.20.2 203.0.113.9 tcp SNMP"
    same "a service is its port" 161 "$(jq .packet.destination_port "$scratch/way")"
    printf '#!/bin/sh\ncase "$*" in *TRACE*) exit 2 ;; esac\nexec %s "$@"\n' "$(readlink -f "$(command -v iptables)")" >"$scratch/iptables"
    cp --remove-destination "$scratch/iptables" /sbin/iptables && chmod 755 /sbin/iptables
    explained "10.0.20.2 203.0.113.5 tcp 80"
    check "without a trace it says so, and where the packet came out" jq -e '.steps == [] and .unread[0].what == "the kernel'"'"'s trace" and .verdict == "sent"' "$scratch/way"
}

make_site
ipset add HOSTNAME0 203.0.113.20
site_uplinks 1
before=$(state)
check_flows
nm_bin explain 10.0.20.2 203.0.113.9 >/dev/null 2>&1 & sleep 0.5; kill -9 $! 2>/dev/null || true
check "asking changes nothing, and one that is killed leaves nothing" eventually 10 is_as_before
check_refusals
check_rest
finish
