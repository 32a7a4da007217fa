# Unit tests that take more than two seconds each, panel tests that take more than half of one, and builds of other kinds:
# other platform libraries, an installation's secrets.
# Most of it waits for something: the next stage compiles meanwhile.
# Beside the next stage
# Packages: build box test
source "$(dirname "$0")/../../scripts/lib.sh"
configure_and_build dev all long_programs
failed=0
unit_tests dev build/results/long-unit.xml --label-regex long || failed=1
panel_tests build/results/long-panel.xml tests/panel tests/scenarios --ozu-features -m long || failed=1
/usr/bin/python3 -m pytest -q -n "$(nproc)" tests/checks tests/c_api tests/attack -m "long and not clang" \
    --junit-xml=build/results/long-builds.xml || failed=1
exit "$failed"
