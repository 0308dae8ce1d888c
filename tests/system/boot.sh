#!/bin/bash
# What an appliance does when it boots: its directories are made, its units are sound, the packet policy has its
# base, daemons that ports start anew in quick succession are started each time, and a whole site comes up in order.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../support/world.sh"

# restarts UNIT: ten starts in a row succeed.
restarts() {
    local n
    for n in 1 2 3 4 5 6 7 8 9 10; do
        systemctl restart "$1" || { echo "start $n failed" && return 1; }
    done
    systemctl stop "$1"
}

mapfile -t directories < <(awk '$1 == "d" {print $2}' /usr/lib/tmpfiles.d/networkinterface.conf)
rm -rf "${directories[@]}"
(umask 077 && systemd-tmpfiles --create networkinterface.conf)
same "the directories are there, for root alone to write to" "755 root:root" \
    "$(stat -L -c '%n %a %U:%G' "${directories[@]}" | sed '\|^/run/lock/network 700 root:root$|d; s/^[^ ]* //' | sort -u)"
same "only root can open a lock file" "700 root:root" "$(stat -c '%a %U:%G' /run/lock/network)"
: >/run/network/.boot_fin
same "and all that a request needs" "0 0" "$(nm_bin Add_hosts 192.0.2.1 swdev1 | cut -d' ' -f1) $(
    kernel_call insert_dns_server 192.0.2.53 swdev1)"
check "and it is logged" test -s "$MAIN_LOG"

units=(/usr/lib/systemd/system/{nm-*,dnsmasqmgr,ncaas,overlayd}.service)
check "the units are there" test "${#units[@]}" -gt 6
same "systemd finds no fault in them" "" \
    "$(systemd-analyze verify --man=no "${units[@]}" /usr/lib/systemd/system/networkinterface.target 2>&1)"

