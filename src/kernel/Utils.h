// The process and file utilities that every subsystem stands on, under one name: locks, files, commands,
// units, processes, addresses, texts and facts about the device. None of them keeps state. Functions that
// return an int return 0 or a positive value on success and a code of result_codes.h on failure; those
// that return texts or lists return an empty one on failure. Only exec() throws.
#pragma once

#include "kernel/utils/containers.h"
#include "kernel/utils/device_facts.h"
#include "kernel/utils/directories.h"
#include "kernel/utils/files.h"
#include "kernel/utils/ip_text.h"
#include "kernel/utils/json_keys.h"
#include "kernel/utils/local_addresses.h"
#include "kernel/utils/locks.h"
#include "kernel/utils/mac.h"
#include "kernel/utils/proc_lookup.h"
#include "kernel/utils/process.h"
#include "kernel/utils/resolv_conf.h"
#include "kernel/utils/strings.h"
#include "kernel/utils/units.h"
