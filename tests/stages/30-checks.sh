# Checks of the tree and of what was built: headers, exported names, who includes whom, words.
# In the short run
# Packages: build box test
source "$(dirname "$0")/../../scripts/lib.sh"
configure_and_build dev
/usr/bin/python3 -m pytest -q -n "$(nproc)" tests/checks tests/c_api -m "not long and not clang" --junit-xml=build/results/checks.xml
