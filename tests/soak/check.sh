#!/bin/bash
# Generated documents, each applied for real and checked: what a setup refuses the check has to refuse, and what the
# check refuses a setup has to refuse, or leave out, or the finding is of the kinds that no setup looks at. Prints each
# disagreement, then how often both said what.
#
# usage: tests/soak/check.sh [COUNT [SEED]]     (documents for each of the families; 200, 1)
set -euo pipefail
source "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/../support/world.sh"

"$support_dir/../../scripts/lib/stock-netfilter" install
nm-base-rules
ip link add swdev1 type veth peer name far1
ip link set far1 up
ip link add br_v10 type bridge
ipset create seg-known hash:net
python3 - "${1:-200}" "${2:-1}" <<'END'
import collections, json, random, subprocess, sys

STORE = "/etc/networkmanagement/"
random.seed(int(sys.argv[2]))
ADDRESSES = ["10.0.10.1", "10.0.10.1", "192.0.2.2", "192.0.2.2", "10.0.10.256", "127.0.0.1", "0.0.0.0", "224.0.0.1", "", "x", "10.1",
             "010.0.0.1", "fe80::1", "1.2.3.4 ", "255.255.255.255", "a;b"]
WORDS = ADDRESSES + ["10.0.0.0/8", "10.0.0.0/33", "10.0.0.1-10.0.0.9", "10.0.0.9-10.0.0.1", "10.0.0.0/255.0.0.0", "10.0.0.1,10.0.0.2",
                     "0.0.0.0/0", "10.0.0.0/255.0.255.0", "10.0.0.1/", "1.1.1.1-1.1.1"]
PORTS = ["80", "80", "80-90", "80:90", "90-80", "0", "65535", "65536", "80,443", "80,443-445", ":90", "90:", "http", "nonesuch", "", "80,",
         ",80", ",".join(map(str, range(1, 16))), ",".join(map(str, range(1, 17))), ",".join(map(str, range(1, 14))) + ",20-21", "80 ",
         ",".join(map(str, range(1, 15))) + ",20-21", "-", "1-2-3", "08", "443,443"]
NUMBERS = ["24", "24", "24", "0", "1", "30", "32", "33", "-1", "", "24x", "x", 24, 33, None, True, "128", "9000000000", " 24", "1500", "68", "67"]
PROTOCOLS = ["", "tcp", "udp", "TCP", "icmp", "all", "gre", "esp", "6", "256", "tpc", "ah", "sctp", "0", "-1", "17"]


def some(**pools):
    return {key: random.choice(pool) for key, pool in pools.items() if random.random() < 0.7}


def put(name, document):
    with open(STORE + name + ".json", "w") as file:
        json.dump(document, file)


def call(*words):
    result = subprocess.run(["nm_bin", *words, "--json"] if words[0][0].islower() else ["nm_bin", "--json", *words],
                            capture_output=True, text=True)
    return json.loads(result.stdout.strip().splitlines()[-1] if words[0] != "check" else result.stdout)


PORT = {"INTERFACE": "swdev1", "DEV_TYPE": "virtio"}
DEVICE = {"WAN_PORT": {"PORT1": PORT}, "VLAN_SEG": {"10": {"INTERFACE": "br_v10"}}}


def request(entry, target, ops, name="device_info"):
    return call(entry, json.dumps({target: {"act": 1, "ops": ops, "path": STORE + name + ".json"}}))["code"]


def rules():
    put("device_info", DEVICE)
    put("segment", {"known": []})
    rule = some(SRC_IP=WORDS, DST_IP=WORDS, PROTOCOL=PROTOCOLS, DST_PORT=PORTS, SRC_PORT=PORTS, SRC_SEG=["known", "known-2", "no", 5],
                SRC_VLAN=["10", 10, "11"], DST_HOSTNAME=["a.example", "a b", "a/b"], DST_SERVICE=["NFS Service", "none"],
                CID=["5", 5, "x"], CLIENT_OS=["linux", "a b"])
    put("firewall", {"RULES": {"SITE": [dict(rule, ACTION=random.choice(["ALLOW", "DENY", "DENY", "no"]))]}})
    return "firewall", call("Apply_firewall", STORE + "firewall.json", "/run/network/f.curr")["code"]


def forwards():
    put("device_info", DEVICE)
    forward = some(LAN_IP=ADDRESSES[:5] * 3 + ADDRESSES, TCP_WAN_PORT=PORTS, UDP_WAN_PORT=PORTS, LAN_PORT=PORTS, PROTOCOL=PROTOCOLS,
                   ALLOWED_REMOTE_IPS=[["10.0.0.0/8"], [], ["10.0.0.1"]], WAN_SERVICE=["NFS Service", "none"])
    put("firewall", {"PORT_FORWARDING": [dict(forward, WAN_PORTNAME=random.choice(["PORT1"] * 5 + ["PORT9"]),
                     TYPE=random.choice(["port_forwarding"] * 5 + ["1to1NAT", "x"]), ACTION=random.choice(["ENABLE"] * 5 + ["DISABLE", 1]))]})
    return "firewall", call("Apply_dnat", STORE + "firewall.json", "/run/network/d.curr")["code"]


