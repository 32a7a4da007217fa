// The library's families, each called with whatever comes.

#include "targets.h"

#include <inc_ozu/security_ozu.h>
#include <ozu_fake_platform.h>
#include <utils_ozu.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <ctime>

namespace ozu::fuzz {

namespace {

void copies(Input &input) {
    const unsigned size = input.byte() % 64;
    const bool upper = (input.byte() & 1) != 0;
    const Text source(input.text());
    const Output out(size + 1);
    (upper ? ozuutils_strncpy2Upper : ozuutils_strncpy2Lower)(out.chars(), source, size);
    require(out.text().size() == std::min<std::size_t>(size, strlen(source)));
    const Output bounded(size);
    require(ozuutils_strlcpy(bounded.chars(), source, size) == strlen(source));
    require(size == 0 || isTerminated(bounded));
    ozuutils_getShortUpperModName(out.chars(), source, size + 1);
    require(isTerminated(out));
    const Output field(input.rest());
    ozuutils_FixedStringCopyAndTrimRight(out.chars(), size + 1, field.chars(),
                                         static_cast<unsigned>(field.size()));
    require(out.chars()[std::min<std::size_t>(size, field.size())] == '\0' || isTerminated(out));
}

void editing(Input &input) {
    const int from = static_cast<int>(input.byte());
    const int to = static_cast<int>(input.byte());
    const Text find(input.text());
    const Text replacement(input.text());
    const std::string text(input.rest().substr(0, 4096));
    const Output out(text.size() + strlen(replacement) + 1);
    memcpy(out.bytes(), text.c_str(), text.size() + 1);
    const unsigned result =
        ozuutils_replaceSubstrInStr(out.chars(), find, replacement, static_cast<unsigned>(out.size()));
    require(result == (*find == '\0' ? 4U : 0U) && isTerminated(out));
    replace_char_from_string(from, to, out.chars());
    const bool ascii = std::all_of(out.text().begin(), out.text().end(),
                                   [](char c) { return static_cast<unsigned char>(c) < 128; });
    require(ozuutils_isStringIsStandardAscii(out.chars()) == (ascii ? 1U : 0U));
}

void lists(Input &input) {
    const Text item(input.text());
    const std::string text(input.text());
    const Output list(text.size() + 1 + input.byte() % 32);
    memcpy(list.bytes(), text.c_str(), text.size() + 1);
    const bool added =
        ozuutils_addToCommaSeparatedStringList(list.chars(), item, static_cast<unsigned>(list.size())) == 1;
    require(isTerminated(list));
    const std::string after(list.text());
    const unsigned removed =
        ozuutils_removeFromCommaSeparatedStringList(list.chars(), item, static_cast<unsigned>(list.size()));
    require(isTerminated(list) && (removed == 1 || list.text() == after));
    // An item with a comma in it cannot be told from two.
    require(!added || removed == 1 || strchr(item, ',') != nullptr);
}

void decimal(Input &input) {
    const std::uint32_t number = input.number();
    const unsigned width = input.byte() % 24;
    const Text text(input.rest());
    const long long whole = safe_atoll(text);
    require(safe_atoi(text) == static_cast<int>(std::clamp<long long>(whole, -2147483648LL, 2147483647LL)));
    const Output fixed(width);
    require(ozuutils_num2decstr(number, fixed.chars(), width) == width);
    const Output minimal(std::min(10U, width + 1));
    require(ozuutils_Num2MinimalDecStr(number, minimal.chars(), width) <= minimal.size());
}

void radix(Input &input) {
    const unsigned digits = input.number();
    const unsigned base = input.number();
    const Text text(input.rest());
    const auto low = static_cast<std::uint32_t>(ozuutils_StringToNum(text, digits, base));
    if (digits <= 32 || strlen(text) <= 32) {
        require(low == static_cast<std::uint32_t>(ozuutils_StringToLongNum(text, digits, base)));
    }
    for (const char *at = text; *at != '\0'; ++at) {
        const int value = ozuutils_Ascii2Digit(*at);
        require(value >= -1 && value <= 34);
        static_cast<void>(ozuutils_bcd2num(static_cast<unsigned char>(*at)));
        static_cast<void>(ozuutils_Digit2Ascii(static_cast<unsigned char>(*at)));
    }
}

void hexadecimal(Input &input) {
    const unsigned size = 1 + input.byte() % 64;
    const int reverse = input.byte() & 1;
    const Text separator(input.text());
    const std::string content(input.rest());
    const Output data(content);
    const auto length = static_cast<unsigned>(data.size());
    const Output text(size);
    ozuutils_data2hexstr(data.bytes(), length, text.chars(), size, separator);
    require(isTerminated(text));
    const Text hex(content);
    unsigned char digits = 0;
    static_cast<void>(ozuutils_hexstr2numRetLen(hex, size, &digits));
    require(digits <= size);
    const Output bytes(size);
    const int count = ozuutils_hexStringToBinary(hex, bytes.bytes(), size, reverse);
    require(count >= -2 && count <= static_cast<int>(size));
    const auto pairs = static_cast<unsigned short>(std::min<unsigned>(length, 1000));
    const Output written(2U * pairs);
    ozuutils_String2Ascii(written.chars(), data.bytes(), pairs);
    const Output read(pairs);
    ozuutils_Ascii2String(read.bytes(), written.chars(), pairs);
    require(memcmp(read.bytes(), data.bytes(), pairs) == 0);
}

void search(Input &input) {
    const std::size_t patternSize = 1 + input.byte() % 16;
    const std::string_view content = input.rest();
    const Output pattern(content.substr(0, patternSize));
    const Output buffer(content.substr(std::min(patternSize, content.size())));
    if (pattern.size() == 0) {
        return;
    }
    const unsigned char *found =
        ozuutils_searchInBuf(buffer.bytes(), pattern.bytes(), static_cast<unsigned>(buffer.size()),
                             static_cast<unsigned>(pattern.size()));
    const std::size_t at = buffer.view().find(pattern.view());
    require(at == std::string_view::npos ? found == nullptr : found == buffer.bytes() + at);
}

void dates(Input &input) {
    const Text text(input.rest());
    for (const auto convert : {date_string_to_time, date_string_to_time_limited, date_string_to_time_tools,
                               bypass_string_to_time, localTimeStrToTimeT}) {
        const int first = convert(text);
        require(convert(text) == first);
    }
}

void brokenDownTimes(Input &input) {
    tm utc{};
    for (int *field : {&utc.tm_sec, &utc.tm_min, &utc.tm_hour, &utc.tm_mday, &utc.tm_mon, &utc.tm_year}) {
        *field = static_cast<int>(input.number());
    }
    static_cast<void>(ozuutils_timegm_to_epoch(&utc));
    static_cast<void>(ozuutils_isSystemTimeOk(static_cast<int>(input.number())));
}

void addresses(Input &input) {
    const Text text(input.rest());
    int number[4] = {-1, -1, -1, -1};
    if (is_valid_ip(text, &number[0], &number[1], &number[2], &number[3]) == 1) {
        require(std::all_of(number, number + 4, [](int n) { return n >= 0 && n <= 255; }));
    }
    if (isValidIpAddress(text) == 1) {
        require(strlen(text) <= 15);
    }
}

void urls(Input &input) {
    const unsigned size = input.byte() % 64;
    const Text url(input.rest());
    const Output host(size);
    const int found = parse_host(url.changeable(), host.chars(), size);
    require(size == 0 ? found == 0 : isTerminated(host) && found == (host.text().empty() ? 0 : 1));
}

void modems(Input &input) {
    const std::size_t digits = input.byte() % 9;
    const Text text(input.rest());
    const Output version(std::max<std::size_t>(digits + 1, 7));
    require(getAppModemVersion(text, version.chars(), digits) % 2 == 0 && isTerminated(version));
    const Output beta(std::max<std::size_t>(digits + 1, 4));
    require(getAppBetaModemVersion(text, beta.chars(), digits) % 2 == 0 && isTerminated(beta));
    const Output mcc(4);
    const Output mnc(4);
    const int length = ozuutils_IMSItoMccMnc(text, mcc.chars(), mnc.chars());
    require(length == static_cast<int>(mnc.text().size()) && isTerminated(mcc));
}

void names(Input &input) {
    const int number = static_cast<int>(input.number());
    const int other = static_cast<int>(input.number());
    const Text name(input.rest());
    const int type = getDeviceTypeEnum(name);
    require(type <= 0 || getDeviceTypeName(type) != nullptr);
    for (const char *text :
         {getDeviceTypeName(number), getTarn2MessageTypeName(static_cast<unsigned>(number)),
          getTarnPlusOpcodeName(static_cast<unsigned>(number)), getTarnPlusSubOpcodeName(number, other),
          getTarn1OpcodeName(static_cast<unsigned>(number)), getTarn1SubOpcodeName(number, other),
          getTarn1OldMessageTypeString(static_cast<unsigned>(number)),
          stringFromSec_cmd(static_cast<unsigned>(number)),
          stringFromSec_partition(static_cast<unsigned>(number))}) {
        require(text != nullptr && strlen(text) < 200);
    }
}

void partitions(Input &input) {
    const Text zone(input.text());
    const Text type(input.text());
    std::uint32_t first = 77;
    std::uint32_t second = 77;
    require(ozuutils_getSecPartition(zone, type, &first) == 0 ? first < 16 : first == 77);
    require(ozuutils_getLumAlarmType(zone, &second) == 0 ? second >= 1 && second <= 7 : second == 77);
    static_cast<void>(ozuutils_getDisarmTimestamp(zone, &second));
    first = second = 77;
    require(ozuutils_getLumPartition(input.number(), &first, &second) == 0 ? first < 4 && second < 3
                                                                           : first == 77 && second == 77);
}

void eventLines(Input &input) {
    const unsigned command = input.number();
    const unsigned partition = input.number();
    const Text media(input.text());
    const Text server(input.text());
    const Text interface(input.text());
    static_cast<void>(writeSecurityCmdToSystemLog(command, partition, media));
    static_cast<void>(writeSecurityEventToSystemLog(command, partition, media));
    static_cast<void>(
        ozuutils_sysLogHTTPSPrinter(media, server, interface, static_cast<int>(input.number())));
}

void paths(Input &input) {
    const Text path(input.rest());
    const bool temporary = strncmp(path, "/tmp/", 5) == 0 || strncmp(path, "/var/volatile/tmp/", 18) == 0;
    require(ozuutils_is_temp_file(path) == (temporary ? 1 : 0));
}

void state(Input &input) {
    const int device = static_cast<int>(input.number());
    const std::uint32_t number = input.number();
    const int which = static_cast<int>(input.byte());
    PanelSharedState record{};
    const std::string_view content = input.rest();
    memcpy(static_cast<void *>(&record), content.data(), std::min(content.size(), sizeof(record)));
    ozu_fake_use_state(&record);
    for (const auto ask :
         {IsPanelInAlarm, IsPanelInAlarmOrArmAfterAlarm, IsPanelInAlarmOrArmAfterAlarmExceptPanic,
          IsPanelInAlarmOrArmAfterAlarmExceptAnnexPanic, IsPanelInDisarmNotEmergemcyPartitions,
          isDanalockExistAndActived, ozuutils_isSafetyEventInProgress, getCurArmForced}) {
        static_cast<void>(ask());
    }
    for (const int index : {device, device & 0xFF}) {
        for (const auto ask : {IsDeviceMagnetType, ozuutils_isCameraDevice, IsMagnetOpen, IsCameraLidClosed,
                               isUmkrlVersionSupportProfile}) {
            const int answer = ask(index);
            require(answer == 0 || (index > -1 && index < OZUDB_DEVICES) || answer == -1);
        }
        static_cast<void>(ozuutils_isZoneBypassed(index, which));
    }
    static_cast<void>(getCurArmType());
    static_cast<void>(getAu1tPartitionEntryTime(number));
    static_cast<void>(ozuutils_isDeviceExistsAndActive(number, device));
    static_cast<void>(ozuutils_isSafetySirenInProgress());
    static_cast<void>(isNoPSMandNoCBankMode(which));
    static_cast<void>(check_dial_table_id(number, record.dialers[0].dialerCheckB, number));
    require(getSY9IdFromUser(number) <= 10);
    ozu_fake_use_state(ozu_fake_state());
}

void coprocessor(Input &input) {
    const Text sender(input.text());
    const unsigned command = input.number();
    const std::string_view content = input.rest();
    const Output data(content.substr(0, 4096));
    static_cast<void>(ozuutils_updateNxpUartProtocol(command));
    controlCC1352Gpio(sender, command, command >> 8);
    static_cast<void>(ozuutils_SendDataToNXP(data.bytes(), static_cast<unsigned>(data.size()), command));
}

void wholeFiles(Input &input) {
    const std::string content(input.rest());
    const MemoryFile file(content);
    void *buffer = nullptr;
    const int count = allocFileToBuff(file.path().c_str(), &buffer);
    require(count == static_cast<int>(content.size()) && memcmp(buffer, content.data(), content.size()) == 0);
    free(buffer);
}

void fileCipher(Input &input) {
    std::array<unsigned char, 16> key{};
    std::generate(key.begin(), key.end(), [&] { return input.byte(); });
    const std::string content(input.rest());
    const MemoryFile plain(content);
    const MemoryFile secret("");
    const MemoryFile again("");
    const std::string names[] = {plain.path(), secret.path(), again.path()};
    require(ozuutils_crypt_aes128ecb(names[0].c_str(), names[1].c_str(), key.data(), 1) == 0);
    const std::string ciphered = secret.content();
    require(ciphered.size() % 16 == 0 && ciphered.size() >= content.size());
    require(ozuutils_crypt_aes128ecb(names[1].c_str(), names[2].c_str(), key.data(), 0) == 0);
    require(again.content().compare(0, content.size(), content) == 0);
}

void video(Input &input) {
    constexpr std::array<unsigned, 5> kLengths{16, 24, 32, 0, 17};
    const unsigned keyLength = kLengths[input.byte() % kLengths.size()];
    std::array<unsigned char, 32> key{};
    std::generate(key.begin(), key.end(), [&] { return input.byte(); });
    const long offset = static_cast<int>(input.number()) >> input.byte() % 32;
    const std::string content(input.rest());
    const MemoryFile file(content);
    static_cast<void>(decryptVideoFile(file.path().c_str(), key.data(), keyLength, offset));
    require(file.content().size() == content.size());
}

constexpr std::array kAll{
    Target{"copies", copies},
    Target{"editing", editing},
    Target{"lists", lists},
    Target{"decimal", decimal},
    Target{"radix", radix},
    Target{"hexadecimal", hexadecimal},
    Target{"search", search},
    Target{"dates", dates},
    Target{"broken_down_times", brokenDownTimes},
    Target{"addresses", addresses},
    Target{"urls", urls},
    Target{"modems", modems},
    Target{"names", names},
    Target{"partitions", partitions},
    Target{"event_lines", eventLines},
    Target{"paths", paths},
    Target{"state", state},
    Target{"coprocessor", coprocessor},
    Target{"whole_files", wholeFiles, 10},
    Target{"file_cipher", fileCipher, 10},
    Target{"video", video, 10},
};

} // namespace

const std::span<const Target> kTargets{kAll};

} // namespace ozu::fuzz
