// The DNS file on a disk of a given size: a stream that takes so many bytes and no more.

#include <utils_ozu/host_names.h>

#include "fake_platform.h"
#include "random_numbers.h"
#include "recorded_digest.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>

using ozu::test::extended;
using ozu::test::platform;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string written;
std::size_t capacity;
bool cannotBeOpened;
int openStreams;
std::vector<std::string> opened; // path and mode

ssize_t writeToDisk(void *, const char *bytes, std::size_t size) {
    const std::size_t fitting = std::min(size, capacity - written.size());
    written.append(bytes, fitting);
    if (fitting == 0) {
        errno = ENOSPC;
        return 0; // how a cookie stream tells an error
    }
    return static_cast<ssize_t>(fitting);
}

int closeStream(void *) {
    --openStreams;
    return 0;
}

FILE *openStream(const char *path, const char *mode) {
    opened.push_back(std::string(path) + " " + mode);
    if (cannotBeOpened) {
        errno = EACCES;
        return nullptr;
    }
    ++openStreams;
    written.clear();
    return fopencookie(nullptr, "w", {nullptr, writeToDisk, nullptr, closeStream});
}

class DnsFile : public ozu::test::PlatformTest {
  protected:
    void SetUp() override {
        PlatformTest::SetUp();
        written = "old content\n";
        capacity = std::numeric_limits<std::size_t>::max();
        cannotBeOpened = false;
        openStreams = 0;
        opened.clear();
    }
    void TearDown() override {
        EXPECT_EQ(openStreams, 0);
        PlatformTest::TearDown();
    }
    static void set(std::size_t pair, const std::string &primary, const std::string &secondary) {
        auto &servers = platform().state.dnsServerPairs[pair];
        memcpy(servers.primary, primary.c_str(), primary.size() + 1);
        memcpy(servers.secondary, secondary.c_str(), secondary.size() + 1);
    }
    static void setAllSix() {
        set(0, "10.0.0.1", "10.0.0.2");
        set(1, "10.0.1.1", "10.0.1.2");
        set(2, "10.0.2.1", "10.0.2.2");
    }
};

const std::string kAllSix = "nameserver 10.0.2.1\nnameserver 10.0.2.2\nnameserver 10.0.1.1\n"
                            "nameserver 10.0.1.2\nnameserver 10.0.0.1\nnameserver 10.0.0.2\n";

} // namespace

extern "C" {

FILE *__wrap_fopen(const char *path, const char *mode) {
    return openStream(path, mode);
}

} // extern "C"

TEST_F(DnsFile, lastRecordComesFirst) {
    setAllSix();
    EXPECT_EQ(write_permanent_dns(), 0);
    EXPECT_EQ(written, kAllSix);
    ASSERT_EQ(opened.size(), 1u);
    EXPECT_EQ(opened[0], "/data/permanent-dns.conf we");
    EXPECT_THAT(platform().journal, ElementsAre("ozudb_getSharedMemory(0)"));
}

TEST_F(DnsFile, withoutServersIsEmpty) {
    EXPECT_EQ(write_permanent_dns(), 0);
    EXPECT_EQ(written, "");
}

TEST_F(DnsFile, shortTextsAreLeftOut) {
    set(0, "1.1.1.", "1.1.1.1");
    set(1, "", "x");
    set(2, "1.1.1.1", "123456");
    EXPECT_EQ(write_permanent_dns(), 0);
    EXPECT_EQ(written, "nameserver 1.1.1.1\nnameserver 1.1.1.1\n");
}

TEST_F(DnsFile, textWithoutTerminatorEndsWithItsField) {
    memset(&platform().state.dnsServerPairs[2], 'p', sizeof platform().state.dnsServerPairs[2]);
    memset(platform().state.dnsServerPairs[2].secondary, 's', OZUDB_DNS_TEXT);
    EXPECT_EQ(write_permanent_dns(), 0);
    EXPECT_EQ(written,
              "nameserver " + std::string(100, 'p') + "\nnameserver " + std::string(100, 's') + "\n");
}

TEST_F(DnsFile, withoutStateTouchesNoFile) {
    platform().stateMissing = true;
    EXPECT_EQ(write_permanent_dns(), 2);
    EXPECT_THAT(opened, IsEmpty());
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(DnsFile, cannotBeOpened) {
    setAllSix();
    cannotBeOpened = true;
    EXPECT_EQ(write_permanent_dns(), 0);
    EXPECT_EQ(written, "old content\n");
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(DnsFile, diskFullAtEveryByte) {
    setAllSix();
    for (std::size_t size = 0; size < kAllSix.size(); ++size) {
        capacity = size;
        platform().log.clear();
        EXPECT_EQ(write_permanent_dns(), 8);
        EXPECT_EQ(written, kAllSix.substr(0, size));
        EXPECT_THAT(platform().log,
                    ElementsAre(extended(70000, "Error writing to [/data/permanent-dns.conf] file.",
                                         "write_permanent_dns")));
        EXPECT_EQ(platform().log[0].format, "%s");
        EXPECT_EQ(openStreams, 0);
    }
    capacity = kAllSix.size();
    EXPECT_EQ(write_permanent_dns(), 0);
}

TEST_F(DnsFile, sameResultsOnEveryMachine) {
    ozu::test::Random random(20261122);
    ozu::test::RecordedDigest digest;
    for (int round = 0; round < 500; ++round) {
        random.fill(platform().state.dnsServerPairs, sizeof platform().state.dnsServerPairs);
        for (PanelDnsServerPair &pair : platform().state.dnsServerPairs) {
            const std::string first = random.text(random.below(OZUDB_DNS_TEXT));
            const std::string second = random.text(random.below(20), "0123456789.");
            memcpy(pair.primary, first.c_str(), first.size() + 1);
            memcpy(pair.secondary, second.c_str(), second.size() + 1);
        }
        capacity = random.below(1000);
        digest.add(write_permanent_dns(), written);
    }
    digest.print("DNS files");
}
