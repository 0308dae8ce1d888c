#!/bin/bash
# The whole life of an uplink's addressing, static and by DHCP, step by step and for each kind of uplinks: the
# result, what the kernel, the files and the units hold of it afterwards, and the calls to the overlay in their order.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/world.sh"
source "$support_dir/uplink_world.sh"

readonly DHCP='infos.swdev1 += {IP4_TYPE: "DHCP", IP4_ADDR: "", IP4_GW: ""}'
readonly MOVED='infos.swdev1 += {IP4_ADDR: "10.1.0.77", IP4_PREFIX: "25", IP4_DNS: ["10.1.0.55"]}'

# life: the steps on standard input, a line each: ACT OPS FILTER|WORDS. The request, then its document is the
# stored one, then, with DHCP, the lease. An uplink that has not changed is not told again.
life() {
    local act ops filter words document now before=none
    while IFS='|' read -r act ops filter words; do
        document "$NEW" "$filter"
        echo "== $words: $(run "$act" "$ops")"
        [[ $act == 2 ]] || cp "$NEW" "$DEVICE_INFO"
        [[ $act == 2 || $kind == PRIVATE || $filter != "$DHCP"* ]] || settled 10.1.0.20 || echo "no lease"
        now=$(uplink 1)
        [[ $now == "$before" ]] && echo "as before" || printf '%s\n' "${now:-nothing}"
        before=$now
        # A lease is worked by the new document if it comes before that one is stored.
        [[ $filter == "$DHCP"* ]] && document=$NEW || document=$DEVICE_INFO
        calls | sed "s|$document|$DEVICE_INFO|"
    done
}

# A private port refuses DHCP, which leaves it as far down as its type before.
life_static() {
    life <<END
1|15|.|add
1|15|.|add again
3|0|$MOVED|alter nothing
3|48|$MOVED|alter rates and switch map
3|4|$MOVED|alter the link
3|2|$MOVED|alter IPv6
3|1|$MOVED|alter IPv4, address and prefix
3|5|$DHCP|alter IPv4 and link to DHCP
3|1|.|alter IPv4 back
3|1|infos.swdev1.IP4_TYPE = "DISABLED"|alter to no IPv4
3|1|infos.swdev1.IP4_TYPE = "MODEM"|alter to an unknown type
3|1|infos.swdev1.IP4_ADDR = "10.1.0.2; touch /pwned"|alter to a bad address
3|1|.|alter IPv4 back once more
2|15|.|delete
2|15|.|delete again
1|15|.|add once more
2|15|.|delete once more
END
}

life_dhcp() {
    life <<END
1|15|$DHCP|add
3|0|$DHCP|alter nothing
3|4|$DHCP|alter the link
3|3|$DHCP|alter IPv4, DHCP as before
3|1|$MOVED|alter IPv4 to static
3|1|$DHCP|alter IPv4 back
2|15|$DHCP|delete
2|15|$DHCP|delete again
1|15|$DHCP|add again
2|15|$DHCP|delete once more
END
}

make_uplinks
dhcp_server 'range 10.1.0.20 10.1.0.20;' 'option routers 10.1.0.1;' 'option domain-name-servers 10.1.0.53, 10.1.0.54;'
for kind in WAN PRIVATE RGLINK; do
    document "$DEVICE_INFO"
    transcript "${kind,,}_static" "$(life_static)"
    [[ $kind == PRIVATE ]] || transcript "${kind,,}_dhcp" "$(life_dhcp)"
done
same "no client is left, and no value was run by a shell" "" "$(pgrep -a dhclient; ls /pwned 2>/dev/null || true)"
finish
