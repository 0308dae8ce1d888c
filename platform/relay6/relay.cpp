// What a relay does with what it hears.
#include "relay.h"

#include <net/if.h>
#include <netinet/icmp6.h>
#include <poll.h>

#include <algorithm>
#include <iostream>
#include <utility>

#include "dhcp6.h"

namespace relay6 {

namespace {

using namespace std::chrono_literals;

// What strangers can make this process and the kernel keep has bounds.
constexpr std::size_t kMostHosts = 4096;
constexpr std::size_t kMostAsked = 256;
constexpr std::size_t kMostPrefixes = 32;

constexpr auto kLookInterval = 10min;
constexpr auto kAskedFor = 3s;
constexpr std::chrono::milliseconds kSolicitInterval = 4s;  // RTR_SOLICITATION_INTERVAL of RFC 4861
constexpr auto kRest = 500ms;
constexpr int kSolicitations = 3;
constexpr int kHops = 255;
constexpr unsigned int kHostLength = 128;
constexpr unsigned int kFirstUplinkTable = 256;

const in6_addr kAllNodes = address_of("ff02::1");
const in6_addr kAllRouters = address_of("ff02::2");
const in6_addr kAllDhcpAgents = address_of("ff02::1:2");

void insert_prefix(std::deque<Prefix>& prefixes, const Prefix& prefix) {
    const auto same = [&prefix](const Prefix& each) {
        return each.length == prefix.length && each.address == prefix.address;
    };
    prefixes.erase(std::remove_if(prefixes.begin(), prefixes.end(), same), prefixes.end());
    prefixes.push_back(prefix);
    if (prefixes.size() > kMostPrefixes) {
        prefixes.pop_front();
    }
}

template <class Prefixes>
bool any_contains(const Prefixes& prefixes, const in6_addr& address) {
    return std::any_of(prefixes.begin(), prefixes.end(),
                       [&address](const Prefix& prefix) { return contains(prefix, address); });
}

}  // namespace

bool Bucket::take() {
    const auto now = Clock::now();
    level_ = std::min(burst_, level_ + rate_ * std::chrono::duration<double>(now - filled_).count());
    filled_ = now;
    if (level_ < 1) {
        return false;
    }
    level_ -= 1;
    return true;
}

unsigned int uplink_table(const std::string& ifname) {
    const std::string parent = ifname.rfind("swdev", 0) == 0 ? ifname.substr(0, ifname.find('.')) : ifname;
    const unsigned int index = if_nametoindex(parent.c_str());
    return index == 0 ? 0 : kFirstUplinkTable + index;
}

bool Relay::open_port(Mode mode, Side side, Port& port) {
    port.index = if_nametoindex(port.name.c_str());
    if (port.index == 0) {
        std::cerr << "6relayd: no such device: " + port.name + '\n';
        return false;
    }
    port.tap = open_tap(port.index);
    port.icmp = open_icmp6(port.name, side == kUp ? ND_ROUTER_ADVERT : ND_ROUTER_SOLICIT);
    if (!port.tap || !port.icmp || mode == Mode::Neighbors) {
        return port.tap && port.icmp;
    }
    port.dhcp = open_dhcp6(port.name);
    return port.dhcp && (side == kUp || (join(port.icmp, port.index, kAllRouters) &&
                                         join(port.dhcp, port.index, kAllDhcpAgents)));
}

Relay::Relay(Mode mode, std::array<Port, 2> ports, std::unique_ptr<KernelTables> tables,
             std::unique_ptr<KernelEvents> events)
    : mode_(mode),
      ports_(std::move(ports)),
      tables_(std::move(tables)),
      events_(std::move(events)),
      uplink_table_(uplink_table(ports_[kUp].name)),
      advertisements_(5, 1),
      solicitations_(3, 0.5),
      searches_(200, 50),
      messages_(200, 50),
      solicitations_left_(mode == Mode::All ? kSolicitations : 0),
      next_look_(Clock::now() + kLookInterval) {
}

bool Relay::is_shared(const in6_addr& address) const {
    return is_routable(address) &&
           (any_contains(own_prefixes_, address) || any_contains(advertised_prefixes_, address));
}

void Relay::look_for(const in6_addr& address, Side side) {
    if (searches_.take()) {
        tables_->look_for(address, ports_[side].index);
    }
}

void Relay::answer_askers(const in6_addr& address, Side side) {
    const auto now = Clock::now();
    const std::optional<Mac> mac = link_address(ports_[side].icmp, ports_[side].name);
    for (const Asked& each : asked_) {
        if (mac && each.side == side && each.target == address && now - each.when < kAskedFor) {
            const bool everybody = IN6_IS_ADDR_UNSPECIFIED(&each.source);
            (void)send_to(ports_[side].icmp, ports_[side].index, everybody ? kAllNodes : each.source, 0,
                          neighbor_advertisement(address, *mac, !everybody));
        }
    }
    asked_.erase(std::remove_if(asked_.begin(), asked_.end(),
                                [&](const Asked& each) {
                                    return each.target == address || now - each.when >= kAskedFor;
                                }),
                 asked_.end());
}

void Relay::learn(const in6_addr& address, Side side) {
    if (hosts_.size() >= kMostHosts || !hosts_.emplace(address, side).second) {
        return;
    }
    tables_->host_route(address, ports_[side].index, true);
    tables_->proxy(address, ports_[opposite(side)].index, true);
    answer_askers(address, opposite(side));
}

void Relay::forget(const in6_addr& address) {
    const auto host = hosts_.find(address);
    tables_->proxy(address, ports_[opposite(host->second)].index, false);
    tables_->host_route(address, ports_[host->second].index, false);
    hosts_.erase(host);
}

// One that has moved is believed to be on the other side once it has answered there.
void Relay::notice(const Neighbor& neighbor) {
    const bool up = neighbor.ifindex == ports_[kUp].index;
    if (!up && neighbor.ifindex != ports_[kDown].index) {
        return;
    }
    const Side side = up ? kUp : kDown;
    const auto host = hosts_.find(neighbor.address);
    const bool here = host != hosts_.end() && host->second == side;
    if (neighbor.reach == Reach::Gone) {
        here ? forget(neighbor.address) : void();
        return;
    }
    if (here || !is_shared(neighbor.address) || is_local(neighbor.address)) {
        return;
    }
    if (host != hosts_.end() && neighbor.reach == Reach::Unsure) {
        look_for(neighbor.address, side);
        return;
    }
    if (host != hosts_.end()) {
        forget(neighbor.address);
    }
    learn(neighbor.address, side);
}

void Relay::hear_neighbors(Side side) {
    std::array<std::uint8_t, 2048> packet;
    for (int i = 0; i < 64; ++i) {
        const ssize_t size = ::recv(ports_[side].tap.fd(), packet.data(), packet.size(), 0);
        if (size < 0) {
            return;
        }
        const auto message = read_neighbor_message(packet.data(), static_cast<std::size_t>(size));
        if (message) {
            hear_neighbor(side, *message);
        }
    }
}

// Who asks is there; who is asked for may be on the other side; and who claims an address, or defends it, is
// there as well. All of them only make the kernel look, so that nobody is believed to be where nobody
// answers.
void Relay::hear_neighbor(Side side, const NeighborMessage& message) {
    const auto is_new = [this](const in6_addr& address) {
        return is_shared(address) && !is_local(address) && hosts_.count(address) == 0;
    };
    if (is_new(message.source)) {
        look_for(message.source, side);
    }
    if (!is_new(message.target)) {
        return;
    }
    const bool claims = IN6_IS_ADDR_UNSPECIFIED(&message.source) || !message.solicitation;
    if (claims) {
        look_for(message.target, side);
    }
    if (message.solicitation) {
        asked_.push_back({side, message.source, message.target, Clock::now()});
        asked_.size() > kMostAsked ? asked_.pop_front() : void();
        look_for(message.target, opposite(side));
    }
}

void Relay::hear_router() {
    const auto message = receive(ports_[kUp].icmp);
    const auto mac = link_address(ports_[kDown].icmp, ports_[kDown].name);
    if (!message || !mac || message->hop_limit != kHops || !IN6_IS_ADDR_LINKLOCAL(&message->source)) {
        return;
    }
    auto relayed = relay_advertisement(message->bytes.data(), message->bytes.size(), *mac);
    if (!relayed || !advertisements_.take()) {
        return;
    }
    for (const Prefix& prefix : relayed->prefixes) {
        insert_prefix(advertised_prefixes_, prefix);
    }
    last_advertisement_ = std::move(relayed->message);
    hand_on_advertisement();
    refresh();
}

// A device that has just come up has no address of the link yet: what could not be sent then is asked for
// again.
void Relay::hand_on_advertisement() {
    const bool sent = send_to(ports_[kDown].icmp, ports_[kDown].index, kAllNodes, 0, last_advertisement_);
    solicitations_left_ = sent ? 0 : 1;
    next_solicitation_ = Clock::now() + kRest;
}

void Relay::solicit_router() {
    const bool sent = send_to(ports_[kUp].icmp, ports_[kUp].index, kAllRouters, 0, router_solicitation());
    solicitations_left_ -= sent && solicitations_left_ > 0 ? 1 : 0;
    next_solicitation_ = Clock::now() + (sent ? kSolicitInterval : kRest);
}

void Relay::hear_router_solicitation() {
    const auto message = receive(ports_[kDown].icmp);
    if (message && message->hop_limit == kHops && is_router_solicitation(message->bytes) &&
        solicitations_.take()) {
        solicit_router();
    }
}

void Relay::hear_dhcp_client() {
    const auto message = receive(ports_[kDown].dhcp);
    if (!message || !messages_.take()) {
        return;
    }
    const auto wrapped = wrap_dhcp6(message->bytes, message->source, link_address_, ports_[kDown].name);
    if (wrapped) {
        (void)send_to(ports_[kUp].dhcp, ports_[kUp].index, kAllDhcpAgents, kDhcp6ServerPort, *wrapped);
    }
}

void Relay::hear_dhcp_server() {
    const auto message = receive(ports_[kUp].dhcp);
    const auto delivery = message ? unwrap_dhcp6(message->bytes, ports_[kDown].name) : std::nullopt;
    if (delivery) {
        (void)send_to(ports_[kDown].dhcp, ports_[kDown].index, delivery->to, delivery->port,
                      delivery->message);
    }
}

// The appliance itself is a host of both sides: on either one it is found under its address on the other.
void Relay::refresh_locals(const std::vector<LocalAddress>& addresses) {
    std::map<in6_addr, Side, AddressOrder> locals;
    for (const LocalAddress& each : addresses) {
        const bool up = each.ifindex == ports_[kUp].index;
        if ((up || each.ifindex == ports_[kDown].index) && each.usable && is_shared(each.address)) {
            locals.emplace(each.address, up ? kUp : kDown);
        }
    }
    for (const auto& [address, side] : locals_) {
        if (locals.count(address) == 0) {
            tables_->proxy(address, ports_[opposite(side)].index, false);
        }
    }
    for (const auto& [address, side] : locals) {
        if (hosts_.count(address) > 0) {
            forget(address);
        }
        tables_->proxy(address, ports_[opposite(side)].index, true);
    }
    locals_ = std::move(locals);
}

void Relay::forget_strangers() {
    std::vector<in6_addr> strangers;
    for (const auto& [address, side] : hosts_) {
        if (!is_shared(address)) {
            strangers.push_back(address);
        }
    }
    for (const in6_addr& address : strangers) {
        forget(address);
    }
}

void Relay::refresh() {
    const std::vector<LocalAddress> addresses = tables_->addresses();
    own_prefixes_.clear();
    link_address_ = in6addr_any;
    for (const LocalAddress& each : addresses) {
        const bool up = each.ifindex == ports_[kUp].index;
        if ((!up && each.ifindex != ports_[kDown].index) || !is_routable(each.address)) {
            continue;
        }
        if (each.prefix < kHostLength) {
            own_prefixes_.push_back({each.address, each.prefix});
        }
        if (up && each.usable) {
            link_address_ = each.address;
        }
    }
    forget_strangers();
    refresh_locals(addresses);
    for (const Neighbor& neighbor : tables_->neighbors()) {
        notice(neighbor);
    }
    tables_->downlink_rules(ports_[kDown].index, uplink_table_, true);
}

void Relay::look_after_hosts() {
    next_look_ = Clock::now() + kLookInterval;
    for (const auto& [address, side] : hosts_) {
        tables_->look_for(address, ports_[side].index);
    }
}

int Relay::milliseconds_to_wait() const {
    const auto next = solicitations_left_ > 0 ? std::min(next_look_, next_solicitation_) : next_look_;
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now());
    return static_cast<int>(std::max<std::chrono::milliseconds::rep>(wait.count(), 0));
}

