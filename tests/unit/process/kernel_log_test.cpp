#include <utils_ozu/kernel_log.h>

#include "process_test.h"
#include "random_numbers.h"
#include "recorded_digest.h"

#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>

namespace {

// A kernel log of the test's own: the real one is out of reach.
struct Kernel {
    std::string log;
    long size = 0;
    int error = 0; // of reading and clearing
    int sizeError = 0;
    long excess = 0; // what reading reports beyond the bytes it wrote
};
Kernel kernel;

constexpr const char *kLocate = "locate_in_kernel_ring_buffer";

class KernelLog : public ozu::test::PlatformTest {
  protected:
    void SetUp() override {
        PlatformTest::SetUp();
        kernel = Kernel();
        kernel.size = 63;
    }
    // Searches with a buffer of that many bytes, followed by a byte that must stay.
    int locate(int bufferSize, const char *text) {
        buffer_.assign(static_cast<std::size_t>(bufferSize) + 1, '#');
        const int found = locate_in_kernel_ring_buffer(buffer_.data(), bufferSize, text);
        EXPECT_EQ(buffer_.back(), '#');
        return found;
    }
    std::vector<char> buffer_;
};

long fail(int error) {
    errno = error;
    return -1;
}

} // namespace

extern "C" long __wrap_syscall(long number, ...) {
    va_list arguments;
    va_start(arguments, number);
    const int action = va_arg(arguments, int);
    char *buffer = va_arg(arguments, char *);
    const int length = va_arg(arguments, int);
    va_end(arguments);
    EXPECT_EQ(number, SYS_syslog);
    platform().journal.push_back("syslog(" + std::to_string(action) + ", " + std::to_string(length) + ")");
    switch (action) {
    case 10:
        return kernel.sizeError != 0 ? fail(kernel.sizeError) : kernel.size;
    case 5:
        return kernel.error != 0 ? fail(kernel.error) : 0;
    case 3: {
        if (kernel.error != 0) {
            return fail(kernel.error);
        }
        const auto count = std::min(static_cast<std::size_t>(length), kernel.log.size());
        // The kernel hands out the newest messages.
        memcpy(buffer, kernel.log.data() + kernel.log.size() - count, count);
        return static_cast<long>(count) + kernel.excess;
    }
    default:
        ADD_FAILURE() << "action " << action;
        return fail(EINVAL);
    }
}

TEST_F(KernelLog, sizeHasRoomForTheZero) {
    kernel.size = 262144;
    EXPECT_EQ(get_ring_buffer_size(), 262145);
    EXPECT_THAT(platform().journal, ElementsAre("syslog(10, 0)"));
}

