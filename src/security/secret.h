// Bytes that must not outlive a call.
#pragma once

#include <openssl/crypto.h>

#include <cstddef>
#include <cstdint>

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
