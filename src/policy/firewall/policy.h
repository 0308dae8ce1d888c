// The policy document becomes the chain POLICY of the mangle table: rules that mark a packet with its QoS
// class. Its steering is the chain STEER, which setup_firewall() fills from the same documents.
#pragma once

#include <json/value.h>

#include <string>

#pragma GCC visibility push(default)

/// Replaces the rules of `old_config` by those of `new_config` as setup_firewall() does, with its results.
/// The chain begins by giving every packet the default class (`DEFAULT_CLASS` of qos.json, or 3), which a
/// rule then changes. A place of `SEGMENT_DEPLOYED` whose segment has no chain gets one of its own.
int setup_firewall_policy(Json::Value& old_config, Json::Value& new_config, std::string& error);

#pragma GCC visibility pop
