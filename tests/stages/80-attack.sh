# Only by name
# Library and platform under attack, in the long form. The lines "attack: ..." are the table of docs/reliability.md.
# Packages: build box test
source "$(dirname "$0")/../../scripts/lib.sh"
configure_and_build dev all long_programs
export OZU_ATTACK=long

attack() { # PROGRAM [FILTER]
    local name=$1${2:+-${2//[^A-Za-z]/}}
    build/dev/bin/"$1" ${2:+--gtest_filter="$2"} --gtest_output=xml:"build/results/$name.xml" 2>/dev/null |
        grep -aE '^(attack|failed):|FAILED|PASSED'
}
attack_python() {
    /usr/bin/python3 -m pytest -q -s -rs tests/attack tests/panel/test_secrets.py --junit-xml=build/results/attack-python.xml
}
export -f attack attack_python

# They share nothing, so as many run as there are processors, the longest first.
xargs -P "$(nproc)" -d '\n' -n 1 bash -o pipefail -c 'eval "$0"' <<'JOBS'
attack attack_test '*FailingCalls*'
attack attack_test '*brokerKilled'
attack fuzz_platform_families_test
attack fuzz_tool_families_test
attack fuzz_library_families_test
attack attack_test '*KilledWriters*'
attack attack_library_test
attack attack_threads_test
attack attack_test '*Damage*'
attack attack_test '*soak'
attack_python
JOBS
