// A stdio stream with one owner, closed when the owner goes.
#pragma once

#include <cstdio>

namespace ozu {

class UniqueFile {
  public:
    explicit UniqueFile(std::FILE *file) noexcept : file_(file) {}
    UniqueFile(const UniqueFile &) = delete;
    UniqueFile &operator=(const UniqueFile &) = delete;
    ~UniqueFile() {
        if (file_ != nullptr) {
            static_cast<void>(std::fclose(file_));
        }
    }

    [[nodiscard]] std::FILE *get() const noexcept { return file_; }
    [[nodiscard]] bool valid() const noexcept { return file_ != nullptr; }
    // Bytes go straight between the file and the caller's buffer: no copy of them stays in a stream buffer.
    void unbuffered() noexcept { static_cast<void>(std::setvbuf(file_, nullptr, _IONBF, 0)); }

  private:
    std::FILE *file_;
};

} // namespace ozu
