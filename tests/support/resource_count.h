// What a call may leave behind in the process.
#pragma once

namespace ozu::test {

// Open descriptors of this process.
int openDescriptors();
// Children of this process, zombies included.
int children();

} // namespace ozu::test
