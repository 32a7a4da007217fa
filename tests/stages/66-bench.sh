# The benchmarks build and run; counted lookups keep to their targets, times are shown.
# Packages: build box test ship
source "$(dirname "$0")/../../scripts/lib.sh"
configure_and_build bench
/usr/bin/python3 -m pytest -q tests/bench --junit-xml=build/results/bench.xml
