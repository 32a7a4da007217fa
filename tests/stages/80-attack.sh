# Only by name
# The platform under attack, in its long form. The lines "attack: ..." are the table of docs/reliability.md.
# Packages: build box test
source "$(dirname "$0")/../../scripts/lib.sh"
configure_and_build dev
OZU_ATTACK=long build/dev/bin/attack_test --gtest_output=xml:build/results/attack.xml | grep -E '^(attack|failed):|FAILED|PASSED'
