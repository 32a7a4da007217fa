// Where log lines go: the process's file, and standard error.
#pragma once

#include "descriptor.h"

#include <spdlog/details/null_mutex.h>
#include <spdlog/sinks/base_sink.h>

#include <string>

namespace ozu::platform {

using UnlockedSink = spdlog::sinks::base_sink<spdlog::details::null_mutex>; // the log has a lock of its own

// Appends each line with one write. Lines that do not fit a full disk are lost, never waited for. Where
// something else than a log file stands in its place, lines go on to the file that was there before.
class FileSink : public UnlockedSink {
  public:
    // Opens the file; throws Error when it cannot be opened.
    FileSink(std::string path, std::size_t largest, int olderFiles);

  protected:
    void sink_it_(const spdlog::details::log_msg &message) override;
    void flush_() override {}

  private:
    [[nodiscard]] Descriptor open() const;
    void reopen();
    void followOrRotate();
    void rotate();
    void moveAway() const;

    std::string path_;
    std::size_t largest_;
    int olderFiles_;
    Descriptor file_;
    bool cutLine_ = false; // the last write stopped within its line
};

// Writes each line with one write; drops it when a pipe or terminal would block or nobody reads any more.
class StandardErrorSink : public UnlockedSink {
  protected:
    void sink_it_(const spdlog::details::log_msg &message) override;
    void flush_() override {}
};

} // namespace ozu::platform
