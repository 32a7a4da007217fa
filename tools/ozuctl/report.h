// What an archive for support holds.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace ozuctl {

struct ReportEntry {
    std::string name; // in the archive
    std::string what;
    std::string content;
    bool cut = false; // only its newest part
};

struct Report {
    std::vector<ReportEntry> entries;
    std::vector<std::string> leftOut; // one sentence each
};

// Reads everything; what cannot be read is an entry that says why. Secrets are left out.
Report gatherReport();

} // namespace ozuctl
