// What a call may leave behind in the process.
#pragma once

namespace ozu::test {

// Open descriptors of this process.
int openDescriptors();
// Pages of memory that this process has in use.
long residentPages();
// Children of this process, zombies included.
int children();

} // namespace ozu::test
