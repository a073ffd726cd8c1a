#!/usr/bin/env bash
# Builds the installed examples as a stranger would, from what is installed alone: with gcc and clang, by pkg-config and by
# CMake, as C11 and as C++20; then runs each of them, in a laboratory of its own where it needs the router.
. "$(dirname "${BASH_SOURCE[0]}")/stage.sh"
top=$here/../..
examples=$(dirname "$(find "$tree" -name route_table.c)")
[ -f "$examples/CMakeLists.txt" ] || fail "no examples are installed"
for source in "$examples"/*.c; do
    [ "$(wc -l <"$source")" -lt 200 ] || fail "${source##*/} is longer than 199 lines"
done

for compilers in gcc:g++ clang-14:clang++-14; do
    export CC=${compilers%:*} CXX=${compilers#*:}
    make=$work/make_$CC cmake=$work/cmake_$CC
    cp -r "$examples" "$make"
    cp -r "$examples" "$cmake"
    # A name that make knows would take the place of the variables of the environment.
    make -C "$make" -j2 "CC=$CC" "CXX=$CXX" WARNINGS="-Wall -Wextra -Wpedantic -Wshadow -Werror" >"$make.log" 2>&1 ||
        { cat "$make.log" >&2; fail "make with $CC"; }
    cmake -S "$cmake" -B "$cmake/build" -G Ninja -DCMAKE_PREFIX_PATH="$tree" -DCMAKE_COMPILE_WARNING_AS_ERROR=ON \
        >"$cmake.log" 2>&1 && cmake --build "$cmake/build" >>"$cmake.log" 2>&1 ||
        { cat "$cmake.log" >&2; fail "CMake with $CC"; }
done

if ! refusal=$("$top/scripts/lab" 2>&1); then
    echo "skipped: $refusal"
    exit 77
fi
export LD_LIBRARY_PATH=$lib
runs=()
for programs in "$work"/make_* "$work"/cmake_*/build; do
    [ -x "$programs/route_table" ] || continue
    for suffix in "" _cpp; do
        "$top/scripts/lab" python3 "$here/examples_run.py" "$programs" "$tree" "$suffix" >"$programs/run$suffix.log" 2>&1 &
        runs+=("$!:$programs/run$suffix.log")
    done
done
[ "${#runs[@]}" -eq 8 ] || fail "${#runs[@]} sets of programs, not 8"
for run in "${runs[@]}"; do
    wait "${run%%:*}" || { cat "${run#*:}" >&2; fail "${run#*:}"; }
done
echo "$(find "$examples" -name '*.c' | wc -l) examples, 8 ways to build them"
