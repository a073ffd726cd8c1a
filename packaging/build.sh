#!/usr/bin/env bash
# Debian packages of this tree: build.sh FOLDER [BUILD] makes FOLDER, which must not be there, and puts them into it. With BUILD, a
# folder in which the programs were built already, those are packed, without the development packages and without
# another compilation. VERSION in the environment replaces the changelog's.
set -euo pipefail
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
mkdir -p "$(dirname "$1")"
mkdir "$1"
folder=$(cd "$1" && pwd)
source=$folder/source
options=parallel=$(nproc)
mkdir "$source"
# What is committed or about to be, and nothing that a build left in the tree.
git -C "$top" ls-files -z --cached --others --exclude-standard |
    (cd "$top" && while IFS= read -r -d '' file; do [ ! -e "$file" ] || printf '%s\0' "$file"; done) |
    tar -C "$top" --null --files-from=- -cf - | tar -C "$source" -xf -
mv "$source/packaging/debian" "$source/debian"
cd "$source"
if [ -n "${VERSION:-}" ]; then
    sed -i "1s/(.*)/($VERSION)/" debian/changelog
fi
if [ -n "${2:-}" ]; then
    MCAST_PREBUILT=$(cd "$top" && cd "$2" && pwd)
    export MCAST_PREBUILT DEB_BUILD_PROFILES=pkg.mcastcommon.prebuilt
    # Taken for a test and thrown away: neither small nor made to be debugged.
    options="$options noautodbgsym"
fi
DEB_BUILD_OPTIONS="$options" dpkg-buildpackage --build=binary --no-sign ${2:+--no-check-builddeps}
rm -r "$source"
