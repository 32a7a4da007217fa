// The one reader for bytes that come from outside: DNS replies, netlink messages, files of /proc, CSV lines.
//
// A read past the end yields zeros, moves nothing and turns ok() false for good, so a parser may read a whole
// record and test once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>

namespace ozu {

class BoundedReader {
  public:
    constexpr explicit BoundedReader(std::span<const std::uint8_t> bytes) noexcept : bytes_(bytes) {}

    [[nodiscard]] constexpr bool ok() const noexcept { return ok_; }
    [[nodiscard]] constexpr std::size_t position() const noexcept { return position_; }
    [[nodiscard]] constexpr std::size_t remaining() const noexcept { return bytes_.size() - position_; }
    [[nodiscard]] constexpr std::span<const std::uint8_t> all() const noexcept { return bytes_; }

    constexpr std::uint8_t u8() noexcept { return take(1) ? bytes_[position_ - 1] : std::uint8_t{0}; }
    // Network byte order.
    constexpr std::uint16_t u16be() noexcept {
        return take(2) ? static_cast<std::uint16_t>(bytes_[position_ - 2] << 8 | bytes_[position_ - 1])
                       : std::uint16_t{0};
    }
    constexpr std::uint32_t u32be() noexcept {
        const std::uint32_t high = u16be();
        return (high << 16) | u16be();
    }
    // A record in the machine's own layout, as the kernel writes it.
    template <typename Record>
    Record record() noexcept {
        static_assert(std::is_trivially_copyable_v<Record>);
        Record value{};
        if (take(sizeof(Record))) {
            std::memcpy(&value, bytes_.data() + (position_ - sizeof(Record)), sizeof(Record));
        }
        return value;
    }
    // The next count bytes, or none when fewer remain.
    constexpr std::span<const std::uint8_t> bytes(std::size_t count) noexcept {
        if (!take(count)) {
            return {};
        }
        return bytes_.subspan(position_ - count, count);
    }
    constexpr void skip(std::size_t count) noexcept { static_cast<void>(take(count)); }
    // Goes on at the next multiple of the alignment, a power of two, or at the end: the last record needs no
    // padding.
    constexpr void skipPadding(std::size_t alignment) noexcept {
        const std::size_t padding = (0 - position_) & (alignment - 1);
        skip(padding < remaining() ? padding : remaining());
    }
    // Goes on at an absolute position.
    constexpr void seek(std::size_t position) noexcept {
        if (position > bytes_.size()) {
            ok_ = false;
            return;
        }
        position_ = position;
    }

  private:
    constexpr bool take(std::size_t count) noexcept {
        ok_ = ok_ && count <= remaining();
        position_ += ok_ ? count : 0;
        return ok_;
    }

    std::span<const std::uint8_t> bytes_;
    std::size_t position_ = 0;
    bool ok_ = true;
};

} // namespace ozu