void Relay::work_by_time() {
    const auto now = Clock::now();
    if (solicitations_left_ > 0 && now >= next_solicitation_) {
        solicit_router();
    }
    if (now >= next_look_) {
        look_after_hosts();
    }
}

std::vector<Relay::Source> Relay::sources() {
    const bool all = mode_ == Mode::All;
    return {
        {events_->fd(), [this] { read_events(); }},
        {ports_[kUp].tap.fd(), [this] { hear_neighbors(kUp); }},
        {ports_[kDown].tap.fd(), [this] { hear_neighbors(kDown); }},
        {all ? ports_[kUp].icmp.fd() : -1, [this] { hear_router(); }},
        {all ? ports_[kDown].icmp.fd() : -1, [this] { hear_router_solicitation(); }},
        {ports_[kUp].dhcp.fd(), [this] { hear_dhcp_server(); }},
        {ports_[kDown].dhcp.fd(), [this] { hear_dhcp_client(); }},
    };
}

void Relay::read_events() {
    const auto is_ours = [this](unsigned int index) {
        return index == ports_[kUp].index || index == ports_[kDown].index;
    };
    const Watcher watcher{[this](const Neighbor& each) { notice(each); }, [this] { stale_ = true; },
                          [this, is_ours](unsigned int index) { gone_ = gone_ || is_ours(index); },
                          [this] { stale_ = true; }};
    if (!events_->read(watcher)) {
        stale_ = true;
    }
}

bool Relay::run(int signals) {
    const std::vector<Source> heard = sources();
    std::vector<pollfd> waiting;
    waiting.reserve(heard.size() + 1);
    for (const Source& each : heard) {
        waiting.push_back({each.fd, POLLIN, 0});
    }
    waiting.push_back({signals, POLLIN, 0});
    while (!gone_) {
        if (std::exchange(stale_, false)) {
            refresh();
        }
        (void)poll(waiting.data(), waiting.size(), milliseconds_to_wait());
        if (waiting.back().revents != 0) {
            return true;
        }
        for (std::size_t i = 0; i < heard.size(); ++i) {
            waiting[i].revents != 0 ? heard[i].work() : void();
        }
        work_by_time();
    }
    std::cerr << "6relayd: a device is gone\n";
    return false;
}

void Relay::end() {
    if (!last_advertisement_.empty()) {
        end_router_lifetime(last_advertisement_);
        (void)send_to(ports_[kDown].icmp, ports_[kDown].index, kAllNodes, 0, last_advertisement_);
    }
    tables_->clean(ports_[kUp].index, ports_[kDown].index);
}

}  // namespace relay6
