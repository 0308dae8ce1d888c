#!/bin/bash
# bench/firewall.sh on the kernel that has the target VTARGET. The processor is emulated: ratios count.
exec "${BASH_SOURCE[0]%/*}/../firewall.sh"
