#!/bin/bash
# What is installed on a bare root of Debian. The packages: used as README.md says, booted again, upgraded under traffic,
# with a library of the appliance's own, purged. And the build, installed by README.md's own commands.
#
# usage: packages.sh          outside of the sandbox; it calls itself there, and again in each boot, with their names
set -euo pipefail

SOURCE_DIR=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd -P)
readonly SOURCE_DIR BUILD=${NM_BUILD_DIR:-$SOURCE_DIR/build} PACKAGES=$SOURCE_DIR/build-package
readonly CACHE=${XDG_CACHE_HOME:-$HOME/.cache}/networkinterface-bare
source "$SOURCE_DIR/tests/support/tap.sh"
readonly SERVICES=(networkinterface.target nm-base-rules nm-boot-finish nm-serviced ncaas dnsmasqmgr overlayd)
readonly OURS=(networkinterface networkinterface-peers libnetworkinterface1 libvservice1 libvpppoe1 xt-vtarget-common)
readonly TRAFFIC=(nm-dhcpd@lan0 nm-dhcpcd@lan0 nm-pppoe@swdev1 dnsmasqmgr)
readonly DOCUMENT=/etc/networkmanagement/device_info.json
readonly SECRET=c4n4ry-secret
export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8

# ---- Outside.

prepare() {
    local why
    check "the packages build" "$SOURCE_DIR/scripts/package"
    why=$("$SOURCE_DIR/scripts/lib/bare-root" "$CACHE" "$PACKAGES" 2>&1) || {
        skip "the bare root" "$(tail -n 1 <<<"$why")"
        finish
    }
    # What the README has people run, with another place for the root.
    rm -rf "$BUILD/results/installed"
    grep -E '^    cmake --install' "$SOURCE_DIR/README.md" | while IFS= read -r line; do
        (cd "$SOURCE_DIR" && DESTDIR=$BUILD/results/installed bash -c "$line") >/dev/null
    done
}

run_in_sandbox() {
    "$SOURCE_DIR/scripts/sandbox" --root "$CACHE/root" "$SOURCE_DIR/tests/system/packages.sh" "$1"
}

# Both worlds wait more than they work.
run_worlds() {
    run_in_sandbox build >"$BUILD/results/packages-build.log" 2>&1 &
    check "lintian has nothing to complain of" "$SOURCE_DIR/scripts/package" --lint
    run_in_sandbox packages || tap_failed=1
    wait $! || tap_failed=1
    cat "$BUILD/results/packages-build.log"
}

# ---- In the sandbox.

# A machine that has been switched off and on: what is in memory is gone, and with it the network. A bare one lacks ip.
boot() {
    rm -rf /tmp/log_config
    # shellcheck disable=SC2016  # the inner shell's own
    unshare --net --mount bash -c 'mount -t sysfs sysfs /sys && mount -t tmpfs -o mode=755 run /run &&
        { ! command -v ip >/dev/null || ip link add swdev1 type veth peer name far; } && exec "$@"' - \
        "$SOURCE_DIR/scripts/lib/systemd-world" --whole "$0" "$1" || tap_failed=1
}

apt() {
    apt-get -qq -o Dpkg::Use-Pty=0 "$@" </dev/null
}

states() {
    systemctl is-active "$@" | sort | uniq -c | awk '{print $1, $2}' | paste -sd ' ' || true
}

pids() {
    local unit
    for unit in "$@"; do
        echo "$unit $(systemctl show -p MainPID --value "$unit")"
    done
}

# The document and the command of the README's first request.
first_request() {
    local section name line
    section=$(sed -n '/^## A first request/,/^## /p' "$SOURCE_DIR/README.md")
    name=$(grep -oE '^    nm_bin Setup_wanif .*' <<<"$section" | head -n 1)
    [[ -e /sys/class/net/swdev1 ]] || ip link add swdev1 type veth peer name far
    ip link set swdev1 mtu 1500
    grep -E '^    \{"WAN_PORT"' <<<"$section" >"$DOCUMENT"
    line=$(bash -c "$name" 2>&1) || true
    same "$1: the README's first request" "0 NM_OK success, MTU 1400" "$line, MTU $(</sys/class/net/swdev1/mtu)"
}

all_run() {
    [[ $(states "${SERVICES[@]}") == "${#SERVICES[@]} active" ]]
}

# What has failed, with its last words.
failures() {
    local unit
    systemctl list-units --failed --plain --no-legend | awk '{print $1}' |
        while read -r unit; do
            echo "$unit: $(journalctl -q -o cat -n 6 -u "$unit")"
        done
}

check_services() {
    check "$1: the services run" eventually 20 all_run
    same "$1: Debian's own units of the daemons stay off" "3 inactive" "$(states isc-dhcp-server isc-dhcp-relay radvd)"
    same "$1: nothing has failed" "" "$(failures)"
}

