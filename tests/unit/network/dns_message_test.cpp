// The reader of replies and the writer of questions, without a network.

#include <network/dns_message.h>

#include "dns_wire.h"
#include "guarded_buffer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <time.h>

#include <memory>
#include <random>
#include <span>

using namespace ozu::test;
using ozu::dns::Header;
using ozu::dns::NameText;
using ozu::dns::Reply;

namespace {

std::string dotted(in_addr address) {
    return inet_ntoa(address);
}

struct Decoded {
    bool accepted = false;
    std::string text;
    std::size_t position = 0;
};

// A pointer to an offset behind the header.
Bytes at(unsigned int offset) {
    return pointer(kQuestionName + offset);
}

// Decodes the name at an offset of bytes that stand behind a header and are followed by nothing.
Decoded decode(const Bytes &bytes, std::size_t offset = 0) {
    const Bytes exact(Bytes(ozu::dns::kHeaderSize) + bytes);
    ozu::BoundedReader reader(exact);
    reader.seek(ozu::dns::kHeaderSize + offset);
    NameText text;
    text.fill('#');
    Decoded result;
    NameText last;
    ozu::dns::Names names(exact, last);
    result.accepted = names.decode(reader, text);
    EXPECT_NE(memchr(text.data(), '\0', text.size()), nullptr) << "not terminated";
    result.text = text.data();
    result.position = reader.position() - ozu::dns::kHeaderSize;
    return result;
}

struct Parsed {
    bool accepted = false;
    Header header{};
    std::unique_ptr<Reply> reply = std::make_unique<Reply>();
    NameText lastName{};
};

Parsed parse(const Bytes &bytes) {
    // A read behind the reply is a crash.
    const GuardedBuffer guarded({reinterpret_cast<const char *>(bytes.data()), bytes.size()});
    const std::span<const std::uint8_t> exact(guarded.bytes(), bytes.size());
    Parsed parsed;
    memset(parsed.reply.get(), 0x5A, sizeof(Reply));
    parsed.accepted = ozu::dns::readHeader(exact, parsed.header) &&
                      ozu::dns::readRecords(exact, parsed.header, *parsed.reply, parsed.lastName);
    return parsed;
}

Bytes repeated(const Bytes &part, unsigned int times) {
    Bytes all;
    for (unsigned int i = 0; i < times; ++i) {
        all = std::move(all) + part;
    }
    return all;
}

Bytes addressRecord(std::uint8_t last) {
    return record(kQuestionOwner, 1, {10, 0, 0, last});
}

} // namespace

TEST(DnsName, plain) {
    const auto result = decode(name("www.panel.example"));
    EXPECT_TRUE(result.accepted);
    EXPECT_EQ(result.text, "www.panel.example");
    EXPECT_EQ(result.position, 19u);
}

TEST(DnsName, rootIsEmpty) {
    const auto result = decode({0, 7});
    EXPECT_TRUE(result.accepted);
    EXPECT_EQ(result.text, "");
    EXPECT_EQ(result.position, 1u);
}

TEST(DnsName, pointerAfterLabels) {
    const Bytes bytes = name("panel.example") + label("www") + at(0) + Bytes{9, 9};
    const auto result = decode(bytes, 15);
    EXPECT_TRUE(result.accepted);
    EXPECT_EQ(result.text, "www.panel.example");
    EXPECT_EQ(result.position, 15u + 4 + 2);
}

TEST(DnsName, pointerToRoot) {
    const auto result = decode(Bytes{0} + at(0), 1);
    EXPECT_TRUE(result.accepted);
    EXPECT_EQ(result.text, "");
    EXPECT_EQ(result.position, 3u);
}

TEST(DnsName, pointerToPointer) {
    const auto result = decode(name("x") + at(0) + at(3) + label("y") + at(5), 7);
    EXPECT_TRUE(result.accepted);
    EXPECT_EQ(result.text, "y.x");
    EXPECT_EQ(result.position, 11u);
}

