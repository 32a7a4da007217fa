# The unit tests again under the address and undefined-behaviour sanitizers.
# Packages: build box test
source "$(dirname "$0")/../../scripts/lib.sh"
configure_and_build asan
ctest --preset asan --parallel "$(nproc)" --output-junit "$PWD/build/results/sanitizers.xml" | tail -n 25
