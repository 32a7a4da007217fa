#include <network/dns_message.h>

#include <base/uninitialized.h>
#include <utils_ozu/text.h>

#include <algorithm>
#include <cstring>

namespace ozu::dns {

namespace {

// A length byte from here on is the first of a pointer's two.
constexpr std::uint8_t kPointer = 0xC0;
constexpr std::uint8_t kPointerOffsetBits = 0x3F;
constexpr std::uint16_t kRecursionDesired = 0x0100;
constexpr std::uint16_t kClassInternet = 1;

// Reads a pointer whose first byte was read already; false unless it leads backwards from where it stands.
// No name begins in the header.
bool readPointer(BoundedReader &reader, std::uint8_t first, std::size_t &target) noexcept {
    const std::size_t position = reader.position() - 1;
    target = (static_cast<std::size_t>(first & kPointerOffsetBits) << 8) | reader.u8();
    return reader.ok() && target >= kHeaderSize && target < position;
}

// Moves past a name that is not wanted.
bool skipName(BoundedReader &reader) noexcept {
    for (std::size_t length = 0;;) {
        const std::uint8_t size = reader.u8();
        if (size >= kPointer) {
            std::size_t target = 0;
            return readPointer(reader, size, target);
        }
        if (size == 0) {
            return reader.ok();
        }
        reader.skip(size);
        length += size + std::size_t{1};
        if (!reader.ok() || length >= NameText().size()) {
            return false;
        }
    }
}

constexpr bool dataIsName(std::uint16_t type) noexcept {
    return type == kTypeNs || type == kTypeCname || type == kTypePtr || type == kTypeDname;
}

// What a section makes of address records.
enum class Addresses : std::uint8_t {
    Taken,  // they hold an address
    AsNames // their data is decoded as a name, like that of any other type
};

// The data of a record to keep, read with a reader of its own: the walk goes by the data's announced length,
// a name only by the end of the reply. Most types hold no name, and what does not decode there is no matter.
bool readData(BoundedReader reader, bool isAddress, Record &record, Names &names) noexcept {
    if (isAddress) {
        record.address = reader.record<in_addr>();
        return true;
    }
    if (!names.decode(reader, record.name)) {
        return !dataIsName(record.type);
    }
    ozuutils_strlcpy(names.last().data(), record.name.data(), static_cast<unsigned int>(names.last().size()));
    return true;
}

// One record, kept in the table when that is not null.
bool readRecord(BoundedReader &reader, Addresses addresses, Record *record, Names &names) noexcept {
    if (!(record != nullptr ? names.decode(reader, names.last()) : skipName(reader))) {
        return false;
    }
    const std::uint16_t type = reader.u16be();
    reader.skip(sizeof(std::uint16_t) + sizeof(std::uint32_t)); // class and time to live
    const std::uint16_t length = reader.u16be();
    const bool isAddress = type == kTypeA && addresses == Addresses::Taken;
    if (!reader.ok() || length > reader.remaining() || (isAddress && length < sizeof(in_addr))) {
        return false;
    }
    if (record != nullptr) {
        record->type = type;
        if (!readData(reader, isAddress, *record, names)) {
            return false;
        }
    }
    reader.skip(length);
    return true;
}

bool readSection(BoundedReader &reader, std::size_t announced, Addresses addresses, Section &section,
                 Names &names) noexcept {
    section.count = 0;
    for (std::size_t i = 0; i < announced; ++i) {
        Record *record = i < section.records.size() ? &section.records[i] : nullptr;
        if (!readRecord(reader, addresses, record, names)) {
            return false;
        }
        if (record != nullptr) {
            ++section.count;
        }
    }
    return true;
}

// Puts the reader behind the question, whose name goes to the first zero byte; at the end when that is
// missing.
void skipQuestion(BoundedReader &reader) noexcept {
    reader.skip(kHeaderSize);
    const auto rest = reader.all().subspan(reader.position());
    const auto end = std::find(rest.begin(), rest.end(), std::uint8_t{0});
    const auto question = static_cast<std::size_t>(end - rest.begin()) + 1 + kQuestionTail;
    reader.skip(std::min(question, reader.remaining()));
}

// Appends fields to a message; the caller has made sure that they fit.
class Writer {
  public:
    explicit Writer(std::span<std::uint8_t> bytes) noexcept : bytes_(bytes) {}
    void u8(std::uint8_t value) noexcept { bytes_[position_++] = value; }
    void u16be(std::uint16_t value) noexcept {
        u8(static_cast<std::uint8_t>(value >> 8));
        u8(static_cast<std::uint8_t>(value));
    }
    void text(std::string_view text) noexcept {
        for (const char c : text) {
            u8(static_cast<std::uint8_t>(c));
        }
    }
    [[nodiscard]] std::size_t position() const noexcept { return position_; }

