// IPv6 prefixes: cutting addresses at them and moving addresses between them.
#include "utils/ip6_prefix.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>

#include "log.h"
#include "result_codes.h"
#include "utils/ip_text.h"

namespace {

constexpr int kBits = 128;
constexpr size_t kWords = 8;
constexpr int kWordBits = 16;

bool parse(const std::string& text, in6_addr& address) {
    return text.find('\0') == std::string::npos && inet_pton(AF_INET6, text.c_str(), &address) == 1;
}

std::string text_of(const in6_addr& address) {
    char text[INET6_ADDRSTRLEN];
    return inet_ntop(AF_INET6, &address, text, sizeof(text));
}

in6_addr cut(in6_addr address, int length) {
    get_ip6_subnet(address, &address, length);
    return address;
}

bool is_equal(const in6_addr& one, const in6_addr& other) {
    return memcmp(&one, &other, sizeof(one)) == 0;
}

/// Of two addresses of which the first has all bits of the second: those that the second lacks.
in6_addr subtract(in6_addr from, const in6_addr& part) {
    std::transform(std::begin(from.s6_addr), std::end(from.s6_addr), std::begin(part.s6_addr),
                   std::begin(from.s6_addr),
                   [](uint8_t a, uint8_t b) { return static_cast<uint8_t>(a - b); });
    return from;
}

in6_addr join(in6_addr one, const in6_addr& other) {
    std::transform(std::begin(one.s6_addr), std::end(one.s6_addr), std::begin(other.s6_addr),
                   std::begin(one.s6_addr), [](uint8_t a, uint8_t b) { return static_cast<uint8_t>(a | b); });
    return one;
}

/// The words behind the prefix, of one that ends within a word those behind that word.
std::vector<std::string> words_behind(const in6_addr& address, int length) {
    std::vector<std::string> words;
    for (size_t i = static_cast<size_t>(length + kWordBits - 1) / kWordBits; i < kWords; ++i) {
        char text[5];
        snprintf(text, sizeof(text), "%x", address.s6_addr[2 * i] << 8 | address.s6_addr[2 * i + 1]);
        words.emplace_back(text);
    }
    return words;
}

bool read_word(const std::string& text, uint16_t& word) {
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, word, 16);
    return error == std::errc() && rest == end;
}

/// The address whose last words these are. False for one that is no word, or for too many.
bool read_words(const std::vector<std::string>& words, in6_addr& address) {
    address = {};
    const size_t offset = kWords - std::min(words.size(), kWords);
    NM_LOG(Debug) << "len: " << kWords << "; subnet_id_v.size(): " << words.size() << "; offset: " << offset;
    for (size_t i = 0; i < words.size(); ++i) {
        uint16_t word = 0;
        if (words.size() > kWords || !read_word(words[i], word)) {
            return false;
        }
        address.s6_addr[2 * (offset + i)] = static_cast<uint8_t>(word >> 8);
        address.s6_addr[2 * (offset + i) + 1] = static_cast<uint8_t>(word & 0xff);
    }
    return true;
}

int bad_address(const std::string& text) {
    NM_LOG(Error) << "The value of ipv6 address is wrong! " << text;
    return NM_ERR_BAD_IP;
}

int bad_length() {
    NM_LOG(Error) << "Bad prefix.";
    return NM_ERR_BAD_PREFIX;
}

/// Reads the address and the delegated prefix that it has to lie in, which goes into `parts` as well.
int check_address(const std::string& addr, const std::string& routing, IP6_ADDR_OBJ& parts, in6_addr& address,
                  in6_addr& delegated) {
    const int ret = nm::split_ip6_prefix(routing, parts.routing_prefix, parts.routing_prefix_len);
    if (ret != NM_OK) {
        return ret;
    }
    if (!parse(addr, address) || !parse(parts.routing_prefix, delegated)) {
        return bad_address(addr);
    }
    if (parts.prefix_len > kBits) {
        return bad_length();
    }
    if (!is_equal(cut(address, parts.routing_prefix_len), delegated)) {
        NM_LOG(Error) << "IPv6 address should be in the range of routing prefix!"
                      << " routing prefix: " << routing << ", IPv6 Address: " << addr;
        return NM_ERR_BAD_PREFIX;
    }
    return NM_OK;
}

}  // namespace

std::string get_ip6_prefix_addr(const char* addr, unsigned char prefix) {
    in6_addr address = {};
    if (addr == nullptr || prefix > kBits || !parse(addr, address)) {
        return "";
    }
    return text_of(cut(address, prefix));
}

int nm::split_ip6_prefix(const std::string& text, std::string& prefix, unsigned char& length) {
    const size_t slash = text.find('/');
    in6_addr address = {};
    if (slash == std::string::npos || !parse(text.substr(0, slash), address)) {
        return bad_address(text);
    }
    int bits = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data() + slash + 1, end, bits);
    if (error != std::errc() || rest != end || bits < 0 || bits > kBits) {
        return bad_length();
    }
    prefix = text_of(cut(address, bits));
    length = static_cast<unsigned char>(bits);
    return NM_OK;
}

int cast_ip6_addr_to_obj(std::string addr, unsigned char prefix, std::string routing, IP6_ADDR_OBJ* obj) {
    NM_LOG(Debug) << "Enter";
    if (obj == nullptr) {
        return NM_EXIT(NM_ERR_NULL_ARG);
    }
    IP6_ADDR_OBJ parts;
    parts.prefix_len = prefix;
    in6_addr address = {};
    in6_addr delegated = {};
    const int ret = check_address(addr, routing, parts, address, delegated);
    if (ret != NM_OK) {
        return NM_EXIT(ret);
    }
    // A LAN with a shorter prefix than its delegation has no bits of its own between the two.
    const in6_addr network = cut(address, std::max(prefix, parts.routing_prefix_len));
    in6_addr words = {};
    parts.network_prefix = text_of(cut(address, prefix));
    parts.subnet_id = words_behind(subtract(network, delegated), parts.routing_prefix_len);
    (void)read_words(parts.subnet_id, words);  // they were written here
    parts.interface_id = text_of(subtract(subtract(address, delegated), words));
    *obj = parts;
    return NM_EXIT(NM_OK);
}

int cast_ip6_obj_to_addr(IP6_ADDR_OBJ* obj, std::string& addr) {
    NM_LOG(Debug) << "Enter";
    if (obj == nullptr) {
        return NM_EXIT(NM_ERR_NULL_ARG);
    }
    in6_addr delegated = {};
    in6_addr words = {};
    in6_addr host = {};
    if (!parse(obj->routing_prefix, delegated) || !read_words(obj->subnet_id, words) ||
        !parse(obj->interface_id, host)) {
        return NM_EXIT(bad_address(obj->routing_prefix));
    }
    if (obj->routing_prefix_len > kBits) {
        return NM_EXIT(bad_length());
    }
    const in6_addr own = join(words, host);
    if (!is_equal(cut(own, obj->routing_prefix_len), in6_addr{})) {
        NM_LOG(Error) << "The subnet does not fit into " << obj->routing_prefix << "/"
                      << static_cast<int>(obj->routing_prefix_len);
        return NM_EXIT(NM_ERR_BAD_PREFIX);
    }
    addr = text_of(join(cut(delegated, obj->routing_prefix_len), own));
    return NM_EXIT(NM_OK);
}
