#!/bin/bash
# Bring-up from stored documents: in its order, past a port that fails, after it was killed, and twice without a
# change. The LAN ports are devices of their own here; tests/vm/lan.sh brings up trunks.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/world.sh"

readonly FAR_HOST=203.0.113.9
readonly ORDER='get_model
setup_wanif PORT1
setup_wanif PORT6
setup_wanif PORT9
setup_privateif PORT2
setup_rglinkif PORT3
setup_lanif PORT4
setup_lanif PORT5
setup_waninfo swdev1
setup_waninfo swdev6
setup_waninfo swdev9
setup_privateinfo swdev2
setup_rglinkinfo swdev3
setup_laninfo swdev4
setup_laninfo swdev5
setup_misc SYSNET_PARAMETERS
setup_site_to_site_load_balance
setup_lan_to_wan_load_balance
setup_local_single_wan_nf_condiftion
copy_save_to_curr
migrate_dhcp_service
setup_dhcpservice swdev4
set_tcp_mss
update_network_info'

store() {
    jq -n 'def port($n): {DEV_TYPE: "virtio", INTERFACE: "swdev\($n)", ISP_BW: "1000000000", MTU: "1400"};
        def at($net): {IP4_TYPE: "STATIC", IP4_ADDR: "\($net).2", IP4_PREFIX: "24", IP4_GW: "\($net).1", IP6_TYPE: "DISABLED"};
        {WAN_PORT: {PORT1: port(1), PORT6: port(6), PORT9: port(9)}, PRIVATE_PORT: {PORT2: port(2)}, RGLINK_PORT: {PORT3: port(3)},
         VLAN_SEG: {"10": {INTERFACE: "br_v10", VLANS: ["10"]}}, LAN_PORT: {PORT4: port(4), PORT5: port(5)},
         WAN_IFACE_INFO: {swdev1: (at("10.1.0") + {IP6_TYPE: "STATIC", IP6_ADDR: "2001:db8:1::2", IP6_PREFIX: "64",
             IP6_GW: "2001:db8:1::1"}), swdev6: {IP4_TYPE: "DHCP", IP6_TYPE: "DISABLED"}, swdev9: at("10.9.0")},
         PRIVATE_IFACE_INFO: {swdev2: at("10.2.0")}, RGLINK_IFACE_INFO: {swdev3: at("10.3.0")},
         LAN_IFACE_INFO: {swdev5: (at("10.5.0") + {ACCESS_TO_LOCAL: "FALSE"}), swdev4: (at("10.4.0") + {IP6_TYPE: "STATIC", IP6_ADDR: "2001:db8:4::1",
             IP6_PREFIX: "64", IP6_UPLINK: "PORT1", IP6_SERVICE_TYPE: "SLAAC_RDNSS"})},
         MISC: {SYSNET_PARAMETERS: {NF_CONNTRACK_MAX: "0"}}}' >"$DEVICE_INFO"
    jq -n '{DHCP_SERVICE: {swdev4: {SERVICE: "SERVER", START_IP: "10.4.0.10", END_IP: "10.4.0.20"}}}' \
        >/etc/networkmanagement/dhcp_service.json
}

# What is set up in the kernel, without what counts or ages by itself.
state() {
    ip -j link show | jq -c '.[] | [.ifname, .mtu, .flags, .operstate, .ifindex]'
    cat /sys/class/net/swdev*/carrier_changes
    ip -j addr show | jq -c '.[] | [.ifname, (.addr_info[] | [.local, .prefixlen, .scope])]'
    ip rule && ip -6 rule && ip route show table all && ipset save | sort
    { iptables-save && ip6tables-save; } | grep -v '^#' | sed 's/\[.*//'
    sort /etc/hosts
}

# Addresses whose probe for duplicates is under way get their routes when it ends.
is_probed() {
    [[ -z $(ip -6 -o addr show tentative) ]]
}

# The DHCP client has reported its lease, and the report is worked.
is_leased() {
    [[ $(ip -4 addr show dev swdev6) == *10.6.0.2/24* ]] && ! pgrep -f 'nm_bin Lease_event' >/dev/null
}

