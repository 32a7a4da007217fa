# Panel tests: real processes in panel boxes. Where boxes are not possible, every test is a counted skip.
# In the short run
# Packages: build box test
source "$(dirname "$0")/../../scripts/lib.sh"
configure_and_build dev
why=$(tools/box/panel-box check 2>&1) || echo "panel tests are skipped: $why"
# They wait about half of their time.
panel_tests build/results/panel.xml tests/panel tests/scenarios --ozu-features -m "not long" -n "$(($(nproc) * 2))"