TEST(DnsName, labelsOfAnyBytes) {
    const auto high = decode(label("\xC3\xA9t\xC3\xA9") + name("example"));
    EXPECT_TRUE(high.accepted);
    EXPECT_EQ(high.text, "\xC3\xA9t\xC3\xA9.example");
    const auto dots = decode(label("a.b") + name("c"));
    EXPECT_EQ(dots.text, "a.b.c");
}

TEST(DnsName, longLabel) {
    const std::string text(63, 'x');
    EXPECT_EQ(decode(label(text) + Bytes{0}).text, text);
    // Lengths up to 191 are lengths here, as nothing else uses them.
    const std::string longer(191, 'y');
    EXPECT_EQ(decode(label(longer) + Bytes{0}).text, longer);
}

TEST(DnsName, capacity) {
    const Bytes label63 = label(std::string(63, 'x'));
    const Bytes three = label63 + label63 + label63; // 192 bytes
    const auto longest = decode(three + label(std::string(62, 'y')) + Bytes{0});
    EXPECT_TRUE(longest.accepted);
    EXPECT_EQ(longest.text.size(), 254u);
    EXPECT_FALSE(decode(three + label(std::string(63, 'y')) + Bytes{0}).accepted);
    EXPECT_FALSE(decode(repeated(label("z"), 128) + Bytes{0}).accepted);
    EXPECT_EQ(decode(repeated(label("z"), 127) + Bytes{0}).text.size(), 253u);
}

TEST(DnsName, refusedPointers) {
    EXPECT_FALSE(decode(at(0)).accepted) << "to itself";
    EXPECT_FALSE(decode(at(2) + name("a")).accepted) << "forward";
    EXPECT_FALSE(decode(at(4000)).accepted) << "outside";
    EXPECT_FALSE(decode(label("a") + Bytes{0xC0}).accepted) << "half";
    EXPECT_FALSE(decode(label("a") + at(0)).accepted) << "a loop with labels ends at the capacity";
    EXPECT_FALSE(decode(at(2) + at(0), 2).accepted) << "two that point at each other";
}

TEST(DnsName, noNameBeginsInTheHeader) {
    EXPECT_EQ(decode(name("x") + at(0), 3).text, "x");
    for (unsigned int target = 0; target < kQuestionName; ++target) {
        EXPECT_FALSE(decode(name("x") + pointer(target), 3).accepted) << target;
        EXPECT_FALSE(decode(name("x") + label("y") + pointer(target), 3).accepted) << target;
    }
}

TEST(DnsName, refusedCuts) {
    const Bytes whole = name("www.panel.example");
    for (std::size_t length = 0; length < whole.size(); ++length) {
        EXPECT_FALSE(
            decode(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length))).accepted);
    }
}

TEST(DnsName, longChainsOfPointersAreFollowed) {
    Bytes chain = name("x");
    for (unsigned int i = 0; i < 8000; ++i) {
        chain = std::move(chain) + at(i == 0 ? 0 : 3 + (i - 1) * 2);
    }
    for (const std::size_t from : {std::size_t{3}, std::size_t{3 + 2 * 255}, chain.size() - 2}) {
        const Decoded decoded = decode(chain, from);
        EXPECT_TRUE(decoded.accepted);
        EXPECT_EQ(decoded.text, "x");
        EXPECT_EQ(decoded.position, from + 2);
    }
}

namespace {

// A reply of so many records whose names all lead through the same 8,000 pointers.
Bytes replyThroughALongChain(unsigned int records) {
    const std::size_t begin = reply({}, record(kQuestionOwner, 999, {})).size();
    const auto place = [begin](std::size_t offset) {
        return pointer(static_cast<unsigned int>(begin + offset));
    };
    Bytes chain = pointer(kQuestionName);
    while (chain.size() < 16000) {
        const Bytes next = place(chain.size() - 2);
        chain.insert(chain.end(), next.begin(), next.end());
    }
    const Bytes top = place(chain.size() - 2);
    const unsigned int each = records / 3;
    return reply({each + 1, each, each},
                 record(kQuestionOwner, 999, chain) + repeated(record(top, 16, top), 3 * each));
}

// The least processor time of several runs.
double microsecondsToParse(const Bytes &bytes) {
    double least = 1e9;
    for (int run = 0; run < 9; ++run) {
        timespec from{}, to{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &from);
        EXPECT_TRUE(parse(bytes).accepted);
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &to);
        least = std::min(least, static_cast<double>(to.tv_sec - from.tv_sec) * 1e6 +
                                    static_cast<double>(to.tv_nsec - from.tv_nsec) * 1e-3);
    }
    return least;
}

} // namespace

