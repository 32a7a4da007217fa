// Files that belong to the platform, told from whatever somebody else has put in their place.
//
// What stands at a path is used only when it is a regular file with one name, owned by this process's user,
// by the data folder's owner or by root. Links, FIFOs, devices and folders are neither followed nor waited
// for.
#pragma once

#include "descriptor.h"

#include <sys/stat.h>

#include <string>

namespace ozu::platform {

// The user is one of those whose files the platform uses.
bool isTrusted(uid_t owner, uid_t folderOwner) noexcept;

// What kind of thing it is: "a FIFO", "a link", ...
const char *kindOf(mode_t mode) noexcept;

// Opens a file of the platform that lies in one of its own folders. With O_CREAT it is made with mode 0600,
// whatever the umask, and belongs to the folder's owner, even when root makes it. Throws Error, with errno's
// code, when it cannot be opened or is not the platform's.
Descriptor openOwnFile(const std::string &path, int flags);

// Makes a folder with this mode, whatever the umask. @return false, with errno, when it is not there then
bool makeFolder(const std::string &path, mode_t mode) noexcept;

// Makes a folder of the platform in the data folder, with mode 0700, for that one's owner, even when root
// makes it. @return false, with errno, when it is not there then
bool makeOwnFolder(const std::string &path);

// Takes the rights of everybody but the owner away. @return true when there were any
bool closeToOthers(int fd) noexcept;

// Throws Error unless nothing is there, or a file of the platform.
void requireOwnFileOrNone(const std::string &path);

// Throws Error unless a folder of the platform is there; its last part must not be a link.
void requireOwnFolder(const std::string &path);

} // namespace ozu::platform
