// The library's logging convention: level, format, source, function, line.
//
// Use OZU_LOG for a line with arguments and OZU_LOG_TEXT for a fixed text: a fixed text is never a format,
// and OZU_LOG does not compile without arguments. Call both from the function whose name the line carries,
// not from a lambda; a helper that logs for another function uses OZU_LOG_AS with that function's name.
#pragma once

#include <ozulog.h>

// A folder whose lines name another source defines it before this header.
#ifndef OZU_LOG_SOURCE
#define OZU_LOG_SOURCE "src/utils"
#endif

#define OZU_LOG_AS(function, level, format, ...)                                                             \
    static_cast<void>(                                                                                       \
        ozulog_printf_extend((level), (format), OZU_LOG_SOURCE, (function), __LINE__, __VA_ARGS__))
#define OZU_LOG_TEXT_AS(function, level, text) OZU_LOG_AS(function, level, "%s", text)
#define OZU_LOG(level, format, ...) OZU_LOG_AS(__func__, level, format, __VA_ARGS__)
#define OZU_LOG_TEXT(level, text) OZU_LOG_TEXT_AS(__func__, level, text)

// Lines without source position.
#define OZU_LOG_SHORT(level, format, ...) static_cast<void>(ozulog_printf((level), (format), __VA_ARGS__))