TEST(DnsReply, namesShareTheWorkOfLongChains) {
    EXPECT_STREQ(parse(replyThroughALongChain(57)).lastName.data(), "a.b");
    const double few = microsecondsToParse(replyThroughALongChain(3));
    const double many = microsecondsToParse(replyThroughALongChain(57));
    std::cout << few << " us with 3 records, " << many << " us with 57\n";
    EXPECT_LT(many, 5 * few);
}

TEST(DnsReply, headerOnly) {
    const auto parsed = parse(reply({}, {}));
    EXPECT_TRUE(parsed.accepted);
    EXPECT_EQ(parsed.header.id, 0x1234);
    EXPECT_EQ(parsed.header.flags, 0x8180);
    EXPECT_EQ(parsed.header.questions, 1);
    EXPECT_TRUE(parse(Bytes(12)).accepted) << "an error reply may lack the question";
    EXPECT_FALSE(parse(Bytes(11)).accepted);
    EXPECT_FALSE(parse({}).accepted);
}

TEST(DnsReply, sectionsInOrder) {
    const auto parsed = parse(reply({2, 1, 1}, record(kQuestionOwner, 5, name("c.d")) +
                                                   record(name("c.d"), 1, {10, 1, 2, 3}) +
                                                   record(name("b"), 2, label("ns") + pointer(14)) +
                                                   record(name("ns.b"), 1, {10, 9, 8, 7})));
    ASSERT_TRUE(parsed.accepted);
    ASSERT_EQ(parsed.reply->answers.count, 2u);
    EXPECT_EQ(parsed.reply->answers.records[0].type, 5);
    EXPECT_STREQ(parsed.reply->answers.records[0].name.data(), "c.d");
    EXPECT_EQ(dotted(parsed.reply->answers.records[1].address), "10.1.2.3");
    ASSERT_EQ(parsed.reply->authorities.count, 1u);
    EXPECT_STREQ(parsed.reply->authorities.records[0].name.data(), "ns.b");
    ASSERT_EQ(parsed.reply->additionals.count, 1u);
    EXPECT_EQ(dotted(parsed.reply->additionals.records[0].address), "10.9.8.7");
    EXPECT_STREQ(parsed.lastName.data(), "ns.b");
}

// What the name shown is, after an answer with a name of its own and this record in each section.
std::array<std::string, 3> shownAfter(unsigned int type, const Bytes &data) {
    std::array<std::string, 3> shown;
    const std::array<Counts, 3> counts = {Counts{1, 0, 0}, Counts{0, 1, 0}, Counts{0, 0, 1}};
    for (std::size_t i = 0; i < counts.size(); ++i) {
        const auto parsed = parse(reply(counts[i], record(name("own.er"), type, data)));
        shown[i] = parsed.accepted ? parsed.lastName.data() : "refused";
    }
    return shown;
}

TEST(DnsReply, dataOfAnyTypeIsDecodedAsAName) {
    using Shown = std::array<std::string, 3>;
    for (const unsigned int type : {0u, 2u, 5u, 6u, 12u, 15u, 16u, 28u, 39u, 41u, 46u, 999u, 65535u}) {
        EXPECT_EQ(shownAfter(type, name("da.ta")), (Shown{"da.ta", "da.ta", "da.ta"})) << type;
        EXPECT_EQ(shownAfter(type, {0}), (Shown{"", "", ""})) << type;
        EXPECT_EQ(shownAfter(type, label("more") + kQuestionOwner),
                  (Shown{"more.a.b", "more.a.b", "more.a.b"}));
        // The data's length does not end the name, the reply does.
        EXPECT_EQ(shownAfter(type, label("da") + Bytes{2, 't'}),
                  type == 2 || type == 5 || type == 12 || type == 39
                      ? (Shown{"refused", "refused", "refused"})
                      : (Shown{"own.er", "own.er", "own.er"}));
    }
    EXPECT_EQ(shownAfter(1, {2, 'x', 'y', 0}), (Shown{"own.er", "xy", "own.er"}));
    EXPECT_EQ(shownAfter(1, {0, 0, 0, 0}), (Shown{"own.er", "", "own.er"}));
    EXPECT_EQ(shownAfter(1, {200, 0, 0, 1}), (Shown{"own.er", "own.er", "own.er"}));
    EXPECT_EQ(shownAfter(1, {1, 'x', 0}), (Shown{"refused", "x", "refused"})) << "a short address";
    EXPECT_EQ(shownAfter(1, {}), (Shown{"refused", "own.er", "refused"}));
}

