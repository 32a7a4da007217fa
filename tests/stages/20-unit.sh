# Unit tests: the library's objects against the fake platform.
# Packages: build box test
source "$(dirname "$0")/../../scripts/lib.sh"
configure_and_build dev
ctest --preset dev --parallel "$(nproc)" --output-junit "$PWD/build/results/unit.xml" | tail -n 25
