#!/usr/bin/env bash
# Makes the Debian packages and the board's tarball in build/packages.
#
#   scripts/make_packages.sh [amd64] [armhf]     both when none is named
#
# The tarball (armhf) unpacks over the root of a board that has no package manager.

source "$(dirname "$0")/lib.sh"
[ $# -gt 0 ] || set -- amd64 armhf
need_packages packaging/apt/build.txt packaging/apt/ship.txt packaging/apt/docs.txt

# Times of files in the packages: those of the last change, so that equal sources give equal packages.
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct 2>/dev/null || stat -c %Y CHANGELOG.md)}
export SOURCE_DATE_EPOCH

packages=$PWD/build/packages
# What gets installed.
targets=(utils_ozu ozu_platform ozu_fake_platform ozu_fake_platform_static ozuctl ozu_man
    alarm_core arm_lamp door_contact safety_siren)
mkdir -p "$packages"
say "Making the site and the manual pages"
docs/build

# debs ARCHITECTURE PRESET
debs() {
    rm -f "$packages"/*_"$1".deb
    cpack --config "build/$2/CPackConfig.cmake" -B "$packages" >"build/packages-$1.log" 2>&1 || {
        tail -n 20 "build/packages-$1.log" >&2
        die "cpack failed for $1"
    }
    rm -rf "$packages/_CPack_Packages"
}

# The board has one library folder: /usr/lib.
board() {
    local root=$PWD/build/board-root component
    rm -rf "$root"
    for component in runtime platform tools; do
        DESTDIR=$root cmake --install build/armhf --prefix /usr --component "$component" --strip >/dev/null
    done
    if [ -d "$root/usr/lib/arm-linux-gnueabihf" ]; then
        mv "$root"/usr/lib/arm-linux-gnueabihf/* "$root/usr/lib/"
        rmdir "$root/usr/lib/arm-linux-gnueabihf"
    fi
    tar --sort=name --owner=0 --group=0 --numeric-owner --mtime="@$SOURCE_DATE_EPOCH" -C "$root" -czf \
        "$packages/utils-ozu-board-armhf.tar.gz" .
}

for architecture in "$@"; do
    case $architecture in
    amd64)
        configure_and_build release "${targets[@]}"
        debs amd64 release
        ;;
    armhf)
        need_packages packaging/apt/arm.txt
        scripts/make_armhf_sysroot.sh
        configure_and_build armhf "${targets[@]}"
        debs armhf armhf
        board
        ;;
    *) die "unknown architecture '$architecture' (amd64, armhf)" ;;
    esac
done
ls -l "$packages"
