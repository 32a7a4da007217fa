// Random numbers that are the same on every machine and in every run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>

namespace ozu::test {

class Random {
  public:
    explicit Random(std::uint32_t seed) : engine_(seed) {}
    std::uint32_t operator()() { return static_cast<std::uint32_t>(engine_()); }
    // 0 to limit - 1.
    std::uint32_t below(std::uint32_t limit) { return (*this)() % limit; }
    // Numbers of all lengths, so that short ones are not rare.
    std::uint32_t ofAnyLength() { return (*this)() >> below(32); }
    std::uint8_t byte() { return static_cast<std::uint8_t>((*this)()); }
    void fill(void *memory, std::size_t size) {
        for (std::size_t i = 0; i < size; ++i) {
            static_cast<unsigned char *>(memory)[i] = byte();
        }
    }
    // Characters of the alphabet.
    std::string text(std::size_t length, const std::string &alphabet) {
        std::string made(length, '\0');
        for (char &c : made) {
            c = alphabet[(*this)() % alphabet.size()];
        }
        return made;
    }
    // Characters 1 to 255.
    std::string text(std::size_t length) {
        std::string made(length, '\0');
        for (char &c : made) {
            c = static_cast<char>(1 + below(255));
        }
        return made;
    }

  private:
    std::mt19937 engine_;
};

} // namespace ozu::test
