// Builds DNS messages byte by byte, well-formed or not.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ozu::test {

using Bytes = std::vector<std::uint8_t>;

inline Bytes operator+(Bytes a, const Bytes &b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

inline Bytes u16(unsigned int value) {
    return {static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)};
}

// One label; its length byte is what it is, whatever that means.
inline Bytes label(const std::string &text) {
    return Bytes{static_cast<std::uint8_t>(text.size())} + Bytes(text.begin(), text.end());
}

// "a.b" as labels with the final zero; the empty text is the root.
inline Bytes name(const std::string &dotted) {
    Bytes bytes;
    for (std::size_t begin = 0; begin < dotted.size();) {
        const std::size_t end = std::min(dotted.find('.', begin), dotted.size());
        bytes = std::move(bytes) + label(dotted.substr(begin, end - begin));
        begin = end + 1;
    }
    return std::move(bytes) + Bytes{0};
}

inline Bytes pointer(unsigned int target) {
    return u16(0xC000 | target);
}

// The owner's name in front, the data behind; the announced length may lie.
inline Bytes record(const Bytes &owner, unsigned int type, const Bytes &data, long announced = -1) {
    return owner + u16(type) + u16(1) + u16(0) + u16(60) +
           u16(announced < 0 ? static_cast<unsigned int>(data.size())
                             : static_cast<unsigned int>(announced)) +
           data;
}

struct Counts {
    unsigned int answers = 0;
    unsigned int authorities = 0;
    unsigned int additionals = 0;
};

inline constexpr unsigned int kQuestionName = 12; // where it stands in a message

inline Bytes reply(const Counts &counts, const Bytes &records, const std::string &question = "a.b") {
    return u16(0x1234) + u16(0x8180) + u16(1) + u16(counts.answers) + u16(counts.authorities) +
           u16(counts.additionals) + name(question) + u16(1) + u16(1) + records;
}

inline const Bytes kQuestionOwner = pointer(kQuestionName);

} // namespace ozu::test
