// The tables of the database, and what is done when one of them is damaged.
#pragma once

#include "database_file.h"

#include <string>

namespace ozu::platform {

// Makes the tables of a new database, and those that are missing or have another shape; a line at 80000 names
// each of these. Throws Error for a database of a newer release.
void requireSchema(DatabaseFile &file);

// Makes those tables anew, empty, whose content cannot be read; a line at 80000 names each. The other tables
// keep what they have, and so do connections of other processes. The caller holds the folder's lock. Throws
// Error when the file is beyond that.
void mendDatabase(const std::string &path);

} // namespace ozu::platform