TEST(DnsReply, aNameGoesOnBehindItsData) {
    // Empty data: what is decoded is the next record's owner, and the walk goes on there.
    const auto parsed =
        parse(reply({2, 0, 0}, record(name("own.er"), 999, {}) + record(name("next"), 1, {10, 0, 0, 1})));
    ASSERT_TRUE(parsed.accepted);
    EXPECT_STREQ(parsed.reply->answers.records[0].name.data(), "next");
    EXPECT_EQ(dotted(parsed.reply->answers.records[1].address), "10.0.0.1");
    EXPECT_TRUE(parse(reply({1, 0, 0}, record(name("own.er"), 5, {}) + name("be.hind"))).accepted);
    EXPECT_FALSE(parse(reply({1, 0, 0}, record(name("own.er"), 5, {}))).accepted);
}

TEST(DnsReply, dataThatPointsIntoTheHeader) {
    for (unsigned int target = 0; target < kQuestionName; ++target) {
        EXPECT_EQ(shownAfter(16, pointer(target))[0], "own.er");
        EXPECT_EQ(shownAfter(5, pointer(target))[0], "refused");
        EXPECT_FALSE(parse(reply({1, 0, 0}, record(pointer(target), 1, Bytes(4)))).accepted);
    }
}

TEST(DnsReply, namesBehindTheTwentiethDoNotCount) {
    const Bytes twenty = repeated(addressRecord(1), 20);
    const auto parsed =
        parse(reply({22, 0, 0}, twenty + record(name("late"), 16, name("later")) +
                                    record(kQuestionOwner, 5, pointer(3000)))); // not decoded, so no matter
    ASSERT_TRUE(parsed.accepted);
    EXPECT_STREQ(parsed.lastName.data(), "a.b");
}

TEST(DnsReply, otherTypesAreSkippedByTheirLength) {
    const Bytes odd = record(kQuestionOwner, 28, Bytes(16, 0xFF)) + record({0}, 41, Bytes(11, 0xC0)) +
                      record(kQuestionOwner, 16, label("text")) +
                      record(kQuestionOwner, 15, Bytes{0, 10, 0xFF, 0xFF}) + record(kQuestionOwner, 999, {}) +
                      record(kQuestionOwner, 6, Bytes(30, 0xFF));
    const auto parsed = parse(reply({7, 6, 7}, odd + addressRecord(1) + odd + odd + addressRecord(2)));
    ASSERT_TRUE(parsed.accepted);
    EXPECT_EQ(dotted(parsed.reply->answers.records[6].address), "10.0.0.1");
    EXPECT_EQ(dotted(parsed.reply->additionals.records[6].address), "10.0.0.2");
}

TEST(DnsReply, namesInData) {
    for (const unsigned int type : {2u, 5u, 12u, 39u}) {
        const auto parsed = parse(reply({1, 1, 1}, repeated(record(kQuestionOwner, type, name("x.y")), 3)));
        ASSERT_TRUE(parsed.accepted);
        EXPECT_STREQ(parsed.reply->answers.records[0].name.data(), "x.y");
        EXPECT_STREQ(parsed.reply->authorities.records[0].name.data(), "x.y");
        EXPECT_STREQ(parsed.reply->additionals.records[0].name.data(), "x.y");
        EXPECT_FALSE(parse(reply({1, 0, 0}, record(kQuestionOwner, type, pointer(500)))).accepted);
        EXPECT_FALSE(parse(reply({0, 0, 1}, record(kQuestionOwner, type, label("x")))).accepted);
    }
}

