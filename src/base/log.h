// The library's logging convention: level, format, source, function, line.
//
// Use OZU_LOG for a line with arguments and OZU_LOG_TEXT for a fixed text: a fixed text is never a format.
// Call both from the function whose name the line carries, not from a lambda; a helper that logs for
// another function uses OZU_LOG_AS with that function's name.
#pragma once

#include <ozulog.h>

namespace ozu::level {

inline constexpr int kFine = 10000;
inline constexpr int kTrace = 20000;
inline constexpr int kProgress = 30000;
inline constexpr int kNotable = 40000;
inline constexpr int kWarning = 50000;
inline constexpr int kRemote = 60000;
inline constexpr int kFailure = 70000;
inline constexpr int kFatal = 80000;

} // namespace ozu::level

// The name that log lines carry for the library's source; a room with another one defines it before this
// header.
#ifndef OZU_LOG_SOURCE
#define OZU_LOG_SOURCE "src/utils"
#endif

#define OZU_LOG_AS(function, level, format, ...)                                                             \
    static_cast<void>(                                                                                       \
        ozulog_printf_extend((level), (format), OZU_LOG_SOURCE, (function), __LINE__, ##__VA_ARGS__))
#define OZU_LOG(level, format, ...) OZU_LOG_AS(__func__, level, format, ##__VA_ARGS__)
#define OZU_LOG_TEXT(level, text) OZU_LOG(level, "%s", text)

// Lines without source position.
#define OZU_LOG_SHORT(level, format, ...) static_cast<void>(ozulog_printf((level), (format), ##__VA_ARGS__))
