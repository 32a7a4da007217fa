// Answers to made-up questions, and what was logged on the way, as digests: they are the same on every
// machine. Whether an answer is right is for the other tests to say. Functions that ask the kernel, a file or
// a server have their digests where the tests answer in their place.

#include <utils_ozu.h>

#include "../alarm/state_test.h"
#include "recorded_digest.h"
#include "test_files.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

constexpr int kRounds = 1000;
constexpr std::uint32_t kSeed = 20261122;

// A buffer for any answer, whose every byte counts.
class Buffer {
  public:
    explicit Buffer(const std::string &start = "") {
        bytes_.fill('#');
        memcpy(bytes_.data(), start.c_str(), start.size() + 1);
    }
    [[nodiscard]] char *text() { return bytes_.data(); }
    [[nodiscard]] unsigned char *bytes() { return reinterpret_cast<unsigned char *>(bytes_.data()); }
    [[nodiscard]] std::string_view all() const { return {bytes_.data(), bytes_.size()}; }

  private:
    std::array<char, 400> bytes_{};
};

class Results : public ozu::test::ClockTest {
  protected:
    void SetUp() override {
        ClockTest::SetUp();
        // A zone without daylight saving time: no hour occurs twice.
        setenv("TZ", "IST-5:30", 1);
        tzset();
    }
    void TearDown() override {
        digest_.print(testing::UnitTest::GetInstance()->current_test_info()->name());
        unsetenv("TZ");
        ClockTest::TearDown();
    }
    template <typename... Answers>
    void add(const Answers &...answers) {
        digest_.add(answers...);
    }
    // One of the words.
    const char *pick(std::initializer_list<const char *> words) {
        return words.begin()[random.below(static_cast<std::uint32_t>(words.size()))];
    }

    ozu::test::Random random{kSeed};

  private:
    ozu::test::RecordedDigest digest_;
};

const std::string kDecimal = "0123456789";
const std::string kNumber = "0123456789 +-x";
const std::string kDate = "0123456789/:- ";

} // namespace

// ---- Text ----

TEST_F(Results, copies) {
    for (int round = 0; round < kRounds; ++round) {
        const std::uint32_t length = random.below(60);
        const std::string text = random.text(length);
        const unsigned int size = 1 + random.below(70);
        Buffer lower, upper, copy, trimmed, name;
        add(ozuutils_strncpy2Lower(lower.text(), text.c_str(), size), lower.all());
        add(ozuutils_strncpy2Upper(upper.text(), text.c_str(), size), upper.all());
        add(ozuutils_strlcpy(copy.text(), text.c_str(), size), copy.all());
        const std::string field = text + std::string(random.below(4), ' ');
        ozuutils_FixedStringCopyAndTrimRight(trimmed.text(), size, field.data(),
                                             static_cast<unsigned int>(field.size()));
        add(trimmed.all());
        add(ozuutils_getShortUpperModName(name.text(), text.c_str(), size), name.all());
        add(ozuutils_isStringIsStandardAscii(text.c_str()));
    }
}

TEST_F(Results, edits) {
    for (int round = 0; round < kRounds; ++round) {
        const std::uint32_t length = random.below(60);
        const std::string text = random.text(length, "ab,\xC3");
        const std::uint32_t itemLength = random.below(3);
        const std::string item = random.text(itemLength, "ab");
        Buffer replaced(text), changed(text), longer(text), shorter(text);
        add(ozuutils_replaceSubstrInStr(replaced.text(), item.c_str(), pick({"", "a", "long one"}), 400),
            replaced.all());
        const int from = static_cast<int>(random.below(300)) - 20;
        const int to = static_cast<int>(random.below(300)) - 20;
        replace_char_from_string(from, to, changed.text());
        add(changed.all());
        const unsigned int room = random.below(70);
        add(ozuutils_addToCommaSeparatedStringList(longer.text(), item.c_str(), room), longer.all());
        add(ozuutils_removeFromCommaSeparatedStringList(shorter.text(), item.c_str(), 400), shorter.all());
    }
}

TEST_F(Results, decimals) {
    for (int round = 0; round < kRounds; ++round) {
        const std::uint32_t length = random.below(26);
        const std::string text = random.text(length, round % 2 == 0 ? kNumber : kDecimal);
        add(safe_atoi(text.c_str()), safe_atoll(text.c_str()));
        const std::uint32_t number = random.ofAnyLength();
        const unsigned int width = random.below(20);
        Buffer fixed, least;
        add(ozuutils_num2decstr(number, fixed.text(), width), fixed.all());
        add(ozuutils_Num2MinimalDecStr(number, least.text(), width), least.all());
        const unsigned int digits = random.below(80);
        const unsigned int radix = random.below(40);
        const std::string any = random.text(length, "019azAZyY-");
        add(ozuutils_StringToNum(any.c_str(), digits, radix),
            ozuutils_StringToLongNum(any.c_str(), digits, radix));
    }
}

