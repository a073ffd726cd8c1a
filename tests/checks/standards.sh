#!/usr/bin/env bash
# The library compiles without a warning as C++20, which every build shows, and as C++23, with both compilers. Nothing
# is made of it.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
options=(-std=c++2b -fsyntax-only -fno-exceptions -fno-rtti -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror
    -D_GNU_SOURCE -Iinclude -Isrc -I.)
for compiler in g++ clang++-14; do
    find src -name '*.cpp' -print0 | xargs -0 -n 8 -P "$(nproc)" "$compiler" "${options[@]}" || {
        echo "standards.sh: $compiler, see above" >&2
        exit 1
    }
done
