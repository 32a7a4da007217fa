# Only by name
# The checkout in a bare root of each supported release: compilers without a warning, ./test, ./demo.
# Packages: build box test arm
source "$(dirname "$0")/../../scripts/lib.sh"
scripts/make_armhf_sysroot.sh
/usr/bin/python3 -m pytest -q tests/releases --junit-xml=build/results/releases.xml
