#!/bin/bash
# What an operator sees of a site that is up: who owns what, without a false alarm, and each stranger and collision that
# is planted, whatever its name; the state of the device, whole or as far as it can be seen. Nothing is changed by looking.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/site_world.sh"

readonly UNPRIVILEGED=(setpriv --reuid 65534 --regid 65534 --clear-groups)

# What looking could change.
state() {
    ip rule && ip -6 rule && ip route show table all && ip -j link show | jq -c '.[] | [.ifname, .mtu, .flags]'
    ipset save | sort
    { iptables-save && ip6tables-save; } | grep -v '^#' | sed 's/\[.*//'
    find /etc/networkmanagement /run/network /run/lock/network /var/lib/dhcpd -printf '%p %m %s %T@\n' | sort
}

# findings: what is wrong, in one line each, without what stands in the text of the fault.
findings() {
    { nm_bin owners --json || true; } | jq -r '.findings[] | "\(.grade) \(.resource) \(.place) \(.name): \(.what)"'
}

hostile_file() {
    touch /etc/networkmanagement/'$(touch evil)'$'\nrule'
}

plant() {
    mkdir -p /run/systemd/system
    ip link add hostslock type veth peer name hostsfar
    flock /run/lock/network/swdev1.lck sleep 60 &
    daemons+=("$!")
    while IFS='|' read -r command _; do
        eval "$command" || failed "planted: $command"
    done <<<"$PLANTED"
}

# A command, and a pattern of the finding that it makes. An empty pattern: nobody is harmed.
readonly PLANTED='ip rule add pref 560 lookup 100|stranger rule IPv4 560: .*interface index 35, which no interface has
ip -6 rule add pref 37 lookup 258|stranger rule IPv6 37: .*(swdev1), which has no rule there
ip rule add pref 34 oif swdev1 lookup 100|stranger rule IPv4 34: it leads .* to the table 100, and not to 258
ip rule add pref 33 lookup 258|stranger rule IPv4 33: it is not the rule for packets from the uplink
ip rule add pref 50 oif swdev1 lookup 259|stranger rule IPv4 50: .* sockets bound to the uplink of swdev2
ip rule add pref 52 fwmark 0x2001/0x200f lookup 259|collision rule IPv4 52: the mark 0x2001/0x200f leads to the table 258 before
ip rule add pref 13 lookup 100|stranger rule IPv4 13: it is not a rule of its owner
ip rule add pref 1044600 lookup 100|stranger rule IPv4 1044600:
ip route add 10.77.0.0/24 dev swdev2 table 258 proto static|stranger table  258: it does not leave by swdev1
ip route add 10.78.0.0/24 dev swdev1 table 258|stranger table  258: its owner marks its routes as static: 10.78
ip route add 10.79.0.0/24 dev swdev1 table 251|stranger table  251: .*10.79
ip route add 10.76.0.0/24 dev lo table 300|stranger table  300: no interface has the index 44
ip route add 10.75.0.0/24 dev lo table 100|
ipset create seg-ghost hash:net|stranger set  seg-ghost: no document
ipset create HOSTNAME7 hash:net|stranger set  HOSTNAME7: no document
ipset create DNAT100 hash:net|stranger set  DNAT100: its owner goes to 99
ipset destroy DNAT50; ipset create DNAT50 hash:ip|collision set  DNAT50: its owner makes it as hash:net, and it is hash:ip
ipset create foreign hash:ip|
iptables -t mangle -N BASE_GHOST|stranger chain iptables mangle BASE_GHOST: they have no such chain
ip6tables -I BASE_FORWARD -j RETURN|stranger chain ip6tables filter BASE_FORWARD: it has 6 rules, and its owner writes 5
iptables -t mangle -N FIREWALL-ghost; iptables -t mangle -A FIREWALL-ghost -j RETURN|stranger chain iptables mangle FIREWALL-ghost: no document
iptables -t mangle -N OTHERS; iptables -t mangle -A OTHERS -j MARK --set-mark 0x40/0x40|stranger mark  iptables mangle OTHERS: .* class of the traffic
iptables -t mangle -N FREE; iptables -t mangle -A FREE -j MARK --set-mark 0x4000/0x4000|
iptables -t mangle -A FREE -m comment --comment "-j MARK --set-xmark 0x1/0xf" -j RETURN|
iptables -t mangle -I POLICY -j CONNMARK --set-mark 0x400/0xc00|stranger mark  iptables mangle POLICY: .* verdict
hostile_file|stranger file  /etc/networkmanagement/$(touch evil)
touch /run/network/ipv6/notes|stranger file  /var/run/network/ipv6/notes:
touch /run/lock/network/notes|stranger lock  notes: it is not a lock file
unit nm-ghost|stranger unit  nm-ghost.service:
unit NetworkManager|collision unit  NetworkManager.service: it uses the same ports
unit nm-dhcrelay@swdev4|collision unit  nm-dhcrelay@swdev4.service: nm-dhcpd@swdev4 serves
true|collision lock  hostslock.lck: the interface hostslock has the same lock'

