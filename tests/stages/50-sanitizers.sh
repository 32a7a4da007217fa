# The unit tests again under the address and undefined-behaviour sanitizers.
# Packages: build box test
source "$(dirname "$0")/../../scripts/lib.sh"
configure_and_build asan all long_programs
unit_tests asan build/results/sanitizers.xml