# What systemd-analyze makes of how far each unit is shut in, in tenths at most.
declare -rA LIMITS=([ncaas]=20 [overlayd]=20 [nm-base-rules]=30 [nm-dhcpd@]=30 [nm-dhcpd6@]=30 [nm-dhcrelay@]=30 [nm-radvd]=30 [dnsmasqmgr]=30)
exposed() {
    local unit name tenths
    for unit in "${units[@]}"; do
        name=$(basename "$unit" .service)
        tenths=$(systemd-analyze security --offline=yes --no-pager "$unit" | sed -n 's/.*exposure level.*: \([0-9]*\)\.\([0-9]\) .*/\1\2/p')
        [[ $((10#${tenths:-100})) -le ${LIMITS[$name]:-40} ]] || echo "$name $tenths"
    done
}
same "each is shut in as far as its work allows" "" "$(exposed)"
systemctl start nm-base-rules
same "the base rules are laid once, at boot" "active 1" \
    "$(systemctl is-active nm-base-rules) $(iptables -t mangle -S | grep -c -- '-N WANLB')"
ip link add swdev1 up type veth peer name far
check "a link daemon is started as often as its port changes" restarts nm-mlmd@swdev1
check "a DHCP client as well" restarts nm-dhclient@swdev1
rm /usr/sbin/dlmd
same "a daemon whose program is missing is reported, and not tried again" "refused not waiting" \
    "$(systemctl start nm-dlmd@swdev1 2>/dev/null || echo refused) $([[ $(systemctl is-active nm-dlmd@swdev1) == activating ]] || echo not waiting)"
[[ -d /run/systemd/system ]] || finish  # the stand-in knows no targets

# The whole boot of a site. A port more has no device, and fails.
source "$support_dir/../../scripts/lib/site"
systemctl stop nm-base-rules
ip link del swdev1
rm -f /run/network/.boot_fin
: >/run/network/.sandbox  # which went with the directories
"$SITE_LIB/stock-netfilter" install
site_plug && site_serve && site_store
echo '{"QOS":{"DEFAULT_CLASS":"4"}}' >/etc/networkmanagement/qos.json
jq '.WAN_PORT.PORT9 = .WAN_PORT.PORT1 * {INTERFACE: "swdev9"}' "$SITE_LIB/site-documents/device_info.json" >"$DEVICE_INFO"

# Which of the units the journal has seen begin, end and fail since the boot, each once.
journal() {
    journalctl -q -o cat --no-pager --since "@$begun" _PID=1 |
        sed -nE 's/^(Starting|Started|Finished|Failed to start|Reached target) ((nm|ncaas|overlayd|networkinterface)[^ ]*) .*/\1 \2/p' |
        grep -E 'base-rules|bringup|boot-finish|dhcpd@|Started (ncaas|overlayd)|target' | awk '!known[$0]++'
}

begun=$EPOCHREALTIME
systemctl start ncaas overlayd dnsmasqmgr networkinterface.target || true
order=$(journal)
same "the bring-up begins when the base rules are laid and the peers serve" \
    "Finished nm-base-rules.service,Started ncaas.service,Started overlayd.service" \
    "$(sed '/Starting nm-bringup/,$d' <<<"$order" | grep -v Starting | sort | paste -sd,)"
same "and the boot ends after it, whatever became of a port" "Starting nm-bringup.service
Starting nm-dhcpd@swdev4.service
Started nm-dhcpd@swdev4.service
Failed to start nm-bringup.service
Starting nm-boot-finish.service
Finished nm-boot-finish.service
Reached target networkinterface.target" "$(sed -n '/Starting nm-bringup/,$p' <<<"$order")"
site_uplinks 1 2
same "the site works" "far5 asks the internet, often: far1 far2
far5 asks for the appliance by name: Address: 10.0.20.1
far6 asks what is steered to uplink 2: far2
far6 asks what is closed: nothing
far1 asks the forward: far5
far6 reaches the branch: 1" "$(site_report)"
same "what was applied can be put back, the rates as well, and is as private as what was stored" \
    "600 firewall.curr 600 policy.curr 600 segment.curr 600 static_route.curr 644 qos.json" \
    "$(find /run/network -maxdepth 1 \( -name '*.curr' -o -name '*.json' \) ! -name 'device_info.*' -printf '%m %f\n' | sort | xargs)"

# The same site, but for the port without a device, and with a firewall that is refused.
systemctl stop networkinterface.target nm-boot-begin nm-bringup nm-boot-finish
cp "$SITE_LIB/site-documents/device_info.json" "$DEVICE_INFO"
jq '.RULES.SITE += [{ACTION: "DENY", DST_SERVICE: "nobody-knows"}]' "$SITE_LIB/site-documents/firewall.json" \
    >/etc/networkmanagement/firewall.json
systemctl start networkinterface.target
same "a packet policy that is refused is a failed unit, and the boot goes on" "failed active active active" \
    "$(systemctl is-active nm-boot-begin nm-bringup nm-boot-finish networkinterface.target | xargs)"
cp "$SITE_LIB/site-documents/firewall.json" /etc/networkmanagement/
before=$(sort /etc/hosts)
same "after the repair all is applied again" "active active active" \
    "$(systemctl restart nm-boot-begin nm-bringup nm-boot-finish && systemctl is-active nm-boot-begin nm-bringup nm-boot-finish | xargs)"
systemctl restart nm-boot-begin
same "and no host name is lost, though the policy alone is applied again" "$before" "$(sort /etc/hosts)"
systemctl start nm-reboot nm-poweroff
marks() {
    find /run/network -name '.boot_fin' -o -name '.reboot' -o -name '.poweroff' | sort | xargs
}
same "the end of the boot is marked, and the way down" "/run/network/.boot_fin /run/network/.poweroff /run/network/.reboot" \
    "$(marks)"
systemd-tmpfiles --boot --remove networkinterface.conf
same "the next boot begins without marks" "" "$(marks)"
finish
