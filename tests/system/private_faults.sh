#!/bin/bash
# The faults of uplink_faults.sh around the addressing of a private port.
set -euo pipefail
NM_KIND=PRIVATE exec "$(dirname "${BASH_SOURCE[0]}")/uplink_faults.sh"