TEST_F(Results, everyByte) {
    for (int value = 0; value < 256; ++value) {
        const auto byte = static_cast<unsigned char>(value);
        add(int{ozuutils_Ascii2Digit(static_cast<char>(byte))},
            int{static_cast<unsigned char>(ozuutils_Digit2Ascii(byte))}, int{ozuutils_bcd2num(byte)});
    }
}

TEST_F(Results, hexadecimals) {
    for (int round = 0; round < kRounds; ++round) {
        std::array<unsigned char, 40> data{};
        random.fill(data.data(), data.size());
        const auto count = static_cast<unsigned short>(random.below(40));
        Buffer ascii, binary, number, separated, scanned;
        ozuutils_String2Ascii(ascii.text(), data.data(), count);
        const std::string digits = random.text(2U * count, "0123456789abcdefABCDEFgzZ \xFF");
        ozuutils_Ascii2String(binary.bytes(), digits.c_str(), count);
        add(ascii.all(), binary.all());
        const std::uint64_t high = random.ofAnyLength();
        const std::uint64_t low = random();
        const int width = static_cast<int>(random.below(24)) - 3;
        add(ozuutils_num2hexstr((high << 32) | low, number.text(), width), number.all());
        unsigned char read = 99;
        const unsigned int most = random.below(30);
        const std::string text = random.text(most, "0123456789abcdefABCDEFg");
        const unsigned int value = ozuutils_hexstr2numRetLen(text.c_str(), most, &read);
        add(value, int{read});
        const unsigned int room = 1 + random.below(100);
        const char *separator = pick({"", ":", ", "});
        add(ozuutils_data2hexstr(data.data(), count, separated.text(), room, separator), separated.all());
        const int reverse = static_cast<int>(random.below(2));
        const std::string pairs = random.text(random.below(30), "0123456789abcdefF +-xg");
        add(ozuutils_hexStringToBinary(pairs.c_str(), scanned.bytes(), 12, reverse), scanned.all());
    }
}

TEST_F(Results, bits) {
    for (int round = 0; round < kRounds; ++round) {
        std::uint32_t value = random.ofAnyLength();
        const unsigned int number = random.below(40);
        add(countSetBits(value), SetBit(value, number), ClearBit(value, number), int{msbSetBitNumber(value)});
        swap_ptr32(&value);
        add(value);
        const std::string text = random.text(40, "ab");
        const std::string wanted = random.text(1 + random.below(5), "ab");
        const auto *buffer = reinterpret_cast<const unsigned char *>(text.data());
        const unsigned char *found =
            ozuutils_searchInBuf(buffer, reinterpret_cast<const unsigned char *>(wanted.data()), 40,
                                 static_cast<unsigned int>(wanted.size()));
        add(found == nullptr ? -1 : static_cast<int>(found - buffer));
    }
}

// ---- Time ----

TEST_F(Results, dates) {
    const auto two = [this](std::uint32_t limit) { return std::to_string(random.below(limit)); };
    for (int round = 0; round < kRounds; ++round) {
        const std::string month = two(15);
        const std::string day = two(35);
        const std::string year = random.below(3) == 0 ? two(100) : std::to_string(1890 + random.below(160));
        std::string clock = two(27) + ":";
        clock += two(64);
        const std::string seconds = ":" + two(64);
        std::array<std::string, 5> texts = {
            month + "-" + day + "-" + year + " " + clock + seconds,
            day + "/" + month + "/" + year + " " + clock, random.text(8, kDecimal),
            "Fri Mar " + day + " " + clock + seconds + " " + year, random.text(10, kDecimal)};
        if (random.below(8) == 0) {
            texts.fill(random.text(random.below(20), kDate));
        }
        add(date_string_to_time(texts[0].c_str()), date_string_to_time_limited(texts[1].c_str()),
            date_string_to_time_tools(texts[2].c_str()), bypass_string_to_time(texts[3].c_str()));
        add(localTimeStrToTimeT(texts[4].c_str()));
    }
}

