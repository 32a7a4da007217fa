// The folder that holds all persistent state: the database, the logs, and the folder's identity.
#pragma once

#include "descriptor.h"

#include <cstdint>
#include <string>

namespace ozu::platform {

// Absolute path of the folder: OZU_PLATFORM_DIR, else /var/lib/ozu. Creates nothing.
std::string folderPath();

// Whether this process makes what is missing; see openOnly() of the tools' interface.
bool makesNothing() noexcept;

// Throws kNothingThere for a process that makes nothing.
void requireMaking(const std::string &what);

// The database's file in it.
std::string databasePath(const std::string &folder);

// Creates the folder (0700) if need be; throws Error when it cannot be used.
void requireFolder(const std::string &path);

// Tells the folder from every other one, also after it was renamed.
struct FolderMark {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::int64_t born = 0; // nanoseconds since 1970; 0 where the file system does not know

    bool operator==(const FolderMark &) const = default;
};
FolderMark markOf(const std::string &folder);

// Holds the folder's lock between processes: while one opens the database or creates the shared segment, no
// other does. Waits for another process's at most 10 s. Ends with the process at the latest.
class FolderLock {
  public:
    explicit FolderLock(const std::string &folder);
    ~FolderLock();
    FolderLock(const FolderLock &) = delete;
    FolderLock &operator=(const FolderLock &) = delete;

    // The folder's identity, 32 hexadecimal digits, made when the folder is used first. It names what
    // belongs to the folder but lives elsewhere: the shared segment. One that was damaged is taken from the
    // segment that the running panel uses, else created again; the log tells.
    [[nodiscard]] const std::string &identity() const noexcept { return identity_; }
    // From now on the folder has this one; throws Error when it cannot be stored.
    void setIdentity(const std::string &identity);
    // The one that the running panel uses: it holds for this process even when it cannot be stored.
    void adoptIdentity(const std::string &identity);
    // The folder's database has never been made: nobody has stored anything, though a start may have been cut
    // short.
    [[nodiscard]] bool isNew() const noexcept { return isNew_; }
    // The database has been made; from now on its absence is a loss. Remembered before anything is stored in
    // it.
    void endNewness();

  private:
    void open();
    void lock();
    [[nodiscard]] bool lockedFileIsThere() const noexcept;
    void repairIdentity();

    std::string path_;
    const std::string folder_;
    Descriptor file_;
    bool wasThere_ = false; // the file, before this lock was made
    bool isNew_ = false;
    std::string identity_;
};

inline constexpr std::size_t kIdentityDigits = 32;
// So many random hexadecimal digits; throws Error when there are none.
std::string newIdentity();

// Identity of a folder that has been used before; empty otherwise.
std::string existingIdentity(const std::string &folder);

} // namespace ozu::platform