# Whoever watches the kernel has seen a rule come and go.
is_watched() {
    ip rule add pref 31000 table 31000 && ip rule del pref 31000 && grep -q 'Deleted 31000' "$scratch/events"
}

# The edits of sets and chains that a run after the boot has made.
edits() {
    sed -nE 's/.*cmd: ([^ ]*(firewall6?\.sh|tables) .*)/\1/p' /var/log/network/main.log
}

# What others take away and add behind a run's back. The chain of the guests ends with the rule that goes.
damage() {
    ipset del localip 10.1.0.2
    ipset del WANIFSET 10.1.0.2,swdev1
    ipset del LANIFSET 10.4.0.0/24,swdev4
    ipset del ip4_lan 10.5.0.0/24
    ipset del ip6_lan 2001:db8:4::/64
    iptables -t nat -D TCP_MSS 1
    ip6tables -t mangle -A WAN_MSS -j RETURN
    iptables -A GUESTFORWARD -i swdev4 -m set --match-set lan dst -j DROP
    ip6tables -D GUESTFORWARD -o swdev5 -m set --match-set lan src -j DROP
}

# What a terminal shows of a run: a line for each step with its time and result, behind that of a wait; then what failed.
bring_up() {
    script -qefc "nm_bin setup_all_iface_by_config" /dev/null </dev/null >"$scratch/terminal" || true
    steps=$(sed -nE 's/.*\x1b\[K//; s/^(.*[^ ]) +[0-9]+\.[0-9]{3} s  ([A-Za-z_]+)\r?$/\1 \2/p' "$scratch/terminal")
}

# Steps on ports and interfaces that failed; load balancing needs a kernel with more matches.
failures() {
    sed -nE 's/^  (.* (PORT|swdev)[0-9]): (-[0-9]+) .*/\1 \3/p' "$scratch/terminal" | paste -sd,
}

# killed_at LOCK: a bring-up that waits for this lock is killed.
killed_at() {
    local held run
    exec {held}>"/run/lock/network/$1.lck"
    flock "$held"
    nm_bin setup_all_iface_by_config >/dev/null 2>&1 {held}>&- &
    run=$!
    eventually 20 grep -q nanosleep "/proc/$run/wchan"
    kill -9 "$run"
    wait "$run" || true
    exec {held}>&-
}

reached() {
    local n
    for n in 1 2 3 4 5 6; do
        ! ping -c 1 -W 0.2 -q -I "swdev$n" "10.$n.0.1" >/dev/null || echo -n "$n "
    done
}

for n in 1 2 3 4 5 6; do
    plug "far$n" "swdev$n" - "10.$n.0.1" <<<""
done
ip -n far1 addr add $FAR_HOST/32 dev lo
store
: >/run/network/resolv.dnsmasq
printf 'model=VM\ndevid=2\n' >/etc/networkmanagement/ncaas.conf
systemctl start nm-base-rules
serve ncaas ncaas
serve rmgmtd overlayd "$scratch/calls"
ip netns exec far6 dnsmasq -k -C /dev/null -p 0 -i far --dhcp-range=10.6.0.2,10.6.0.2,1h --dhcp-option=3,10.6.0.1 \
    --dhcp-authoritative -l "$scratch/leases" 2>"$scratch/dnsmasq" &
daemons+=("$!")

