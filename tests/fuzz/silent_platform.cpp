// The platform of fuzz targets: the fake one, keeping nothing. Log lines are formatted all the same, so that
// a text without a terminator shows.

#include <ozu_fake_platform.h>

namespace {

[[gnu::constructor]] void keepNothing() {
    ozu_fake_record(0);
}

} // namespace
