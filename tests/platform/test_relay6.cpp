// What the IPv6 relay lets pass, and what it makes of it. Messages are written in hexadecimal.
#include <gtest/gtest.h>
#include <netinet/icmp6.h>

#include <algorithm>

#include "dhcp6.h"
#include "icmp6.h"

using namespace relay6;

namespace {

const std::string kHead = "86000000 40c00708 0000000000000000";    // hop limit 64, managed, other, 1800 s
const std::string kMarked = "86000000 40c40708 0000000000000000";  // the same from another relay
const std::string kRouter = "0101020000000009", kOurs = "0101020000000001";
const std::string kMtu = "05010000000005c8", kTinyMtu = "05010000000004ff", kDns = "1901000000000000";
const std::string kSignature = "0c01000000000000";
const std::string kNet = "20010db8 000000000000000000000000";

std::string prefix(const std::string& length, const std::string& valid, const std::string& address = kNet) {
    return "0304" + length + "c0" + valid + "00000e10 00000000" + address;
}

Bytes bytes(std::string hex) {
    hex.erase(std::remove(hex.begin(), hex.end(), ' '), hex.end());
    Bytes result;
    for (std::size_t i = 0; i < hex.size(); i += 2) {
        result.push_back(static_cast<std::uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    }
    return result;
}

}  // namespace

TEST(Relay6, AdvertisementsGoOnAsOurs) {
    const std::string kPrefix = prefix("40", "00001c20"), kHour = "00000e10";
    struct Advertisement {
        std::string received, relayed;  // "" is dropped
        std::size_t prefixes = 0;
    } const cases[] = {
        {kHead, kMarked + kOurs},
        {kHead + kRouter + kMtu + kPrefix + kDns, kMarked + kMtu + kPrefix + kDns + kOurs, 1},
        {kHead + prefix("40", kHour) + kRouter + kRouter, kMarked + prefix("40", kHour) + kOurs, 1},
        {kHead + kTinyMtu + kSignature, kMarked + kOurs},
        {kHead + prefix("81", kHour) + prefix("40", "00000e0f"), kMarked + kOurs},
        {kHead + prefix("40", kHour, "fe80" + std::string(28, '0')), kMarked + kOurs},
        {kHead + prefix("40", kHour, "ff05" + std::string(28, '0')), kMarked + kOurs},
        {kHead + "0301 40c0 00000e10", kMarked + kOurs},
        {kMarked + kPrefix, ""},
        {"8601" + kHead.substr(4), ""},
        {"8500" + kHead.substr(4), ""},
        {kHead.substr(2), ""},
        {kHead + "0500000000000000", ""},
        {kHead + kPrefix.substr(0, kPrefix.size() - 2), ""},
        {kHead + kDns + "19", ""},
    };
    for (const Advertisement& each : cases) {
        const Bytes input = bytes(each.received);
        const auto relayed = relay_advertisement(input.data(), input.size(), {2, 0, 0, 0, 0, 1});
        EXPECT_EQ(relayed ? relayed->message : Bytes(), bytes(each.relayed)) << each.received;
        EXPECT_EQ(relayed ? relayed->prefixes.size() : 0, each.prefixes) << each.received;
    }
}

TEST(Relay6, NeighborsAreHeardFromTheLinkOnly) {
    const std::string packet =
        "60000000 0020 3a ff fe80000000000000 0000000000000001 ff02000000000000 00000001ff000001 8700 4b59 "
        "00000000 20010db800000000 0000000000000001 0101020000000009";
    const std::tuple<std::size_t, const char*, bool> cases[] = {
        {0, "60", true},                         // as it is
        {7, "fe", false},                        // has passed a router
        {6, "11", false},                        // no ICMPv6
        {5, "21", false},                        // longer than what is there
        {5, "18", false},                        // without its option, which the checksum covers
        {40, "89", false},                       // a redirect
        {41, "01", false},                       // code
        {42, "4b5a", false}, {48, "ff", false},  // a multicast target
        {65, "00", false},                       // an option without a length
    };
    for (const auto& [at, hex, heard] : cases) {
        Bytes input = bytes(packet);
        const Bytes change = bytes(hex);
        std::copy(change.begin(), change.end(), input.begin() + static_cast<std::ptrdiff_t>(at));
        const auto message = read_neighbor_message(input.data(), input.size());
        EXPECT_EQ(message && message->solicitation && spelled(message->target) == "2001:db8::1", heard)
            << at << ' ' << hex;
        EXPECT_FALSE(read_neighbor_message(input.data(), input.size() - 1));
    }
}

TEST(Relay6, Dhcp6FindsItsWayBack) {
    const in6_addr client = {{{0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2}}};
    const std::string peer = "fe80000000000000 0000000000000002", any(32, '0'), name = "0012 0005 62725f7630";
    const std::string forward = "0c00" + kNet + peer + name + "0009 0004 01aabbcc";
    in6_addr link{};
    std::copy_n(bytes(kNet).begin(), sizeof(link), link.s6_addr);
    const auto wrapped = wrap_dhcp6(bytes("01aabbcc"), client, link, "br_v0");
    EXPECT_EQ(wrapped ? *wrapped : Bytes(), bytes(forward));
    for (const std::string& dropped :
         {std::string("02aabbcc"), std::string("07aabbcc"), std::string("01aabb"), "0c08" + any + peer,
          "0c00" + any, "0d00" + any + peer}) {
        EXPECT_FALSE(wrap_dhcp6(bytes(dropped), client, link, "br_v0")) << dropped;
    }
    const std::string reply = "0d00" + kNet + peer, inner = "0009 0004 07aabbcc";
    // The port that a message goes on to; 0 is dropped.
    const std::pair<std::string, int> cases[] = {
        {reply + name + inner, 546},
        {reply + inner + name, 546},
        {reply + name + "0009 0004 0daabbcc", 547},
        {reply + inner, 0},
        {reply + "0012 0005 62725f7631" + inner, 0},
        {reply + name, 0},
        {reply + name + inner.substr(0, inner.size() - 2), 0},
        {reply + name + inner + "00", 0},
        {"0d00" + kNet + "ff02000000000000 0000000000000001" + name + inner, 0},
        {"0c00" + kNet + peer + name + inner, 0},
    };
    for (const auto& [message, port] : cases) {
        const auto delivery = unwrap_dhcp6(bytes(message), "br_v0");
        EXPECT_EQ(delivery ? delivery->port : 0, port) << message;
        EXPECT_TRUE(!delivery || delivery->to == client) << message;
    }
}