killed_at swdev5
same "killed among the devices, it has set up no address" "" "$(ip -4 -br addr | grep -o 'swdev.* 10\..*')"
killed_at hostslock
same "killed at the first address, it has set up that one" "1 " "$(reached)"
: >"$scratch/calls"
bring_up
same "as the device has an id, the rates of all its uplinks are handed over" "swdev1 swdev2 swdev3 swdev6 swdev9" \
    "$(sed -nE 's/^VelanWsd.service.Setup_QOS .*"dev":"([^"]*)".*/\1/p' "$scratch/calls" | sort | xargs)"
check "the uplink with a client has its lease" eventually 40 is_leased
same "a run that follows completes it" "1 2 3 4 5 6 active" "$(reached)$(systemctl is-active nm-dhcpd@swdev4)"
same "the steps come in their order" "$ORDER" "$(awk 'NF -= 1' <<<"$steps")"
same "the port without a device alone has failed" "setup_wanif PORT9 -1002,setup_waninfo swdev9 -1002" "$(failures)"
for key in "setup_wanif: PORT9" "setup_waninfo: swdev9"; do
    check "which the log says by label and key: $key" grep -q " ERROR .*>>> $key failed!\$" /var/log/network/bootup.log
done
same "the snapshot is taken" "$(jq -cS . "$DEVICE_INFO")" "$(jq -cS . /run/network/device_info.curr)"

check "no address is being probed for any more" eventually 20 is_probed
: >/run/network/.boot_fin
before=$(state)
ip monitor link address route rule >"$scratch/events" &
daemons+=("$!")
check "what the kernel changes is watched" eventually 20 is_watched
ping -i 0.01 -c 150 -q -I 10.1.0.2 $FAR_HOST >"$scratch/ping" &
bring_up
wait $!
same "a further run changes nothing" "$before" "$(state)"
same "nothing is taken away meanwhile, to be put back" "" "$(grep Deleted "$scratch/events" | grep -v 31000)"
check "and no packet is lost" grep -q ' 150 received' "$scratch/ping"
same "nor is a set or a chain edited in which all is as it is wanted" "" "$(edits)"
damage
bring_up
same "what others have taken away or added is put right" "$before" "$(state)"

: >"$scratch/calls"
same "the VPN is switched" 0 "$(nm_bin Setup_topology "{\"VPN\":{\"ops\":1,\"act\":3,\"path\":\"$DEVICE_INFO\"}}" | cut -d' ' -f1)"
for uplink in '"swdev1","ip":"10.1.0.2"' '"swdev3","ip":"10.3.0.2"'; do
    check "and has $uplink reported" eventually 20 \
        grep -q "^rmgmtd.ipsec.edit_local_site .*$uplink,\"op\":\"add\"" "$scratch/calls"
done
rm /run/network/.boot_fin

kill "${daemons[0]}"
rm /etc/networkmanagement/dhcp_service.json
bring_up
same "a device that has no model is set up as far as that goes" \
    "$(grep -vE ' (PORT|swdev)|dhcp_service' <<<"$ORDER")" "$(awk 'NF -= 1' <<<"$steps")"

# What cannot be read: the step, its failure and the result of the run, each with its document.
serve ncaas ncaas
read_by() {
    nm_bin --json setup_all_iface_by_config 2>/dev/null |
        jq -r 'if has("step") then select(.key | test("^MISC$|_PORT$|json$")) | "\(.step) \(.key) \(.code)" else .code end' | paste -sd,
}
while IFS='|' read -r name device services expected; do
    rm -f /etc/networkmanagement/dhcp_service.json
    [[ -z $services ]] || echo "$services" >/etc/networkmanagement/dhcp_service.json
    echo "$device" >"$DEVICE_INFO"
    same "$name" "$expected" "$(read_by)"
done <<'END'
a device without DHCP services has no document of them|{}||0
a broken document of services|{}|{|json_file_to_mem /etc/networkmanagement/dhcp_service.json -1032,-1032
a section that is not an object|{"WAN_PORT":[],"MISC":"x"}||setup_wanif WAN_PORT -1052,setup_misc MISC -1052,-1052
a device document that is not an object|[]||-1012
END
same "without a terminal only failures are shown" 0 "$(nm_bin setup_all_iface_by_config 2>&1 >/dev/null | grep -c ' s  ')"
mv "$DEVICE_INFO" "$DEVICE_INFO.away"
same "without a device document there is nothing to do" "-1020 NM_ERR_NOT_FOUND" \
    "$(nm_bin setup_all_iface_by_config 2>/dev/null | cut -d' ' -f1,2)"
finish
