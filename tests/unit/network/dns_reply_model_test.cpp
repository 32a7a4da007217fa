// The raw DNS client against an independent implementation of the rules for replies, on many generated ones.

#include <utils_ozu/raw_dns.h>

#include "digest.h"
#include "dns_reply_model.h"
#include "emulation.h"
#include "fake_platform.h"
#include "random_numbers.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstring>

using namespace ozu::test;

namespace {

constexpr std::size_t kFewest = 4000;

Bytes datagram; // what recvfrom() hands out

// Replies that are mostly right, and wrong in every way now and then.
class Replies {
  public:
    explicit Replies(std::uint32_t seed) : random_(seed) {}

    Bytes next() {
        names_ = {kQuestionName};
        Counts counts{recordCount(), recordCount(), recordCount()};
        made_ = reply(counts, {}, pick({"a.b", "", "host.panel.example"}));
        addRecords(counts.answers, false);
        addRecords(counts.authorities, true);
        addRecords(counts.additionals, false);
        if (random_.below(25) == 0) {
            made_[6 + random_.below(6)] ^= static_cast<std::uint8_t>(1 + random_.below(3));
        }
        for (unsigned int flips = random_.below(8) == 0 ? 1 + random_.below(4) : 0; flips > 0; --flips) {
            const std::uint32_t at = random_.below(static_cast<std::uint32_t>(made_.size()));
            made_[at] = random_.byte();
        }
        if (random_.below(16) == 0) {
            made_.resize(random_.below(static_cast<std::uint32_t>(made_.size())));
        }
        return made_;
    }

  private:
    const char *pick(std::initializer_list<const char *> choices) {
        return choices.begin()[random_.below(static_cast<std::uint32_t>(choices.size()))];
    }
    unsigned int recordCount() {
        const std::uint32_t kind = random_.below(12);
        return kind == 0 ? 20 + random_.below(6) : kind < 8 ? random_.below(2) : random_.below(5);
    }
    void add(const Bytes &bytes) { made_.insert(made_.end(), bytes.begin(), bytes.end()); }

    void addLabels() {
        for (std::uint32_t left = random_.below(4); left > 0; --left) {
            static const std::string kAlphabet("abcxyz-.\xC0\xFF\x01%\x1B", 13);
            add(label(random_.text(1 + random_.below(9), kAlphabet)));
        }
    }
    // Bytes of labels around what a name may have.
    void addLongName() {
        for (std::uint32_t left = 248 + random_.below(12); left > 1;) {
            const std::uint32_t size = std::min(left - 1, 1 + random_.below(190));
            add(label(random_.text(size, "l")));
            left -= std::min(left, size + 1);
        }
    }
    unsigned int target() {
        const auto here = static_cast<std::uint32_t>(made_.size());
        switch (random_.below(150)) {
        case 0:
            return random_.below(kQuestionName);
        case 1:
            return random_.below(here);
        case 2:
            return here + random_.below(20);
        default:
            return names_[random_.below(static_cast<std::uint32_t>(names_.size()))];
        }
    }
    void addName() {
        names_.push_back(static_cast<unsigned int>(made_.size()));
        if (random_.below(60) == 0) {
            addLongName();
        } else {
            addLabels();
        }
        add(random_.below(2) == 0 ? Bytes{0} : pointer(target()));
    }
    void addData(unsigned int type, bool authority) {
        const std::uint32_t kind = random_.below(20);
        if (type == 1 && authority && kind < 8) {
            Bytes bytes(random_.below(4));
            random_.fill(bytes.data(), bytes.size());
            add(bytes);
        } else if (type == 1 && kind != 19) {
            add({static_cast<std::uint8_t>(random_.below(12)), random_.byte(), random_.byte(), 0});
        } else if (kind < 12) {
            addName();
        } else if (kind < 18) {
            Bytes bytes(random_.below(30));
            random_.fill(bytes.data(), bytes.size());
            add(bytes);
        }
    }
    void addRecords(unsigned int count, bool authority) {
        for (; count > 0; --count) {
            addRecord(authority);
        }
    }
    void addRecord(bool authority) {
        static constexpr std::array<unsigned int, 15> kTypes = {1,  1,  1,  1,  2,  5,  5,    6,
                                                                12, 15, 16, 28, 39, 41, 65280};
        addName();
        const unsigned int type = kTypes[random_.below(kTypes.size())];
        add(u16(type) + u16(1) + Bytes(4));
        const std::size_t length = made_.size();
        add(u16(0));
        addData(type, authority);
        const auto size = static_cast<unsigned int>(made_.size() - length - 2);
        const Bytes announced = u16(random_.below(200) == 0 ? size + 1 - random_.below(3) : size);
        std::copy(announced.begin(), announced.end(), made_.begin() + static_cast<std::ptrdiff_t>(length));
    }

