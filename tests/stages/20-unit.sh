# Unit tests: the library's objects against the fake platform.
# In the short run
# Packages: build box test
source "$(dirname "$0")/../../scripts/lib.sh"
configure_and_build dev
unit_tests dev build/results/unit.xml --label-exclude long
