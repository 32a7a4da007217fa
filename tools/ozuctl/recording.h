// A recording of a panel: a JSON line for everything that happened, as 'monitor --json' prints it.
#pragma once

#include "output.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace ozuctl {

// A recording that is made. Throws kLibraryFailed when it cannot be written.
class RecordingFile {
  public:
    explicit RecordingFile(std::string path);
    ~RecordingFile();
    RecordingFile(const RecordingFile &) = delete;
    RecordingFile &operator=(const RecordingFile &) = delete;
    void add(const Json &record);

  private:
    std::string path_;
    int descriptor_;
};

struct Recorded {
    std::int64_t timeMs;
    Json record;
};

// A recording's content in chronological order. A last line that is truncated, as after a crash, is left out.
// Throws kNo when there is no such file, kLibraryFailed when it is no recording.
std::vector<Recorded> readRecording(const std::string &path);

} // namespace ozuctl
