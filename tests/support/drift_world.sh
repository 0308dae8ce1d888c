# shellcheck shell=bash
# Changes of a site that is up, and what drift has to say of each. Sourced.
# shellcheck disable=SC2034  # the tests read the variables
source "$(dirname "${BASH_SOURCE[0]}")/site_world.sh"

# In the sandbox no kernel has conditions, so this step of every bring-up fails there.
readonly UNREAD=setup_local_single_wan_nf_condiftion

# What is done | what takes it back, if a further boot does not | the findings: class, domain and name.
readonly CHANGES='ip link set swdev5 down||changed link swdev5;lost route IPv4 table main
ip link set swdev6 mtu 1400||changed link swdev6
ip link set swdev2 alias spy|ip link set swdev2 alias ""|foreign link swdev2
ip link add br_v77 type bridge|ip link del br_v77|foreign link br_v77
ip link add docker0 type bridge; ip addr add 172.17.0.1/16 dev docker0|ip link del docker0|outside link docker0;outside address docker0
ip link add eth9 type veth peer name eth8; ip link set eth9 up; ip route add 10.83.0.0/24 dev eth9|ip link del eth9|outside link eth9;outside route IPv4 table main
ip addr add 10.99.0.1/24 dev swdev6|ip addr del 10.99.0.1/24 dev swdev6|foreign address swdev6;foreign route IPv4 table main
ip addr del 10.0.10.1/24 dev swdev4||lost address swdev4;lost route IPv4 table main
ip addr add 192.0.2.2/29 dev swdev3; ip addr del 192.0.2.2/30 dev swdev3|ip addr del 192.0.2.2/29 dev swdev3|changed address swdev3;changed route IPv4 table main
ip route del default table 258||lost route IPv4 table 258
ip route add 10.77.0.0/24 dev swdev2 table 259 proto static|ip route del 10.77.0.0/24 table 259|foreign route IPv4 table 259
ip route replace default via 192.0.2.1 dev swdev3 table 260 proto static||changed route IPv4 table 260
ip route del 10.81.0.0/24 table 251||lost route IPv4 table 251
ip route add 10.82.0.0/24 dev swdev1 table 1 metric 5|ip route del 10.82.0.0/24 table 1|foreign route IPv4 table 1
ip rule del pref 34||lost rule IPv4 rule 34
ip rule add pref 700 lookup 100|ip rule del pref 700|foreign rule IPv4 rule 700
ip rule del pref 50; ip rule add pref 54 fwmark 0/0xf oif swdev2 lookup 259|ip rule del pref 54; ip rule add pref 50 fwmark 0/0xf oif swdev2 lookup 259|lost rule IPv4 rule 50;foreign rule IPv4 rule 54
ip rule del pref 1044490||lost rule IPv4 rule 1044490
ip -6 rule add pref 37 lookup 258|ip -6 rule del pref 37|foreign rule IPv6 rule 37
ip rule del pref 65; ip rule add pref 65 from 192.0.2.9 lookup 260|ip rule del pref 65 from 192.0.2.9|changed rule IPv4 rule 65
ipset del ip4_lan 10.0.30.0/24||lost set ip4_lan
ipset add localip 9.9.9.9|ipset del localip 9.9.9.9|foreign set localip
ipset create seg-ghost hash:net|ipset destroy seg-ghost|foreign set seg-ghost
ipset create others hash:ip|ipset destroy others|outside set others
ipset destroy DNAT99||lost set DNAT99
ipset destroy DNAT98; ipset create DNAT98 hash:ip|ipset destroy DNAT98|changed set DNAT98
ipset add rlan 10.200.0.0/16|ipset del rlan 10.200.0.0/16|
ipset create os.beos hash:ip; ipset add os.beos 10.0.10.9|ipset destroy os.beos|
iptables -t mangle -D FIREWALL 2||lost chain IPv4 mangle FIREWALL
iptables -t mangle -I POLICY -j RETURN|iptables -t mangle -D POLICY -j RETURN|foreign chain IPv4 mangle POLICY
iptables -t mangle -D STEER 1; iptables -t mangle -A STEER -d 203.0.113.5 -j MARK --set-xmark 0x2/0xf||changed chain IPv4 mangle STEER
iptables -D FORWARD -j BASE_FORWARD||lost chain IPv4 filter FORWARD
iptables -t nat -F PORT_FORWARDING||lost chain IPv4 nat PORT_FORWARDING
ip6tables -P FORWARD DROP|ip6tables -P FORWARD ACCEPT|changed chain IPv6 filter FORWARD
iptables -N DOCKER; iptables -A DOCKER -j RETURN|iptables -F DOCKER; iptables -X DOCKER|outside chain IPv4 filter DOCKER
iptables -A OUTPUT -p tcp -j ACCEPT|iptables -D OUTPUT -p tcp -j ACCEPT|outside chain IPv4 filter OUTPUT
iptables -t mangle -N FIREWALL-ghost|iptables -t mangle -X FIREWALL-ghost|foreign chain IPv4 mangle FIREWALL-ghost
iptables -t mangle -F BASE_OUTPUT||lost chain IPv4 mangle BASE_OUTPUT
echo 0 >/proc/sys/net/ipv4/ip_forward||changed setting ipv4/ip_forward
echo 1 >/proc/sys/net/ipv4/conf/swdev4/rp_filter|echo 0 >/proc/sys/net/ipv4/conf/swdev4/rp_filter|changed setting ipv4/conf/swdev4/rp_filter
sed -i "/#swdev3$/d" /etc/hosts||lost file /etc/hosts
echo "10.1.1.1  x  x  #swdev9" >>/etc/hosts|sed -i "/#swdev9$/d" /etc/hosts|foreign file /etc/hosts
echo "10.1.1.2 printer # of the owner" >>/etc/hosts|sed -i /printer/d /etc/hosts|
echo "nameserver 6.6.6.6 #ID=swdev9" >>/run/network/resolv.dnsmasq|sed -i /swdev9/d /run/network/resolv.dnsmasq|foreign file /run/network/resolv.dnsmasq
echo address=/bank/6.6.6.6 >/run/network/dnsmasq.d/evil.conf|rm /run/network/dnsmasq.d/evil.conf|foreign file /run/network/dnsmasq.d/evil.conf
sed -i s/10.0.10.50/10.0.10.90/ /etc/networkmanagement/dhcp/dhcpd_swdev4.conf||changed file /etc/networkmanagement/dhcp/dhcpd_swdev4.conf
rm /run/network/.nm-mlmd@swdev1.env||lost file /run/network/.nm-mlmd@swdev1.env
touch "/etc/networkmanagement/\$(touch evil)"|rm /etc/networkmanagement/*evil*|foreign file /etc/networkmanagement/$(touch evil)
chmod 666 /run/network/policy.curr|chmod 600 /run/network/policy.curr|changed file /run/network/policy.curr
rm /run/network/device_info.curr||lost file /run/network/device_info.curr
systemctl stop nm-dhcpd@swdev4||lost unit nm-dhcpd@swdev4.service
systemctl stop nm-plmd@swdev3||lost unit nm-plmd@swdev3.service
mkdir -p /run/systemd/system; unit nm-dhcrelay@swdev5|systemctl stop nm-dhcrelay@swdev5|foreign unit nm-dhcrelay@swdev5.service'

# Documents with a password, which no output may show.
make_site_with_secret() {
    eval "$(declare -f site_store | sed '1s/.*/store_documents()/')"
    site_store() {
        store_documents
        jq '.WAN_IFACE_INFO.swdev1 += {USERNAME: "me", PASSWORD: "geheim-7"}' "$DEVICE_INFO" >"$scratch/device" && cat "$scratch/device" >"$DEVICE_INFO"
    }
    make_site
}

look() {
    status=0
    nm_bin drift --json >"$scratch/drift" || status=$?
}

# What is found, by class, domain and name.
found() {
    jq -r '.findings[], .outside[] | "\(.class) \(.domain) \(.name)"' "$scratch/drift" | sort
}

unread() {
    jq -r '.unread[].what' "$scratch/drift"
}

is_without_drift() {
    look
    [[ -z $(found) && $(unread) == "$UNREAD" ]]
}

# repair UNDO...: takes changes back, and boots over the rest.
repair() {
    local undo
    for undo; do
        eval "$undo" >/dev/null 2>&1 || failed "taken back: $undo"
    done
    boot_site
    settle_site
}
