#!/bin/bash
# Rules by the system of a client, whose sets are created by the apply that names them and filled by others later.
set -euo pipefail
source "$(dirname "$0")/../support/world.sh"

readonly NEW=/etc/networkmanagement/firewall.json OLD=/var/run/network/firewall.curr

# apply FILTER: a firewall document in place of an empty one; prints the result.
apply() {
    jq -n "{RULES: {SITE: $1}}" >"$NEW"
    nm_bin Apply_firewall "$NEW" "$OLD" 2>>"$scratch/stderr" || true
}

reaches() {
    ip netns exec client ping -q -c 1 -W 1 10.2.0.2
}

for row in client,1 server,2; do
    net=10.${row#*,}.0
    plug "${row%,*}" "swdev${row#*,}" "$net.1" "$net.2" <<<"route add default via $net.1"
done
echo '{}' | tee "$DEVICE_INFO" >"$OLD"
nm-base-rules
ipset create os.older hash:net

check "the server answers" eventually 10 reaches
same "systems of which nothing is known" "0 NM_OK success" "$(apply '[{ACTION: "DENY", CLIENT_OS: "older"},
    {ACTION: "DENY", CLIENT_OS: "newer", DST_PORT: "80-90"}, {ACTION: "DENY", CLIENT_OS: "newer"}]')"
same "sets of theirs, which keep their kind" "create os.older hash:net create os.newer hash:ip" \
    "$(for set in os.older os.newer; do ipset save "$set"; done | cut -d " " -f 1-3 | xargs)"
check "the rule matches nobody yet" reaches
firewall.sh edit_ipset add os.newer 10.1.0.2
check "a client is recognised, and denied" bash -c "! ip netns exec client ping -q -c 1 -W 1 10.2.0.2"
firewall.sh edit_ipset del os.newer 10.1.0.2
firewall.sh edit_ipset add os.older 10.1.0.0/24
check "by a network too" bash -c "! ip netns exec client ping -q -c 1 -W 1 10.2.0.2"
finish
