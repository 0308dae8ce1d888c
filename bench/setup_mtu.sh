#!/bin/bash
# One MTU change as a whole process: nm_bin Setup_wanif against ip link set mtu, and where nm_bin's time goes.
set -euo pipefail

[[ -e /run/network/.sandbox ]] || {
    echo "setup_mtu: not in the sandbox; run scripts/bench" >&2
    exit 2
}

touch /run/network/.boot_fin
ip link add swdev1 type veth peer name uplink
ip link set swdev1 up
ip link set uplink up
path=/etc/networkmanagement/device_info.json
echo '{"WAN_PORT":{"PORT1":{"INTERFACE":"swdev1","DEV_TYPE":"ethernet","MTU":"1400"}}}' >"$path"
echo '{"PORT1":{"HW_PORT":"eth0","INTERFACE":"swdev1"}}' >/etc/networkmanagement/hw_port_info.json
request="/run/request.json"
echo "{\"PORT1\":{\"ops\":4,\"act\":3,\"path\":\"$path\"}}" >"$request"

# Before each timed run the MTU goes back, so that every run is a real change.
hyperfine --shell none --warmup 20 --runs 300 --prepare 'ip link set swdev1 mtu 1500' --export-json /run/result.json \
    "nm_bin Setup_wanif @$request" 'ip link set swdev1 mtu 1400' 'nm_bin --version' >/dev/null 2>&1
jq -r '.results | (.[1].median) as $ip | (["command", "median ms", "of ip link"] | @tsv),
    (.[] | [.command, (.median * 1e5 | round / 100), (.median / $ip * 100 | round / 100)] | @tsv)' /run/result.json |
    column -t -s $'\t'

ip link set swdev1 mtu 1500
echo
echo "System calls of one change by time spent in the kernel:"
strace -c -f -o /run/calls nm_bin Setup_wanif "@$request" >/dev/null
head -n 12 /run/calls