TEST_F(Results, calendarTimes) {
    for (int round = 0; round < kRounds; ++round) {
        const auto field = [this](int limit) {
            return static_cast<int>(random.below(static_cast<std::uint32_t>(2 * limit))) - limit / 2;
        };
        tm time{};
        time.tm_year = field(200);
        time.tm_mon = field(12);
        time.tm_mday = field(31);
        time.tm_hour = field(24);
        time.tm_min = field(60);
        time.tm_sec = field(100000);
        add(ozuutils_timegm_to_epoch(&time), time.tm_year, time.tm_mon, time.tm_mday, time.tm_hour,
            time.tm_min, time.tm_sec, time.tm_wday, time.tm_yday);
    }
}

// ---- Network ----

TEST_F(Results, addresses) {
    for (int round = 0; round < kRounds; ++round) {
        std::string text = random.text(random.below(4) + 6, "0123456789..");
        if (random.below(3) == 0) {
            text = std::to_string(random.below(300));
            for (int i = 0; i < 3; ++i) {
                text += "." + std::to_string(random.ofAnyLength() % 300);
            }
        }
        std::array<int, 4> numbers = {-7, -7, -7, -7};
        add(is_valid_ip(text.c_str(), &numbers[0], &numbers[1], &numbers[2], &numbers[3]), numbers[0],
            numbers[1], numbers[2], numbers[3]);
        add(isValidIpAddress(text.c_str()));
        std::string url = random.text(random.below(30), "a:/@.");
        Buffer host;
        add(parse_host(url.data(), host.text(), random.below(40)), host.all());
    }
}

// ---- The panel ----

TEST_F(Results, panelState) {
    constexpr std::uint32_t kTypes[] = {85, 57, 59, 38, 60, 67, 87, 2};
    for (int round = 0; round < 20; ++round) {
        random.fill(&platform().state, sizeof platform().state);
        for (PanelPartition &partition : platform().state.partitions) {
            partition.partitionState %= 6;
            partition.forcedArm %= 4;
            partition.armAfterAlarm = random.below(8) == 0 ? random.byte() : std::uint8_t{0};
        }
        for (PanelSafetyEvent &event : platform().state.safetyEvents) {
            event.startTime = static_cast<std::int32_t>(ozu::test::now) - 100 +
                              static_cast<std::int32_t>(random.below(400));
            event.ended = random.below(4) == 0 ? std::uint8_t{0} : event.ended;
        }
        add(IsPanelInAlarm(), IsPanelInAlarmOrArmAfterAlarm(), IsPanelInAlarmOrArmAfterAlarmExceptPanic(),
            IsPanelInAlarmOrArmAfterAlarmExceptAnnexPanic(), IsPanelInDisarmNotEmergemcyPartitions(),
            int{getCurArmType()}, getCurArmForced(), isDanalockExistAndActived());
        add(ozuutils_isSafetyEventInProgress());
        add(int{ozuutils_isSafetySirenInProgress()});
        add(ozuutils_isSystemTimeOk(static_cast<int>(random())));
        for (int index = -1; index <= MAX_DEVICE_INDEX; ++index) {
            if (index >= 0 && index < MAX_DEVICE_INDEX) {
                platform().state.devices[index].deviceType = kTypes[random.below(8)];
                platform().state.devices[index].openState &= static_cast<std::uint8_t>(random.below(2));
            }
            platform().tagReaders[index] = random.below(8) == 0 ? 1 : 0;
            platform().rfInputs[index] = random.below(8) == 0 ? 1 : 0;
            platform().rfDetectors[index] = 1;
            const int input = static_cast<int>(random.below(3));
            add(IsDeviceMagnetType(index), ozuutils_isCameraDevice(index));
            add(IsMagnetOpen(index));
            add(IsCameraLidClosed(index));
            add(ozuutils_isZoneBypassed(index, input));
            add(isUmkrlVersionSupportProfile(index));
        }
        for (unsigned int number = 0; number < 20; ++number) {
            add(check_dial_table_id(number, random.byte(), 3));
            add(getSY9IdFromUser(random()));
            add(getAu1tPartitionEntryTime(number));
        }
        add(ozuutils_setNxpPlasticVersion());
    }
}

