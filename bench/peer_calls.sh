#!/bin/bash
# Calls to peers against a bare exchange on the same kind of socket, and changes of the hosts file.
set -euo pipefail

exec "${NM_BUILD_DIR:-build}/bin/bench_peer_calls"
