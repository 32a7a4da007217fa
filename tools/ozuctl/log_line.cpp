#include "log_line.h"

#include <charconv>
#include <ctime>

namespace ozuctl {

namespace {

constexpr std::string_view kDigits = "0123456789";

// The text up to the next space, which is taken away with it; nothing without a space.
std::optional<std::string_view> nextWord(std::string_view &rest) {
    const std::size_t end = rest.find(' ');
    if (end == std::string_view::npos || end == 0) {
        return std::nullopt;
    }
    const std::string_view word = rest.substr(0, end);
    rest.remove_prefix(end + 1);
    return word;
}

// Digits and nothing else, as a number that an int holds.
std::optional<int> count(std::string_view digits) {
    int value = 0;
    const char *end = digits.data() + digits.size();
    const bool plain = !digits.empty() && digits.find_first_not_of(kDigits) == std::string_view::npos;
    const auto [stop, error] = std::from_chars(digits.data(), end, value);
    return plain && error == std::errc() && stop == end ? std::optional(value) : std::nullopt;
}

// "NAME[PID] ": a name may hold spaces and brackets, so the first "[digits] " ends it.
bool takeProcess(std::string_view &rest, LogLine &line) {
    for (std::size_t open = rest.find('['); open != std::string_view::npos; open = rest.find('[', open + 1)) {
        const std::size_t close = rest.find_first_not_of(kDigits, open + 1);
        if (close == std::string_view::npos || rest.substr(close, 2) != "] ") {
            continue;
        }
        const auto pid = count(rest.substr(open + 1, close - open - 1));
        if (!pid || open == 0) {
            return false;
        }
        line.process = rest.substr(0, open);
        line.pid = *pid;
        rest.remove_prefix(close + 2);
        return true;
    }
    return false;
}

bool takePosition(std::string_view &rest, LogLine &line) {
    const auto source = nextWord(rest);
    const auto place = nextWord(rest);
    if (!source || !place) {
        return false;
    }
    if (*place == "-") {
        return true;
    }
    const std::size_t colon = place->rfind(':');
    const auto number =
        colon == std::string_view::npos || colon == 0 ? std::nullopt : count(place->substr(colon + 1));
    if (!number) {
        return false;
    }
    line.placed = true;
    line.source = *source;
    line.function = place->substr(0, colon);
    line.line = *number;
    return true;
}

std::optional<int> fixedDigits(std::string_view text, std::size_t at, std::size_t digits) {
    return count(text.substr(at, digits));
}

} // namespace

std::optional<std::int64_t> millisecondsOf(std::string_view iso) {
    constexpr std::string_view kShape = "dddd-dd-ddTdd:dd:dd";
    if (iso.size() < kShape.size() + 1 || iso.back() != 'Z') {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < kShape.size(); ++i) {
        const bool digit = kDigits.find(iso[i]) != std::string_view::npos;
        if (kShape[i] == 'd' ? !digit : iso[i] != kShape[i]) {
            return std::nullopt;
        }
    }
    std::string_view fraction = iso.substr(kShape.size());
    fraction.remove_suffix(1);
    int milliseconds = 0;
    if (!fraction.empty()) {
        const auto digits =
            fraction.size() == 4 && fraction[0] == '.' ? count(fraction.substr(1)) : std::nullopt;
        if (!digits) {
            return std::nullopt;
        }
        milliseconds = *digits;
    }
    tm parts = {};
    parts.tm_year = *fixedDigits(iso, 0, 4) - 1900;
    parts.tm_mon = *fixedDigits(iso, 5, 2) - 1;
    parts.tm_mday = *fixedDigits(iso, 8, 2);
    parts.tm_hour = *fixedDigits(iso, 11, 2);
    parts.tm_min = *fixedDigits(iso, 14, 2);
    parts.tm_sec = *fixedDigits(iso, 17, 2);
    if (parts.tm_year < 1 - 1900 || parts.tm_mon < 0 || parts.tm_mon > 11 || parts.tm_mday < 1 ||
        parts.tm_mday > 31 || parts.tm_hour > 23 || parts.tm_min > 59 || parts.tm_sec > 59) {
        return std::nullopt;
    }
    const int day = parts.tm_mday;
    const std::int64_t seconds = timegm(&parts);
    if (parts.tm_mday != day) {
        return std::nullopt; // the 31st of a month with 30 days
    }
    return seconds * 1000 + milliseconds;
}

void LineSplitter::add(std::string_view bytes) {
    constexpr std::size_t kMaxLineBytes = std::size_t{64} * 1024;
    while (!bytes.empty()) {
        const std::size_t end = bytes.find('\n');
        rest_.append(bytes.substr(0, end));
        const bool complete = end != std::string_view::npos;
        bytes.remove_prefix(complete ? end + 1 : bytes.size());
        if (complete || rest_.size() >= kMaxLineBytes) {
            receiver_(rest_);
            rest_.clear();
        }
    }
}

void LineSplitter::end() {
    if (!rest_.empty()) {
        receiver_(rest_);
        rest_.clear();
    }
}

std::optional<LogLine> splitLogLine(std::string_view line) {
    LogLine parts;
    const auto time = nextWord(line);
    const auto level = nextWord(line);
    const auto letter = nextWord(line);
    if (!time || !level || !letter || letter->size() != 1 || letter->front() < 'A' || letter->front() > 'Z') {
        return std::nullopt;
    }
    const auto milliseconds = millisecondsOf(*time);
    const auto number = count(*level);
    if (!milliseconds || !number || !takeProcess(line, parts) || !takePosition(line, parts)) {
        return std::nullopt;
    }
    parts.timeMs = *milliseconds;
    parts.level = *number;
    parts.letter = *letter;
    parts.text = line;
    return parts;
}

} // namespace ozuctl
