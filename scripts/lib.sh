# Shared by the project's shell scripts: messages, progress, packages. Source it; it changes to the project's root.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

say() { printf '\n== %s\n' "$*"; }
die() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}

# need_packages FILE...: installs the apt packages listed in the files (one a line, # comments) that are missing.
need_packages() {
    local wanted missing=()
    wanted=$(sed 's/#.*//' "$@" | tr -s ' \n' '\n' | sort -u)
    for package in $wanted; do
        [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    if [ "$(id -u)" != 0 ]; then
        die "these packages are missing: ${missing[*]}
Install them once as root:  apt-get update && apt-get install ${missing[*]}"
    fi
    say "Installing ${#missing[@]} missing packages: ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq || die "apt-get update failed; is a package mirror reachable?"
    apt-get install -y -qq --no-install-recommends "${missing[@]}" >build/apt.log 2>&1 ||
        die "apt-get install failed; see build/apt.log"
}

# configure_and_build PRESET [TARGET...]
configure_and_build() {
    local preset=$1 target
    shift
    if [ ! -w build ]; then
        for target in "${@:-all}"; do
            case $target in all | long_programs) target=. ;; esac # not one program, but many
            [ -e "build/$preset/bin/$target" ] || die "$PWD is read-only and holds no build of the preset $preset.
Copy it to a folder of your own and run it there."
        done
        say "Using the build that is there ($PWD is read-only)"
        return
    fi
    # A run of several stages builds the same only once.
    local built=${OZU_TEST_RUN:+$OZU_TEST_RUN/built.$preset.${*:-all}}
    if [ -n "$built" ] && [ -e "${built// /+}" ]; then
        return
    fi
    say "Building ($preset)"
    cmake --preset "$preset" >"build/$preset.configure.log" 2>&1 || {
        tail -n 30 "build/$preset.configure.log" >&2
        die "configuring preset $preset failed"
    }
    cmake --build --preset "$preset" --parallel "$(nproc)" ${1:+--target "$@"} || die "building preset $preset failed"
    if [ -n "$built" ]; then
        touch "${built// /+}"
    fi
}

# Prints the folder for what tests write. They make and remove files by the thousand, which takes a disk's file system
# a sixth of the whole run: memory is better where half a gigabyte of it is free.
folder_for_tests() {
    local free
    free=$(df --output=avail --block-size=1M /dev/shm 2>/dev/null | tail -n 1)
    if [ -z "${TMPDIR:-}" ] && [ -w /dev/shm ] && [ "${free:-0}" -ge 512 ]; then
        echo /dev/shm
    else
        echo "${TMPDIR:-/tmp}"
    fi
}

# unit_tests PRESET RESULT [CTEST OPTION...]: the unit tests of a build, every case's outcome into RESULT. Many wait for
# something most of their time.
unit_tests() {
    local failed=0
    TMPDIR=$(folder_for_tests) ctest --preset "$1" --parallel "$(($(nproc) * 2))" "${@:3}" --output-junit "$PWD/build/$1/programs.xml" || failed=1
    scripts/unit_results.py "build/$1/programs.xml" "$2" || failed=1
    return "$failed"
}

# panel_tests RESULT [FILE...]: panel tests, as many at a time as there are processors; outcomes into RESULT.
panel_tests() { TMPDIR=$(folder_for_tests) /usr/bin/python3 -m pytest -q -n "$(nproc)" --dist loadfile --junit-xml="$1" \
    --ozu-artefacts build/artefacts "${@:2}"; }

mkdir -p build 2>/dev/null || [ -d build ] || die "$PWD is read-only and holds no build.
Copy it to a folder of your own and run it there."
