// Device types on the command line: a code, or a name as in the panel's logs.
#pragma once

#include <string>

namespace ozuctl {

// The code of a name. Throws CommandError(kNo) when no type has it.
int requireDeviceType(const std::string &name);

// The code of a number (0x for hexadecimal) or name.
int deviceTypeOf(const std::string &codeOrName);

} // namespace ozuctl
