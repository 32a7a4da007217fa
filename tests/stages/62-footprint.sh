# What the library costs a panel process, on the panel's machine and on the workstation, against its limits.
# Packages: build box test arm ship
source "$(dirname "$0")/../../scripts/lib.sh"
scripts/make_armhf_sysroot.sh
failed=0
for preset in armhf release; do
    configure_and_build "$preset" utils_ozu
    say "Footprint ($preset)"
    /usr/bin/python3 scripts/footprint.py --junit "build/results/footprint-$preset.xml" "build/$preset" || failed=1
done
exit "$failed"
