// A file that a command makes: complete under its name, or not there.
#pragma once

#include <string>
#include <string_view>

namespace ozuctl {

// Plain files are written beside their name and renamed when they are finished, so that nobody sees half of
// one and a failure leaves what was there. A device or FIFO is written as it is.
class OutputFile {
  public:
    // Source: a file that is read and must not be overwritten. Throws kUsage for it, kLibraryFailed when the
    // file cannot be made.
    explicit OutputFile(std::string path, const std::string &source = {}, unsigned mode = 0666);
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    void write(std::string_view bytes); // throws kLibraryFailed
    void finish();                      // throws kLibraryFailed

  private:
    [[noreturn]] void fail(int error) const;

    std::string path_;
    std::string beside_; // empty: path_ itself is written
    int descriptor_ = -1;
};

} // namespace ozuctl
