# How much of src/ the unit and the panel tests reach.
# Packages: build box test ship
source "$(dirname "$0")/../../scripts/lib.sh"
configure_and_build coverage
find build/coverage -name '*.gcda' -delete
# Their verdicts belong to the stages that run them as built for use; here a failure only shows as a gap.
unit_tests coverage build/coverage-unit.xml >build/coverage-unit.log 2>&1 ||
    echo "some unit tests failed; see build/coverage-unit.log"
# One panel test makes builds of its own, another floods a command: slow here, and nothing more is reached.
OZU_TEST_BUILD=build/coverage panel_tests build/coverage-panel.xml tests/panel --ignore tests/panel/test_build_secrets.py \
    --deselect tests/panel/test_commands.py::test_flood_is_bound_by_the_time >build/coverage-panel.log 2>&1 ||
    echo "some panel tests failed; see build/coverage-panel.log"
/usr/bin/python3 scripts/coverage.py --junit build/results/coverage.xml build/coverage
