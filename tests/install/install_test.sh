#!/usr/bin/env bash
# Installs the build folder $1 into a folder of its own, moves that, and uses what it finds there as a stranger would:
# headers, libraries, the CMake package, the pkg-config files, programs and manual pages.
. "$(dirname "${BASH_SOURCE[0]}")/stage.sh"

for library in mcastcommon mcasthost; do
    soname=$(readelf -d "$lib/lib$library.so" | sed -n 's/.*SONAME.*\[\(.*\)\]/\1/p')
    [ "$soname" = "lib$library.so.1" ] || fail "lib$library.so has the SONAME '$soname'"
    [ -e "$lib/$soname" ] || fail "$soname is not installed"
done

[ "$(pkg-config --modversion mcastcommon)" = "$(pkg-config --modversion mcasthost)" ] || fail "two versions"
read -ra flags <<<"$(pkg-config --cflags --libs mcastcommon mcasthost)"
gcc -std=c11 -D_GNU_SOURCE -Wall -Wextra -Werror -o "$work/by_pkg_config_c" "$here/consumer.c" "${flags[@]}"
g++ -std=c++20 -Wall -Wextra -Werror -o "$work/by_pkg_config_cpp" "$here/consumer.cpp" "${flags[@]}"
LD_LIBRARY_PATH=$lib "$work/by_pkg_config_c" || fail "the C program built by pkg-config fails"
LD_LIBRARY_PATH=$lib "$work/by_pkg_config_cpp" || fail "the C++ program built by pkg-config fails"

mkdir "$work/project"
cp "$here/consumer.c" "$here/consumer.cpp" "$here/radix.c" "$work/project"
cp "$here/consumer_project.txt" "$work/project/CMakeLists.txt"
cmake -S "$work/project" -B "$work/project/build" -G Ninja -DCMAKE_PREFIX_PATH="$tree" >"$work/log" 2>&1 &&
    cmake --build "$work/project/build" >>"$work/log" 2>&1 || { cat "$work/log"; fail "find_package"; }
"$work/project/build/consumer.c.bin" || fail "the C program built by find_package fails"
"$work/project/build/consumer.cpp.bin" || fail "the C++ program built by find_package fails"

# Each program runs from where it was moved, and has a page that names it and its options.
programs=0
for program in "$tree"/sbin/* "$tree"/bin/*; do
    [ -x "$program" ] || continue
    name=${program##*/}
    "$program" --version >/dev/null || fail "$name does not start"
    page=$(find "$tree/share/man" -name "$name.[18]")
    [ -n "$page" ] || fail "$name has no manual page"
    grep -q "^$name " "$page" && grep -q 'help' "$page" || fail "the page of $name does not tell about it"
    programs=$((programs + 1))
done
[ "$programs" -ge 3 ] || fail "only $programs programs"
# Every exported name is found by man, and the pages of the headers are there in HTML.
names=$(sed -n 's/^ *\([A-Za-z_][A-Za-z0-9_]*\);$/\1/p' "$here/../../src/exports.map")
[ "$(wc -w <<<"$names")" -gt 200 ] || fail "no list of exported names"
# shellcheck disable=SC2086
found=$(man -M "$tree/share/man" -s 3 -w $names 2>&1 | grep -c '/man3/') || true
[ "$found" -eq "$(wc -w <<<"$names")" ] || fail "man finds $found of $(wc -w <<<"$names") exported names"
for page in "7 mcastcommon" "5 mcast.toml"; do
    man -M "$tree/share/man" -w $page >/dev/null || fail "no page: $page"
done
[ -s "$tree/share/doc/mcastcommon/html/index.html" ] || fail "no HTML pages"

echo "$programs programs, both libraries, two ways to find them"
