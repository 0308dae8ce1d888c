#!/bin/bash
# The faults of uplink_faults.sh around the addressing of an RGLink.
set -euo pipefail
NM_KIND=RGLINK exec "$(dirname "${BASH_SOURCE[0]}")/uplink_faults.sh"
