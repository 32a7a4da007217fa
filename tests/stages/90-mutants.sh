# Only by name
# Mutation: changes the library one place at a time and looks whether the unit tests notice. Goes on where it was ended.
# Packages: build box test
source "$(dirname "$0")/../../scripts/lib.sh"
configure_and_build dev
scripts/mutants.py --junit build/results/mutants.xml build/dev
