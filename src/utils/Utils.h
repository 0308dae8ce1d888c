// The process and file utilities that every subsystem stands on, under one name: locks, files, commands,
// units, processes, addresses, texts and facts about the device. None of them keeps state. Functions that
// return an int return 0 or a positive value on success and a code of result_codes.h on failure; those
// that return texts or lists return an empty one on failure. Only exec() throws.
#pragma once

#include "utils/containers.h"
#include "utils/device_facts.h"
#include "utils/directories.h"
#include "utils/files.h"
#include "utils/ip6_prefix.h"
#include "utils/ip_text.h"
#include "utils/json_keys.h"
#include "utils/local_addresses.h"
#include "utils/locks.h"
#include "utils/mac.h"
#include "utils/proc_lookup.h"
#include "utils/process.h"
#include "utils/resolv_conf.h"
#include "utils/strings.h"
#include "utils/units.h"
