#!/bin/bash
# The DHCP server's file with many reservations and the client table with many leases.
set -euo pipefail

exec "${NM_BUILD_DIR:-build}/bin/bench_dhcp_tables"
