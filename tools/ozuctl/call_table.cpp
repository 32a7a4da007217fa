#include "call_table.h"

#include "arguments.h"
#include "context.h"
#include "output.h"
#include "text.h"

#include <utils_ozu.h>

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <memory>

namespace ozuctl {

namespace {

constexpr std::int64_t kMaxBuffer = 65536;
constexpr std::int64_t kMaxCallFile = std::int64_t{16} * 1024 * 1024;

// --- parameters ---

CallParameter textGiven(std::string_view name) {
    return {name, ValueType::text, 0, 0, false};
}
CallParameter textOrNull(std::string_view name) {
    return {name, ValueType::text, 0, 0, true};
}
CallParameter bytesGiven(std::string_view name, std::int64_t least, std::int64_t most) {
    return {name, ValueType::bytes, least, most, false};
}
CallParameter characterGiven(std::string_view name) {
    return {name, ValueType::character, 0, 0, false};
}
CallParameter numberGiven(std::string_view name, std::int64_t low, std::int64_t high) {
    return {name, ValueType::number, low, high, false};
}
CallParameter sizeGiven(std::string_view name, std::int64_t least = 0) {
    return numberGiven(name, least, kMaxBuffer);
}
CallParameter anyInt(std::string_view name) {
    return numberGiven(name, kLeastInt, kMaxInt);
}
CallParameter anyUnsigned(std::string_view name) {
    return numberGiven(name, 0, kMaxUnsigned);
}
CallParameter wideGiven(std::string_view name) {
    return {name, ValueType::wide, 0, 0, false};
}

// --- buffers ---

// Memory that a function writes to: zeros, and always a zero more than it has room for.
class CallBuffer {
  public:
    explicit CallBuffer(std::size_t size) : bytes_(size + 1) {}
    CallBuffer(std::size_t size, const char *content) : CallBuffer(std::max(size, strlen(content))) {
        std::copy_n(content, strlen(content), bytes_.begin());
    }
    char *data() { return bytes_.data(); }
    unsigned char *octets() { return reinterpret_cast<unsigned char *>(bytes_.data()); }
    [[nodiscard]] std::string text() const { return bytes_.data(); }
    [[nodiscard]] std::string hex(std::size_t count) const {
        return hexText({reinterpret_cast<const unsigned char *>(bytes_.data()), count});
    }

