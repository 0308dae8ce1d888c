# shellcheck shell=bash
# Two providers, an uplink to each that numbers itself, with a prefix delegated, and four LANs: br_v1 and br_v2 are numbered
# from those prefixes by SLAAC and by DHCPv6, br_v3 is relayed, br_v4 lies in the prefix of its uplink. Sourced after world.sh.
# shellcheck disable=SC2034,SC2154  # the tests read the variables, and world.sh sets some
source "$support_dir/../../scripts/lib/ipv6-world"

# What a provider's server says besides: an option that the client hands to its hook.
# shellcheck disable=SC2016  # nobody is to expand it
readonly HOSTILE='$(touch /tmp/owned1)`touch /tmp/owned2`";touch /tmp/owned3;touch /tmp/owned4'

# plug_provider N: uplink swdevN and its provider isp<N>, whose answers begin with hop limit N1.
plug_provider() {
    ip netns add "isp$1"
    at_once "isp$1"
    ip link add "swdev$1" address "02:00:00:00:0$1:02" index $((10 + $1)) type veth peer name far netns "isp$1"
    ip link set "swdev$1" up
    ip -n "isp$1" link set far up
    provider6 "$1" "isp$1" far "fe80::ff:fe00:${1}02"
}

# set_up wan|lan NAME ACT: the result of setting up the IPv6 of a port.
set_up() {
    nm_bin "Setup_${1}info" "{\"$2\":{\"ops\":2,\"act\":$3,\"path\":\"$DEVICE_INFO\"}}" 2>>"$scratch/stderr" | cut -d' ' -f1
}

# answers NAMESPACE [SOURCE]: which provider answers to the address that both have; nothing for nobody.
answers() {
    ip netns exec "$1" ping -c 1 -W 1 ${2:+-I "$2"} "$EVERYWHERE6" | sed -n 's/.*ttl=\(.\).*/\1/p'
}

answered() {
    [[ $(answers "$1" "${3:-}") == "$2" ]]
}

# numbered NAMESPACE PREFIX [COUNT]: the computer likes to use so many addresses like this.
numbered() {
    [[ $(address6 "$1" "$2" | wc -l) == "${3:-1}" ]]
}

# leaves NAMESPACE N PREFIX: what it sends from its address with this prefix is answered by provider N.
leaves() {
    local source
    source=$(address6 "$1" "$3" | grep -m 1 .) && answered "$1" "$2" "$source"
}

# state: the rules, routes, proxied addresses, set members and units of IPv6.
state() {
    local unit
    {
        ip -6 rule
        ip -6 route show table all | grep -vE 'table local|^fe80|^ff00|^multicast|proto ra'
        ip -6 neigh show proxy
        ipset save | grep '^add ip6'
        for unit in nm-dhcpcd@swdev{1,2} nm-dhcpd6@br_v2 nm-6relayd@br_v{3,4}; do
            systemctl --quiet is-active "$unit" && echo "unit $unit"
        done
    } | sed 's/ expires .*//' | sort || true
}

# The state without the hosts that relays have learned, who are learned anew when they speak.
lasting() {
    state | grep -vE ' proxy|proto 106' || true
}

is_settled() {
    [[ $(lasting) == "$settled" ]]
}

# Events are worked in the background.
is_quiet() {
    settled=$(lasting)
    sleep 2
    is_settled
}

make_world6() {
    for n in 1 2; do plug_provider "$n"; done
    for n in 1 2 3 4; do computer6 "pc$n" "br_v$n"; done
    nm-base-rules 2>/dev/null
    : >/run/network/.boot_fin
    : >/run/network/resolv.dnsmasq
    printf 'model=VM\ndevid=2\n' >/etc/networkmanagement/ncaas.conf
    serve ncaas ncaas
    systemctl start dnsmasqmgr
    overlayd "$scratch/journal" 2>>"$scratch/stderr" &
    daemons+=("$!")
    check "the overlay serves" eventually 30 test -S /run/vservice/rmgmtd.sock
    jq -n 'def lan: {IP4_TYPE: "DISABLED", IP6_TYPE: "STATIC", IP6_PREFIX: "64", IP6_LIFETIME: "600"};
        {WAN_PORT: {}, WAN_IFACE_INFO: {}, LAN_IFACE_INFO: {
            br_v1: (lan + {IP6_ADDR: "2001:db8:100:1::1", IP6_UPLINK: "PORT1", IP6_SERVICE_TYPE: "SLAAC_RDNSS",
                IP6_DHCP_PD: "ENABLED", IP6_PD_PREFIX: "2001:db8:100::/56", IP6_DNS_SERVERS: ["2001:db8:100:1::1"]}),
            br_v2: (lan + {IP6_ADDR: "2001:db8:200:2::1", IP6_UPLINK: "PORT2", IP6_SERVICE_TYPE: "STATEFUL",
                IP6_RANGE_START: "2001:db8:200:2::100", IP6_RANGE_END: "2001:db8:200:2::1ff",
                IP6_DHCP_PD: "ENABLED", IP6_PD_PREFIX: "2001:db8:200::/56"}),
            br_v3: {IP4_TYPE: "DISABLED", IP6_TYPE: "RELAY", IP6_UPLINK: "PORT2"},
            br_v4: (lan + {IP6_ADDR: "2001:db8:1::f1", IP6_UPLINK: "PORT1", IP6_SERVICE_TYPE: "SLAAC_RDNSS"})}} |
        reduce (1, 2) as $n (.; .WAN_PORT["PORT\($n)"] = {INTERFACE: "swdev\($n)", DEV_TYPE: "ethernet", PRIO: "\($n)"} |
            .WAN_IFACE_INFO["swdev\($n)"] = {ID: "\($n)", IP4_TYPE: "DISABLED", IP6_TYPE: "DHCPV6", IP6_DHCP_PD: "ENABLED"}) |
        .WAN_IFACE_INFO.swdev2.IP6_TYPE = "SLAAC"' >"$DEVICE_INFO"
    before=$(state)

    advertise6 1 isp1 far on
    advertise6 2 isp2 far off
    for n in 1 2; do
        ip netns exec "isp$n" sh -c "echo ${n}1 >/proc/sys/net/ipv6/conf/far/hop_limit"
        delegate6 "$n" "isp$n" far "2001:db8:${n}00::/56" 56 3 "$HOSTILE"
    done
}

set_up_world6() {
    same "uplinks and LANs are set up" "0 0 0 0 0 0" "$(for port in "wan swdev"{1,2} "lan br_v"{1,2,3,4}; do
        # shellcheck disable=SC2086  # a kind and a name
        set_up $port 1
    done | xargs)"
}