check_owners() {
    local before found row pattern
    before=$(state)
    same "after a boot there is neither stranger nor collision" "0 " "$(nm_bin owners >"$scratch/owners"; echo $?) $(jq -r '.findings[], .unread[]' "$scratch/owners")"
    check "but what its owners have" jq -e '[.resources[] | select(.present != [])] | length > 60' "$scratch/owners"
    same "looking changes nothing" "$before" "$(state)"
    # A user's call of systemctl needs the bus of the machine, which this world may lack.
    same "another user sees what needs no privilege" "2 1 sets and chains,/var/lock/network/" \
        "$("${UNPRIVILEGED[@]}" nm_bin owners >"$scratch/owners"; echo $?) $(
            jq -r '[.resources[] | select(.resource == "rule" and .name == "17-1044479" and .present != [])] | length' "$scratch/owners") $(
            jq -r '[.unread[].what] - ["units"] | join(",")' "$scratch/owners")"
    plant
    found=$(findings)
    while IFS= read -r row; do
        pattern=${row##*|}
        [[ -z $pattern ]] || check "found: $pattern" grep -q -- "^$pattern" <<<"$found"
    done <<<"$PLANTED"
    same "and no more" "$(grep -cv '|$' <<<"$PLANTED")" "$(jq -n "$(nm_bin owners)"'| .findings | length')"
    check "the holder of a lock is named" jq -en "$(nm_bin owners)"' | .resources[].present[] | select(.name == "swdev1.lck").detail | test("^held by (flock|sleep)")'
    same "for people each is a line, whatever its name" "1 1" "$(nm_bin owners --text >"$scratch/text"; echo $?) $(
        grep -c '^stranger: file /etc/networkmanagement/$(touch evil)?rule ' "$scratch/text")"
    check "a name is not run" test ! -e evil
    mv /usr/sbin/nm-base-rules "$scratch"
    check "without the base rules it says so" grep -q '^nm_bin: not looked at: what the base rules own: ' <<<"$(nm_bin owners --text 2>&1 || true)"
    mv "$scratch/nm-base-rules" /usr/sbin
}