def routes():
    put("device_info", DEVICE)
    route = some(IP=WORDS, NETMASK=NUMBERS, METRIC=NUMBERS, FAMILY=["4", 4, "5", "x", None], NEXTHOP_ADDRESS=ADDRESSES,
                 NEXTHOP_WAN=["PORT1", "PORT9", 5], NEXTHOP_INTERFACE=["swdev1", ""], ACTION=["ENABLE", "ENABLE", "DISABLE", 1, "x"])
    put("static_route", {"META": {"VERSION": "1.1.0"}, "STATIC_ROUTE": [random.choice([route] * 20 + [7, None, []])]})
    return "static_route", call("Apply_static_route", STORE + "static_route.json", "/run/network/r.curr")["code"]


def uplinks():
    info = some(IP4_ADDR=ADDRESSES, IP4_PREFIX=NUMBERS, IP4_GW=["192.0.2.1", "10.0.10.254", "", "x", "192.0.2.2"],
                IP4_TYPE=["STATIC"] * 6 + ["DISABLED", "static", "", 5, {}])
    put("device_info", dict(DEVICE, WAN_IFACE_INFO={"swdev1": info}))
    code = request("Setup_waninfo", "swdev1", 1)
    subprocess.run("ip addr flush dev swdev1; ip route flush table all dev swdev1", shell=True, capture_output=True)
    return "device_info", code


def devices():
    put("device_info", {"WAN_PORT": {"PORT1": dict(PORT, **some(MTU=NUMBERS, PRIO=NUMBERS, ISP_BW=NUMBERS + [{}], DEV_TYPE=["", "x", 5, []],
                                                                INTERFACE=["swdev1"] * 9 + ["", "a/b"]))}})
    return "device_info", request("Setup_wanif", "PORT1", 4)


def lans():
    info = some(IP4_ADDR=ADDRESSES, IP4_PREFIX=NUMBERS, IP4_TYPE=["STATIC"] * 6 + ["DISABLED", "PPPOE", ""],
                IP6_TYPE=["STATIC", "STATIC", "DISABLED", "", "x"], IP6_ADDR=["2001:db8::1"] * 3 + ["x", "", "2001:db8::g", "10.0.0.1"],
                IP6_PREFIX=["64", "64", "0", "129", "x", 64])
    put("device_info", dict(DEVICE, LAN_IFACE_INFO={"br_v10": info}))
    code = request("Setup_laninfo", "br_v10", 3)
    subprocess.run("ip addr flush dev br_v10", shell=True, capture_output=True)
    return "device_info", code


def services():
    put("device_info", dict(DEVICE, LAN_IFACE_INFO={"br_v10": {"IP4_TYPE": "STATIC", "IP4_ADDR": "10.0.10.1", "IP4_PREFIX": "24"}}))
    subprocess.run("ip addr add 10.0.10.1/24 dev br_v10", shell=True, capture_output=True)
    pool = ["10.0.10.5", "10.0.10.50"] * 4 + ADDRESSES
    service = some(DNS_SERVERS=[["8.8.8.8"], ["a.b"], ["a b"], "x"], PRIMARY_DNS=ADDRESSES, RESERVED_IP=[[], [{"DEVICE_NAME": "a",
                   "IP4_ADDR": random.choice(pool), "MAC": random.choice(["02:00:00:00:00:01", "02", ""])}]])
    service.update(SERVICE=random.choice(["SERVER"] * 5 + ["DISABLED"]), START_IP=random.choice(pool), END_IP=random.choice(pool),
                   LEASE_TIME=random.choice(["600", "600", "", "x", 600, "0600", "4294967296"]))
    put("dhcp_service", {"DHCP_SERVICE": {"br_v10": service}})
    return "dhcp_service", request("Setup_dhcpservice", "br_v10", 511, "dhcp_service")


# What setups accept and leave out, never look at, or load though it never matches (reversed ranges) or as
# another port (UDP: 65536 as 0, 08 as 8).
PASSED = ("10.0.0.9-10.0.0.1", "1.1.1.1-1.1.1", "90-80", "90:80", '"65536"', '"08"', "is left out", "is that of", "overlaps", "is the address of its network", "is the address of the uplink", "is the broadcast address", "is not in the network of")
REFERENCES = ("SRC_VLAN", "SRC_LAN", "WAN_PORTNAME", "LAN_IP")
counts = collections.Counter()
for family in (rules, forwards, routes, uplinks, devices, lans, services):
    for _ in range(int(sys.argv[1])):
        subprocess.run("rm -f %s*.json /run/network/*.curr" % STORE, shell=True)
        name, code = family()
        found = [row for row in call("check", name)["findings"] if row["grade"] == "error"]
        if any(word in row["what"] for row in found for word in ("is left out", "is not in the network of")) and code >= 0:
            found = []  # what else is wrong with it was not met
        firm = [row for row in found if not any(word in row["what"] for word in PASSED) and not row["pointer"].endswith(REFERENCES)]
        verdict = "missed" if code < 0 and not found else "false alarm" if code >= 0 and firm else "refused" if code < 0 else "accepted"
        counts[family.__name__, verdict] += 1
        if verdict in ("missed", "false alarm"):
            with open(STORE + name + ".json") as file:
                print(family.__name__, verdict, code, [row["pointer"] + ": " + row["what"] for row in firm], file.read())
for key, count in sorted(counts.items()):
    print(*key, count)
sys.exit(any(verdict in ("missed", "false alarm") for _, verdict in counts))
END
