# Style: clang-format over every C and C++ file, clang-tidy over the library, the platform and the tools; clang takes
# the public headers, too.
# Packages: build box test style
source "$(dirname "$0")/../../scripts/lib.sh"
say "Configuring (dev)"
cmake --preset dev >build/dev.configure.log 2>&1 || {
    tail -n 30 build/dev.configure.log >&2
    die "configuring preset dev failed"
}
/usr/bin/python3 -m pytest -q tests/style --junit-xml=build/results/style.xml
/usr/bin/python3 -m pytest -q tests/checks -m clang --junit-xml=build/results/style-headers.xml
