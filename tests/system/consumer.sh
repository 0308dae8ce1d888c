#!/bin/bash
# What a caller of the installed library gets: a program of a dozen lines builds in both usual ways, at the
# real prefix and staged elsewhere, and the library exports what its headers promise and nothing else.
set -euo pipefail

source "$(dirname "${BASH_SOURCE[0]}")/../support/world.sh"

source_dir=$(cd "$support_dir/../.." && pwd -P)
readonly BUILD=${NM_BUILD_DIR:-$source_dir/build}
readonly CONSUMER=$source_dir/tests/system/consumer
LIBDIR=$(sed -n 's/^CMAKE_INSTALL_LIBDIR:.*=//p' "$BUILD/CMakeCache.txt")
readonly LIBDIR LIBRARY=$BUILD/lib/libnetworkinterface.so.1
# What callers find by name, besides the handlers of the bus.
readonly ENTRIES=(Add_hosts Del_hosts Get_dhcp_client_table Lease6_event Lease_event Reload_dnat Reload_lan_ipv6
    Reload_static_route Reload_tcpmss Setup_dhcpservice Setup_lanif Setup_laninfo Setup_privateif Setup_privateinfo Setup_rglinkif Setup_rglinkinfo
    Setup_misc Setup_services Setup_topology Setup_vlanbr Setup_wanif Setup_waninfo Update_rglink_info
    setup_all_iface_by_config)
# What nm_bin applies from a new and an old document by functions of the library.
readonly APPLIES=(Apply_dnat Apply_firewall Apply_policy Apply_segment Apply_static_route Apply_static_route6)

: >/run/network/.boot_fin

by_cmake() {
    cmake -S "$CONSUMER" -B "$2" -G Ninja -DCMAKE_PREFIX_PATH="$1" -DCMAKE_CXX_STANDARD=14 -DCMAKE_CXX_FLAGS="-Wall -Wextra -Werror" &&
        cmake --build "$2"
}

by_pkg_config() {
    local flags
    mkdir "$2"
    read -r -a flags < <(PKG_CONFIG_PATH=$1/$LIBDIR/pkgconfig pkg-config --cflags --libs networkinterface)
    g++ -std=c++14 -Wall -Wextra -Werror -o "$2/consumer" "$CONSUMER/main.cpp" "${flags[@]}"
}

# try PREFIX WAY: builds the caller one way and runs it.
try() {
    local dir=$scratch/$2${1//\//_}
    check "$1, $2: builds" "$2" "$1" "$dir"
    same "$1, $2: runs" "-1012 NM_ERR_BAD_FORMAT" "$(LD_LIBRARY_PATH=$1/$LIBDIR "$dir/consumer" 2>&1)"
    same "$1, $2: needs the library by its soname" libnetworkinterface.so.1 \
        "$(objdump -p "$dir/consumer" 2>&1 | awk '$1 == "NEEDED" && /networkinterface/ {print $2}')"
}

try /usr by_cmake
try /usr by_pkg_config
check "the declared test of the development packages" "$source_dir/debian/tests/build-caller"
# The real prefix must not help out.
find /usr -xdev \( -path '*/include/networkinterface' -o -path '*/cmake/networkinterface' -o -name vservice.h \
    -o -name vpppoe.h -o -name networkinterface.pc -o -name 'libnetworkinterface*' -o -name 'libv[sp]*.so*' \) \
    -not -path "$source_dir/*" -exec rm -rf {} +
cmake --install "$BUILD" --prefix /opt/stage >/dev/null
try /opt/stage by_cmake
try /opt/stage by_pkg_config
cd /opt/stage/include/networkinterface
same "the umbrella header reaches all that is installed beside it" "$(find . -name '*.h' -printf '%P\n' | sort)" \
    "$(g++ -std=c++17 -MM -I. -isystem /usr/include/jsoncpp networkinterface.h | grep -oE '[^ ]+\.h' | sort)"
cd - >/dev/null
same "installed files do not name the build machine's directories" "" \
    "$(grep -rlF -e "$source_dir" -e "$BUILD" /opt/stage || true)"

programs=$(find /opt/stage/sbin /opt/stage/bin -type f -printf '%f\n' | paste -sd '|')
same "units, hooks and profiles name what is installed by its prefix" "" \
    "$(grep -rnE "/usr/(s?bin/($programs)([^a-z_-]|\$)|lib/networkmanagement)" "$source_dir"/platform/{units,apparmor,vpppoe/{session,link-event,*.service},peers/*.service} || true)"

mapfile -t handlers < <("$BUILD/bin/nm_serviced" --methods | sed -n 's/^| `\([A-Za-z0-9_]*\)`.*/\1/p')
same "the names with C linkage are the entries and the handlers" \
    "$(printf '%s\n' "${ENTRIES[@]}" "${handlers[@]}" | sort | xargs)" \
    "$(nm -D --defined-only "$LIBRARY" | awk '$2 == "T" && $3 !~ /^_Z/ {print $3}' | sort | xargs)"
same "nm_bin has a command for each entry and each document" "$(printf '%s\n' "${ENTRIES[@]}" "${APPLIES[@]}" | sort | xargs)" \
    "$("$BUILD/bin/nm_bin" --help | sed -n '/^commands:/,/^$/s/^  \([A-Z][A-Za-z0-9_]*\|setup_[a-z_]*\)\( .*\)\{0,1\}$/\1/p' | sort | xargs)"
same "nothing of the logging library is exported" "" \
    "$(nm -DC --defined-only "$LIBRARY" | grep -E '(^|[^A-Za-z0-9_])el::' | cut -c 18-120 || true)"
printf '%s\n' '#include <dlfcn.h>' 'int main(void) { void* it = dlopen("libnetworkinterface.so.1", RTLD_NOW);' \
    'return it == 0 || dlclose(it) != 0 || dlopen("libnetworkinterface.so.1", RTLD_NOW | RTLD_NOLOAD) != 0; }' |
    gcc -x c -o "$scratch/unload" -
check "it can be loaded and unloaded" env LD_LIBRARY_PATH="/opt/stage/$LIBDIR" "$scratch/unload"
same "no function outside of a namespace stays inside" "" "$(nm -C --defined-only "$LIBRARY" |
    sed -n 's/^[0-9a-f]* t \([A-Za-z_].*(.*)\)$/\1/p' | grep -vE '::|^_' || true)"
finish
