# Release stage: runs by its name or with --all.
# How much of src/ the unit and the panel tests reach.
# Packages: build box test ship
source "$(dirname "$0")/../../scripts/lib.sh"
configure_and_build coverage
find build/coverage -name '*.gcda' -delete
# Their verdicts belong to the stages that run them as built for use; here a failure only shows as a gap.
ctest --preset coverage --parallel "$(nproc)" --quiet --output-log build/coverage-unit.log || echo "some unit tests failed"
OZU_TEST_BUILD=build/coverage /usr/bin/python3 -m pytest -q tests/panel >build/coverage-panel.log 2>&1 ||
    echo "some panel tests failed; see build/coverage-panel.log"
/usr/bin/python3 scripts/coverage.py --junit build/results/coverage.xml build/coverage
