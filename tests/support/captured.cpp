#include "captured.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <ext/stdio_filebuf.h>
#include <optional>
#include <stdexcept>

namespace ozu::test {

namespace {

class Capture {
  public:
    explicit Capture(int captured) : captured_(captured) {
        fflush(nullptr);
        kept_ = fcntl(captured_, F_DUPFD_CLOEXEC, 3);
        const int memory = memfd_create("captured", MFD_CLOEXEC);
        if (kept_ < 0 || memory < 0) {
            throw std::runtime_error("nothing to capture into");
        }
        dup2(memory, captured_);
        drop(memory);
    }

    std::string text() {
        fflush(nullptr);
        std::string all;
        std::array<char, 4096> piece{};
        while (true) {
            const ssize_t got = pread(captured_, piece.data(), piece.size(), static_cast<off_t>(all.size()));
            if (got <= 0) {
                break;
            }
            all.append(piece.data(), static_cast<std::size_t>(got));
        }
        dup2(kept_, captured_);
        drop(kept_);
        return all;
    }

  private:
    // Tests replace close(); the C++ library's is its own.
    static void drop(int descriptor) { __gnu_cxx::stdio_filebuf<char>(descriptor, std::ios::out); }

    int captured_;
    int kept_ = -1;
};

std::array<std::optional<Capture>, 3> captures;

std::string endOf(std::size_t descriptor) {
    const std::string text = captures.at(descriptor).value().text();
    captures.at(descriptor).reset();
    return text;
}

} // namespace

void captureStdout() {
    captures.at(STDOUT_FILENO).emplace(STDOUT_FILENO);
}

void captureStderr() {
    captures.at(STDERR_FILENO).emplace(STDERR_FILENO);
}

std::string capturedStdout() {
    return endOf(STDOUT_FILENO);
}

std::string capturedStderr() {
    return endOf(STDERR_FILENO);
}

} // namespace ozu::test
