# The binary interface of both libraries on both machines, against what was agreed.
# Packages: build box test arm ship
source "$(dirname "$0")/../../scripts/lib.sh"
scripts/make_armhf_sysroot.sh
configure_and_build dev utils_ozu
configure_and_build armhf utils_ozu
/usr/bin/python3 scripts/abi.py check --junit build/results/abi.xml
