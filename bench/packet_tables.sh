#!/bin/bash
# Port forwards and static routes, from the stored document to what the kernel has, against the same text through the
# kernel's own commands alone. Times of one run: ratios and growth count. Routes without a device are a case of their
# own, since a script of the firewall is run for each.
set -euo pipefail

[[ -e /run/network/.sandbox ]] || {
    echo "packet_tables: not in the sandbox; run scripts/bench" >&2
    exit 2
}

readonly ROUNDS=5 NEW=/run/new.json OLD=/run/old.json BARE=/run/bare
BUILD=$(readlink -f "${NM_BUILD_DIR:-build}")
export PATH=$BUILD/bin:$PATH

# compare COUNT KIND COMMAND [NAME]: a line of the table, and the CPU time of ours in took[KIND COUNT].
declare -A took
compare() {
    local line
    line=$(bench_compare_commands "$ROUNDS" "exec nm_bin Apply_$2 $NEW $OLD >/dev/null 2>&1" "$3")
    took[$2 $1]=$(awk '{print $4}' <<<"$line")
    printf '%-24s %6s %s\n' "${4:-$2}" "$1" "$line"
}

# What the library gives to the restore commands, a file for each run of one.
record_scripts() {
    local command
    rm -f "$BARE".*
    for command in ipset iptables-restore; do
        mv "/usr/sbin/$command" "/run/$command"
        printf '#!/bin/sh\ncat >%s.%s.$$\n' "$BARE" "$command" >"/usr/sbin/$command"
        chmod +x "/usr/sbin/$command"
    done
    nm_bin Apply_dnat "$NEW" "$OLD" >/dev/null 2>&1
    mv /run/{ipset,iptables-restore} /usr/sbin
}

store_forwards() {
    jq -nc --argjson n "$1" '{PORT_FORWARDING: [range($n) | {TYPE: "port_forwarding", ACTION: "ENABLE", WAN_PORTNAME: "PORT1",
        LAN_IP: "10.0.0.\(. + 1)", TCP_WAN_PORT: "\(8000 + .)", UDP_WAN_PORT: "\(8000 + .)", LAN_PORT: "80",
        ALLOWED_REMOTE_IPS: ["198.51.100.0/24"]}]}' >"$NEW"
}

# store_routes COUNT DEVICE: the document, and the same as lines of ip -batch for both tables.
store_routes() {
    jq -nc --argjson n "$1" --arg device "$2" '{META: {VERSION: "1.1.0"}, STATIC_ROUTE: [range($n) | {ACTION: "ENABLE",
        IP: "10.\(100 + . / 250 | floor).\(. % 250).0", NETMASK: "24", NEXTHOP_ADDRESS: "10.1.0.2",
        NEXTHOP_INTERFACE: $device}]}' >"$NEW"
    jq -r --arg device "${2:+dev $2}" '(251, 1) as $table | "route flush table \($table)", (.STATIC_ROUTE[] |
        "route add \(.IP)/24 via 10.1.0.2 \($device) table \($table) proto static")' "$NEW" >"$BARE.routes"
}

growth() {
    awk -v few="${took[$1 $2]}" -v many="${took[$1 $3]}" -v times="$(($3 / $2))" -v name="$1" \
        'BEGIN {printf "Growth exponent of the CPU time, %s: %.2f\n", name, log(many / few) / log(times)}'
}

touch /run/network/.boot_fin
ip link add swdev1 up type veth peer name far1
ip link set far1 up
ip addr add 10.1.0.1/24 dev swdev1
ip -4 route add default via 10.1.0.2
nm-base-rules 2>/dev/null
jq -n '{WAN_PORT: {PORT1: {INTERFACE: "swdev1", DEV_TYPE: "ethernet"}}, WAN_IFACE_INFO: {swdev1: {IP4_TYPE: "STATIC",
    IP4_ADDR: "10.1.0.1", IP4_GW: "10.1.0.2", IP6_TYPE: "DISABLED"}}}' >/etc/networkmanagement/device_info.json
echo "Medians of $ROUNDS rounds, ms; peak memory in KiB with all commands run."
printf '%-24s %6s %9s %9s %6s %9s %9s %6s %9s %9s\n' "" count ours bare ratio "our CPU" "its CPU" ratio "our peak" "its peak"
for count in 10 100; do
    store_forwards "$count"
    record_scripts
    compare "$count" dnat "ipset restore <$(echo "$BARE".ipset.*) && for f in $BARE.iptables-restore.*; do iptables-restore -n <\$f; done"
done
for count in 500 5000; do
    store_routes "$count" swdev1
    compare "$count" static_route "ip -batch $BARE.routes"
done
growth dnat 10 100
growth static_route 500 5000
store_routes 250 ""
compare 250 static_route "ip -batch $BARE.routes" "routes without a device"
