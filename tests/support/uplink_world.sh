# shellcheck shell=bash
# Two uplinks, swdev1 and swdev2 (indices 11 and 12), with providers in the namespaces isp1 and isp2, and the
# appliance's services around them. What an operator sees of an uplink is told as text, which the tests compare
# with transcripts in tests/system/golden. Sourced after world.sh.
#
# The uplinks are of the kind $kind: WAN, PRIVATE or RGLINK, by NM_KIND or as a test chooses.
# shellcheck disable=SC2154  # from world.sh

kind=${NM_KIND:-WAN}
readonly NEW=/etc/networkmanagement/new.json JOURNAL=$scratch/journal

make_uplinks() {
    local n
    for n in 1 2; do
        ip netns add "isp$n"
        ip link add "swdev$n" index $((10 + n)) type veth peer name far netns "isp$n"
        ip link set "swdev$n" up
        ip -n "isp$n" link set far up
        ip -n "isp$n" addr add "10.$n.0.1/24" dev far
    done
    : >/run/network/.boot_fin
    : >/run/network/resolv.dnsmasq
    start_services
}

start_services() {
    printf 'model=VM\ndevid=2\n' >/etc/networkmanagement/ncaas.conf
    printf 'create localip hash:ip\ncreate WANIFSET hash:net,iface\n' | ipset restore
    serve ncaas ncaas
    overlayd "$JOURNAL" 2>>"$scratch/stderr" &
    overlay=$!
    daemons+=("$overlay")
    check "the overlay serves" eventually 30 test -S /run/vservice/rmgmtd.sock -a -S /run/network/wanipd.sock
}

# document FILE [FILTER]: two static ports, changed by a jq filter, in which "infos" and "ports" are the sections of
# their kind.
document() {
    jq -n --arg kind "$kind" 'def ports: .[$kind + "_PORT"]; def infos: .[$kind + "_IFACE_INFO"];
        reduce (1, 2) as $n ({}; ports["PORT\($n)"] = {DEV_TYPE: "virtio", INTERFACE: "swdev\($n)",
            RX_RATE: "300000000", TX_RATE: "200000000", PRIVATE_GROUP_ID: "g\($n)"} |
        infos["swdev\($n)"] = {ID: "\($n)", IP4_TYPE: "STATIC", IP4_ADDR: "10.\($n).0.2",
            IP4_PREFIX: "24", IP4_GW: "10.\($n).0.1", IP6_TYPE: "DISABLED"}) | '"${2:-.}" >"$1"
}

# run ACT OPS [N]: sets up the addressing of uplink N and prints the result.
run() {
    nm_bin "Setup_${kind,,}info" "{\"swdev${3:-1}\":{\"ops\":$2,\"act\":$1,\"path\":\"$NEW\"}}" 2>>"$scratch/stderr" ||
        true
}

# uplink N: what the kernel, the files and the units hold of it, a line each.
uplink() {
    local ifname=swdev$1 table=$((266 + $1)) unit
    ip -j -4 addr show dev "$ifname" | jq -r '.[].addr_info[] | "address \(.local)/\(.prefixlen)"'
    ip rule | sed -n "s/:\t\(from all\)\?/: /; s/ *lookup $table\$//p" | sed 's/^/rule /; s/  */ /g'
    ip route show table "$table" 2>/dev/null | sed 's/ *$//; s/^/route /'
    ipset save | sed -n "s/^add \(localip 10\.$1\..*\|WANIFSET .*,$ifname\)$/set \1/p" | sort
    sed -n "/$ifname/s/^/hosts /p" /etc/hosts
    sed -n "/ID=$ifname\$/p" /run/network/resolv.dnsmasq
    for unit in nm-dhclient nm-{m,p,d}lmd; do
        ! systemctl --quiet is-active "$unit@$ifname" || echo "unit $unit@$ifname"
    done
}

# The calls since the last time. Nobody waits for the answers of wanipd and ncsid, so theirs come last here; a
# client that does wait makes sure that they have got all that was sent.
calls() {
    local name
    for name in wanipd ncsid; do
        curl -s --unix-socket "/run/network/$name.sock" http://peer/ >/dev/null || true
    done
    grep -vE '^(wanipd|ncsid)\.' "$JOURNAL" || true
    for name in wanipd ncsid; do
        grep "^$name\\." "$JOURNAL" || true
    done
    : >"$JOURNAL"
}

# No event of a lease is being worked: the client's hook has ended.
is_quiet() {
    ! pgrep -f 'nm_bin Lease6?_event' >/dev/null
}

addresses() {
    ip -j -4 addr show dev swdev1 | jq -r '[.[].addr_info[].local] | join(" ")'
}

# settled ADDRESS: swdev1 has this address and no other, and all that follows from it is done.
settled() {
    eventually 40 eval '[[ $(addresses) == "'"$1"'" ]]' && eventually 40 is_quiet
}

# transcript NAME TEXT: the text is that of the golden file.
transcript() {
    check "$1" diff -u "$support_dir/../system/golden/$1" - <<<"$2"
}

# dhcp_server LINE...: a DHCP server of isp1 with these lines in its subnet; leases last some seconds.
dhcp_server() {
    printf '%s\n' 'authoritative; ping-check false; default-lease-time 8; max-lease-time 8;' \
        'subnet 10.1.0.0 netmask 255.255.255.0 {' "$@" '}' >/etc/dhcp/dhcpd.conf
    : >/var/lib/dhcp/dhcpd.leases
    ip netns exec isp1 dhcpd -4 -f -q --no-pid far >"$scratch/dhcpd.log" 2>&1 &
    dhcpd=$!
    daemons+=("$dhcpd")
}
