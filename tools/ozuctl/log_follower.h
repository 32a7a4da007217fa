// New lines of all log files of a folder, through rotation.
#pragma once

#include "log_line.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace ozuctl {

class LogFollower {
  public:
    using Sink = std::function<void(const std::string &file, const std::string &line)>;

    // Starts at the present end of every file.
    LogFollower(std::string folder, Sink sink);
    ~LogFollower();
    LogFollower(const LogFollower &) = delete;
    LogFollower &operator=(const LogFollower &) = delete;

    // Hands over the complete lines that were added since the last look.
    void look();

  private:
    struct File {
        int descriptor;
        std::uint64_t inode;
        LineSplitter lines;
    };

    void open(const std::string &name, bool atEnd);
    static void drain(File &file);
    void scan(bool atEnd);

    std::string folder_;
    Sink sink_;
    std::map<std::string, File> files_;
};

} // namespace ozuctl
