#include <utils_ozu/crypto.h>

#include "fake_platform.h"

#include <openssl/err.h>
#include <openssl/rand.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <set>
#include <string>

using ozu::test::extended;
using ozu::test::platform;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::deque<int> numbers;   // what rand() gives; the real one when empty
std::deque<int> generator; // what RAND_bytes() answers; the real one when empty

class Random : public ozu::test::PlatformTest {
  protected:
    void SetUp() override {
        PlatformTest::SetUp();
        numbers.clear();
        generator.clear();
    }
};

void seed(unsigned value) {
    std::srand(value); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same numbers each time are wanted
}

int drawn(int number, int min, int max) {
    numbers = {number};
    const int result = ozuutils_random(min, max);
    EXPECT_THAT(numbers, IsEmpty()) << "one number is taken for every call";
    return result;
}

} // namespace

extern "C" {

int __real_rand();
int __wrap_rand() {
    if (numbers.empty()) {
        return __real_rand();
    }
    const int number = numbers.front();
    numbers.pop_front();
    return number;
}

int __real_RAND_bytes(unsigned char *, int);
int __wrap_RAND_bytes(unsigned char *buffer, int count) {
    if (generator.empty()) {
        return __real_RAND_bytes(buffer, count);
    }
    const int answer = generator.front();
    generator.pop_front();
    ERR_raise(ERR_LIB_USER, 77);
    return answer;
}

} // extern "C"

TEST_F(Random, bytesAreFilledToTheCount) {
    for (const int count : {1, 16, 32, 1000}) {
        std::string bytes(static_cast<std::size_t>(count) + 8, '\x5a');
        EXPECT_EQ(ozuutils_rand_bytes(reinterpret_cast<unsigned char *>(bytes.data()), count), 0u);
        EXPECT_EQ(bytes.substr(static_cast<std::size_t>(count)), std::string(8, '\x5a'));
    }
    std::set<std::string> keys;
    for (int i = 0; i < 1000; ++i) {
        std::string key(16, '\0');
        ASSERT_EQ(ozuutils_rand_bytes(reinterpret_cast<unsigned char *>(key.data()), 16), 0u);
        keys.insert(key);
    }
    EXPECT_EQ(keys.size(), 1000u);
    EXPECT_THAT(platform().journal, IsEmpty());
}

TEST_F(Random, noBytesSucceed) {
    unsigned char untouched = 0x5a;
    EXPECT_EQ(ozuutils_rand_bytes(&untouched, 0), 0u);
    EXPECT_EQ(untouched, 0x5a);
    EXPECT_THAT(platform().journal, IsEmpty());
}

TEST_F(Random, countOfZeroReachesTheGenerator) {
    generator = {0};
    unsigned char byte = 0;
    EXPECT_EQ(ozuutils_rand_bytes(&byte, 0), 2u);
    EXPECT_THAT(platform().log, ElementsAre(extended(70000, "Error retrieving 0 random bytes, returned: 0",
                                                     "ozuutils_rand_bytes")));
}

TEST_F(Random, negativeCountIsRefused) {
    unsigned char untouched = 0x5a;
    generator = {1};
    EXPECT_EQ(ozuutils_rand_bytes(&untouched, -1), 4u);
    EXPECT_EQ(ozuutils_rand_bytes(&untouched, INT_MIN), 4u);
    EXPECT_EQ(untouched, 0x5a);
    EXPECT_EQ(generator.size(), 1u) << "the generator is not asked";
    EXPECT_THAT(
        platform().log,
        ElementsAre(
            extended(70000, "Invalid number of random bytes requested: -1", "ozuutils_rand_bytes"),
            extended(70000, "Invalid number of random bytes requested: -2147483648", "ozuutils_rand_bytes")));
}

