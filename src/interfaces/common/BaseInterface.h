// The device side of a port during one setup call: built from the configuration, used for one operation and
// destroyed. Nothing survives in memory between calls.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

#pragma GCC visibility push(default)

/// What all kinds of ports share. Constructors report failure by throwing an `int` result code.
class BaseInterface {
public:
    /// Throws NM_ERR_NULL_ARG for an empty port or path.
    BaseInterface(std::string port, std::string path);
    virtual ~BaseInterface() = default;

    virtual int add_if(uint32_t opt) = 0;
    virtual int del_if(uint32_t opt) = 0;
    virtual int alt_if(uint32_t opt) = 0;

    /// Kernel interface name.
    std::string get_interface();
    /// Physical port, "NONE" if hw_port_info.json does not know the port.
    std::string get_hw_port();
    std::string get_portname();

protected:
    /// Reads what the entries of all kinds have in common: interface, MTU, device type and physical port.
    void read_port_entry(const Json::Value& entry);

    int mtu = 0;
    std::string path;
    std::string dev_type;
    std::string hw_port;
    std::string interface;
    std::string portname;
};

/// What the routed kinds (WAN, private, RGLink) share.
class BaseWanInterface : public BaseInterface {
public:
    /// Reads the port's entry from `cfg`, or from the document at `path` if `cfg` is empty. `type` is the
    /// kind of port (KIND_WAN, ...). Throws NM_ERR_NULL_ARG, NM_ERR_NO_SECTION, NM_ERR_NOT_FOUND,
    /// NM_ERR_BAD_TYPE.
    BaseWanInterface(int type, std::string port, std::string path, Json::Value cfg);

    /// Removes what the addressing side of the port set up.
    virtual int del_info(uint32_t opt) = 0;
    /// Applies the link settings that `opt` names; the common step of add and alter.
    virtual int setup_if(uint32_t opt) = 0;

    /// Loads `path` and reads the entry. 0, NM_ERR_NOT_FOUND whatever the read said, or the reader's code.
    int get_config();
    /// Reads the entry. 0; NM_ERR_NO_SECTION; NM_ERR_BAD_FORMAT for an entry that is not an object;
    /// NM_ERR_BAD_TYPE for a kind that has no section.
    int get_config_from_json(Json::Value cfg);

    /// Priority among the uplinks.
    int get_prio();
    /// Rates in bits per second.
    unsigned long get_rx_rate();
    unsigned long get_tx_rate();

    /// Nothing to do here: it keeps OPT_EDMA harmless on routed ports.
    int set_edma();

protected:
    int prio = 0;
    int type;
    std::string group_id;  // `PRIVATE_GROUP_ID`, which private ports alone have
    unsigned long rx_rate = 0;
    unsigned long tx_rate = 0;
};

/// Repairs one `*_PORT` section in place: a rate that is absent or no string becomes the port's line speed.
/// `changed` is set when something was repaired and left alone otherwise. Always 0.
int check_base_wan_interface_format(std::string section, Json::Value& root, bool& changed);

#pragma GCC visibility pop
