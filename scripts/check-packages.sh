#!/usr/bin/env bash
# Builds the Debian packages, links a program with the development package, installs everything into a bare Debian, has
# echo2image make there the same bytes as here, and removes it without a trace.
#
# Needs root: the bare Debian is unpacked into memory that only this process sees (a mount namespace), so that nothing can
# be left behind. It comes from the network once and is kept in build/bare-root with the packages it needs.
set -euo pipefail
source "$(dirname "$0")/common.sh"
kept=build/bare-root
major=$(project_version) && major=${major%%.*}

if [ "${1:-}" = --inside ]; then
    work=$2 root=$2/root
    mount -t tmpfs -o mode=0755 bare-root "$root"
    tar -xf $kept/bookworm.tar -C "$root"
    cp "$(readlink -f /etc/resolv.conf)" "$root/etc/resolv.conf" 2>/dev/null || true
    cp $kept/archives/*.deb "$root/var/cache/apt/archives/" 2>/dev/null || true
    cp build/packages/*.deb "$work"/program-* "$root/tmp/"
    inside() { env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C DEBIAN_FRONTEND=noninteractive chroot "$root" sh -euc "$1"; }
    traces() { find "$root" -name '*utils[-_]sse*' -not -path "$root/tmp/*" -o -name '*echo2image*'; }

    [ -z "$(traces)" ]
    install='apt-get install -y -qq --no-install-recommends /tmp/*.deb >/tmp/apt.log 2>&1'
    inside "$install || { apt-get update -qq && $install; } || { cat /tmp/apt.log; exit 1; }"
    cp -u "$root"/var/cache/apt/archives/*.deb $kept/archives/ 2>/dev/null || true
    inside "test -z \"\$(dpkg --verify libutils-sse$major libutils-sse-dev utils-sse-tools)\"" ||
        { echo "installed files differ from their checksums" && exit 1; }
    inside "ldconfig -p | grep -q 'libutils_sse.so.$major '" || { echo "the loader does not know the library" && exit 1; }
    inside "cd /usr/lib/*/glibc-hwcaps && test -e x86-64-v3/libutils_sse.so.$major && test -e x86-64-v4/libutils_sse.so.$major" ||
        { echo "the wider builds are missing" && exit 1; }
    echo "installed in a bare Debian of $(inside 'dpkg -l | grep -c ^ii') packages"
    inside "/tmp/program-shared && /tmp/program-static"
    echo "programs linked with libutils-sse-dev run there"
    [ "$(inside 'echo2image --version')" = "echo2image $(project_version)" ] || { echo "echo2image tells another version" && exit 1; }
    inside "echo2image demo -o /tmp/pictures >/dev/null"
    diff -r "$work/pictures" "$root/tmp/pictures"
    echo "echo2image demo: the same $(find "$root/tmp/pictures" -type f | wc -l) files as here"
    inside "apt-get remove -y -qq libutils-sse$major >/dev/null 2>&1" # and what depends on it
    [ -z "$(traces | grep -v /var/lib/dpkg/)" ] || { echo "left behind:" && traces && exit 1; }
    inside "dpkg --purge libutils-sse$major >/dev/null 2>&1"
    [ -z "$(traces)" ] || { echo "left behind:" && traces && exit 1; }
    echo "removed without a trace"
    exit
fi

work=$(mktemp -d)
trap 'wait; rm -rf --one-file-system "$work"' EXIT
enter=(unshare --mount --propagation private)
if [ "$(id -u)" -ne 0 ] || ! "${enter[@]}" mount -t tmpfs bare-root "$work" 2>/dev/null; then
    enter=()
else
    scripts/install-packages.sh mmdebstrap
    mkdir -p $kept/archives "$work/root"
    [ -f $kept/bookworm.tar ] ||
        { mmdebstrap --quiet --variant=apt --skip=cleanup/apt/lists bookworm $kept/new.tar && mv $kept/new.tar $kept/bookworm.tar; } &
fi

scripts/package.sh
if command -v lintian >/dev/null; then
    # CPack calls ldconfig in scripts besides the trigger; the other one is about uploads to Debian.
    lintian --allow-root --fail-on error,warning --suppress-tags maintscript-calls-ldconfig,initial-upload-closes-no-bugs build/packages/*.deb
    echo "lintian has no complaint"
else
    echo "not tried: lintian (not installed)"
fi

# No compiler in the bare Debian: programs are linked here, with what the packages hold.
for package in build/packages/libutils-sse*.deb; do dpkg-deb -x "$package" "$work/unpacked"; done
for kind in shared static; do
    cmake -S tests/consumer -B "$work/$kind" -G Ninja --log-level=WARNING -DCMAKE_PREFIX_PATH="$work/unpacked/usr" -DUTILS_SSE_KIND=$kind >/dev/null
    cmake --build "$work/$kind" >/dev/null
    cp "$work/$kind/consumer" "$work/program-$kind"
done
build/package/tools/echo2image demo -o "$work/pictures" >/dev/null
for command in $(build/package/tools/echo2image --help | sed -n '/^Subcommands/,$s/^  \([a-z]\+\) .*/\1/p'); do
    grep -qx "\.B $command" docs/echo2image.1 || { echo "docs/echo2image.1 does not name the command $command" && exit 1; }
done

if [ ${#enter[@]} -eq 0 ]; then
    echo "NOT TRIED: installing into a bare Debian, which needs root and leave to mount"
    exit
fi
wait
[ -f $kept/bookworm.tar ] || { echo "there is no bare Debian: mmdebstrap failed" && exit 1; }
"${enter[@]}" "$0" --inside "$work"
