#!/usr/bin/env bash
# What a port is begun with and judged by, from the installed tree $1 alone: the stub compiles, and the conformance programs
# pass for the minimal platform, which is the build folder's or $2, and for the installed host platform.
. "$(dirname "${BASH_SOURCE[0]}")/stage.sh"
kit=$tree/share/mcastcommon/porting
drivers=$here/../porting

gcc -std=c11 -Wall -Wextra -Wpedantic -Werror -shared -fPIC -I "$tree/include/mcastcommon" -o "$work/libstub.so" "$kit/stub.c" ||
    fail "the stub does not compile"

judge() { # name, driver (with ; between its files), library
    cmake -S "$kit" -B "$work/$1" -G Ninja -DPORT_DRIVER="$2" -DPORT_LIBRARIES="$3" >"$work/log" 2>&1 &&
        cmake --build "$work/$1" >>"$work/log" 2>&1 &&
        ctest --test-dir "$work/$1" --output-on-failure >>"$work/log" 2>&1 || { cat "$work/log"; fail "the $1 platform fails"; }
    grep -q "100% tests passed, 0 tests failed out of 10" "$work/log" || fail "not all programs ran for the $1 platform"
}
judge minimal "$drivers/minimal_driver.c;$drivers/fixed_driver.c" "${2:-$1/lib/libminimal_platform.so}"
judge host "$drivers/host_driver.cpp" "$lib/libmcasthost.so"
echo "the stub, and ten programs for two platforms"