TEST_F(Results, partitionWords) {
    for (int round = 0; round < kRounds; ++round) {
        for (PanelPartition &partition : platform().state.partitions) {
            partition.partitionState = random.below(3);
            partition.disarmTime = static_cast<std::int32_t>(random());
        }
        const char *zone = pick({"main", "perimeter", "safety", "panic", "other", ""});
        const char *armType = pick({"full", "partial1", "partial2", "FIND_ARM_TYPE", "other"});
        std::uint32_t first = 77, second = 77;
        add(ozuutils_getDisarmTimestamp(zone, &first), first);
        add(ozuutils_getSecPartition(zone, armType, &first), first);
        add(ozuutils_getLumPartition(random.below(12), &first, &second), first, second);
        add(ozuutils_getLumAlarmType(pick({"none", "flood", "shock", "duress", "x"}), &first), first);
        const unsigned int command = random.below(24);
        const unsigned int partition = random.below(12);
        const std::string media = random.text(random.below(250), "media %s");
        add(writeSecurityCmdToSystemLog(command, partition, media.c_str()));
        add(writeSecurityEventToSystemLog(command, partition, media.c_str()));
        add(ozuutils_sysLogHTTPSPrinter("GET", media.c_str(), "", static_cast<int>(random.below(200))));
    }
}

TEST_F(Results, names) {
    for (int code = -5; code <= 300; ++code) {
        const auto number = static_cast<unsigned int>(code);
        const char *type = getDeviceTypeName(code);
        add(type, getDeviceTypeEnum(type), getTarn2MessageTypeName(number), getTarnPlusOpcodeName(number),
            getTarn1OpcodeName(number), getTarn1OldMessageTypeString(number), ozuutils_getRsuFolder(code));
        for (int subOpcode = -1; subOpcode <= 200; ++subOpcode) {
            add(getTarnPlusSubOpcodeName(code, subOpcode), getTarn1SubOpcodeName(code, subOpcode));
        }
    }
}

TEST_F(Results, modem) {
    for (int round = 0; round < kRounds; ++round) {
        const std::string imsi = random.text(random.below(10) + 4, round % 8 == 0 ? kNumber : kDecimal);
        Buffer country, network, version, beta;
        add(ozuutils_IMSItoMccMnc(imsi.c_str(), country.text(), network.text()), country.all(),
            network.all());
        std::string text = "25.A0F." + random.text(random.below(8), "0123 x");
        text += "-B" + random.text(random.below(4), "0123 x");
        add(getAppModemVersion(text.c_str(), version.text(), random.below(8)), version.all());
        add(getAppBetaModemVersion(text.c_str(), beta.text(), random.below(5)), beta.all());
        add(isNoPSMandNoCBankMode(static_cast<int>(random.below(6))));
    }
}

TEST_F(Results, countries) {
    for (int round = 0; round < kRounds; ++round) {
        std::string name = pick({"Spain", "FRANCE", "united kingdom", "Brazil", "Chile", "Peru ", "Nowhere"});
        const std::size_t at = random.below(static_cast<std::uint32_t>(name.size()));
        name.insert(at, random.text(random.below(3), " \n"));
        Buffer two, three, digits;
        add(get_country_codes(name.c_str(), two.text(), three.text(), digits.text()), two.all(), three.all(),
            digits.all());
        Buffer alone;
        add(get_country_alpha2Code(name.c_str(), alone.text()), alone.all());
        add(get_country_alpha3Code(name.c_str(), alone.text()), alone.all());
        add(get_country_numericCode(name.c_str(), alone.text()), alone.all());
    }
}

// ---- Security ----

TEST_F(Results, numbersOfTheGenerator) {
    srand(1); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same numbers each time are wanted
    for (int round = 0; round < kRounds; ++round) {
        const auto first = static_cast<int>(random());
        const auto second = static_cast<int>(random.ofAnyLength());
        add(ozuutils_random(std::min(first, second), std::max(first, second)));
    }
}

TEST_F(Results, files) {
    const ozu::test::TemporaryDirectory directory;
    const std::string plain = directory.file("plain");
    const std::string cipher = directory.file("cipher");
    std::array<unsigned char, 32> key{};
    for (unsigned int round = 0; round < 40; ++round) {
        random.fill(key.data(), key.size());
        ozu::test::writeFile(plain, ozu::test::noise(random.below(3000), round));
        add(ozuutils_crypt_aes128ecb(plain.c_str(), cipher.c_str(), key.data(), 1));
        add(ozu::test::readFile(cipher));
        // Decrypted as a video, a region begins with the mark only by chance; that nothing is written counts,
        // too.
        const unsigned int keyLength = 16 + 8 * random.below(3);
        add(decryptVideoFile(cipher.c_str(), key.data(), keyLength, 0));
        add(ozu::test::readFile(cipher));
    }
}
