// A digest of results, in their order. Every machine's run prints it, and scripts/compare_results.py holds
// those of two machines against each other.
#pragma once

#include <concepts>
#include <cstdint>
#include <iostream>
#include <string>
#include <string_view>

namespace ozu::test {

class Digest {
  public:
    void add(std::string_view text) {
        for (const char c : text) {
            take(static_cast<unsigned char>(c));
        }
        take(kEnd);
    }
    void add(const char *text) { add(std::string_view(text)); }
    template <std::integral Number>
    void add(Number number) {
        add(std::string_view(std::to_string(number)));
    }
    void print(const std::string &what) const {
        std::cout << "\ndigest of " << what << ": " << value_ << std::endl;
    }

  private:
    static constexpr unsigned int kEnd = 256; // of a result; no byte has this value

    void take(unsigned int byte) { value_ = (value_ ^ byte) * 0x100000001B3U; }

    std::uint64_t value_ = 0xCBF29CE484222325U;
};

} // namespace ozu::test
