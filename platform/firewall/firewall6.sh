#!/bin/bash
# The IPv6 half of firewall.sh, under the name by which it is called.
exec "${BASH_SOURCE[0]%/*}/firewall.sh" "$@"
