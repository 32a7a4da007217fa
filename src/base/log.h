// The library's logging convention: level, format, source, function, line.
//
// Use OZU_LOG for a line with arguments and OZU_LOG_TEXT for a fixed text: a fixed text is never a format.
// Call both from the function whose name the line carries, not from a lambda; a helper that logs for
// another function uses OZU_LOG_AS with that function's name.
//
// Every process has the library in memory and logs little of what it could, so a call costs few bytes: what
// is known of a line beforehand is one constant, and lines whose arguments are passed alike share one
// function.
#pragma once

#include <ozulog.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace ozu::log {

inline constexpr int kLevelStep = 10000;

// Not defined: a line that reaches this call does not compile.
void badLine(const char *why);

// The names that log lines carry for the library's source.
struct UtilsSource {
    static const char *name() noexcept { return "src/utils"; }
};
struct ResolverSource {
    static const char *name() noexcept { return "src/ares_dns"; }
};

// What is known of a line beforehand: its level, its number in two bytes, its format or text.
template <std::size_t Size>
struct Line {
    char bytes[3 + Size];
};

template <std::size_t Size>
consteval Line<Size> lineOf(int level, int number, const char (&text)[Size]) {
    if (level % kLevelStep != 0 || number > 0xFFFF) {
        badLine("level or line number does not fit");
    }
    Line<Size> line = {{static_cast<char>(level / kLevelStep), static_cast<char>(number >> 8),
                        static_cast<char>(number & 0xFF)}};
    for (std::size_t i = 0; i < Size; ++i) {
        line.bytes[3 + i] = text[i];
    }
    return line;
}

inline int levelOf(const char *line) noexcept {
    return line[0] * kLevelStep;
}
inline int numberOf(const char *line) noexcept {
    return static_cast<unsigned char>(line[1]) << 8 | static_cast<unsigned char>(line[2]);
}
inline const char *textOf(const char *line) noexcept {
    return line + 3;
}

// What a variadic call passes on: small numbers promoted, and whatever fills a general register the same way
// as one and the same type, so that few kinds of lines differ. Who reads the arguments takes them by the
// format.
template <typename Argument>
auto passedOn(Argument argument) noexcept {
    if constexpr (std::is_floating_point_v<Argument>) {
        return +argument;
    } else if constexpr (std::is_integral_v<Argument>) {
        return static_cast<std::make_signed_t<decltype(+argument)>>(argument);
    } else {
        static_assert(std::is_convertible_v<Argument, const char *>, "numbers and texts only");
        return reinterpret_cast<std::intptr_t>(static_cast<const char *>(argument));
    }
}

// The macros have the compiler check the format against the arguments.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
template <typename Source, typename... Arguments>
[[gnu::noinline]] void write(const char *line, const char *function, Arguments... arguments) noexcept {
    static_cast<void>(ozulog_printf_extend(levelOf(line), textOf(line), Source::name(), function,
                                           numberOf(line), arguments...));
}
#pragma GCC diagnostic pop

template <typename Source>
[[gnu::noinline]] void writeText(const char *line, const char *function) noexcept {
    static_cast<void>(
        ozulog_printf_extend(levelOf(line), "%s", Source::name(), function, numberOf(line), textOf(line)));
}

template <typename Source, typename... Arguments>
[[gnu::always_inline]] inline void writeArguments(const char *line, const char *function,
                                                  Arguments... arguments) noexcept {
    static_assert(sizeof...(arguments) > 0, "a fixed text is never a format");
    write<Source>(line, function, passedOn(arguments)...);
}

} // namespace ozu::log

// A room whose lines name another source defines it before this header.
#ifndef OZU_LOG_SOURCE
#define OZU_LOG_SOURCE ozu::log::UtilsSource
#endif

#define OZU_LOG_AS(function, level, format, ...)                                                             \
    do {                                                                                                     \
        static constexpr auto ozuLogLine = ozu::log::lineOf((level), __LINE__, format);                      \
        ozu::log::writeArguments<OZU_LOG_SOURCE>(ozuLogLine.bytes, (function), ##__VA_ARGS__);               \
        if (false) {                                                                                         \
            static_cast<void>(ozulog_printf_extend(0, (format), "", "", 0, ##__VA_ARGS__));                  \
        }                                                                                                    \
    } while (false)
#define OZU_LOG_TEXT_AS(function, level, text)                                                               \
    do {                                                                                                     \
        static constexpr auto ozuLogLine = ozu::log::lineOf((level), __LINE__, text);                        \
        ozu::log::writeText<OZU_LOG_SOURCE>(ozuLogLine.bytes, (function));                                   \
    } while (false)
#define OZU_LOG(level, format, ...) OZU_LOG_AS(__builtin_FUNCTION(), level, format, ##__VA_ARGS__)
#define OZU_LOG_TEXT(level, text) OZU_LOG_TEXT_AS(__builtin_FUNCTION(), level, text)

// Lines without source position.
#define OZU_LOG_SHORT(level, format, ...) static_cast<void>(ozulog_printf((level), (format), ##__VA_ARGS__))