TEST_F(KernelLog, sizeRefusedShowsAsNothing) {
    kernel.sizeError = EPERM;
    EXPECT_EQ(get_ring_buffer_size(), 0);
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(KernelLog, sizeBelowMinusOneIsLogged) {
    kernel.size = -5;
    errno = EIO;
    EXPECT_EQ(get_ring_buffer_size(), -4);
    EXPECT_THAT(platform().log,
                ElementsAre(extended(70000, "SYSLOG_ACTION_SIZE_BUFFER failed: Input/output error",
                                     "get_ring_buffer_size")));
    platform().journal.clear();
    EXPECT_EQ(locate(64, "x"), 0);
    EXPECT_EQ(platform().callCount("syslog"), 1); // and nothing is read
}

TEST_F(KernelLog, badArgumentsAreRefusedBeforeTheKernelIsAsked) {
    char buffer[4] = "abc";
    EXPECT_EQ(locate_in_kernel_ring_buffer(nullptr, 4, "a"), 0);
    EXPECT_EQ(locate_in_kernel_ring_buffer(buffer, 0, "a"), 0);
    EXPECT_EQ(locate_in_kernel_ring_buffer(buffer, -1, "a"), 0);
    EXPECT_EQ(locate_in_kernel_ring_buffer(buffer, -2147483647 - 1, "a"), 0);
    EXPECT_EQ(locate_in_kernel_ring_buffer(buffer, 4, nullptr), 0);
    EXPECT_EQ(locate_in_kernel_ring_buffer(buffer, 4, ""), 0);
    EXPECT_EQ(platform().log, std::vector(6, extended(70000, "Bad arguments", kLocate)));
    EXPECT_EQ(platform().log[0].format, "%s");
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(platform().callCount("syslog"), 0);
}

TEST_F(KernelLog, findsALineAndCutsIt) {
    kernel.log = "<6>first\n<6>usb 1-1: new device\n<6>last\n";
    EXPECT_EQ(locate(64, "usb"), 1);
    EXPECT_THAT(platform().journal,
                ElementsAre("syslog(10, 0)", "syslog(3, 63)",
                            "log 70000 Found in kernel ring buffer: [usb 1-1: new device]"));
    EXPECT_THAT(platform().log,
                ElementsAre(extended(70000, "Found in kernel ring buffer: [usb 1-1: new device]", kLocate)));
    EXPECT_STREQ(buffer_.data(), "<6>first\n<6>usb 1-1: new device");
}

TEST_F(KernelLog, theFirstCharacterDoesNotEndTheLine) {
    kernel.log = "one\ntwo\nthree\n";
    EXPECT_EQ(locate(64, "\ntw"), 1);
    EXPECT_EQ(platform().log.back().text, "Found in kernel ring buffer: [\ntwo]");
}

TEST_F(KernelLog, notFoundIsSilent) {
    kernel.log = "<6>first\n";
    EXPECT_EQ(locate(64, "second"), 0);
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(KernelLog, anotherSizeIsUsedWithAWarning) {
    kernel.log = "0123456789";
    EXPECT_EQ(locate(6, "9"), 1);
    EXPECT_THAT(platform().journal,
                ElementsAre("syslog(10, 0)",
                            "log 50000 The size of the provided buffer 6 is different than "
                            "get_ring_buffer_size() 64",
                            "syslog(3, 5)", "log 70000 Found in kernel ring buffer: [9]"));
    EXPECT_EQ(platform().log[0].function, kLocate);
    EXPECT_EQ(locate(6, "4"), 0); // only the newest five bytes were read
}

TEST_F(KernelLog, nothingReadIsAWarning) {
    EXPECT_EQ(locate(64, "x"), 0);
    EXPECT_THAT(platform().log,
                ElementsAre(extended(50000, "SYSLOG_ACTION_READ_ALL: O bytes read", kLocate)));
    EXPECT_EQ(platform().log[0].format, "%s");
    EXPECT_EQ(buffer_[0], '#');
}

TEST_F(KernelLog, refusedReadIsAFailure) {
    kernel.sizeError = EPERM;
    kernel.error = EPERM;
    EXPECT_EQ(locate(64, "x"), 0);
    EXPECT_THAT(
        platform().log,
        ElementsAre(extended(50000,
                             "The size of the provided buffer 64 is different than "
                             "get_ring_buffer_size() 0",
                             kLocate),
                    extended(70000, "SYSLOG_ACTION_READ_ALL failed: Operation not permitted", kLocate)));
}

TEST_F(KernelLog, longLinesAreCutAtOneHundredCharacters) {
    kernel.size = 511;
    for (const std::size_t length : {99U, 100U, 101U, 300U}) {
        kernel.log = "head M" + std::string(length - 1, 'x') + "\ntail\n";
        EXPECT_EQ(locate(512, "M"), 1);
        EXPECT_EQ(platform().log.back().text, "Found in kernel ring buffer: [M" +
                                                  std::string(std::min<std::size_t>(length, 100) - 1, 'x') +
                                                  "]");
    }
}

TEST_F(KernelLog, aTextLongerThanTheCutIsStillFound) {
    kernel.size = 511;
    const std::string text = "M" + std::string(150, 'y');
    kernel.log = text + "\n";
    EXPECT_EQ(locate(512, text.c_str()), 1);
    EXPECT_EQ(platform().log.back().text, "Found in kernel ring buffer: [" + text.substr(0, 100) + "]");
}

TEST_F(KernelLog, everyBufferSizeKeepsItsBounds) {
    kernel.log = "abcdefghijklmnopqrstuvwxyzabcdefghijklmnopqrstuvwxyzabcdefghijZZ";
    for (int size = 1; size <= 64; ++size) {
        platform().log.clear();
        const int found = locate(size, "Z");
        // One byte is the terminator's alone.
        EXPECT_EQ(found, size > 1 ? 1 : 0) << size;
        const std::string expected =
            size == 1 ? "SYSLOG_ACTION_READ_ALL: O bytes read"
                      : "Found in kernel ring buffer: [" + std::string(size == 2 ? "Z" : "ZZ") + "]";
        EXPECT_EQ(platform().log.back().text, expected) << size;
    }
}

TEST_F(KernelLog, aLengthBeyondTheBufferStaysInsideIt) {
    for (const long excess : {1L, 2L, 1000L}) {
        kernel.log = std::string(60, '.') + "end";
        kernel.excess = excess;
        EXPECT_EQ(locate(64, "end"), 1) << excess; // which looks at the byte behind the buffer, too
        EXPECT_STREQ(buffer_.data(), kernel.log.c_str()) << excess;
    }
}

TEST_F(KernelLog, zerosInTheLogEndTheSearch) {
    kernel.log = std::string("abc\0def", 7);
    EXPECT_EQ(locate(64, "def"), 0);
    EXPECT_EQ(locate(64, "bc"), 1);
    EXPECT_EQ(platform().log.back().text, "Found in kernel ring buffer: [bc]");
}

TEST_F(KernelLog, clears) {
    EXPECT_EQ(clear_ring_buffer(), 1);
    EXPECT_THAT(platform().journal, ElementsAre("syslog(5, 0)"));
}

TEST_F(KernelLog, refusedClearIsLogged) {
    kernel.error = EPERM;
    EXPECT_EQ(clear_ring_buffer(), 0);
    EXPECT_THAT(platform().log,
                ElementsAre(extended(70000, "SYSLOG_ACTION_CLEAR failed: Operation not permitted",
                                     "clear_ring_buffer")));
}

TEST_F(KernelLog, sameResultsOnEveryMachine) {
    ozu::test::Random random(20261122);
    ozu::test::RecordedDigest digest;
    for (int round = 0; round < 1000; ++round) {
        kernel.log = random.text(random.below(300), std::string("ab\n\0", 4));
        kernel.error = random.below(16) == 0 ? EPERM : 0;
        const std::string wanted = random.text(random.below(5), "ab");
        const auto size = static_cast<int>(1 + random.below(200));
        const int found = locate(size, wanted.c_str());
        digest.add(found, std::string_view(buffer_.data(), buffer_.size()));
        digest.add(get_ring_buffer_size());
        digest.add(clear_ring_buffer());
    }
    digest.print("kernel log lines");
}
