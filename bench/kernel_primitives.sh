#!/bin/bash
# Addresses, routes, bridges and uplinks by the library against ip -batch, over a growing number of links.
set -euo pipefail

exec "${NM_BUILD_DIR:-build}/bin/bench_kernel_primitives"
