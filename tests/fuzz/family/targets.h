// Fuzz targets that share a program: one for each family of functions that takes text or bytes.
//
// library_targets.cpp has those of the library, platform_targets.cpp those of the reference platform; each
// defines kTargets. OZU_FUZZ_TARGET names the one that libFuzzer runs.
#pragma once

#include "guarded_buffer.h"
#include "process_folder.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace ozu::fuzz {

// The bytes of one run, taken apart from the front; zeros behind their end.
class Input {
  public:
    explicit Input(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    std::uint8_t byte() {
        if (bytes_.empty()) {
            return 0;
        }
        const std::uint8_t value = bytes_.front();
        bytes_ = bytes_.subspan(1);
        return value;
    }
    std::uint32_t number() {
        std::uint32_t value = 0;
        for (int i = 0; i < 4; ++i) {
            value = value << 8 | byte();
        }
        return value;
    }
    // Up to the next zero byte, which is taken, too.
    std::string_view text() {
        const auto end = std::find(bytes_.begin(), bytes_.end(), std::uint8_t{0});
        const auto length = static_cast<std::size_t>(end - bytes_.begin());
        const std::string_view found(reinterpret_cast<const char *>(bytes_.data()), length);
        bytes_ = bytes_.subspan(std::min(length + 1, bytes_.size()));
        return found;
    }
    std::string_view rest() {
        const std::string_view found(reinterpret_cast<const char *>(bytes_.data()), bytes_.size());
        bytes_ = {};
        return found;
    }

  private:
    std::span<const std::uint8_t> bytes_;
};

struct Target {
    const char *name;
    void (*run)(Input &input);
    int cost = 1; // so many times slower than the others: it gets so many times fewer random inputs
};
extern const std::span<const Target> kTargets;

// Ends the run: something broke one of its promises.
inline void require(bool holds) {
    if (!holds) {
        abort();
    }
}

#ifdef OZU_LIBFUZZER
// The sanitizer sees one byte too far in ordinary memory, which takes no call of the system.
class Output {
  public:
    explicit Output(std::size_t size) : bytes_(new unsigned char[size]), size_(size) {
        memset(bytes_.get(), 0xA5, size);
    }
    explicit Output(std::string_view content) : Output(content.size()) { set(content); }
    [[nodiscard]] unsigned char *bytes() const { return bytes_.get(); }
    [[nodiscard]] char *chars() const { return reinterpret_cast<char *>(bytes_.get()); }
    [[nodiscard]] std::size_t size() const { return size_; }
    [[nodiscard]] std::string_view view() const { return {chars(), size_}; }
    [[nodiscard]] std::string_view text() const { return {chars(), strnlen(chars(), size_)}; }
    void set(std::string_view content) const { std::copy(content.begin(), content.end(), chars()); }

  private:
    std::unique_ptr<unsigned char[]> bytes_;
    std::size_t size_;
};
#else
using Output = test::GuardedBuffer;
#endif

// A null-terminated text with nothing readable behind it.
class Text {
  public:
    explicit Text(std::string_view content) : buffer_(content.size() + 1) {
        buffer_.set(content);
        buffer_.chars()[content.size()] = '\0';
    }
    operator const char *() const { return buffer_.chars(); } // NOLINT(google-explicit-constructor)
    [[nodiscard]] char *changeable() const { return buffer_.chars(); }

  private:
    Output buffer_;
};

// A file of the given content, by a name that only this process knows.
class MemoryFile {
  public:
    explicit MemoryFile(std::string_view content) : fd_(memfd_create("fuzz", MFD_CLOEXEC)) {
        require(pwrite(fd_, content.data(), content.size(), 0) == static_cast<ssize_t>(content.size()));
    }
    ~MemoryFile() { close(fd_); }
    MemoryFile(const MemoryFile &) = delete;
    MemoryFile &operator=(const MemoryFile &) = delete;
    [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }
    [[nodiscard]] std::string content() const {
        std::string all(static_cast<std::size_t>(lseek(fd_, 0, SEEK_END)), '\0');
        require(pread(fd_, all.data(), all.size(), 0) == static_cast<ssize_t>(all.size()));
        return all;
    }

  private:
    int fd_;
};

// A data folder of this process's own, which goes with it.
inline const std::string &ownDataFolder() {
    static const std::string folder = [] {
        std::string made = test::makeFolder("data");
        setenv("OZU_PLATFORM_DIR", made.c_str(), 1);
        return made;
    }();
    return folder;
}

inline bool isTerminated(const Output &out) {
    return memchr(out.bytes(), '\0', out.size()) != nullptr;
}

} // namespace ozu::fuzz