    Random random_;
    Bytes made_;
    std::vector<unsigned int> names_; // where they begin
};

struct Tally {
    int accepted = 0;
    int refused = 0;
    int found = 0;
    int namesInOtherTypes = 0;
    int passedOver = 0;
    int authorityAddresses = 0;
    int shortAuthorityAddresses = 0;
    int walkedOver = 0;
    int highBytesInLabels = 0;
    int longLabels = 0;

    // Only of replies that count: of the others nothing can be seen.
    void add(const ReplyModel &model) {
        (model.refused ? refused : accepted) += 1;
        if (model.refused) {
            return;
        }
        found += model.address ? 1 : 0;
        namesInOtherTypes += model.namesInOtherTypes;
        passedOver += model.passedOver;
        authorityAddresses += model.authorityAddresses;
        shortAuthorityAddresses += model.shortAuthorityAddresses;
        walkedOver += model.walkedOver;
        highBytesInLabels += model.highBytesInLabels;
        longLabels += model.longLabels;
    }
};

std::vector<LogLine> expectedLog(const ReplyModel &model) {
    std::vector<LogLine> lines = {
        extended(20000, "resolving [a.b.] using name server[127.0.0.1]", "NgetHostByName")};
    for (const std::string &text : model.lines) {
        lines.push_back(extended(20000, text, "NgetHostByName"));
    }
    if (model.refused) {
        lines.push_back(extended(70000, "malformed reply", "NgetHostByName"));
    }
    return lines;
}

std::string hexadecimal(const Bytes &bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += "0123456789ABCDEF"[byte >> 4];
        text += "0123456789ABCDEF"[byte & 15];
    }
    return text;
}

using DnsReplies = PlatformTest;

} // namespace

extern "C" {

ssize_t __wrap_sendto(int, const void *, std::size_t length, int, const sockaddr *, socklen_t) {
    return static_cast<ssize_t>(length);
}

ssize_t __wrap_recvfrom(int, void *buffer, std::size_t size, int, sockaddr *, socklen_t *) {
    const std::size_t length = std::min(size, datagram.size());
    std::copy_n(datagram.begin(), length, static_cast<std::uint8_t *>(buffer));
    return static_cast<ssize_t>(length);
}

} // extern "C"

TEST_F(DnsReplies, bringWhatTheModelSays) {
    const std::size_t rounds = emulated() ? kFewest : 30000;
    Replies replies(20260713);
    Tally tally;
    Digest digest;
    for (std::size_t round = 0; round < rounds; ++round) {
        datagram = replies.next();
        const ReplyModel model(datagram);
        tally.add(model);
        std::array<char, 17> output{};
        output.fill('#');
        platform().log.clear();
        platform().journal.clear();
        NgetHostByName("a.b", 1, "127.0.0.1", 9, output.data(), 16);
        const std::string expected = model.address
                                         ? *model.address + std::string(16 - model.address->size(), '\0')
                                         : std::string(16, '#');
        ASSERT_EQ(std::string(output.data(), output.size()), expected + "#") << hexadecimal(datagram);
        ASSERT_EQ(platform().log, expectedLog(model)) << hexadecimal(datagram);
        digest.add(std::string(output.data(), output.size()));
        for (const LogLine &line : platform().log) {
            digest.add(line.text);
        }
        if (round + 1 == kFewest) {
            digest.print("the first " + std::to_string(kFewest) + " replies");
        }
    }
    // Each rule has decided often enough to be seen.
    const auto often = static_cast<int>(rounds / 100);
    const std::vector<std::pair<const char *, int>> counts = {
        {"accepted", tally.accepted},
        {"refused", tally.refused},
        {"address found", tally.found},
        {"name in other types", tally.namesInOtherTypes},
        {"no name in other types", tally.passedOver},
        {"address as a name", tally.authorityAddresses},
        {"short address in the authorities", tally.shortAuthorityAddresses},
        {"behind the twentieth", tally.walkedOver},
        {"high byte in a label", tally.highBytesInLabels},
        {"long label", tally.longLabels},
    };
    for (const auto &[rule, count] : counts) {
        EXPECT_GT(count, often) << rule;
    }
}