# revives UNIT: it comes back each time that it is killed, in quick succession, too.
revives() {
    local n killed
    for n in 1 2 3 4 5 6; do
        killed=$(systemctl show -p MainPID --value "$1")
        kill -KILL "$killed"
        eventually 5 is_new "$1" "$killed" || { echo "not after kill $n" && return 1; }
    done
}

is_new() {
    local pid
    pid=$(systemctl show -p MainPID --value "$1")
    [[ $pid != 0 && $pid != "$2" ]] && systemctl -q is-active "$1"
}

# A LAN with a DHCP server, and a session whose kernel has no PPP: dialled again and again.
start_traffic() {
    ip link add lan0 up type veth peer name client
    ip addr add 10.5.0.1/24 dev lan0
    echo 'subnet 10.5.0.0 netmask 255.255.255.0 { range 10.5.0.10 10.5.0.20; }' >/etc/networkmanagement/dhcp/dhcpd_lan0.conf
    cp /usr/lib/networkmanagement/init.dhcpcd.conf /etc/dhcpcd.conf
    systemctl start nm-dhcpd@lan0 nm-dhcpcd@lan0
    dial
    same "daemons of ports run" "${#TRAFFIC[@]} active" "$(states "${TRAFFIC[@]}")"
}

dial() {
    "$BUILD/bin/pppoe_call" nm_add_pppoe_and_run swdev1 user <<<"$SECRET" >/dev/null
}

first() {
    local name packages=()
    for name in "${OURS[@]}"; do
        packages+=("$PACKAGES/${name}_"*.deb)
    done
    apt update
    apt install --no-install-recommends -y "$PACKAGES"/libvpppoe1_*.deb
    dial
    same "sessions run with nothing but their library" active "$(states nm-pppoe@swdev1 | cut -d ' ' -f 2)"
    check "the packages install with what they depend on" apt install --no-install-recommends -y "${packages[@]}"
    check_services "after the installation"
    check "the declared test of the installed packages" bash -c 'cd "$0" && debian/tests/first-request' "$SOURCE_DIR"
    check "iptables knows the target" grep -q -- --set-xmark <(iptables -j VTARGET --help)
    same "dhclient's profile takes what the package adds" 1 "$(grep -c networkinterface /etc/apparmor.d/local/sbin.dhclient)"
}

# The same packages under the next version.
next_version() {
    local name
    for name in "${OURS[@]}"; do
        dpkg-deb -R "$PACKAGES/${name}_"*.deb "$1/$name"
        [[ $name != networkinterface ]] || echo '# next' >>"$1/$name/etc/apparmor.d/dhcpd.d/networkinterface"
        sed -i "s/(= $version)/(= $version.1)/; s/^Version: .*/&.1/" "$1/$name/DEBIAN/control"
        dpkg-deb -Znone -b "$1/$name" "$1/$name.deb"
    done >/dev/null
}

check_upgrade() {
    local before documents daemon rules conffiles=(/etc/apparmor.d/{dhcpd.d/networkinterface,networkinterface/dhclient})
    echo '# own' >>"${conffiles[1]}"
    before=$(pids "${TRAFFIC[@]}") daemon=$(pids nm-serviced) documents=$(find /etc/networkmanagement /etc/vpppoe -type f -exec sha256sum {} +)
    rules=$(iptables-save | grep -v '^#')
    next_version "$1"
    check "an upgrade" apt install --no-install-recommends -y "$1"/*.deb
    same "keeps documents and credentials" "$documents" "$(find /etc/networkmanagement /etc/vpppoe -type f -exec sha256sum {} +)"
    same "keeps the packet policy" "$rules" "$(iptables-save | grep -v '^#')"
    same "stops nothing that carries traffic" "$before" "$(pids "${TRAFFIC[@]}")"
    same "renews conffiles but those changed here" "# next # own" "$(tail -qn 1 "${conffiles[@]}" | xargs)"
    check "starts the service daemon anew" test "$daemon" != "$(pids nm-serviced)"
    check_services "after the upgrade"
}

# A conffile that was changed here and in the next version.
check_conflict() {
    local conffile=/etc/apparmor.d/dhcpd.d/networkinterface daemon
    echo '# own' >>"$conffile"
    echo '# after next' >>"$1/networkinterface$conffile"
    sed -i 's/^Version: .*/&.1/' "$1/networkinterface/DEBIAN/control"
    dpkg-deb -Znone -b "$1/networkinterface" "$1/networkinterface.deb" >/dev/null
    daemon=$(pids nm-serviced)
    check "an upgrade that asks nothing about what was changed here, too" \
        dpkg --force-confdef --force-confold --install "$1/networkinterface.deb"
    same "keeps that, and lays the new one beside" "# own # after next" "$(tail -qn 1 "$conffile"{,.dpkg-dist} | xargs)"
    check "starts the service daemon anew with it" test "$daemon" != "$(pids nm-serviced)"
    check_services "after that upgrade"
}

