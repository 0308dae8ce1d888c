#!/bin/bash
# What a trace costs: one MTU change and one set-up of a WAN interface with a trace and without, and how many steps they
# have. NM_OTHER names a build directory to compare with, without a trace.
set -euo pipefail

[[ -e /run/network/.sandbox ]] || {
    echo "trace: not in the sandbox; run scripts/bench" >&2
    exit 2
}

touch /run/network/.boot_fin
ip link add swdev1 type veth peer name uplink
ip link set swdev1 up
ip link set uplink up
path=/etc/networkmanagement/device_info.json
echo '{"WAN_PORT":{"PORT1":{"INTERFACE":"swdev1","DEV_TYPE":"ethernet","MTU":"1400"}},
    "WAN_IFACE_INFO":{"swdev1":{"ID":"1","IP4_TYPE":"STATIC","IP4_ADDR":"10.1.0.2","IP4_PREFIX":"24","IP4_GW":"10.1.0.1","IP6_TYPE":"DISABLED"}}}' >"$path"
echo '{"PORT1":{"HW_PORT":"eth0","INTERFACE":"swdev1"}}' >/etc/networkmanagement/hw_port_info.json
echo "{\"PORT1\":{\"ops\":4,\"act\":3,\"path\":\"$path\"}}" >/run/Setup_wanif
echo "{\"swdev1\":{\"ops\":15,\"act\":3,\"path\":\"$path\"}}" >/run/Setup_waninfo

# instructions COMMAND...: of nm_bin and the child that works a traced request, which do not depend on what else the machine does.
instructions() {
    valgrind --tool=callgrind --callgrind-out-file=/dev/null "$@" 2>&1 >/dev/null | awk '/Collected :/ {sum += $NF} END {print sum}'
}

measure() {
    local request=$1 commands=("nm_bin $1 @/run/$1" "nm_bin trace --out /run/trace.json $1 @/run/$1")
    [[ -z ${NM_OTHER:-} ]] || commands+=("env LD_LIBRARY_PATH=$NM_OTHER/lib $NM_OTHER/bin/nm_bin $request @/run/$request")
    hyperfine --shell none --warmup 5 --runs "${RUNS:-100}" --prepare 'ip link set swdev1 mtu 1500' --export-json /run/result.json \
        "${commands[@]}" >/dev/null 2>&1
    jq -r '.results | (.[0].median) as $off | (.[] | [.command, (.median * 1e5 | round / 100), (.min * 1e5 | round / 100), (.median / $off * 100 | round / 100)] | @tsv)' \
        /run/result.json
    echo "$request: $(jq '[.traceEvents[] | select(.ph == "X")] | length' /run/trace.json) steps"
    if command -v valgrind >/dev/null; then
        echo "instructions without a trace: $(instructions nm_bin "$request" "@/run/$request"), with: $(instructions nm_bin trace --out /run/trace.json "$request" "@/run/$request")"
        [[ -z ${NM_OTHER:-} ]] || echo "instructions of the other: $(LD_LIBRARY_PATH=$NM_OTHER/lib instructions "$NM_OTHER/bin/nm_bin" "$request" "@/run/$request")"
    fi
}

printf 'command\tmedian ms\tleast ms\tof none\n'
measure Setup_wanif
measure Setup_waninfo
