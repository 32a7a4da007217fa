#include "library_log.h"

#include <sys/mman.h>
#include <unistd.h>

#include <iostream>

namespace ozuctl {

LibraryLog::LibraryLog()
    : caught_(memfd_create("library log", MFD_CLOEXEC)), original_(caught_ < 0 ? -1 : dup(STDERR_FILENO)) {
    std::cerr.flush();
    if (original_ >= 0) {
        dup2(caught_, STDERR_FILENO);
    }
}

LibraryLog::~LibraryLog() {
    stop();
    close(caught_);
}

void LibraryLog::stop() {
    if (original_ < 0) {
        return;
    }
    dup2(original_, STDERR_FILENO);
    close(original_);
    original_ = -1;
    char piece[4096];
    off_t position = 0;
    for (ssize_t got = 0; (got = pread(caught_, piece, sizeof(piece), position)) > 0; position += got) {
        content_.append(piece, static_cast<std::size_t>(got));
    }
}

std::string LibraryLog::after(const std::string &beginning) {
    stop();
    const auto found = content_.find(beginning);
    if (found == std::string::npos) {
        return {};
    }
    const auto start = found + beginning.size();
    return content_.substr(start, content_.find('\n', start) - start);
}

bool LibraryLog::has(const std::string &text) {
    stop();
    return content_.find(text) != std::string::npos;
}

} // namespace ozuctl
