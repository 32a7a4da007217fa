# Source it: the test kit of this checkout with one of its builds, as if the packages were installed.
#
#   . testkit/environment.sh [BUILD]      build/release when none is named

_ozu_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
OZU_TEST_BUILD=$(cd "$_ozu_root" && realpath "${1:-build/release}")
export OZU_TEST_BUILD
export ozu_DIR=$OZU_TEST_BUILD/package                    # find_package(ozu)
export PATH=$OZU_TEST_BUILD/bin:$PATH                     # ozuctl
export PYTHONPATH=$_ozu_root/testkit${PYTHONPATH:+:$PYTHONPATH}
export PYTEST_PLUGINS=pytest_ozu.plugin
unset _ozu_root
