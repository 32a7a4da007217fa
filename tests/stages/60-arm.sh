# The panel's own machine: cross-built, run under emulation, outcomes compared with the workstation's line by line.
# Packages: build box test arm
source "$(dirname "$0")/../../scripts/lib.sh"
scripts/make_armhf_sysroot.sh
configure_and_build armhf-time64
configure_and_build armhf all long_programs
failed=0

say "Unit tests under emulation"
unit_tests armhf build/results/arm.xml || failed=1
say "Panel tests under emulation"
# The others prove the box, or start the tool some hundred times for what does not depend on the machine.
mapfile -t started < <(printf '%s\n' tests/panel/test_*.py |
    grep -vE '/test_(canary|box_(broker|caller|jail|life)|build_secrets|demo|guide_minutes|secrets|testkit|waiting)\.py' |
    grep -vE '/test_ozuctl_(call|colours|draw|hostile|report|stranger|table)\.py')
boxes=yes
why=$(tools/box/panel-box check 2>&1) || {
    echo "panel tests are skipped: $why"
    boxes=no
}
OZU_TEST_BUILD=build/armhf OZU_TEST_EMULATOR="qemu-arm-static -L $PWD/build/sysroot-armhf" \
    panel_tests build/results/arm-panel.xml "${started[@]}" || failed=1

units=(build/results/unit.xml build/results/long-unit.xml)
panel=(build/results/panel.xml build/results/long-panel.xml)
if ! ls "${units[@]}" "${panel[@]}" >/dev/null 2>&1; then
    say "The same on the workstation, not counted"
    configure_and_build dev all long_programs
    units=(build/arm-native-unit.xml)
    panel=(build/arm-native-panel.xml)
    unit_tests dev "${units[0]}" || failed=1
    panel_tests "${panel[0]}" tests/panel tests/scenarios --ozu-features || failed=1
fi
compare() { /usr/bin/python3 scripts/compare_results.py --allow "$1" --junit "build/results/$2.xml" "${@:3}"; }
compare tests/arm/skips.txt arm-compare "${units[@]}" build/results/arm.xml || failed=1
if [ "$boxes" = yes ]; then
    compare tests/arm/panel_skips.txt arm-panel-compare "${panel[@]}" \
        build/results/arm-panel.xml || failed=1
fi
exit "$failed"
