# Style: clang-format over every C and C++ file, clang-tidy over the library, the platform and the tools.
# Packages: build box test
source "$(dirname "$0")/../../scripts/lib.sh"
say "Configuring (dev)"
cmake --preset dev >build/dev.configure.log 2>&1 || {
    tail -n 30 build/dev.configure.log >&2
    die "configuring preset dev failed"
}
/usr/bin/python3 -m pytest -q tests/style --junit-xml=build/results/style.xml