TEST(DnsReply, walkGoesByTheAnnouncedLength) {
    const auto parsed =
        parse(reply({2, 0, 0}, record(kQuestionOwner, 5, name("x") + Bytes{1, 2, 3}) + addressRecord(4)));
    ASSERT_TRUE(parsed.accepted);
    EXPECT_EQ(dotted(parsed.reply->answers.records[1].address), "10.0.0.4");
}

TEST(DnsReply, addressData) {
    const auto longer = parse(reply({1, 0, 0}, record(kQuestionOwner, 1, {10, 1, 2, 3, 4, 5})));
    ASSERT_TRUE(longer.accepted);
    EXPECT_EQ(dotted(longer.reply->answers.records[0].address), "10.1.2.3");
    const auto huge = parse(reply({1, 0, 0}, record(kQuestionOwner, 1, Bytes(60000, 7))));
    ASSERT_TRUE(huge.accepted);
    EXPECT_EQ(dotted(huge.reply->answers.records[0].address), "7.7.7.7");
    for (unsigned int size = 0; size < 4; ++size) {
        EXPECT_FALSE(parse(reply({1, 0, 0}, record(kQuestionOwner, 1, Bytes(size, 7)))).accepted) << size;
        EXPECT_FALSE(
            parse(reply({0, 0, 1}, record(kQuestionOwner, 1, Bytes(size, 7)) + Bytes(20, 0))).accepted);
        EXPECT_TRUE(parse(reply({0, 1, 0}, record(kQuestionOwner, 1, Bytes(size, 7)))).accepted) << size;
        const Bytes twenty = repeated(addressRecord(1), 20);
        EXPECT_TRUE(parse(reply({0, 21, 0}, twenty + record(kQuestionOwner, 1, Bytes(size, 7)))).accepted);
    }
}

TEST(DnsReply, moreRecordsThanAreKept) {
    Bytes records;
    for (std::uint8_t i = 1; i <= 60; ++i) {
        records = std::move(records) + addressRecord(i);
    }
    const auto parsed = parse(reply({25, 20, 15}, records));
    ASSERT_TRUE(parsed.accepted);
    EXPECT_EQ(parsed.reply->answers.count, 20u);
    EXPECT_EQ(dotted(parsed.reply->answers.records[19].address), "10.0.0.20");
    EXPECT_EQ(parsed.reply->authorities.count, 20u);
    EXPECT_EQ(parsed.reply->additionals.count, 15u);
    EXPECT_EQ(dotted(parsed.reply->additionals.records[0].address), "10.0.0.46");
}

TEST(DnsReply, recordsWalkedOverAreCheckedToo) {
    const Bytes twenty = repeated(addressRecord(1), 20);
    EXPECT_TRUE(parse(reply({21, 0, 0}, twenty + record(name("long.name"), 28, Bytes(16)))).accepted);
    EXPECT_FALSE(parse(reply({21, 0, 0}, twenty)).accepted);
    EXPECT_FALSE(parse(reply({21, 0, 0}, twenty + record(pointer(4000), 1, Bytes(4)))).accepted);
    EXPECT_FALSE(parse(reply({21, 0, 0}, twenty + label("cut"))).accepted);
    EXPECT_FALSE(parse(reply({21, 0, 0}, twenty + Bytes{0xC0})).accepted);
    EXPECT_TRUE(parse(reply({21, 0, 0}, twenty + record(kQuestionOwner, 2, pointer(4000)))).accepted)
        << "data is not looked at";
    EXPECT_FALSE(parse(reply({21, 0, 0}, twenty + record(kQuestionOwner, 1, Bytes(3)))).accepted);
    EXPECT_FALSE(parse(reply({21, 0, 0}, twenty + record(repeated(label("z"), 128) + Bytes{0}, 1, Bytes(4))))
                     .accepted);
    EXPECT_TRUE(parse(reply({21, 0, 0}, twenty + record(repeated(label("z"), 127) + Bytes{0}, 1, Bytes(4))))
                    .accepted);
}

