// Words of a setup request: what is to happen to a target, and which aspects of it changed.
#pragma once

#include <cstdint>

/// Actions (`act`).
constexpr uint32_t ACT_ADD = 1;
constexpr uint32_t ACT_DEL = 2;
constexpr uint32_t ACT_ALT = 3;

/// Bits of the change mask (`ops` in a request, `opt` in functions).
constexpr uint32_t OPT_IP4 = 0x01;
constexpr uint32_t OPT_IP6 = 0x02;
constexpr uint32_t OPT_LINK = 0x04;
constexpr uint32_t OPT_IP6_SERVICE = 0x08;
constexpr uint32_t OPT_RATE = 0x10;
constexpr uint32_t OPT_EDMA = 0x20;
constexpr uint32_t OPT_DHCP_CHECK = 0x80;
constexpr uint32_t OPT_NO_DHCP_REFRESH = 0x40000000;

/// The link state as given by a caller: the first bit says that it is given, the second one what it is.
constexpr uint32_t OPT_LINK_TOLD = 1U << 29;
constexpr uint32_t OPT_LINK_TOLD_UP = 1U << 28;

/// Kinds of routed ports.
constexpr int KIND_WAN = 1;
constexpr int KIND_PRIVATE = 2;
constexpr int KIND_RGLINK = 3;
