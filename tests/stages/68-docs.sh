# The pages: Doxygen without a warning, manual pages, links.
# Packages: build box test ship
source "$(dirname "$0")/../../scripts/lib.sh"
configure_and_build dev
/usr/bin/python3 -m pytest -q tests/docs --junit-xml=build/results/docs.xml