  private:
    std::vector<char> bytes_;
};

// --- duties of the caller ---

[[noreturn]] void refuseCall(const std::string &why) {
    throw CommandError(kUsage, why);
}

void replacedTextFits(const CallArguments &in) {
    const char *found = in.length(1) != 0 ? strstr(in.text(0), in.text(1)) : nullptr;
    const std::size_t length = found == nullptr ? in.length(0) : in.length(0) - in.length(1) + in.length(2);
    const auto room = in.number<std::size_t>(3);
    if (std::max(length, in.length(0)) >= room) {
        refuseCall("bufSize must hold the text before and after, " +
                   std::to_string(std::max(length, in.length(0)) + 1) + " bytes, not " +
                   std::to_string(room));
    }
}

// A device or FIFO never ends; a file is held in memory.
void isSmallFile(const CallArguments &in) {
    struct stat found = {};
    if (stat(in.text(0), &found) != 0) {
        return; // the function says so
    }
    if (!S_ISREG(found.st_mode)) {
        refuseCall(inQuotes(in.text(0)) + " is no plain file");
    }
    if (found.st_size > kMaxCallFile) {
        refuseCall(inQuotes(in.text(0)) + " is larger than " + std::to_string(kMaxCallFile) + " bytes");
    }
}

// --- calls that take more than a line ---

Json callTimegm(const CallArguments &in, Json &out) {
    tm utc = {};
    utc.tm_year = in.number<int>(0) - 1900;
    utc.tm_mon = in.number<int>(1) - 1;
    utc.tm_mday = in.number<int>(2);
    utc.tm_hour = in.number<int>(3);
    utc.tm_min = in.number<int>(4);
    utc.tm_sec = in.number<int>(5);
    const int seconds = ozuutils_timegm_to_epoch(&utc);
    out = {{"year", std::int64_t{utc.tm_year} + 1900},
           {"month", utc.tm_mon + 1},
           {"day", utc.tm_mday},
           {"hour", utc.tm_hour},
           {"minute", utc.tm_min},
           {"second", utc.tm_sec},
           {"weekday", utc.tm_wday},
           {"yearDay", utc.tm_yday}};
    return seconds;
}

Json callAllocFile(const CallArguments &in, Json &out) {
    void *content = nullptr;
    const int size = allocFileToBuff(in.text(0), &content);
    const std::unique_ptr<void, decltype(&free)> own(content, free);
    if (content != nullptr && size >= 0) {
        const std::span bytes(static_cast<const unsigned char *>(content), static_cast<std::size_t>(size));
        out["buffer"] = hexText(bytes.first(std::min<std::size_t>(bytes.size(), kMaxBuffer)));
    }
    return size;
}

Json callSearch(const CallArguments &in, Json &) {
    const auto &buffer = in.bytes(0);
    const auto &pattern = in.bytes(1);
    const unsigned char *found =
        ozuutils_searchInBuf(buffer.data(), pattern.data(), static_cast<unsigned int>(buffer.size()),
                             static_cast<unsigned int>(pattern.size()));
    return found == nullptr ? Json(nullptr) : Json(found - buffer.data());
}

Json callSwap(const CallArguments &in, Json &out) {
    std::vector<unsigned char> bytes = in.bytes(0);
    swap_ptr32(bytes.data());
    out["p"] = hexText(bytes);
    return nullptr;
}

Json callHexToBinary(const CallArguments &in, Json &out) {
    CallBuffer bytes(in.number<std::size_t>(1));
    const int count =
        ozuutils_hexStringToBinary(in.text(0), bytes.octets(), in.number<unsigned int>(1), in.number<int>(2));
    out["out"] = bytes.hex(count > 0 ? static_cast<std::size_t>(count) : 0);
    return count;
}

Json callRawDns(const CallArguments &in, Json &out) {
    CallBuffer address(in.number<std::size_t>(3));
    NgetHostByName(in.text(0), in.number<int>(1), in.text(2), in.length(2) + 1, address.data(),
                   in.number<std::size_t>(3));
    out["ipOut"] = address.text();
    return nullptr;
}

Json callNslookup(const CallArguments &in, Json &out) {
    CallBuffer address(16);
    const int result = nslookup_ares(in.text(0), in.text(1), in.text(2), in.text(3), address.data());
    out["result"] = address.text();
    return result;
}

// One of the copies that take a count of characters.
template <char *(*copy)(char *, const char *, unsigned int)>
Json callCountedCopy(const CallArguments &in, Json &out) {
    CallBuffer dst(in.number<std::size_t>(1));
    const bool given = copy(dst.data(), in.text(0), in.number<unsigned int>(1)) != nullptr;
    out["dst"] = given ? Json(dst.text()) : Json(nullptr);
    return nullptr;
}

template <unsigned (*get)(const char *, char *)>
Json callCountry(const CallArguments &in, Json &out) {
    CallBuffer code(4);
    const unsigned result = get(in.text(0), code.data());
    out["code"] = code.text();
    return result;
}

// --- the table ---

constexpr auto kFree = CallNeeds::nothing;

// clang-format off
std::vector<CallableFunction> textFunctions() { // NOLINT(readability-function-size): a table
    return {
        {"ozuutils_strncpy2Lower", "nothing", {textOrNull("src"), sizeGiven("n")}, {"dst"}, kFree, {}, nullptr,
         callCountedCopy<ozuutils_strncpy2Lower>},
        {"ozuutils_strncpy2Upper", "nothing", {textOrNull("src"), sizeGiven("n")}, {"dst"}, kFree, {}, nullptr,
         callCountedCopy<ozuutils_strncpy2Upper>},
        {"ozuutils_strlcpy", "number", {textOrNull("src"), sizeGiven("size")}, {"dst"}, kFree, {}, nullptr,
         [](const CallArguments &in, Json &out) -> Json {
             CallBuffer dst(in.number<std::size_t>(1));
             const unsigned int length = ozuutils_strlcpy(dst.data(), in.text(0), in.number<unsigned int>(1));
             out["dst"] = dst.text();
             return length;
         }},
        {"ozuutils_FixedStringCopyAndTrimRight", "nothing", {sizeGiven("dstSize", 1), textGiven("src")}, {"dst"}, kFree,
         {}, nullptr,
         [](const CallArguments &in, Json &out) -> Json {
             CallBuffer dst(in.number<std::size_t>(0));
             ozuutils_FixedStringCopyAndTrimRight(dst.data(), in.number<unsigned int>(0), in.text(1),
                                                  static_cast<unsigned int>(in.length(1)));
             out["dst"] = dst.text();
             return nullptr;
         }},
        {"ozuutils_getShortUpperModName", "nothing", {textOrNull("name"), sizeGiven("size", 1)}, {"dst"}, kFree, {},
         nullptr,
         [](const CallArguments &in, Json &out) -> Json {
             CallBuffer dst(in.number<std::size_t>(1));
             ozuutils_getShortUpperModName(dst.data(), in.text(0), in.number<unsigned int>(1));
             out["dst"] = dst.text();
             return nullptr;
         }},
        {"ozuutils_replaceSubstrInStr", "number",
         {textGiven("str"), textOrNull("find"), textOrNull("replacement"), sizeGiven("bufSize", 1)}, {"str"}, kFree, {},
         replacedTextFits,
         [](const CallArguments &in, Json &out) -> Json {
             CallBuffer str(in.number<std::size_t>(3), in.text(0));
             const unsigned int result = ozuutils_replaceSubstrInStr(str.data(), in.text(1), in.text(2),
                                                                     in.number<unsigned int>(3));
             out["str"] = str.text();
             return result;
         }},
        {"replace_char_from_string", "nothing", {anyInt("from"), anyInt("to"), textGiven("s")}, {"s"}, kFree, {},
         nullptr,
         [](const CallArguments &in, Json &out) -> Json {
             CallBuffer s(0, in.text(2));
             replace_char_from_string(in.number<int>(0), in.number<int>(1), s.data());
             out["s"] = s.text();
             return nullptr;
         }},
        {"ozuutils_isStringIsStandardAscii", "number", {textOrNull("s")}, {}, kFree, {}, nullptr,
         [](const CallArguments &in, Json &) -> Json { return ozuutils_isStringIsStandardAscii(in.text(0)); }},
        {"ozuutils_addToCommaSeparatedStringList", "number", {textGiven("list"), textOrNull("item"), sizeGiven("listSize")},
         {"list"}, kFree, {}, nullptr,
         [](const CallArguments &in, Json &out) -> Json {
             CallBuffer list(in.number<std::size_t>(2), in.text(0));
             const unsigned int result = ozuutils_addToCommaSeparatedStringList(list.data(), in.text(1),
                                                                                in.number<unsigned int>(2));
             out["list"] = list.text();
             return result;
         }},
        {"ozuutils_removeFromCommaSeparatedStringList", "number",
         {textGiven("list"), textOrNull("item"), sizeGiven("maxLen")}, {"list"}, kFree, {}, nullptr,
         [](const CallArguments &in, Json &out) -> Json {
             CallBuffer list(in.number<std::size_t>(2), in.text(0));
             const unsigned int result = ozuutils_removeFromCommaSeparatedStringList(
                 list.data(), in.text(1), in.number<unsigned int>(2));
             out["list"] = list.text();
             return result;
         }},
        {"safe_atoi", "number", {textOrNull("s")}, {}, kFree, {}, nullptr,
         [](const CallArguments &in, Json &) -> Json { return safe_atoi(in.text(0)); }},
        {"safe_atoll", "number", {textOrNull("s")}, {}, kFree, {}, nullptr,
         [](const CallArguments &in, Json &) -> Json { return safe_atoll(in.text(0)); }},
        {"ozuutils_num2decstr", "number", {anyUnsigned("num"), sizeGiven("width")}, {"dst"}, kFree, {}, nullptr,
         [](const CallArguments &in, Json &out) -> Json {
             CallBuffer dst(in.number<std::size_t>(1));
             const unsigned short written = ozuutils_num2decstr(in.number<unsigned int>(0), dst.data(),
                                                                in.number<unsigned int>(1));
             out["dst"] = dst.text();
             return written;
         }},
        {"ozuutils_Num2MinimalDecStr", "number", {anyUnsigned("num"), anyUnsigned("maxLen")}, {"dst"}, kFree, {},
         nullptr,
         [](const CallArguments &in, Json &out) -> Json {
             CallBuffer dst(10);
             const unsigned short written = ozuutils_Num2MinimalDecStr(in.number<unsigned int>(0), dst.data(),
                                                                       in.number<unsigned int>(1));
             out["dst"] = dst.text();
             return written;
         }},
        {"ozuutils_Ascii2Digit", "number", {characterGiven("c")}, {}, kFree, {}, nullptr,
         [](const CallArguments &in, Json &) -> Json { return ozuutils_Ascii2Digit(*in.text(0)); }},
        {"ozuutils_Digit2Ascii", "character", {numberGiven("d", 0, 255)}, {}, kFree, {}, nullptr,
         [](const CallArguments &in, Json &) -> Json {
             const char digit = ozuutils_Digit2Ascii(in.number<unsigned char>(0));
             return digit == '\0' ? std::string() : std::string(1, digit);
         }},
        {"ozuutils_StringToNum", "number", {textOrNull("s"), anyUnsigned("maxDigits"), anyUnsigned("radix")}, {},
         kFree, {}, nullptr,
         [](const CallArguments &in, Json &) -> Json {
             return ozuutils_StringToNum(in.text(0), in.number<unsigned int>(1), in.number<unsigned int>(2));
         }},
        {"ozuutils_StringToLongNum", "number", {textOrNull("s"), anyUnsigned("maxDigits"), anyUnsigned("radix")},
         {}, kFree, {}, nullptr,
         [](const CallArguments &in, Json &) -> Json {
             return ozuutils_StringToLongNum(in.text(0), in.number<unsigned int>(1), in.number<unsigned int>(2));
         }},
        {"ozuutils_bcd2num", "number", {numberGiven("bcd", 0, 255)}, {}, kFree, {}, nullptr,
         [](const CallArguments &in, Json &) -> Json { return ozuutils_bcd2num(in.number<unsigned char>(0)); }},
        {"ozuutils_String2Ascii", "nothing", {bytesGiven("src", 0, 65535)}, {"dst"}, kFree, {}, nullptr,
         [](const CallArguments &in, Json &out) -> Json {
             const auto &src = in.bytes(0);
             CallBuffer dst(2 * src.size());
             ozuutils_String2Ascii(dst.data(), src.data(), static_cast<unsigned short>(src.size()));
             out["dst"] = dst.text();
             return nullptr;
         }},
        {"ozuutils_Ascii2String", "nothing", {textGiven("src"), numberGiven("n", 0, 65535)}, {"dst"}, kFree, {},
         [](const CallArguments &in) {
             if (in.length(0) < 2 * in.number<std::size_t>(1)) {
                 refuseCall("src must have 2 * n characters, " + std::to_string(2 * in.number<std::size_t>(1)) +
                            ", not " + std::to_string(in.length(0)));
             }
         },
         [](const CallArguments &in, Json &out) -> Json {
             CallBuffer dst(in.number<std::size_t>(1));
             ozuutils_Ascii2String(dst.octets(), in.text(0), in.number<unsigned short>(1));
             out["dst"] = dst.hex(in.number<std::size_t>(1));
             return nullptr;
         }},
        {"ozuutils_num2hexstr", "number", {wideGiven("num"), numberGiven("width", kLeastInt, kMaxBuffer)}, {"dst"}, kFree,
         {}, nullptr,
         [](const CallArguments &in, Json &out) -> Json {
             CallBuffer dst(static_cast<std::size_t>(std::max<std::int64_t>(in.number<std::int64_t>(1), 0)));
             const unsigned short written = ozuutils_num2hexstr(in.wide(0), dst.data(), in.number<int>(1));
             out["dst"] = dst.text();
             return written;
         }},
        {"ozuutils_hexstr2numRetLen", "number", {textGiven("s"), anyUnsigned("maxLen")}, {"outLen"}, kFree, {}, nullptr,
         [](const CallArguments &in, Json &out) -> Json {
             unsigned char length = 0;
             const unsigned int value = ozuutils_hexstr2numRetLen(in.text(0), in.number<unsigned int>(1), &length);
             out["outLen"] = length;
             return value;
         }},
        {"ozuutils_data2hexstr", "nothing", {bytesGiven("data", 0, kMaxBuffer), sizeGiven("dstSize", 1), textOrNull("sep")},
         {"dst"}, kFree, {}, nullptr,
         [](const CallArguments &in, Json &out) -> Json {
             CallBuffer dst(in.number<std::size_t>(1));
             ozuutils_data2hexstr(in.bytes(0).data(), static_cast<unsigned int>(in.bytes(0).size()), dst.data(),
                                  in.number<unsigned int>(1), in.text(2));
             out["dst"] = dst.text();
             return nullptr;
         }},
        {"ozuutils_hexStringToBinary", "number", {textGiven("hex"), sizeGiven("outSize"), anyInt("reverse")}, {"out"}, kFree,
         {}, nullptr, callHexToBinary},
        {"swap_ptr32", "nothing", {bytesGiven("p", 4, 4)}, {"p"}, kFree, {}, nullptr, callSwap},
        {"countSetBits", "number", {anyUnsigned("v")}, {}, kFree, {}, nullptr,
         [](const CallArguments &in, Json &) -> Json { return countSetBits(in.number<unsigned int>(0)); }},
        {"SetBit", "number", {anyUnsigned("v"), anyUnsigned("bit")}, {}, kFree, {}, nullptr,
         [](const CallArguments &in, Json &) -> Json {
             return SetBit(in.number<unsigned int>(0), in.number<unsigned int>(1));
         }},
        {"ClearBit", "number", {anyUnsigned("v"), anyUnsigned("bit")}, {}, kFree, {}, nullptr,
         [](const CallArguments &in, Json &) -> Json {
             return ClearBit(in.number<unsigned int>(0), in.number<unsigned int>(1));
         }},
        {"msbSetBitNumber", "number", {anyUnsigned("v")}, {}, kFree, {}, nullptr,
         [](const CallArguments &in, Json &) -> Json { return msbSetBitNumber(in.number<unsigned int>(0)); }},
        {"ozuutils_searchInBuf", "place", {bytesGiven("buf", 0, kMaxBuffer), bytesGiven("pattern", 1, kMaxBuffer)}, {},
         kFree, {}, nullptr, callSearch},
    };
}

std::vector<CallableFunction> otherFunctions() {
    constexpr auto kFirstYear = std::int64_t{kLeastInt} + 1900;
    return {
        {"ozuutils_timegm_to_epoch", "number",
         {numberGiven("year", kFirstYear, kMaxInt), numberGiven("month", kLeastInt + 1, kMaxInt), anyInt("day"),
          anyInt("hour"), anyInt("minute"), anyInt("second")},
         {"year", "month", "day", "hour", "minute", "second", "weekday", "yearDay"}, kFree, {}, nullptr,
         callTimegm},
        {"ozuutils_isSystemTimeOk", "number", {anyInt("now")}, {}, kFree, {}, nullptr,
         [](const CallArguments &in, Json &) -> Json { return ozuutils_isSystemTimeOk(in.number<int>(0)); }},
        {"_RTC_is_synched", "number", {}, {}, kFree, {}, nullptr,
         [](const CallArguments &, Json &) -> Json { return _RTC_is_synched(); }},
        {"ozuutils_is_temp_file", "number", {textOrNull("path")}, {}, kFree, {}, nullptr,
         [](const CallArguments &in, Json &) -> Json { return ozuutils_is_temp_file(in.text(0)); }},
        {"allocFileToBuff", "number", {textGiven("path")}, {"buffer"}, kFree, {}, isSmallFile, callAllocFile},
        {"get_ring_buffer_size", "number", {}, {}, kFree, {}, nullptr,
         [](const CallArguments &, Json &) -> Json { return get_ring_buffer_size(); }},
        {"clear_ring_buffer", "number", {}, {}, CallNeeds::consent, "clears the kernel log of this machine", nullptr,
         [](const CallArguments &, Json &) -> Json { return clear_ring_buffer(); }},
        {"WaitForUnsentData", "number", {numberGiven("maxSeconds", kLeastInt, 3600)}, {}, kFree, {}, nullptr,
         [](const CallArguments &in, Json &) -> Json { return WaitForUnsentData(in.number<int>(0)); }},
        {"request_CP_reboot_from", "nothing", {}, {}, CallNeeds::bus, "asks the co-processor to reboot the panel",
         nullptr,
         [](const CallArguments &, Json &) -> Json {
             request_CP_reboot_from();
             return nullptr;
         }},
        {"get_device_ip", "number", {textGiven("ifname")}, {"ipText"}, kFree, {}, nullptr,
         [](const CallArguments &in, Json &out) -> Json {
             CallBuffer address(16);
             const int result = get_device_ip(in.text(0), address.data());
             out["ipText"] = address.text();
             return result;
         }},
        {"NgetHostByName", "nothing",
         {textGiven("host"), anyInt("queryType"), textGiven("dnsServer"), numberGiven("ipOutSize", 0, kMaxBuffer)}, {"ipOut"},
         kFree, {}, nullptr, callRawDns},
        {"nslookup_ares", "number",
         {textGiven("host"), textOrNull("iface"), textOrNull("primaryDns"), textOrNull("secondaryDns")}, {"result"},
         kFree, {}, nullptr, callNslookup},
        {"ares_global_library_init", "number", {textOrNull("tag")}, {}, kFree, {}, nullptr,
         [](const CallArguments &in, Json &) -> Json { return ares_global_library_init(in.text(0)); }},
        {"ares_global_library_deinit", "nothing", {}, {}, kFree, {}, nullptr,
         [](const CallArguments &, Json &) -> Json {
             ares_global_library_deinit();
             return nullptr;
         }},
        {"ARES_MAX_RETRY", "number", {}, {}, kFree, {}, nullptr,
         [](const CallArguments &, Json &) -> Json { return ARES_MAX_RETRY; }},
        {"get_country_alpha2Code", "number", {textOrNull("country")}, {"code"}, kFree, {}, nullptr,
         callCountry<get_country_alpha2Code>},
        {"get_country_alpha3Code", "number", {textOrNull("country")}, {"code"}, kFree, {}, nullptr,
         callCountry<get_country_alpha3Code>},
        {"get_country_numericCode", "number", {textOrNull("country")}, {"code"}, kFree, {}, nullptr,
         callCountry<get_country_numericCode>},
    };
}
// clang-format on

} // namespace

const std::vector<CallableFunction> &callableFunctions() {
    static const std::vector<CallableFunction> functions = [] {
        auto all = textFunctions();
        std::ranges::move(otherFunctions(), std::back_inserter(all));
        return all;
    }();
    return functions;
}

const std::vector<ReachedFunction> &reachedFunctions() { // NOLINT(readability-function-size): a table
    static const std::vector<ReachedFunction> functions = {
        {"ozuutils_processInit", "publish"},
        {"cleanup", "publish"},
        {"ozuutils_RebootSystem", "reboot"},
        {"exec_cmd", "exec"},
        {"popen2", "exec"},
        {"ozuutils_findProcessId", "ps"},
        {"unlink_cb", "rsu remove"},
        {"locate_in_kernel_ring_buffer", "klog find"},
        {"bypass_string_to_time", "time parse"},
        {"date_string_to_time", "time parse"},
        {"date_string_to_time_limited", "time parse"},
        {"date_string_to_time_tools", "time parse"},
        {"localTimeStrToTimeT", "time parse"},
        {"utils_get_cp_uptime", "uptime"},
        {"applyTimeZone", "time zone"},
        {"is_valid_ip", "net valid"},
        {"isValidIpAddress", "net valid"},
        {"ozuutils_gethostIPv4byIfname", "net address"},
        {"parse_host", "net host-of"},
        {"checkRouteAndAdd", "net route add"},
        {"checkRouteAndDel", "net route del"},
        {"retrieveDefGateway", "net gateway"},
        {"nslookup_ozu", "net resolve"},
        {"ozuutils_resolve_hostname", "net resolve"},
        {"nslookup_ares_n", "net resolve"},
        {"write_permanent_dns", "net dns-file write"},
        {"getAu1tPartitionEntryTime", "ask"},
        {"getCurArmForced", "ask"},
        {"getCurArmType", "ask"},
        {"IsCameraLidClosed", "ask"},
        {"isDanalockExistAndActived", "ask"},
        {"IsDeviceMagnetType", "ask"},
        {"IsMagnetOpen", "ask"},
        {"IsPanelInAlarm", "ask"},
        {"IsPanelInAlarmOrArmAfterAlarm", "ask"},
        {"IsPanelInAlarmOrArmAfterAlarmExceptAnnexPanic", "ask"},
        {"IsPanelInAlarmOrArmAfterAlarmExceptPanic", "ask"},
        {"IsPanelInDisarmNotEmergemcyPartitions", "ask"},
        {"ozuutils_isCameraDevice", "ask"},
        {"ozuutils_isDeviceExistsAndActive", "ask"},
        {"ozuutils_isSafetyEventInProgress", "ask"},
        {"ozuutils_isSafetySirenInProgress", "ask"},
        {"ozuutils_isZoneBypassed", "ask"},
        {"ozuutils_getDisarmTimestamp", "partition disarmed"},
        {"ozuutils_getLumAlarmType", "partition alarm-type"},
        {"ozuutils_getLumPartition", "partition words"},
        {"ozuutils_getSecPartition", "partition find"},
        {"ozuutils_sysLogHTTPSPrinter", "events add http"},
        {"ozuutils_sysLogSocketPrinter", "events add socket"},
        {"writeSecurityCmdToSystemLog", "events add command"},
        {"writeSecurityEventToSystemLog", "events add event"},
        {"getDeviceTypeEnum", "device-type"},
        {"getDeviceTypeName", "names device"},
        {"getTarn1OldMessageTypeString", "names tarn1old"},
        {"getTarn1OpcodeName", "names tarn1"},
        {"getTarn1SubOpcodeName", "names tarn1"},
        {"getTarn2MessageTypeName", "names tarn2"},
        {"getTarnPlusOpcodeName", "names tarnplus"},
        {"getTarnPlusSubOpcodeName", "names tarnplus"},
        {"calcConfigUniqueId", "identity"},
        {"check_dial_table_id", "dialer"},
        {"getSY9IdFromUser", "keyfob"},
        {"isUmkrlVersionSupportProfile", "profiles"},
        {"controlCC1352Gpio", "gpio"},
        {"ozuutils_GetNxpTamperState", "nxp tamper"},
        {"ozuutils_SendDataToNXP", "nxp send"},
        {"ozuutils_setNxpPlasticVersion", "nxp housing"},
        {"ozuutils_updateCPserialNumberInShmem", "nxp serial"},
        {"ozuutils_updateNxpManufactureParamsInShmem", "nxp manufacture"},
        {"ozuutils_updateNxpUartProtocol", "nxp uart"},
        {"getAppBetaModemVersion", "modem beta"},
        {"getAppModemVersion", "modem app"},
        {"isNoPSMandNoCBankMode", "modem awake"},
        {"ozuutils_IMSItoMccMnc", "imsi"},
        {"ozuutils_readTelitFwFile", "modem version"},
        {"ozuutils_getRsuFolder", "rsu list"},
        {"ozuutils_removeRsuFile", "rsu remove"},
        {"decryptVideoFile", "video decrypt"},
        {"ozuutils_crypt_aes128ecb", "crypt encrypt"},
        {"ozuutils_rand_bytes", "random bytes"},
        {"ozuutils_random", "random number"},
        {"ozuutils_getDBcypher", "db-key"},
        {"error_exit", "jpeg"},
        {"output_message", "jpeg"},
        {"ozuutils_jpegValidator", "jpeg"},
        {"get_country_codes", "country"},
    };
    return functions;
}

std::string typeWords(const CallParameter &parameter) {
    std::string words(parameter.name);
    switch (parameter.type) {
    case ValueType::text:
        words += " text";
        break;
    case ValueType::bytes:
        words += " bytes";
        break;
    case ValueType::character:
        words += " character";
        break;
    case ValueType::number:
        words += " " + std::to_string(parameter.low) + ".." + std::to_string(parameter.high);
        break;
    case ValueType::wide:
        words += " 0..18446744073709551615";
        break;
    }
    return parameter.nullable ? words + " or null" : words;
}

} // namespace ozuctl