# What the state of the device says of the site, by a jq filter, and what a person reads of it.
check_status() {
    local before row filter line hostile=$'na\x1bs<&\xff>'
    printf 'lease 10.0.10.12 {\n  ends 0 %s;\n  binding state active;\n  hardware ethernet 02:00:00:00:aa:01;\n  client-hostname "%s";\n}\n' \
        "$(date -u -d '+1 hour' '+%Y/%m/%d %H:%M:%S')" "$hostile" >>/var/lib/dhcpd/dhcpd_swdev4.leases
    nm_bin Setup_wanif "{\"PORT7\":{\"ops\":4,\"act\":3,\"path\":\"$DEVICE_INFO\"}}" >/dev/null 2>&1 || true
    jq '.WAN_IFACE_INFO.swdev1 += {USERNAME: "me", PASSWORD: "geheim-7"}' "$DEVICE_INFO" >"$scratch/device" && cp "$scratch/device" "$DEVICE_INFO"
    before=$(state)
    nm_bin status >"$scratch/status" || failed "the state of the device" "$?"
    while IFS='|' read -r line filter; do
        check "state: $line" jq -e "$filter" "$scratch/status"
    done <<'END'
the uplinks with what they have in force|[.uplinks[] | "\(.port) \(.kind) \(.ip4.address)/\(.ip4.prefix_bits) \(.ip4.gateway) \(.up)"] == ["PORT1 wan 198.51.100.2/24 198.51.100.1 true", "PORT2 wan 192.0.2.130/25 192.0.2.129 true", "PORT3 private 192.0.2.2/30 192.0.2.1 true"]
their shares and rates|[.uplinks[] | .weight_percent, .rate_bit_per_s] == [50, 1000000000, 50, 1000000000, 0, 0]
what passed them|all(.uplinks[].traffic; .sent_bytes > 0 and .received_packets > 0)
no monitor has reported anything|all(.uplinks[]; .health == "unknown")
the ports|[.ports[] | "\(.port) \(.kind) \(.link) \(.mtu_bytes)"] == ["PORT1 wan up 1500", "PORT2 wan up 1500", "PORT3 private up 1500", "PORT4 lan up 1500", "PORT5 lan up 1500", "PORT6 lan up 1500"]
the LANs and who serves them|[.lans[] | "\(.interface) \(.ip4.address) \(.dhcp)"] == ["swdev4 10.0.10.1 SERVER", "swdev5 10.0.20.1 DISABLED", "swdev6 10.0.30.1 DISABLED"]
a client, and for how long|.lans[0].clients[0] | .address == "10.0.10.12" and .mac == "02:00:00:00:aa:01" and .expires_in_s > 3000 and .expires_in_s <= 3600
the name servers and their owners|any(.names.servers[]; .address == "198.51.100.1" and .owner == "global")
the chains|[.policy[] | select(.chain == "FIREWALL" and .place == "iptables mangle" and .rules > 0)] | length == 1
what was denied|.denied_packets == 0
units that run, and none that failed|([.units[] | select(.state == "active").unit] | index("nm-dhcpd@swdev4.service") != null) and all(.units[]; .state != "failed")
the last result|.results[-1] | .entry == "Setup_wanif" and .code == -1003 and .name == "NM_ERR_NO_SECTION"
nothing is missing|.unread == []
END
    nm_bin status --picture "$scratch/picture.svg"
    check "the picture is XML, whatever a name holds" xmllint --noout "$scratch/picture.svg"
    check "and shows the ports" grep -q '>PORT3<' "$scratch/picture.svg"
    nm_bin status --text >"$scratch/text"
    same "no name moves the cursor" "" "$(grep $'\x1b' "$scratch/text" || true)"
    check "a person reads the same" grep -q '^PORT2 .* 192.0.2.130/25 ' "$scratch/text"
    check "and no secret" bash -c "! grep -q geheim-7 '$scratch/text' '$scratch/status' '$scratch/picture.svg'"
    same "watched, it comes again and again" "PORT1 PORT1" "$({ nm_bin status --watch --json || true; } | head -n 2 | jq -r '.ports[0].port' | xargs)"
    same "looking changes nothing" "$before" "$(state)"
    chmod 600 /var/log/network/main.log
    check "without documents and log another user sees the names" jq -e '.uplinks == [] and .names.servers != [] and
        ([.unread[].what | select(startswith("/var/log/") | not)] - ["units"] | length) == 3 and any(.unread[]; .what == "/var/log/network/main.log")' \
        <<<"$("${UNPRIVILEGED[@]}" nm_bin status || true)"
    kill -STOP "${daemons[0]}"
    check "a dead service delays nothing" timeout 8 nm_bin status
    kill -CONT "${daemons[0]}"
    echo '{"WAN_PORT": [1], "WAN_IFACE_INFO": {"swdev1": 7}, "LAN_IFACE_INFO": {"a/b": {}}}' >"$DEVICE_INFO"
    check "what is not as it should be takes nothing away" jq -e '.units != [] and .lans[0].link == "absent"' <<<"$(nm_bin status || true)"
    echo '{' >"$DEVICE_INFO"
    check "nor does a broken document" grep -q "^nm_bin: not looked at: $DEVICE_INFO: this is not JSON" <<<"$(nm_bin status --text 2>&1 || true)"
    check "a unit that failed is named" bash -c "$(declare -f unit_fails); unit_fails"
}

# A relay that has nothing to relay.
unit_fails() {
    printf '[Service]\nExecStart=/bin/sh -c "sleep 0.5; exit 1"\n' >/run/systemd/system/nm-6relayd@swdev9.service
    systemctl daemon-reload
    systemctl start nm-6relayd@swdev9 || true
    for _ in 1 2 3 4 5 6 7 8 9 10; do
        ! nm_bin status --text 2>/dev/null | grep -q 'failed: nm-6relayd@swdev9.service' || return 0
        sleep 0.5
    done
    return 1
}

make_site
check_owners
check_status
finish
