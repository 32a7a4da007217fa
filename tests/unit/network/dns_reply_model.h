// What a reply has to bring, worked out a second time and plainly: whole names are built as the wire has them
// and turned into dots afterwards, and whatever must not be is an exception.
#pragma once

#include "dns_wire.h"

#include <optional>
#include <string>
#include <vector>

namespace ozu::test {

class ReplyModel {
  public:
    explicit ReplyModel(Bytes message) : message_(std::move(message)) {
        try {
            read();
        } catch (const Refused &) {
            refused = true;
            address.reset();
            lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(counted_ ? 5 : 0), lines.end());
        }
    }

    bool refused = false;
    std::vector<std::string> lines;     // of the reply, without the one that refuses it
    std::optional<std::string> address; // what the caller gets
    // How often a rule decided, so that a test can tell that it met them all.
    int namesInOtherTypes = 0;
    int passedOver = 0; // data of other types that is not a name
    int authorityAddresses = 0;
    int shortAuthorityAddresses = 0;
    int walkedOver = 0;
    int highBytesInLabels = 0;
    int longLabels = 0;

  private:
    struct Refused {};
    struct Name {
        std::string text;
        std::size_t end = 0;
    };
    struct Kept {
        unsigned int type = 0;
        std::string address;
        std::string name;
    };
    enum SectionKind { Answers, Authorities, Additionals };

    [[nodiscard]] unsigned int byteAt(std::size_t at) const {
        if (at >= message_.size()) {
            throw Refused();
        }
        return message_[at];
    }
    [[nodiscard]] unsigned int wordAt(std::size_t at) const { return byteAt(at) * 256 + byteAt(at + 1); }

    // Where the pointer at this place leads.
    [[nodiscard]] std::size_t followed(std::size_t at) const {
        const std::size_t target = wordAt(at) - 49152;
        if (target < 12 || target >= at) {
            throw Refused();
        }
        return target;
    }
    // The bytes of the label at this place, its length in front.
    [[nodiscard]] std::string labelAt(std::size_t at) const {
        std::string bytes;
        for (std::size_t i = 0; i <= byteAt(at); ++i) {
            bytes += static_cast<char>(byteAt(at + i));
        }
        return bytes;
    }
    static std::string withDots(std::string labels) {
        for (std::size_t at = 0; at < labels.size();) {
            const auto length = static_cast<unsigned char>(labels[at]);
            labels.replace(at, length + std::size_t{1}, labels.substr(at + 1, length) + ".");
            at += length + std::size_t{1};
        }
        if (!labels.empty()) {
            labels.pop_back();
        }
        return labels.c_str(); // a zero in a label ends the text
    }

    [[nodiscard]] Name nameAt(std::size_t at) {
        Name name;
        std::string labels;
        bool jumped = false;
        for (; byteAt(at) != 0;) {
            if (byteAt(at) >= 192) {
                name.end = jumped ? name.end : at + 2;
                at = followed(at);
                jumped = true;
                continue;
            }
            const std::string label = labelAt(at);
            longLabels += byteAt(at) > 63 ? 1 : 0;
            highBytesInLabels += label.find_first_of("\xC0\xFF") != std::string::npos ? 1 : 0;
            labels += label;
            at += label.size();
            if (labels.size() > 255) {
                throw Refused();
            }
        }
        name.end = jumped ? name.end : at + 1;
        name.text = withDots(labels);
        return name;
    }
    // The end of a name that is not wanted.
    [[nodiscard]] std::size_t pastNameAt(std::size_t at) const {
        const std::size_t start = at;
        for (; byteAt(at) != 0; at += labelAt(at).size()) {
            if (byteAt(at) >= 192) {
                static_cast<void>(followed(at));
                return at + 2;
            }
            if (at + labelAt(at).size() - start > 255) {
                throw Refused();
            }
        }
        return at + 1;
    }

    void decodeData(Kept &record, std::size_t at, SectionKind section) {
        const bool holdsName = record.type == 2 || record.type == 5 || record.type == 12 || record.type == 39;
        try {
            record.name = shown_ = nameAt(at).text;
            namesInOtherTypes += holdsName ? 0 : 1;
            authorityAddresses += section == Authorities && record.type == 1 ? 1 : 0;
        } catch (const Refused &) {
            if (holdsName) {
                throw;
            }
            ++passedOver;
        }
    }

    void readRecord(SectionKind section, bool kept, std::vector<Kept> &records) {
        if (kept) {
            const Name owner = nameAt(at_);
            shown_ = owner.text;
            at_ = owner.end;
        } else {
            at_ = pastNameAt(at_);
            ++walkedOver;
        }
        Kept record;
        record.type = wordAt(at_);
        const std::size_t length = wordAt(at_ + 8);
        const std::size_t data = at_ + 10;
        at_ = data + length;
        if (at_ > message_.size()) {
            throw Refused();
        }
        if (record.type == 1 && section != Authorities) {
            if (length < 4) {
                throw Refused();
            }
            for (std::size_t i = 0; i < 4; ++i) {
                record.address += (i == 0 ? "" : ".") + std::to_string(byteAt(data + i));
            }
        } else if (kept) {
            shortAuthorityAddresses += record.type == 1 && length < 4 ? 1 : 0;
            decodeData(record, data, section);
        }
        if (kept) {
            records.push_back(record);
        }
    }

    std::vector<Kept> readSection(SectionKind section) {
        std::vector<Kept> records;
        const unsigned int count = wordAt(6 + 2 * static_cast<std::size_t>(section));
        for (unsigned int i = 0; i < count; ++i) {
            readRecord(section, i < 20, records);
        }
        return records;
    }

    void tellCounts() {
        static_cast<void>(byteAt(11));
        lines = {"The response contains: ", "[" + std::to_string(wordAt(4)) + "] Questions.",
                 "[" + std::to_string(wordAt(6)) + "] Answers.",
                 "[" + std::to_string(wordAt(8)) + "] Authoritative Servers.",
                 "[" + std::to_string(wordAt(10)) + "] Additional records.\n\n"};
        counted_ = true;
    }

    void tell(SectionKind section, const std::string &title, const std::vector<Kept> &records) {
        lines.push_back(title + std::to_string(wordAt(6 + 2 * static_cast<std::size_t>(section))) + "]");
        for (const Kept &record : records) {
            lines.push_back(section == Answers ? "name: [" + shown_ + "] " : "Name : " + shown_ + " ");
            if (section == Answers && record.type == 1) {
                address = record.address;
                lines.push_back("found ipv4 address:[" + record.address + "] [" + record.address + "]");
            } else if (section == Answers && record.type == 5) {
                lines.push_back("alias name:[" + record.name + "]");
            } else if (section == Authorities && record.type == 2) {
                lines.push_back("has nameserver : " + record.name);
            } else if (section == Additionals && record.type == 1) {
                lines.push_back("has IPv4 address : " + record.address);
            }
        }
    }

    void read() {
        tellCounts();
        at_ = 12;
        while (at_ < message_.size() && message_[at_] != 0) {
            ++at_;
        }
        at_ = std::min(at_ + 5, message_.size());
        const auto answers = readSection(Answers);
        const auto authorities = readSection(Authorities);
        const auto additionals = readSection(Additionals);
        tell(Answers, "answer Records: [", answers);
        tell(Authorities, "authorities records:[", authorities);
        tell(Additionals, "additional Records: [", additionals);
    }

    Bytes message_;
    std::size_t at_ = 0;
    std::string shown_; // the name decoded last
    bool counted_ = false;
};

} // namespace ozu::test
