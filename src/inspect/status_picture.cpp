// The state of the device as a picture to be printed: the uplinks above, the device with its ports between,
// the LANs below. It reads without colours: each state is a word as well.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <functional>
#include <string>

#include "inspect/status.h"

namespace {

// Of an A4 page in pixels of 1/96 inch.
constexpr double kWidth = 794;
constexpr double kHeight = 1123;
constexpr double kMargin = 40;
constexpr double kInner = kWidth - 2 * kMargin;
constexpr Json::ArrayIndex kColumns = 3;
constexpr double kGap = 18;
constexpr double kBoxWidth = (kInner - kGap * (kColumns - 1)) / kColumns;
constexpr double kBoxHeight = 114;
constexpr Json::ArrayIndex kMostBoxes = 60;

constexpr const char* kGood = "#1b7a2f";
constexpr const char* kBad = "#c02020";
constexpr const char* kUnsure = "#777777";

/// The length of the character of UTF-8 at `place`; 0 if there is none that XML may hold.
size_t character_at(const std::string& text, size_t place) {
    const auto byte = [&text](size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
    };
    const unsigned int first = byte(place);
    if (first < 0x80) {
        return first >= 0x20 && first != 0x7f ? 1 : 0;
    }
    const size_t length = first >= 0xf0 && first < 0xf5 ? 4 : first >= 0xe0 ? 3 : first >= 0xc2 ? 2 : 0;
    if (length == 0 || first >= 0xf5) {
        return 0;
    }
    unsigned int code = first & (0xffU >> (length + 1));
    for (size_t i = 1; i < length; ++i) {
        if ((byte(place + i) & 0xc0U) != 0x80) {
            return 0;
        }
        code = code << 6 | (byte(place + i) & 0x3fU);
    }
    constexpr std::array<unsigned int, 5> kLeast{0, 0, 0x80, 0x800, 0x10000};
    const bool is_surrogate = code >= 0xd800 && code < 0xe000;
    return code < kLeast[length] || code > 0x10ffff || is_surrogate || (code & 0xfffeU) == 0xfffe ? 0
                                                                                                  : length;
}

/// A text for XML, cut to so many characters; what is not a character becomes a question mark.
std::string xml_text(const std::string& text, size_t most) {
    std::string shown;
    size_t place = 0;
    for (size_t count = 0; place < text.size() && count < most; ++count) {
        const size_t length = character_at(text, place);
        switch (length == 0 ? '?' : text[place]) {
            case '&':
                shown += "&amp;";
                break;
            case '<':
                shown += "&lt;";
                break;
            case '>':
                shown += "&gt;";
                break;
            default:
                shown += length == 0 ? "?" : text.substr(place, length);
        }
        place += std::max<size_t>(length, 1);
    }
    return place < text.size() ? shown + "…" : shown;
}

std::string number(double value) {
    std::array<char, 32> text{};
    (void)snprintf(text.data(), text.size(), "%d", static_cast<int>(std::lround(value)));
    return text.data();
}

struct Spot {
    double x;
    double y;
};

/// The place of number `i` in a grid of so many columns.
Spot grid_spot(Json::ArrayIndex i, Json::ArrayIndex columns, Spot step) {
    const Json::ArrayIndex row = i / columns;
    return {(i % columns) * step.x, row * step.y};
}

Json::ArrayIndex rows_of(Json::ArrayIndex count, Json::ArrayIndex columns) {
    return (count + columns - 1) / columns;
}

/// The shapes of a picture, as they are added.
class Picture {
public:
    void box(Spot at, double width, double height, const char* fill, const char* edge) {
        shapes_ += "<rect x=\"" + number(at.x) + "\" y=\"" + number(at.y) + "\" width=\"" + number(width) +
                   "\" height=\"" + number(height) + "\" rx=\"5\" fill=\"" + fill + "\" stroke=\"" + edge +
                   "\"/>\n";
    }
    void line(Spot from, Spot to) {
        shapes_ += "<path d=\"M" + number(from.x) + " " + number(from.y) + " L" + number(to.x) + " " +
                   number(to.y) + "\" stroke=\"#444444\" stroke-width=\"2\"/>\n";
    }
    /// About as much of the text as fits into `width`.
    void text(Spot at, double size, const std::string& words, double width, const char* more = "") {
        constexpr double kCharacter = 0.6;
        const auto most = static_cast<size_t>(std::max(1.0, width / (size * kCharacter)));
        shapes_ += "<text x=\"" + number(at.x) + "\" y=\"" + number(at.y) + "\" font-size=\"" + number(size) +
                   "\"" + more + ">" + xml_text(words, most) + "</text>\n";
    }
    std::string page(double height) const {
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
               "<svg xmlns=\"http://www.w3.org/2000/svg\" version=\"1.1\" width=\"210mm\" height=\"" +
               number(height * 210 / kWidth) + "mm\" viewBox=\"0 0 " + number(kWidth) + " " + number(height) +
               "\" font-family=\"DejaVu Sans, Arial, sans-serif\" fill=\"#111111\">\n"
               "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n" +
               shapes_ + "</svg>\n";
    }

private:
    std::string shapes_;
};

std::string text_of(const Json::Value& record, const char* key) {
    return record.get(key, "").asString();
}

std::string address_of(const Json::Value& family) {
    const std::string address = text_of(family, "address");
    return address.empty() ? "" : address + "/" + std::to_string(family["prefix_bits"].asUInt());
}

const char* colour_of(const std::string& state) {
    return state == "up" ? kGood : state == "down" ? kBad : kUnsure;
}

/// A box: a heading with a state, and lines below it.
void draw_box(Picture& picture, Spot at, const std::string& heading, const std::string& state,
              const std::vector<std::string>& lines) {
    constexpr double kBar = 9, kHeading = 14, kLine = 11, kStep = 17, kState = 60;
    picture.box(at, kBoxWidth, kBoxHeight, "#fbfbfb", "#444444");
    picture.box(at, kBar, kBoxHeight, colour_of(state), "none");
    const double x = at.x + kBar + 8;
    const double width = kBoxWidth - kBar - 16;
    picture.text({x, at.y + 20}, kHeading, heading, width - kState, " font-weight=\"bold\"");
    picture.text({at.x + kBoxWidth - 8, at.y + 20}, kHeading, state, kState, " text-anchor=\"end\"");
    double y = at.y + 20;
    for (const std::string& words : lines) {
        y += words.empty() ? 0 : kStep;
        words.empty() ? void() : picture.text({x, y}, kLine, words, width);
    }
}

/// Boxes in rows from `top` on; where they end. What is beyond the most that anybody hangs up is counted.
double draw_boxes(Picture& picture, double top, const Json::Value& list,
                  const std::function<void(Spot at, const Json::Value& record)>& draw) {
    const Json::ArrayIndex shown = std::min(list.size(), kMostBoxes);
    constexpr Spot kStep{kBoxWidth + kGap, kBoxHeight + kGap};
    for (Json::ArrayIndex i = 0; i < shown; ++i) {
        const Spot spot = grid_spot(i, kColumns, kStep);
        draw({kMargin + spot.x, top + spot.y}, list[i]);
    }
    double end = top + rows_of(shown, kColumns) * kStep.y;
    if (shown < list.size()) {
        picture.text({kMargin, end + 10}, 12, "and " + std::to_string(list.size() - shown) + " more", kInner);
        end += 24;
    }
    return end;
}

/// The share of new connections and what the monitor says; of a port that is not balanced, only the latter.
std::string balance_words(const Json::Value& uplink) {
    std::array<char, 24> share{};
    (void)snprintf(share.data(), share.size(), "share %.0f %%, ", uplink["weight_percent"].asDouble());
    return (uplink["rate_bit_per_s"].asUInt64() > 0 ? share.data() : "") + std::string("monitor: ") +
           text_of(uplink, "health");
}

void draw_uplink(Picture& picture, Spot at, const Json::Value& uplink) {
    const std::string gateway = text_of(uplink["ip4"], "gateway");
    draw_box(picture, at, text_of(uplink, "port") + " " + text_of(uplink, "kind"),
             uplink["up"].asBool() ? "up" : "down",
             {text_of(uplink, "traffic_interface") + "  " + text_of(uplink["ip4"], "type"),
              address_of(uplink["ip4"]), gateway.empty() ? "" : "via " + gateway, address_of(uplink["ip6"]),
              balance_words(uplink)});
}

void draw_lan(Picture& picture, Spot at, const Json::Value& lan) {
    std::string members;
    for (const Json::Value& member : lan["members"]) {
        members += (members.empty() ? "" : ", ") + member.asString();
    }
    draw_box(picture, at, text_of(lan, "interface"), text_of(lan, "link"),
             {address_of(lan["ip4"]), address_of(lan["ip6"]), members,
              "DHCP: " + text_of(lan, "dhcp") + ", clients: " + std::to_string(lan["clients"].size())});
}

/// The device as one sees it from the front: a square for each port. Where it ends.
double draw_device(Picture& picture, double top, const Json::Value& report) {
    constexpr Json::ArrayIndex kAcross = 10;
    constexpr double kPort = 64, kHead = 34;
    constexpr Spot kStep{70, 50};
    const Json::Value& ports = report["ports"];
    const double height =
        kHead + std::max<Json::ArrayIndex>(1, rows_of(ports.size(), kAcross)) * kStep.y + 10;
    picture.box({kMargin, top}, kInner, height, "#eef1f5", "#222222");
    picture.text({kMargin + 12, top + 23}, 16, text_of(report, "host"), kInner / 2, " font-weight=\"bold\"");
    for (Json::ArrayIndex i = 0; i < ports.size(); ++i) {
        const Spot spot = grid_spot(i, kAcross, kStep);
        const Spot at{kMargin + 10 + spot.x, top + kHead + spot.y};
        const std::string link = text_of(ports[i], "link");
        picture.box(at, kPort, 42, "#ffffff", colour_of(link));
        picture.text({at.x + 5, at.y + 17}, 11, text_of(ports[i], "port"), kPort - 8,
                     " font-weight=\"bold\"");
        picture.text({at.x + 5, at.y + 33}, 9, text_of(ports[i], "kind") + " " + link, kPort - 6);
    }
    return top + height;
}

/// A line from each column that has a box to the device.
void draw_cables(Picture& picture, Json::ArrayIndex boxes, double from, double to) {
    for (Json::ArrayIndex column = 0; column < std::min(boxes, kColumns); ++column) {
        const double x = kMargin + column * (kBoxWidth + kGap) + kBoxWidth / 2;
        picture.line({x, from}, {x, to});
    }
}

std::string failed_units(const Json::Value& units) {
    std::string failed;
    for (const Json::Value& unit : units) {
        failed += unit["state"] == "failed" ? (failed.empty() ? "" : ", ") + text_of(unit, "unit") : "";
    }
    return failed.empty() ? "none" : failed;
}

std::string servers_of(const Json::Value& names) {
    std::string servers;
    for (const Json::Value& server : names["servers"]) {
        const std::string address = text_of(server, "address");
        const bool is_new = servers.find(address) == std::string::npos;
        servers += is_new ? (servers.empty() ? "" : ", ") + address : "";
    }
    return servers.empty() ? "none" : servers;
}

/// The lines at the end. Where they end.
double draw_notes(Picture& picture, double top, const Json::Value& report) {
    std::vector<std::string> notes{"Name servers: " + servers_of(report["names"]),
                                   "Failed units: " + failed_units(report["units"])};
    if (report.isMember("denied_packets")) {
        notes.push_back("Packets that the firewall denied: " + report["denied_packets"].asString());
    }
    for (const Json::Value& part : report["unread"]) {
        notes.push_back("Not looked at: " + text_of(part, "what") + " (" + text_of(part, "reason") + ")");
    }
    for (const std::string& note : notes) {
        top += 18;
        picture.text({kMargin, top}, 12, note, kInner);
    }
    return top;
}

}  // namespace

std::string draw_status(const Json::Value& report) {
    constexpr double kCable = 26;
    Picture picture;
    picture.text({kMargin, 62}, 26, text_of(report, "host"), kInner, " font-weight=\"bold\"");
    picture.text({kMargin, 84}, 12,
                 "as of " + text_of(report, "time") + (report["booted"].asBool() ? "" : ", not booted yet"),
                 kInner);
    const Json::Value& uplinks = report["uplinks"];
    const Json::Value& lans = report["lans"];
    double y = draw_boxes(picture, 108, uplinks,
                          [&](Spot at, const Json::Value& uplink) { draw_uplink(picture, at, uplink); });
    draw_cables(picture, uplinks.size(), y - kGap, y + kCable);
    y = draw_device(picture, y + kCable, report);
    draw_cables(picture, lans.size(), y, y + kCable + kGap);
    y = draw_boxes(picture, y + kCable + kGap, lans,
                   [&](Spot at, const Json::Value& lan) { draw_lan(picture, at, lan); });
    y = draw_notes(picture, y, report);
    return picture.page(std::max(kHeight, y + kMargin));
}
