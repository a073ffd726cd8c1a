#!/usr/bin/env bash
# A link line that names the platform's library is right whatever stands around it: with three linkers, with and without
# --as-needed, before and after the objects, by pkg-config in any order and by CMake. And a consumer's folder platform/
# neither hides the installed headers nor is hidden by them.
. "$(dirname "${BASH_SOURCE[0]}")/stage.sh"

lines=0
try() { # what, command of the linker...
    local what=$1
    shift
    rm -f "$work/radix"
    "$@" -o "$work/radix" 2>"$work/log" || { cat "$work/log" >&2; fail "$what: does not link"; }
    [ "$(LD_LIBRARY_PATH=$lib "$work/radix" 2>&1)" = 239.1.0.0/16 ] || fail "$what: does not start"
    lines=$((lines + 1))
}

read -ra headers <<<"$(pkg-config --cflags mcasthost)"
gcc -std=c11 -pedantic -Wall -Wextra -Werror "${headers[@]}" -c -o "$work/radix.o" "$here/radix.c"
for linker in bfd gold lld; do
    command -v "ld.$linker" >/dev/null || fail "no ld.$linker"
    for flags in "" -Wl,--as-needed -Wl,--as-needed,-z,now -Wl,--no-as-needed; do
        for asked in mcasthost "mcastcommon mcasthost" "mcasthost mcastcommon"; do
            read -ra names <<<"$asked"
            read -ra libraries <<<"$(pkg-config --libs "${names[@]}")"
            # clang finds the linkers by name in every version; $flags is nothing or one word.
            # shellcheck disable=SC2086
            try "$linker $flags, $asked behind" clang-14 "-fuse-ld=$linker" $flags "$work/radix.o" "${libraries[@]}"
            # shellcheck disable=SC2086
            try "$linker $flags, $asked in front" clang-14 "-fuse-ld=$linker" $flags "${libraries[@]}" "$work/radix.o"
        done
    done
done

# The library alone stays alone: its line names no platform.
case $(pkg-config --libs mcastcommon) in *mcasthost*) fail "mcastcommon brings a platform of its own" ;; esac

mkdir -p "$work/project" "$work/consumer/platform"
cp "$here/consumer.c" "$here/consumer.cpp" "$here/radix.c" "$work/project"
cp "$here/consumer_project.txt" "$work/project/CMakeLists.txt"
for linker in bfd gold lld; do
    cmake -S "$work/project" -B "$work/project/$linker" -G Ninja -DCMAKE_PREFIX_PATH="$tree" -DCMAKE_C_COMPILER=clang-14 \
        -DCMAKE_CXX_COMPILER=clang++-14 -DCMAKE_EXE_LINKER_FLAGS="-fuse-ld=$linker -Wl,--as-needed" >"$work/log" 2>&1 &&
        cmake --build "$work/project/$linker" >>"$work/log" 2>&1 || { cat "$work/log"; fail "CMake with $linker"; }
    [ "$("$work/project/$linker/radix.c.bin")" = 239.1.0.0/16 ] || fail "CMake with $linker: does not start"
    lines=$((lines + 1))
done

# find_package says by name what is missing: a component, or the platform.
configure() { # what find_package is given
    mkdir -p "$work/asks"
    printf 'cmake_minimum_required(VERSION 3.25)\nproject(asks LANGUAGES C)\nfind_package(mcastcommon %s)\n' "$1" \
        >"$work/asks/CMakeLists.txt"
    rm -rf "$work/asks/build"
    cmake -S "$work/asks" -B "$work/asks/build" -G Ninja -DCMAKE_PREFIX_PATH="$tree" >"$work/log" 2>&1
}
configure "REQUIRED COMPONENTS mcastcommon" || { cat "$work/log"; fail "the component mcastcommon"; }
grep -q 'link mcastcommon::mcasthost' "$work/log" || fail "a missing platform is not named"
configure "1 REQUIRED COMPONENTS mcasthost" || { cat "$work/log"; fail "the component mcasthost"; }
! grep -q 'link mcastcommon::mcasthost' "$work/log" || fail "a platform that is there is said to be missing"
! configure "REQUIRED COMPONENTS pimhost" || fail "a component that there is not was found"
! configure "2 REQUIRED" || fail "version 1 was taken for version 2"

printf '#define THE_CONSUMERS_OWN_AVL 32\n' >"$work/consumer/platform/avl.h"
for header in acl device hash interface local_socket prefix_tree random resource timer vpn; do
    printf '#error "the folder of the consumer"\n' >"$work/consumer/platform/$header.h"
done
for order in "-I$work/consumer ${headers[*]}" "${headers[*]} -I$work/consumer"; do
    read -ra includes <<<"$order"
    gcc -std=c11 -pedantic -Wall -Wextra -Werror "${includes[@]}" -c -o "$work/hidden.o" \
        "$here/hidden_platform.c" || fail "the consumer's folder platform/ with $order"
done
echo "$lines link lines, and the consumer's folder platform/ is left alone"
