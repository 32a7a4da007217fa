#!/usr/bin/env bash
# Makes build/sysroot-armhf: headers and libraries of the panel's machine (packages of packaging/armhf/sysroot.txt),
# for the armhf preset and for qemu. Does nothing when it is there and the list is unchanged.
#
#   scripts/make_armhf_sysroot.sh [--force]
#
# Packages come from where this machine's own apt takes them. Nothing is installed: the packages are only unpacked,
# so an ordinary user may run it.

source "$(dirname "$0")/lib.sh"

sysroot=build/sysroot-armhf
list=packaging/armhf/sysroot.txt
stamp=$(cat scripts/make_armhf_sysroot.sh "$list" | sha256sum | cut -d' ' -f1)

if [ "${1:-}" != --force ] && [ "$(cat "$sysroot/.made-from" 2>/dev/null)" = "$stamp" ]; then
    exit 0
fi
command -v mmdebstrap >/dev/null || die "mmdebstrap is missing (packages of packaging/apt/arm.txt)"
packages=$(sed 's/#.*//' "$list" | tr -s ' \n' ',' | sed 's/^,//; s/,$//')

# sources [PATTERN]: the machine's package sources for its release, those whose suite matches PATTERN only.
release=$(. /etc/os-release && echo "${VERSION_CODENAME:-}")
[ -n "$release" ] || die "/etc/os-release names no release"
sources() {
    apt-get indextargets --format '$(REPO_URI)|$(RELEASE)|$(COMPONENT)|$(SIGNED_BY)' 'Created-By: Packages' |
        sort -u | while IFS='|' read -r uri suite component key; do
        # shellcheck disable=SC2254
        case $suite in
        ${1:-"$release"*}) ;;
        *) continue ;;
        esac
        case $key in
        /*) echo "deb [signed-by=$key] $uri $suite $component" ;;
        *) echo "deb $uri $suite $component" ;;
        esac
    done
}

# Unpacking needs no privilege; mmdebstrap only wants to be told so.
mode=chrootless
[ "$(id -u)" = 0 ] && mode=root
options=(--mode="$mode" --variant=extract --architectures=armhf --include="$packages"
    --aptopt='APT::Sandbox::User "root"')

fill() {
    rm -rf "$sysroot.new"
    mmdebstrap "${options[@]}" '' "$sysroot.new" - <"$1" >build/sysroot-armhf.log 2>&1
}

say "Making $sysroot"
sources >build/sysroot-armhf.list
[ -s build/sysroot-armhf.list ] || die "apt knows no source of $release; run apt-get update as root once"
if ! fill build/sysroot-armhf.list; then
    # A mirror whose update suites are out of step for this architecture still has the release itself.
    echo "one of the package sources failed; trying with suite $release alone"
    sources "$release" >build/sysroot-armhf.list
    fill build/sysroot-armhf.list || {
        tail -n 15 build/sysroot-armhf.log >&2
        die "mmdebstrap failed; see build/sysroot-armhf.log"
    }
fi

# Links of the packages point to the root of the machine they are meant for.
find "$sysroot.new" -xdev -type l -lname '/*' | while read -r link; do
    target=$(readlink "$link")
    case $target in
    /usr/* | /lib/*) ln -sfn "$(realpath -m --relative-to="$(dirname "$link")" "$sysroot.new$target")" "$link" ;;
    esac
done
# Emulated programs see these instead of their own machine's, or their box's.
rm -f "$sysroot.new"/etc/{resolv.conf,hostname}
rm -rf "$sysroot.new"/dev "$sysroot.new"/var "$sysroot.new"/usr/share/{doc,man,locale,info}
echo "$stamp" >"$sysroot.new/.made-from"
rm -rf "$sysroot"
mv "$sysroot.new" "$sysroot"
du -sh "$sysroot"