# Removed and installed again, the network comes back without a boot.
check_return() {
    check "a removal" apt remove -y networkinterface networkinterface-peers
    ip link set swdev1 mtu 1500
    check "and a return" apt install --no-install-recommends -y "$1"/networkinterface{,-peers}.deb
    check_services "after the return"
    check "what is stored is in force after the return" eventually 20 grep -qx 1400 /sys/class/net/swdev1/mtu
}

# A package of the appliance with its own library of the same soname.
check_own_library() {
    local tree=$1/own
    mkdir -p "$tree/DEBIAN" "$tree/usr/lib/appliance" "$tree/etc/ld.so.conf.d"
    cp -a /usr/lib/x86_64-linux-gnu/libvservice.so.1* "$tree/usr/lib/appliance"
    echo /usr/lib/appliance >"$tree/etc/ld.so.conf.d/appliance.conf"
    printf '%s\n' 'Package: appliance-bus' "Version: 7" 'Architecture: amd64' 'Maintainer: nobody <nobody@example.invalid>' \
        "Provides: libvservice1 (= $version.1)" 'Conflicts: libvservice1' 'Replaces: libvservice1' \
        'Description: the bus' >"$tree/DEBIAN/control"
    echo activate-noawait ldconfig >"$tree/DEBIAN/triggers"
    dpkg-deb -Znone -b "$tree" "$1/own.deb" >/dev/null
    check "the appliance's own library takes the place of ours" apt install -y "$1/own.deb"
    same "and the tools run on with it" "un /usr/lib/appliance/libvservice.so.1 ii" "$(dpkg-query -W -f '${db:Status-Abbrev}' libvservice1 2>/dev/null | tr -d ' ' || true
        ) $(ldd /usr/bin/vsh | awk '/vservice/ {print $3}') $(dpkg-query -W -f '${db:Status-Abbrev}' networkinterface | tr -d ' ')"
}

check_purge() {
    printf '%s\n' '192.0.2.9  host  host  #wan' '192.0.2.8 foreign # of the LAN' '2001:db8::1  host  host  #lan0' >/etc/hosts
    chmod 640 /etc/hosts
    echo lo=lo >/run/network/ifstate
    check "a purge" apt purge -y "${OURS[@]}" appliance-bus
    same "ends the daemons" "" "$(pgrep -fa '^/usr/sbin/(dhcpd|dhcpcd|dnsmasq|nm_|ncaas|overlayd)|pppoe/session' || true)"
    same "leaves no secret" "" "$(grep -rlF "$SECRET" /etc /var /run /tmp /usr /root 2>/dev/null || true)"
    same "leaves no file" "" "$(find / -xdev \( -path "$SOURCE_DIR" -o -path /var/cache -o -path /proc -o -path /sys -o -name nm-sandbox.target \) -prune -o \
        \( -path '*network*management*' -o -path '*networkinterface*' -o -name '*vpppoe*' -o -name '*vservice*' \
        -o -name 'nm-*' -o -name 'nm_*' -o -path '/run/network/*' ! -path /run/network/ifstate -o -path '/var/db*' -o -path /etc/dhcpcd.conf -o -path '/var/log/network*' -o -name '*VTARGET*' \) -print)"
    same "leaves what others have" "640 192.0.2.8 foreign # of the LAN lo=lo" "$(stat -c %a /etc/hosts) $(</etc/hosts) $(</run/network/ifstate)"
}

second() {
    local work version
    work=$(mktemp -d)
    version=$(dpkg-query -W -f '${Version}' networkinterface)
    check_services "after a boot"
    same "what is stored is in force after a boot" 1400 "$(</sys/class/net/swdev1/mtu)"
    first_request "after a boot"
    check "a service that is killed six times is there again" revives ncaas
    start_traffic
    check_upgrade "$work"
    check_conflict "$work"
    check_return "$work"
    check_own_library "$work"
    rm -rf "$work"
    check_purge
}

# The README's own lines, but for those that build, whose libraries come as packages here, and for AppArmor, which no
# sandbox has.
built() {
    local line
    printf 'APT::Get::Assume-Yes "true";\nAPT::Install-Recommends "false";\n' >/etc/apt/apt.conf.d/90README
    apt update
    apt install libjsoncpp25 libnl-route-3-200 libmnl0
    cp -a "$BUILD/results/installed/." /
    while IFS= read -r line; do
        case $line in
            *scripts/* | *cmake* | *apparmor*) ;;
            *) check "from the build: $line" bash -c "$line" ;;
        esac
    done < <(sed -n '/^### From the build/,/^##* /s/^    //p' "$SOURCE_DIR/README.md")
    check_services "from the build"
    first_request "from the build"
}

case ${1:-} in
    "") prepare && run_worlds && finish ;;
    packages) boot first && boot second && finish ;;
    build) boot built && finish ;;
    *) "$1" && finish ;;
esac
