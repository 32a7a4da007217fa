// The folder that holds everything that lasts: the database, the logs, and the folder's identity.
#pragma once

#include "descriptor.h"

#include <string>

namespace ozu::platform {

// Absolute path of the folder: OZU_PLATFORM_DIR, else /var/lib/ozu. Creates nothing.
std::string folderPath();

// Whether this process makes what is missing; see openOnly() of the tools' interface.
bool makesNothing() noexcept;

// Throws kNothingThere for a process that makes nothing.
void requireMaking(const std::string &what);

// Creates the folder (0700) if need be; throws Error when it cannot be used.
void requireFolder(const std::string &path);

// Holds the folder's lock between processes: while one opens the database or creates the shared segment, no
// other does. Ends with the process at the latest.
class FolderLock {
  public:
    explicit FolderLock(const std::string &folder);
    ~FolderLock();
    FolderLock(const FolderLock &) = delete;
    FolderLock &operator=(const FolderLock &) = delete;

    // The folder's identity, 32 hexadecimal digits, made when the folder is used first. It names what
    // belongs to the folder but lives elsewhere: the shared segment.
    [[nodiscard]] const std::string &identity() const noexcept { return identity_; }

  private:
    void readOrMakeIdentity(const std::string &path);

    Descriptor file_;
    std::string identity_;
};

// Identity of a folder that has been used before; empty otherwise.
std::string existingIdentity(const std::string &folder);

} // namespace ozu::platform
