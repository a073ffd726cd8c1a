#!/usr/bin/env bash
# The way of a stranger, ./run test-install: a bare Debian 12 with compilers and what the router's programs need, into which
# come the installed tree of the build folder $1 and, as their judge, the tests of this folder, but nothing of the sources. There the
# examples are built and run, link lines tried and platforms judged, and every exported name has its page. Needs root
# and the network.
. "$(dirname "${BASH_SOURCE[0]}")/stage.sh"
top=$here/../..
root=$work/root
packages=(gcc g++ clang-14 lld make cmake ninja-build pkg-config python3 iproute2 util-linux procps man-db libmnl0
    libtomlplusplus3)

inside() {
    unshare --mount --pid --fork bash -c 'mount --bind "$0" "$0" && mount -t proc proc "$0/proc" && mount --rbind /sys "$0/sys" &&
        mount --rbind /dev "$0/dev" && mount -t tmpfs tmpfs "$0/tmp" &&
        exec chroot "$0" /usr/bin/env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive "$@"' "$root" "$@"
}

debootstrap --variant=minbase bookworm "$root" >"$work/log" 2>&1 || { tail -20 "$work/log" >&2; fail "no Debian 12"; }
inside apt-get install -q -y --no-install-recommends "${packages[@]}" >"$work/log" 2>&1 ||
    { tail -20 "$work/log" >&2; fail "the packages do not install"; }
cp -r "$tree" "$root/opt/mcast"
mkdir -p "$root/opt/judge/scripts" "$root/opt/judge/tests"
cp "$top/scripts/lab" "$root/opt/judge/scripts"
cp "$1/lib/libminimal_platform.so" "$root/opt/judge"
cp -r "$here" "$here/../porting" "$root/opt/judge/tests"
mkdir "$root/opt/judge/tests/system"
cp "$here/../system/lab.py" "$root/opt/judge/tests/system"

for name in examples links porting; do
    inside "/opt/judge/tests/install/${name}_test.sh" /opt/mcast /opt/judge/libminimal_platform.so || fail "$name"
done
nm -D --defined-only "$lib/libmcastcommon.so" | sed -n 's/.* [A-Z] \([A-Za-z_0-9]*\)@.*/\1/p' | grep -v '^MCAST_[0-9]*$' >"$root/opt/judge/names"
inside bash -c 'while read -r name; do man -M /opt/mcast/share/man -w 3 "$name" >/dev/null || echo "$name"; done </opt/judge/names; echo all' \
    >"$work/log" 2>/dev/null || true
[ "$(wc -l <"$root/opt/judge/names")" -gt 200 ] || fail "no list of exported names"
[ "$(cat "$work/log")" = all ] || fail "man 3 does not find: $(tr '\n' ' ' <"$work/log")"
echo "in a Debian 12 of its own: examples, link lines, platforms, and pages of $(wc -l <"$root/opt/judge/names") names"
