// Bytes that must not outlive a call.
#pragma once

#include <openssl/crypto.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace ozu {

// An array that is wiped when it goes out of scope. Its content starts undefined where the caller fills it
// anyway.
template <typename Element, std::size_t Count>
class SecretArray {
  public:
    SecretArray() noexcept {} // NOLINT(modernize-use-equals-default): zeroing pieces of a file costs time
    ~SecretArray() { OPENSSL_cleanse(elements_, sizeof(elements_)); }
    SecretArray(const SecretArray &) = delete;
    SecretArray &operator=(const SecretArray &) = delete;

    [[nodiscard]] Element *data() noexcept { return elements_; }
    [[nodiscard]] const Element *data() const noexcept { return elements_; }
    [[nodiscard]] static constexpr std::size_t size() noexcept { return Count; }
    Element &operator[](std::size_t index) noexcept { return elements_[index]; }
    const Element &operator[](std::size_t index) const noexcept { return elements_[index]; }

  private:
    Element elements_[Count]; // NOLINT(cppcoreguidelines-pro-type-member-init)
};

// A large buffer of which a call may use the beginning only: no more than that is touched and wiped.
template <std::size_t Size>
class SecretBuffer {
  public:
    SecretBuffer() noexcept {} // NOLINT(modernize-use-equals-default): clearing all of it costs time
    ~SecretBuffer() { OPENSSL_cleanse(bytes_, used_); }
    SecretBuffer(const SecretBuffer &) = delete;
    SecretBuffer &operator=(const SecretBuffer &) = delete;

    // So many bytes are about to be written.
    [[nodiscard]] unsigned char *use(std::size_t count) noexcept {
        used_ = std::max(used_, count);
        return bytes_;
    }
    // Reads up to so many bytes of a file; the result is how many came.
    [[nodiscard]] std::size_t read(std::FILE *file, std::size_t wanted) noexcept {
        const std::size_t got = std::fread(bytes_, 1, wanted, file);
        used_ = std::max(used_, got);
        return got;
    }
    [[nodiscard]] const unsigned char *data() const noexcept { return bytes_; }

  private:
    std::size_t used_ = 0;
    unsigned char bytes_[Size]; // NOLINT(cppcoreguidelines-pro-type-member-init)
};

// Joins the two shares of a constant of the build. The volatile read keeps the compiler from doing it first.
template <std::size_t Count>
void joinShares(const std::uint8_t (&first)[Count], const std::uint8_t (&second)[Count],
                SecretArray<std::uint8_t, Count> &out) noexcept {
    const volatile std::uint8_t *share = first;
    for (std::size_t i = 0; i < Count; ++i) {
        out[i] = static_cast<std::uint8_t>(share[i] ^ second[i]);
    }
}

} // namespace ozu
