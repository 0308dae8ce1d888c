// The steps of a boot beside the bring-up, for whoever goes through a boot without one.
#pragma once

#include <networkinterface.h>

namespace nm_bin {

/// What "boot begin" and "boot finish" do, without log and migrations.
boot_steps steps_of_boot();

}  // namespace nm_bin
