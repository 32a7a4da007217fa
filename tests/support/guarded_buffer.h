// Memory with an unreadable page directly before and directly after it: one byte too far is a crash.
//
// A buffer touches only one of its two pages unless its size is a multiple of the page size, so a test that
// cares for both ends runs with Edge::Back and Edge::Front.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace ozu::test {

enum class Edge { Front, Back };

class GuardedBuffer {
  public:
    // Filled with the byte given.
    explicit GuardedBuffer(std::size_t size, Edge edge = Edge::Back, unsigned char fill = 0xA5)
        : page_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))), size_(size) {
        const std::size_t middle = (size + page_ - 1) / page_ * page_;
        mapped_ = middle + 2 * page_;
        void *memory = mmap(nullptr, mapped_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) {
            abort();
        }
        base_ = static_cast<unsigned char *>(memory);
        if (middle > 0 && mprotect(base_ + page_, middle, PROT_READ | PROT_WRITE) != 0) {
            abort();
        }
        data_ = edge == Edge::Back ? base_ + page_ + middle - size : base_ + page_;
        memset(data_, fill, size);
    }
    // Holds the text's bytes, without terminator.
    explicit GuardedBuffer(std::string_view text, Edge edge = Edge::Back) : GuardedBuffer(text.size(), edge) {
        if (!text.empty()) {
            memcpy(data_, text.data(), text.size());
        }
    }
    ~GuardedBuffer() { munmap(base_, mapped_); }
    GuardedBuffer(const GuardedBuffer &) = delete;
    GuardedBuffer &operator=(const GuardedBuffer &) = delete;

    [[nodiscard]] unsigned char *bytes() const { return data_; }
    [[nodiscard]] char *chars() const { return reinterpret_cast<char *>(data_); }
    [[nodiscard]] std::size_t size() const { return size_; }
    [[nodiscard]] std::string_view view() const { return {chars(), size_}; }
    // Terminated text in the buffer.
    [[nodiscard]] std::string_view text() const { return {chars(), strnlen(chars(), size_)}; }
    void set(std::string_view content) const { std::ranges::copy(content, chars()); }

  private:
    std::size_t page_;
    std::size_t size_;
    std::size_t mapped_ = 0;
    unsigned char *base_ = nullptr;
    unsigned char *data_ = nullptr;
};

} // namespace ozu::test
