# Sourced by the tests of this folder, which are given the build folder as $1: installs it into a folder of its own, moves
# that, and sets here (this folder), work (a folder that goes with the test), tree and lib (the moved tree, its libraries).
# Given a tree that is installed already they take that.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "${0##*/}: $*" >&2
    exit 1
}

tree=$1
if [ ! -d "$tree/include/mcastcommon" ]; then
    cmake --install "$1" --prefix "$work/staged" >/dev/null
    mv "$work/staged" "$work/tree"
    tree=$work/tree
fi
lib=$(dirname "$(find "$tree" -name libmcastcommon.so)")
export PKG_CONFIG_PATH=$lib/pkgconfig
