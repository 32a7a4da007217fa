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

    constexpr std::uint8_t u8() noexcept {
        const auto field = bytes(1);
        return field.empty() ? std::uint8_t{0} : field[0];
    }
    // Network byte order.
    constexpr std::uint16_t u16be() noexcept {
        const auto field = bytes(2);
        return field.empty() ? std::uint16_t{0} : static_cast<std::uint16_t>((field[0] << 8) | field[1]);
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
        if (const auto field = bytes(sizeof(Record)); !field.empty()) {
            std::memcpy(&value, field.data(), sizeof(Record));
        }
        return value;
    }
    // The next count bytes, or none when fewer remain.
    constexpr std::span<const std::uint8_t> bytes(std::size_t count) noexcept {
        if (!ok_ || count > remaining()) {
            ok_ = false;
            return {};
        }
        const auto field = bytes_.subspan(position_, count);
        position_ += count;
        return field;
    }
    constexpr void skip(std::size_t count) noexcept { static_cast<void>(bytes(count)); }
    // Goes on at the next multiple of the alignment, or at the end: the last record needs no padding.
    constexpr void skipPadding(std::size_t alignment) noexcept {
        const std::size_t padding = (alignment - position_ % alignment) % alignment;
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
    std::span<const std::uint8_t> bytes_;
    std::size_t position_ = 0;
    bool ok_ = true;
};

} // namespace ozu
