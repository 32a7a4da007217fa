// Nothing but a source for the target whose precompiled headers the test programs use.
#include <gtest/gtest.h>
