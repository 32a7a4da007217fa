// Shows a command the log lines that the library writes during its calls. A process that has not opened its
// log writes them to standard error, where the tap takes them up.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace ozuctl {

struct LoggedLine {
    int level = 0;
    std::string function; // empty for lines without position
    std::string text;
};

// While it lives, log lines go to the receiver instead of standard error; whatever else is written there
// passes. The receiver runs in a thread of its own and returns what is to stand on standard error in the
// line's place.
class LogTap {
  public:
    using Receiver = std::function<std::string(const LoggedLine &)>;
    explicit LogTap(Receiver receiver);
    LogTap(const LogTap &) = delete;
    LogTap &operator=(const LogTap &) = delete;
    ~LogTap();

  private:
    void read();
    void handOn(std::string_view line) const;

    Receiver receiver_;
    int standardError_; // as it was
    int pipe_ = -1;     // the end that is read
    std::thread reader_;
};

// The lines that the library logs during a call; they stand nowhere else.
std::vector<LoggedLine> linesOf(const std::function<void()> &call);

} // namespace ozuctl