  private:
    std::span<std::uint8_t> bytes_;
    std::size_t position_ = 0;
};

// The labels up to the first empty one, which ends a name on the wire.
void writeName(Writer &writer, std::string_view name) noexcept {
    while (!name.empty()) {
        const std::string_view label(name.data(), std::min(name.find('.'), name.size()));
        if (label.empty()) {
            break;
        }
        writer.u8(static_cast<std::uint8_t>(label.size()));
        writer.text(label);
        name.remove_prefix(std::min(label.size() + 1, name.size()));
    }
    writer.u8(0);
}

} // namespace

bool readHeader(std::span<const std::uint8_t> message, Header &header) noexcept {
    BoundedReader reader(message);
    header.id = reader.u16be();
    header.flags = reader.u16be();
    header.questions = reader.u16be();
    header.answers = reader.u16be();
    header.authorities = reader.u16be();
    header.additionals = reader.u16be();
    return reader.ok();
}

bool readRecords(std::span<const std::uint8_t> message, const Header &header, Reply &reply,
                 NameText &lastName) noexcept {
    BoundedReader reader(message);
    skipQuestion(reader);
    OZU_UNINITIALIZED Names names(message, lastName);
    return readSection(reader, header.answers, Addresses::Taken, reply.answers, names) &&
           readSection(reader, header.authorities, Addresses::AsNames, reply.authorities, names) &&
           readSection(reader, header.additionals, Addresses::Taken, reply.additionals, names);
}

std::size_t Names::endOfRun(std::size_t place) noexcept {
    for (; known_ <= place; ++known_) {
        BoundedReader reader(message_);
        reader.seek(known_);
        std::size_t end = known_;
        if (const std::uint8_t first = reader.u8(); first >= kPointer) {
            end = readPointer(reader, first, end) ? ends_[end] : 0;
        }
        ends_[known_] = static_cast<std::uint16_t>(end);
    }
    return ends_[place];
}

// Comes to an end: behind a run of pointers are labels, which fill the text.
bool Names::decode(BoundedReader &reader, NameText &text) noexcept {
    BoundedReader cursor = reader;
    std::size_t length = 0;
    bool jumped = false;
    text[0] = '\0';
    for (std::uint8_t size = cursor.u8(); size != 0; size = cursor.u8()) {
        if (size >= kPointer) {
            std::size_t target = 0;
            if (!readPointer(cursor, size, target) || endOfRun(target) == 0) {
                return false;
            }
            if (!jumped) {
                reader.seek(cursor.position());
            }
            jumped = true;
            cursor.seek(endOfRun(target));
            continue;
        }
        const auto label = cursor.bytes(size);
        if (label.empty() || length + size + 1 >= text.size()) {
            return false;
        }
        memcpy(text.data() + length, label.data(), label.size());
        length += label.size();
        text[length++] = '.';
        text[length] = '\0';
    }
    if (!jumped) {
        reader.seek(cursor.position());
    }
    if (length != 0) {
        text[length - 1] = '\0';
    }
    return cursor.ok();
}

std::size_t writeQuery(std::span<std::uint8_t> message, std::uint16_t id, std::string_view dottedName,
                       std::uint16_t type) noexcept {
    Writer writer(message);
    writer.u16be(id);
    writer.u16be(kRecursionDesired);
    writer.u16be(1); // one question
    writer.u16be(0);
    writer.u16be(0);
    writer.u16be(0);
    writeName(writer, dottedName);
    writer.u16be(type);
    writer.u16be(kClassInternet);
    return writer.position();
}

} // namespace ozu::dns
