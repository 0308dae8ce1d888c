#!/bin/bash
# The service daemon: read requests against bare ones, an apply over the bus against the same by nm_bin, memory, and
# the score of its unit.
set -euo pipefail

[[ -e /run/network/.sandbox ]] || {
    echo "bus_handlers: not in the sandbox; run scripts/bench" >&2
    exit 2
}

readonly ROUTES=/etc/networkmanagement/static_route.json
touch /run/network/.boot_fin
ip link add swdev1 up type veth peer name uplink
ip link set uplink up
ip addr add 10.1.0.1/24 dev swdev1
echo '{"WAN_PORT":{"PORT1":{"INTERFACE":"swdev1"}},"WAN_IFACE_INFO":{"swdev1":{"IP4_TYPE":"STATIC"}},
    "LAN_IFACE_INFO":{"lo":{}}}' >/etc/networkmanagement/device_info.json
echo '{"STATIC_ROUTE":[{"ACTION":"ENABLE","IP":"10.9.0.0","NETMASK":"24","NEXTHOP_ADDRESS":"10.1.0.9"}]}' >"$ROUTES"
ipset create static_route hash:net
nm_serviced &
trap 'kill $!' EXIT
while [[ ! -S /run/vservice/networkmanagement.sock ]]; do sleep 0.05; done
"$(dirname "$0")/../build/bin/bench_bus_handlers" $!

echo
hyperfine --shell none --warmup 5 --runs 100 --export-json /run/result.json \
    'vsh networkmanagement.Setup_static_route' "nm_bin Apply_static_route $ROUTES /run/applied.json" >/dev/null 2>&1
jq -r '.results | (.[1].median) as $direct | (["apply", "median ms", "of nm_bin"] | @tsv),
    (.[] | [.command, (.median * 1e5 | round / 100), (.median / $direct * 100 | round / 100)] | @tsv)' /run/result.json |
    column -t -s $'\t'
systemd-analyze security --offline=true nm-serviced.service 2>/dev/null | tail -n 1
