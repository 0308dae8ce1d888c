// The section `TOPOLOGY` of the device document: how the site takes part in the overlay.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

#pragma GCC visibility push(default)

/// One type of the section during one setup call.
class TopologyBase {
public:
    /// Reads the type's entry from the document at `path`. Without document or entry the value stays null,
    /// which is what an entry without a word means; a document that is missing or broken is logged.
    TopologyBase(std::string type, std::string path, uint32_t opt, uint32_t act);
    virtual ~TopologyBase() = default;

    /// Applies the entry. 0, as there is nothing that all types have in common.
    virtual int setup();

    std::string get_type() const;
    std::string get_conf_path() const;
    uint32_t get_opt() const;
    uint32_t get_act() const;
    Json::Value get_value() const;

private:
    void read_value();

    std::string type;
    std::string path;
    uint32_t opt;
    uint32_t act;
    Json::Value value;
};

/// Whether the site's IPsec daemon runs: `ENABLE` of the type "VPN", "TRUE" or anything else.
class Vpn : public TopologyBase {
public:
    Vpn(std::string type, std::string path, uint32_t opt, uint32_t act);

    /// Bit 0 of `opt` starts or stops the daemon (`rmgmtd`); once the device has booted, the site's
    /// information is then configured anew in the background. 0, or a code of vservice_call().
    int setup() override;

    bool get_vpn_enable() const;

private:
    bool vpn_enable;
};

#pragma GCC visibility pop
