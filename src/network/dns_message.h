// DNS messages: the reader of replies and the writer of questions.
//
// A reply is anybody's bytes. Nothing outside of what was received is read, names end at their capacity,
// pointers only lead backwards, and a reply that breaks these rules is refused as a whole.
#pragma once

#include <base/bounded_reader.h>

#include <netinet/in.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace ozu::dns {

inline constexpr std::size_t kHeaderSize = 12;
inline constexpr std::size_t kRecordsKept = 20;
// Type and class of a question, as they follow its name.
inline constexpr std::size_t kQuestionTail = 4;

enum RecordType : std::uint16_t { kTypeA = 1, kTypeNs = 2, kTypeCname = 5, kTypePtr = 12, kTypeDname = 39 };

// A decoded name: at most 255 bytes and a terminator.
using NameText = std::array<char, 256>;

struct Header {
    std::uint16_t id;
    std::uint16_t flags;
    std::uint16_t questions;
    std::uint16_t answers;
    std::uint16_t authorities;
    std::uint16_t additionals;
};

// Decodes the names of one message.
//
// Each name may lead through thousands of pointers, and all names through the same ones. So the end of a run
// of pointers is found once for each place: pointers lead backwards, where the ends are known already.
class Names {
  public:
    Names(std::span<const std::uint8_t> message, NameText &last) noexcept : message_(message), last_(last) {}

    // The name that was decoded last.
    [[nodiscard]] NameText &last() const noexcept { return last_; }
    // Decodes the name at the reader's position into text and moves the reader past it; false when the name
    // is refused, with the text undefined but terminated.
    bool decode(BoundedReader &reader, NameText &text) noexcept;

  private:
    static constexpr std::size_t kPlaces = std::size_t{1} << 14; // a pointer names one of them

    // Where the run of pointers ends that begins at this place: there, unless it holds a pointer; 0 when a
    // pointer of the run is refused.
    std::size_t endOfRun(std::size_t place) noexcept;

    std::span<const std::uint8_t> message_;
    NameText &last_;
    std::size_t known_ = kHeaderSize; // the ends of the places before this one are known
    std::array<std::uint16_t, kPlaces> ends_;
};

// One record: its type, and its data. An address record of the answers and additionals has the address, every
// other one what its data says when decoded as a name; of a type whose data is not a name that is just bytes.
struct Record {
    std::uint16_t type;
    in_addr address;
    NameText name;
};

// The records of a section that are kept. The table is not cleared: only the first count records hold
// anything.
struct Section {
    std::size_t count;
    std::array<Record, kRecordsKept> records;

    [[nodiscard]] std::span<const Record> kept() const noexcept { return std::span(records).first(count); }
};

struct Reply {
    Section answers;
    Section authorities;
    Section additionals;
};

// False when fewer bytes than a header were received.
bool readHeader(std::span<const std::uint8_t> message, Header &header) noexcept;

// Reads all records that the header announces; false when the reply is refused. lastName receives every name
// of the records that are kept as it is decoded, so the most recent one stays in it.
bool readRecords(std::span<const std::uint8_t> message, const Header &header, Reply &reply,
                 NameText &lastName) noexcept;

// Writes the question for a name that ends in "." and returns the length of the message. The message must
// hold the header, the name's length and six bytes. A name ends at its first empty label.
std::size_t writeQuery(std::span<std::uint8_t> message, std::uint16_t id, std::string_view dottedName,
                       std::uint16_t type) noexcept;

} // namespace ozu::dns
