// What the library logs while a command runs: some answers carry their reason only there.
//
// ozuctl opens no log of its own for these commands, so the platform writes the lines to standard error;
// there they are caught.
#pragma once

#include <string>

namespace ozuctl {

class LibraryLog {
  public:
    // From here on standard error is caught, until stop() or the end of this object.
    LibraryLog();
    ~LibraryLog();
    LibraryLog(const LibraryLog &) = delete;
    LibraryLog &operator=(const LibraryLog &) = delete;

    void stop();
    // The first line's text from this beginning on, without it; empty when no line has it. Stops the
    // catching.
    std::string after(const std::string &beginning);
    // Whether some line holds this text. Stops the catching.
    bool has(const std::string &text);

  private:
    int caught_;   // a file in memory
    int original_; // standard error as it was, -1 once it is back
    std::string content_;
};

} // namespace ozuctl
