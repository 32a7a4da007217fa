// The lookups of names that are measured: ours and its peers, over the same codes.
#pragma once

#include "names_known.h"
#include "names_peers.h"

#include <utils_ozu/names.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>
#include <type_traits>
#include <unordered_map>

namespace names_bench {

// The search through all codes that getDeviceTypeEnum() answers like.
inline int scanDeviceType(const char *name) {
    if (name == nullptr) {
        return 255;
    }
    if (std::strcmp(name, "CP") == 0) {
        return 8;
    }
    for (int code = 0; code <= 254; ++code) {
        if (std::strcmp(getDeviceTypeName(code), name) == 0) {
            return code;
        }
    }
    return 255;
}

// A map of all names, the product asked for the one that depends on it.
inline int mapDeviceType(const char *name) {
    static const std::unordered_map<std::string_view, int> codes = [] {
        std::unordered_map<std::string_view, int> all = {{"WQFW", 59}};
        for (int code = 0; code <= 254; ++code) {
            all.emplace(getDeviceTypeName(code), code);
        }
        return all;
    }();
    const auto found = codes.find(name);
    if (found == codes.end()) {
        return 255;
    }
    return found->second != 59 || std::strcmp(getDeviceTypeName(59), name) == 0 ? found->second : 255;
}

// Codes in no order that a branch predictor could learn by heart. As on the air, most have names: three of
// four are a row of the table, the fourth is any code at all.
inline constexpr std::size_t kSteps = 4096;

constexpr std::uint32_t scrambled(std::uint32_t i) {
    i = (i ^ (i >> 7U)) * 0x9E3779B1U;
    i = (i ^ (i >> 15U)) * 0x85EBCA77U;
    return i ^ (i >> 13U);
}

struct Code {
    unsigned char group; // of pairs
    unsigned char code;
};
using Codes = std::array<Code, kSteps>;

template <std::size_t Rows, std::size_t Numbers>
consteval Codes mixed(const unsigned char (&known)[Rows][Numbers]) {
    Codes codes{};
    for (std::uint32_t i = 0; i < kSteps; ++i) {
        const std::uint32_t random = scrambled(i);
        const auto &row = known[(random >> 8U) % Rows];
        codes[i] = {row[0], row[Numbers - 1]};
        if (random % 4 == 0) {
            codes[i].code = static_cast<unsigned char>(random >> 24U);
        }
        if (random % 16 == 0) {
            codes[i].group = static_cast<unsigned char>(random >> 16U);
        }
    }
    return codes;
}

inline constexpr const char *kDeviceNames[] = {
    "PIR",          "MAG",      "SHOCK",    "SIREN",  "TAG READER", "UMK",
    "SY8",          "EL7",      "WQFW",     "UMKRL",  "CHEB_WR",    "HHW",
    "HHW_A",        "LVAFCLPA", "EL9",      "W3",     "DANALOCK",   "OUTSIDE_VIDEO_PIR",
    "JEQ",          "MYQGT",    "SNIFFER",  "ZWAVE",  "UNKNOWN",    "pir",
    "KEYPAD",       "",         "RF_INPUT", "KEYFOB", "QGT",        "TQD",
    "RF_VIDEO_PIR", "DOORLOCK",
};

// Runs a lookup over all codes; the sum keeps the compiler from leaving any out.
template <const Codes &All, typename Lookup>
std::size_t over(Lookup lookup) {
    std::size_t sum = 0;
    for (const Code &code : All) {
        if constexpr (std::is_invocable_v<Lookup, unsigned, unsigned>) {
            sum = sum * 5 + static_cast<unsigned char>(*lookup(code.group, code.code));
        } else {
            sum = sum * 5 + static_cast<unsigned char>(*lookup(code.code));
        }
    }
    return sum;
}

template <typename Lookup>
std::size_t overNames(Lookup lookup) {
    std::size_t sum = 0;
    for (std::uint32_t i = 0; i < kSteps; ++i) {
        sum =
            sum * 5 + static_cast<std::size_t>(lookup(kDeviceNames[scrambled(i) % std::size(kDeviceNames)]));
    }
    return sum;
}

inline constexpr Codes kDeviceType = mixed(kDeviceTypeKnown);
inline constexpr Codes kTarn2MessageType = mixed(kTarn2MessageTypeKnown);
inline constexpr Codes kTarnPlusOpcode = mixed(kTarnPlusOpcodeKnown);
inline constexpr Codes kTarn1Opcode = mixed(kTarn1OpcodeKnown);
inline constexpr Codes kTarn1OldMessageType = mixed(kTarn1OldMessageTypeKnown);
inline constexpr Codes kTarn1SubOpcode = mixed(kTarn1SubOpcodeKnown);
inline constexpr Codes kTarnPlusSubOpcode = mixed(kTarnPlusSubOpcodeKnown);

// Empty lookups: what the loop around a lookup and the call cost.
__attribute__((noinline)) inline const char *noName(unsigned int code) {
    static constexpr char kText[256] = {};
    return kText + (code & 255U);
}
__attribute__((noinline)) inline const char *noPairName(unsigned int group, unsigned int code) {
    static constexpr char kText[256] = {};
    return kText + ((group ^ code) & 255U);
}
__attribute__((noinline)) inline int noCode(const char *name) {
    return *name;
}

struct Case {
    const char *question; // what is looked up
    const char *way;      // "ours" is ours
    std::size_t (*run)();
};

inline const Case kCases[] = {
    {"device_type", "loop", [] { return over<kDeviceType>(noName); }},
    {"device_type", "ours",
     [] {
         return over<kDeviceType>([](unsigned code) { return getDeviceTypeName(static_cast<int>(code)); });
     }},
    {"device_type", "switch", [] { return over<kDeviceType>(switchDeviceType); }},
    {"tarn2_message", "loop", [] { return over<kTarn2MessageType>(noName); }},
    {"tarn2_message", "ours", [] { return over<kTarn2MessageType>(getTarn2MessageTypeName); }},
    {"tarn2_message", "switch", [] { return over<kTarn2MessageType>(switchTarn2MessageType); }},
    {"tarn_plus_opcode", "loop", [] { return over<kTarnPlusOpcode>(noName); }},
    {"tarn_plus_opcode", "ours", [] { return over<kTarnPlusOpcode>(getTarnPlusOpcodeName); }},
    {"tarn_plus_opcode", "switch", [] { return over<kTarnPlusOpcode>(switchTarnPlusOpcode); }},
    {"tarn1_opcode", "loop", [] { return over<kTarn1Opcode>(noName); }},
    {"tarn1_opcode", "ours", [] { return over<kTarn1Opcode>(getTarn1OpcodeName); }},
    {"tarn1_opcode", "switch", [] { return over<kTarn1Opcode>(switchTarn1Opcode); }},
    {"tarn1_old_message", "loop", [] { return over<kTarn1OldMessageType>(noName); }},
    {"tarn1_old_message", "ours", [] { return over<kTarn1OldMessageType>(getTarn1OldMessageTypeString); }},
    {"tarn1_old_message", "switch", [] { return over<kTarn1OldMessageType>(switchTarn1OldMessageType); }},
    {"tarn1_pair", "loop", [] { return over<kTarn1SubOpcode>(noPairName); }},
    {"tarn1_pair", "ours",
     [] {
         return over<kTarn1SubOpcode>([](unsigned group, unsigned code) {
             return getTarn1SubOpcodeName(static_cast<int>(group), static_cast<int>(code));
         });
     }},
    {"tarn1_pair", "switch", [] { return over<kTarn1SubOpcode>(switchTarn1SubOpcode); }},
    {"tarn1_pair", "gperf", [] { return over<kTarn1SubOpcode>(gperfTarn1SubOpcodeName); }},
    {"tarn_plus_pair", "loop", [] { return over<kTarnPlusSubOpcode>(noPairName); }},
    {"tarn_plus_pair", "ours",
     [] {
         return over<kTarnPlusSubOpcode>([](unsigned group, unsigned code) {
             return getTarnPlusSubOpcodeName(static_cast<int>(group), static_cast<int>(code));
         });
     }},
    {"tarn_plus_pair", "switch", [] { return over<kTarnPlusSubOpcode>(switchTarnPlusSubOpcode); }},
    {"tarn_plus_pair", "gperf", [] { return over<kTarnPlusSubOpcode>(gperfTarnPlusSubOpcodeName); }},
    {"device_type_code", "loop", [] { return overNames(noCode); }},
    {"device_type_code", "ours", [] { return overNames(getDeviceTypeEnum); }},
    {"device_type_code", "unordered_map", [] { return overNames(mapDeviceType); }},
    {"device_type_code", "gperf", [] { return overNames(gperfDeviceTypeCode); }},
    {"device_type_code", "scan", [] { return overNames(scanDeviceType); }},
};

} // namespace names_bench
