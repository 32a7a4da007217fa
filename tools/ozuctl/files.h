// Files that a command is given.
#pragma once

#include <cstdint>
#include <string>

namespace ozuctl {

// Throws kNo when there is no such file, kLibraryFailed when it is a folder or cannot be read.
void requireReadable(const std::string &path);

// The same, and kLibraryFailed when it is a FIFO or device: the library may wait for good on one.
void requirePlain(const std::string &path);

// Its content; throws as requireReadable() does, and when it is larger than so many bytes.
std::string contentOf(const std::string &path, std::uint64_t most);

} // namespace ozuctl
