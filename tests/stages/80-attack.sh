# Only by name
# Library and platform under attack, in the long form. The lines "attack: ..." are the table of docs/reliability.md.
# Packages: build box test
source "$(dirname "$0")/../../scripts/lib.sh"
configure_and_build dev
export OZU_ATTACK=long
failed=0
for program in attack_test attack_library_test attack_threads_test fuzz_library_families_test fuzz_platform_families_test; do
    build/dev/bin/$program --gtest_output=xml:build/results/$program.xml 2>/dev/null |
        grep -aE '^(attack|failed):|FAILED|PASSED' || failed=1
done
/usr/bin/python3 -m pytest -q -s -rs tests/attack tests/panel/test_secrets.py --junit-xml=build/results/attack-python.xml || failed=1
exit "$failed"
