// The kernel's network devices: one include for all that is done to them.
#pragma once

#include "kernel/address.h"
#include "kernel/link.h"
#include "kernel/link_state.h"
