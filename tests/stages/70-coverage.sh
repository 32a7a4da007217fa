# How much of src/ the unit and the panel tests reach.
# Packages: build box test ship
source "$(dirname "$0")/../../scripts/lib.sh"
configure_and_build coverage all long_programs
find build/coverage -name '*.gcda' -delete
# Their verdicts belong to the stages that run them as built for use; here a failure only shows as a gap.
unit_tests coverage build/coverage-unit.xml >build/coverage-unit.log 2>&1 ||
    echo "some unit tests failed; see build/coverage-unit.log"
# The quick ones: what the others would reach of src/, these and the unit tests do.
OZU_TEST_BUILD=build/coverage panel_tests build/coverage-panel.xml tests/panel -m "not long" >build/coverage-panel.log 2>&1 ||
    echo "some panel tests failed; see build/coverage-panel.log"
/usr/bin/python3 scripts/coverage.py --junit build/results/coverage.xml build/coverage
