# The reference platform's threads under the thread sanitizer: eight of them log and publish, a broker comes and goes,
# commands are started in between.
# The library's reading of a record that changes underneath.
# Packages: build box test
source "$(dirname "$0")/../../scripts/lib.sh"
configure_and_build tsan platform_test platform_command_storm_test network_dns_file_race_test
build/tsan/bin/platform_test --gtest_filter='LogTest.threads*' --gtest_output=xml:build/results/threads-log.xml 2>/dev/null
build/tsan/bin/network_dns_file_race_test --gtest_output=xml:build/results/threads-dns-file.xml
build/tsan/bin/platform_command_storm_test --gtest_output=xml:build/results/threads-commands.xml
build/tsan/bin/platform_test --gtest_filter='Bus.threads*:Bus.callback*:Bus.reconnects*:Bus.messagesThat*:Bus.carries*' \
    --gtest_output=xml:build/results/threads-bus.xml 2>build/results/threads.log || {
    grep -A 40 'WARNING: ThreadSanitizer' build/results/threads.log | head -60 >&2
    exit 1
}