TEST(DnsReply, announcedButMissingRecords) {
    EXPECT_FALSE(parse(reply({1, 0, 0}, {})).accepted);
    EXPECT_FALSE(parse(reply({0, 65535, 0}, {})).accepted);
    EXPECT_FALSE(parse(reply({65535, 65535, 65535}, repeated(addressRecord(1), 100))).accepted);
    Bytes headerAlone = reply({1, 0, 0}, {});
    headerAlone.resize(12);
    EXPECT_FALSE(parse(headerAlone).accepted);
}

TEST(DnsReply, everyCutIsRefused) {
    const Bytes whole =
        reply({2, 1, 1}, record(kQuestionOwner, 5, name("c.d")) + record(name("c.d"), 1, Bytes(4)) +
                             record(name("b"), 2, name("ns")) + record({0}, 41, Bytes(5)));
    ASSERT_TRUE(parse(whole).accepted);
    for (std::size_t length = 0; length < whole.size(); ++length) {
        EXPECT_FALSE(
            parse(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length))).accepted);
    }
}

TEST(DnsReply, fullDatagram) {
    Bytes records = repeated(addressRecord(1), 4093);
    EXPECT_TRUE(parse(reply({4093, 0, 0}, records)).accepted);
}

TEST(DnsReply, randomBytesStayInside) {
    std::mt19937 random(7);
    for (int round = 0; round < 20000; ++round) {
        Bytes bytes = reply({3, 2, 2}, record(kQuestionOwner, 5, name("c.d")) + addressRecord(1) +
                                           record(name("b"), 2, name("ns")) + repeated(addressRecord(2), 4));
        for (unsigned int flips = 1 + random() % 8; flips > 0; --flips) {
            bytes[random() % bytes.size()] = static_cast<std::uint8_t>(random());
        }
        bytes.resize(random() % 4 == 0 ? random() % bytes.size() : bytes.size());
        const auto parsed = parse(bytes);
        if (!parsed.accepted) {
            continue;
        }
        for (const auto *section :
             {&parsed.reply->answers, &parsed.reply->authorities, &parsed.reply->additionals}) {
            ASSERT_LE(section->count, ozu::dns::kRecordsKept) << round;
            for (const auto &kept : section->kept()) {
                const bool bounded = strnlen(kept.name.data(), kept.name.size()) < kept.name.size();
                // An address record has an address for a name.
                ASSERT_TRUE(bounded || kept.type == ozu::dns::kTypeA) << round;
            }
        }
    }
}

TEST(DnsQuery, bytes) {
    Bytes message(200, 0xEE);
    const std::size_t length = ozu::dns::writeQuery(message, 0xABCD, "a.b.", 1);
    message.resize(length);
    EXPECT_EQ(message, (Bytes{0xAB, 0xCD, 1, 0, 0, 1, 0, 0, 0, 0, 0, 0, 1, 'a', 1, 'b', 0, 0, 1, 0, 1}));
}

TEST(DnsQuery, nameEndsAtAnEmptyLabel) {
    for (const char *text : {".", "", ".a."}) {
        Bytes message(200, 0xEE);
        message.resize(ozu::dns::writeQuery(message, 0, text, 0x1234));
        EXPECT_EQ(Bytes(message.begin() + 12, message.end()), (Bytes{0, 0x12, 0x34, 0, 1})) << text;
    }
    Bytes message(200, 0xEE);
    message.resize(ozu::dns::writeQuery(message, 0, "a..b.", 1));
    EXPECT_EQ(Bytes(message.begin() + 12, message.end()), (Bytes{1, 'a', 0, 0, 1, 0, 1}));
}

TEST(DnsQuery, longLabelsGoOutAsTheyAre) {
    const std::string text(98, 'x');
    Bytes message(200, 0xEE);
    message.resize(ozu::dns::writeQuery(message, 0, text + ".", 1));
    EXPECT_EQ(Bytes(message.begin() + 12, message.end()), (label(text) + Bytes{0, 0, 1, 0, 1}));
}
