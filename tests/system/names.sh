#!/bin/bash
# Names as a client in a LAN resolves them: through the real dnsmasq, run by DnsmasqMgr on the files that the
# library writes.
set -euo pipefail

source "$(dirname "${BASH_SOURCE[0]}")/../support/world.sh"

readonly RUN=/var/run/network
readonly IPSETS=$RUN/dnsmasq.d/ipset.conf

# A client that knows nobody but dnsmasq, and a provider with two name servers that disagree.
make_world() {
    local n
    for n in client isp; do
        ip netns add "$n"
        ip link add "$n" type veth peer name near netns "$n"
        ip -n "$n" link set near up
        ip -n "$n" link set lo up
        ip link set "$n" up
    done
    ip addr add 10.9.0.1/24 dev client
    ip -n client addr add 10.9.0.2/24 dev near
    ip addr add 10.8.0.9/24 dev isp
    for n in 1 2; do
        ip -n isp addr add "10.8.0.$n/24" dev near
        ip netns exec isp dnsmasq -k -C /dev/null -R -h -z --pid-file= -a "10.8.0.$n" \
            -A "/site.test/198.51.100.$n" 2>/dev/null &
        daemons+=("$!")
    done
    mkdir -p /etc/netns/client
    printf 'nameserver 10.9.0.1\noptions timeout:1 attempts:1\n' >/etc/netns/client/resolv.conf
    echo '127.0.0.1 localhost' | tee /etc/hosts >/etc/netns/client/hosts
    : >/run/network/.boot_fin
}

# What the client gets for a name.
resolve() {
    ip netns exec client getent ahostsv4 "$1" | awk '{print $1; exit}'
}

# resolves NAME HOST ADDRESS: at once, or as soon as dnsmasq has seen a changed file or is up again.
resolves() {
    check "$1" eventually 10 is_address "$2" "$3"
}

is_address() {
    [[ $(resolve "$1") == "$2" ]]
}

is_served() {
    [[ $(vsh DnsmasqMgr.Restart 2>&1) == '{"data":"","error":0}' ]]
}

check_hosts() {
    same "nobody listens for the client at first" "" "$(resolve sandbox)"
    same "an address to listen on is added" 0 "$(kernel_call setup_lan_dnsmasq 1 10.9.0.1)"
    same "the device has no address yet" "" "$(resolve sandbox)"
    same "Add_hosts" "0 NM_OK success" "$(nm_bin Add_hosts 10.9.0.1 client)"
    same "the client finds the device by its name at once" 10.9.0.1 "$(resolve sandbox)"
    nm_bin Del_hosts client >/dev/null
    same "and no more after Del_hosts" "" "$(resolve sandbox)"
    nm_bin Add_hosts 10.9.0.1 client >/dev/null
}

check_upstream() {
    kernel_call insert_dns_server 10.8.0.1 global >/dev/null
    resolves "the global name server is asked" site.test 198.51.100.1
    kernel_call insert_dns_server 10.8.0.2 swdev1 >/dev/null
    resolves "the newest owner's server comes first" site.test 198.51.100.2
    kernel_call remove_dns_server swdev1 2 >/dev/null
    resolves "without it, the other owner's is asked again" site.test 198.51.100.1
    ipset create seen hash:ip
    echo 'ipset=/site.test/seen' >"$IPSETS"
    is_served && resolve site.test >/dev/null
    same "an address of a mapped name lands in its set" 198.51.100.1 "$(ipset save seen | awk '/^add/ {print $3}')"
}

check_deaths() {
    kill -KILL "$(<$RUN/dnsmasq.pid)"
    resolves "a dnsmasq that dies is started again" sandbox 10.9.0.1
    kill -KILL "$(pgrep -x dnsmasqmgr)"
    is_address sandbox 10.9.0.1 && systemctl start dnsmasqmgr
    check "a manager that is killed leaves the port to the next" eventually 10 is_served
    same "which keeps the listening addresses" 10.9.0.1 "$(resolve sandbox)"
    echo 'no such option' >>"$IPSETS"
    same "a file that dnsmasq refuses: the restart's caller is told" '{"data":"dnsmasq ended with status 1","error":-1}' \
        "$(vsh DnsmasqMgr.Restart || true)"
    : >"$IPSETS"
    resolves "once it is mended, dnsmasq is back unasked" sandbox 10.9.0.1
}

check_addresses() {
    local before hostile
    before=$(<$RUN/dnsmasq.listen)
    for hostile in '10.9.0.3\nserver=/#/10.8.0.2' '10.9.0.3/24' '' '10.9.0.3\u0000'; do
        check "refused as an address: '$hostile'" grep -q '"error":-1' \
            <(vsh DnsmasqMgr.Add_addr "{\"addr\":\"$hostile\"}" || true)
    done
    same "and nothing of it is kept" "$before" "$(<$RUN/dnsmasq.listen)"
    kernel_call setup_lan_dnsmasq 1 2001:DB8::1 >/dev/null
    kernel_call setup_lan_dnsmasq 0 2001:db8:0::1 >/dev/null
    same "an address goes in whatever spelling" "$before" "$(<$RUN/dnsmasq.listen)"
    same "an address is removed" 0 "$(kernel_call setup_lan_dnsmasq 0 10.9.0.1)"
    same "nobody listens there any more" "" "$(resolve sandbox)"
    systemctl stop dnsmasqmgr
    same "the unit's stop ends dnsmasq too" "" "$(pgrep -af '^/usr/sbin/dnsmasq' || true)"
}

make_world
systemctl start dnsmasqmgr
check "DnsmasqMgr serves" eventually 30 is_served
check_hosts
check_upstream
check_deaths
check_addresses
finish
