// What the tests of the process frame share: the fake platform, and the words in which they speak of it.
#pragma once

#include "fake_platform.h"

using ozu::test::extended;
using ozu::test::LogLine;
using ozu::test::platform;
using ozu::test::shortLine;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