TEST_F(Random, failedGeneratorIsLoggedWithItsAnswer) {
    ERR_clear_error();
    for (const int answer : {0, -1, 2}) {
        generator = {answer};
        platform().log.clear();
        unsigned char bytes[4] = {};
        EXPECT_EQ(ozuutils_rand_bytes(bytes, 4), 2u);
        EXPECT_THAT(platform().log,
                    ElementsAre(extended(
                        70000, "Error retrieving 4 random bytes, returned: " + std::to_string(answer),
                        "ozuutils_rand_bytes")));
    }
    EXPECT_EQ(ERR_peek_error(), 0UL) << "left in OpenSSL's error queue";
}

TEST_F(Random, bucketsAreThoseOfTheDivision) {
    // Width of a bucket for 0..9: 2147483647 / 10 + 1 = 214748365.
    EXPECT_EQ(drawn(0, 0, 9), 0);
    EXPECT_EQ(drawn(214748364, 0, 9), 0);
    EXPECT_EQ(drawn(214748365, 0, 9), 1);
    EXPECT_EQ(drawn(214748365 * 9 - 1, 0, 9), 8);
    EXPECT_EQ(drawn(214748365 * 9, 0, 9), 9);
    EXPECT_EQ(drawn(RAND_MAX, 0, 9), 9);
    EXPECT_EQ(drawn(RAND_MAX, -7, -7), -7);
    EXPECT_EQ(drawn(RAND_MAX, 5, 5), 5);
    EXPECT_EQ(drawn(0, 5, 5), 5);
    EXPECT_EQ(drawn(1073741824, 1, 2), 2);
    EXPECT_EQ(drawn(1073741823, 1, 2), 1);
}

TEST_F(Random, extremeLimits) {
    EXPECT_EQ(drawn(RAND_MAX, 0, INT_MAX), INT_MAX);
    EXPECT_EQ(drawn(0, 0, INT_MAX), 0);
    EXPECT_EQ(drawn(RAND_MAX, 0, INT_MAX - 1), 1073741823) << "width 2: the buckets above stay empty";
    EXPECT_EQ(drawn(0, INT_MIN, INT_MAX), INT_MIN);
    EXPECT_EQ(drawn(RAND_MAX, INT_MIN, INT_MAX), -1);
    EXPECT_EQ(drawn(RAND_MAX, INT_MIN, -1), -1);
    EXPECT_EQ(drawn(RAND_MAX, INT_MIN, INT_MIN), INT_MIN);
    EXPECT_EQ(drawn(RAND_MAX, INT_MAX, INT_MAX), INT_MAX);
}

TEST_F(Random, everyNumberHasABucketUpTo46409Numbers) {
    for (int numbers = 1; numbers <= 46409; ++numbers) {
        ASSERT_EQ(drawn(RAND_MAX, 1, numbers), numbers);
    }
    EXPECT_EQ(drawn(RAND_MAX, 1, 46410), 46409);
    EXPECT_EQ(drawn(RAND_MAX, 0, 2000000000), 1073741823);
}

TEST_F(Random, reversedLimitsDoNotEndTheProcess) {
    EXPECT_EQ(drawn(RAND_MAX, 9, 0), 9 - 2147483647 / 268435454)
        << "the division goes on with a negative width";
    EXPECT_EQ(drawn(RAND_MAX, 5, 4), 5) << "no number between the limits";
    drawn(RAND_MAX, INT_MAX, INT_MIN);
    drawn(RAND_MAX, INT_MAX, 0);
    drawn(12345, 1, -2147483646);
}

TEST_F(Random, everyNumberOfASmallRangeComes) {
    seed(1);
    std::set<int> seen;
    for (int i = 0; i < 10000; ++i) {
        seen.insert(ozuutils_random(-3, 6));
    }
    EXPECT_THAT(seen, ElementsAre(-3, -2, -1, 0, 1, 2, 3, 4, 5, 6));
}

TEST_F(Random, processSeedsTheGenerator) {
    seed(42);
    const int first = ozuutils_random(0, INT_MAX);
    seed(42);
    EXPECT_EQ(ozuutils_random(0, INT_MAX), first);
    seed(42);
    EXPECT_EQ(__real_rand(), first);
}
