# Release stage: runs by its name or with --all.
# The panel's own machine: cross-built, run under emulation, outcomes held against the workstation's line by line.
# Packages: build box arm test
source "$(dirname "$0")/../../scripts/lib.sh"
scripts/make_armhf_sysroot.sh
configure_and_build armhf-time64
configure_and_build armhf
failed=0
ctest --preset armhf --parallel "$(nproc)" --output-junit "$PWD/build/results/arm.xml" | tail -n 25 || failed=1

native=build/results/unit.xml
if [ ! -e "$native" ]; then
    # The stage runs alone: the workstation's outcomes are still needed, but are not counted here.
    configure_and_build dev
    native=build/arm-native-unit.xml
    ctest --preset dev --parallel "$(nproc)" --output-junit "$PWD/$native" | tail -n 3 || failed=1
fi
/usr/bin/python3 scripts/compare_results.py --allow tests/arm/skips.txt --junit build/results/arm-compare.xml \
    "$native" build/results/arm.xml || failed=1
exit "$failed"
