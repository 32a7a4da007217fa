# The pages: headers without a warning, site, manual pages, links, pictures.
# Packages: build box test ship docs
source "$(dirname "$0")/../../scripts/lib.sh"
configure_and_build dev
/usr/bin/python3 -m pytest -q tests/docs --junit-xml=build/results/docs.xml
