#!/usr/bin/env bash
# Every C and C++ file is formatted as .clang-format says.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
find include platform porting src host daemons tests bench examples \( -name '*.h' -o -name '*.c' -o -name '*.cpp' \) -print0 |
    xargs -0 clang-format-14 --dry-run -Werror
