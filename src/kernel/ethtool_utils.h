// Ethernet settings of a port: speed, duplex, auto-negotiation, driver, receive offload (the SIOCETHTOOL
// ioctl, linux/ethtool.h). Kernels and drivers that do not know the link-settings request are asked and set
// by the older one, which knows the first 32 link modes only.
#pragma once

#include <linux/ethtool.h>
#include <net/if.h>

#include <cstdint>

#pragma GCC visibility push(default)

/// Words of a link-mode mask. Bit n of a mask is bit n % 32 of word n / 32 (ETHTOOL_LINK_MODE_*_BIT); the
/// kernel tells by a signed byte how many words it uses.
constexpr unsigned int LINK_MODE_WORDS = 127;

/// What a port runs at. Speed and duplex are 0 while the device is down or without a link.
struct physical_status {
    int speed;    ///< Mb/s; 0 for unknown
    int duplex;   ///< 1 full, 0 half
    int autoneg;  ///< 1 on
    uint32_t phy_support[LINK_MODE_WORDS];
    uint32_t phy_advertising[LINK_MODE_WORDS];
};

/// Fills `*status`. NM_ERR_NULL_ARG; NM_ERR_SOCKET; NM_ERR_IOCTL for a device that does not exist or has no
/// such settings.
int get_physical_info(const char* ifname, physical_status* status);

/// Advertises what belongs to `speed` (Mb/s) and `duplex` (1 full, 0 half), which are forced where the port
/// does not negotiate; whether it does stays as it is. Speed 0 turns negotiation on and advertises all that
/// the port supports, whatever the others say. NM_ERR_NULL_ARG for an empty name; NM_ERR_SOCKET;
/// NM_ERR_BAD_FORMAT for a pair that no link mode serves (2500 half; 20000); NM_ERR_IOCTL.
int set_physical_info(const char* ifname, int speed, int duplex, int autoneg);

/// Whether these are values that Ethernet has: 0 or NM_ERR_BAD_FORMAT. Speed 0 is allowed; a pair that
/// passes may still be refused when it is set.
int check_physical_format(int speed, int duplex, int autoneg);

/// Back to negotiating all that the port supports, and three seconds for the link to settle, in any case.
/// set_physical_info()'s codes.
int reset_ethernet_physical(const char* ifname);

/// The name of the driver into `driver`, a buffer of 32 bytes. NM_ERR_NULL_ARG, NM_ERR_SOCKET, NM_ERR_IOCTL.
int get_iface_driver(char* ifname, char* driver);

/// The highest speed that the port supports in Mb/s, 0 if it names none; get_physical_info()'s codes.
int get_eth_max_speed(char* ifname);

/// Switches generic receive offload. NM_ERR_NULL_ARG, NM_ERR_SOCKET, NM_ERR_IOCTL.
int set_eth_gro(const char* ifname, int on);

/// One request: the device and the socket to ask by.
struct cmd_ctx {
    char devname[IFNAMSIZ];
    int fd;
};

/// Link settings as both generations of the request have them.
struct ethtool_link_usettings {
    uint32_t speed;  ///< Mb/s, or SPEED_UNKNOWN
    uint8_t duplex;
    uint8_t autoneg;
    uint32_t supported[LINK_MODE_WORDS];
    uint32_t advertising[LINK_MODE_WORDS];
};

/// Reads the settings. 0 or NM_ERR_IOCTL.
int do_gset(cmd_ctx* ctx, physical_status* status);

/// Reads, changes and writes the settings by the same generation of request; set_physical_info()'s codes.
int do_sset(cmd_ctx* ctx, int speed, int duplex);

/// Stores the settings; speed and duplex only of a device that is running. 0.
int dump_link_usettings(const char* ifname, ethtool_link_usettings* settings, physical_status* status);

/// Stores in `advertised` (LINK_MODE_WORDS words) the link modes of the pair; with `first_word` only those
/// that the old request can carry. 0, or NM_ERR_BAD_FORMAT if there are none.
int check_physical_setting(int speed, int duplex, uint32_t* advertised, bool first_word);

#pragma GCC visibility pop
