#!/usr/bin/env bash
# Every public header compiles alone, as C11 and as C++20, with both compilers and without a warning.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
warnings=(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror -fsyntax-only)
failed=0
compile() { # compiler, language, standard, header
    echo "#include \"$4\"" | "$1" -x "$2" -std="$3" "${warnings[@]}" -Iinclude -Ihost/include -I. - || {
        echo "$4 does not compile alone: $1 -std=$3" >&2
        failed=1
    }
}
for header in include/mcast/*.h host/include/mcasthost/*.h platform/*.h; do
    [ -e "$header" ] || continue
    name=${header#include/} name=${name#host/include/}
    compile gcc c c11 "$name"
    compile g++ c++ c++20 "$name"
    compile clang-14 c c11 "$name"
    compile clang++-14 c++ c++20 "$name"
done
exit $failed
