# Installation, packages and the board's tarball.
# Packages: build box test arm ship
source "$(dirname "$0")/../../scripts/lib.sh"
scripts/make_packages.sh
OZU_TEST_BUILD=build/release /usr/bin/python3 -m pytest -q tests/install --junit-xml=build/results/install.xml
