// What goes to standard output and standard error meanwhile, without a file that a killed test would leave.
#pragma once

#include <string>

namespace ozu::test {

void captureStdout();
void captureStderr();
// Ends it: what came.
std::string capturedStdout();
std::string capturedStderr();

} // namespace ozu::test
