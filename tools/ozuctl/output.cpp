#include "output.h"

#include "codes.h"
#include "text.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <vector>

namespace ozuctl {

namespace {

bool documentPrinted = false;

std::string dump(const Json &value, int indent) {
    return visibleJson(value.dump(indent, ' ', false, Json::error_handler_t::replace));
}

[[noreturn]] void cannotWrite(int error) {
    throw CommandError(kLibraryFailed, error == EPIPE
                                           ? std::string("nobody reads the output any more")
                                           : std::string("the output cannot be written: ") + strerror(error));
}

// Characters, not bytes, and none for those that are put over others; wide ones count as one.
std::size_t widthOf(const std::string &text) {
    return static_cast<std::size_t>(
        std::ranges::count_if(text, [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; }));
}

// What of a table's texts are names.
enum class Names { firstRow, firstColumn };

// Columns as wide as their widest text; the last one is not padded.
void printColumns(const std::vector<std::vector<std::string>> &rows, Names names) {
    std::vector<std::size_t> widths;
    for (const auto &row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], widthOf(row[column]));
        }
    }
    std::string text;
    for (const auto &row : rows) {
        for (std::size_t column = 0; column < row.size(); ++column) {
            const bool name = names == Names::firstRow ? &row == &rows.front() : column == 0;
            text += paint(row[column], name ? Look::name : Look::plain);
            if (column + 1 < row.size()) {
                text.append(widths[column] - widthOf(row[column]) + 2, ' ');
            }
        }
        text += '\n';
    }
    writeOut(text);
}

void printTable(const Json &records) {
    std::vector<std::vector<std::string>> rows;
    for (const auto &record : records) {
        if (rows.empty()) {
            rows.emplace_back();
            for (const auto &[key, value] : record.items()) {
                rows.back().push_back(visible(key));
            }
        }
        std::vector<std::string> row;
        for (const auto &[key, value] : record.items()) {
            row.push_back(plainText(value));
        }
        rows.push_back(std::move(row));
    }
    printColumns(rows, Names::firstRow);
}

bool isCoded(const Json &value) {
    return value.is_object() && value.size() == 2 && value.contains("code") && value.contains("name");
}

void printText(const Json &document) {
    if (document.is_array()) {
        if (!document.empty() && document.front().is_object()) {
            printTable(document);
        } else if (!document.empty()) {
            writeLine(plainText(document));
        }
        return;
    }
    if (document.is_object() && !isCoded(document)) {
        std::vector<std::vector<std::string>> rows;
        for (const auto &[key, value] : document.items()) {
            rows.push_back({visible(key), plainText(value)});
        }
        printColumns(rows, Names::firstColumn);
        return;
    }
    writeLine(plainText(document));
}

std::string joined(const Json &value) {
    std::string text;
    for (const auto &[key, item] : value.items()) {
        text += text.empty() ? "" : value.is_array() ? ", " : " ";
        text += value.is_array() ? plainText(item) : visible(key) + "=" + plainText(item);
    }
    return text.empty() ? "none" : text;
}

std::int64_t clamped(std::int64_t seconds) {
    constexpr std::int64_t kYearOne = -62135596800;
    constexpr std::int64_t kYearTenThousand = 253402300800;
    return std::clamp(seconds, kYearOne, kYearTenThousand - 1);
}

} // namespace

int writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(fd, bytes.data(), bytes.size());
        if (written >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {
            pollfd ready = {fd, POLLOUT, 0};
            poll(&ready, 1, -1);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

void prepareStreams() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(fd, F_GETFD) >= 0) {
            continue;
        }
        // What a program wants to do with the stream fails, as it did before.
        const int taken = open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY); // NOLINT: inherited
        if (taken >= 0 && taken != fd) {
            close(taken);
        }
    }
    // Caught rather than ignored: a program that we start gets it as usual.
    signal(SIGPIPE, [](int) {});
}

Json coded(std::int64_t code, const std::string &name) {
    return {{"code", code}, {"name", name}};
}

std::string isoTime(std::int64_t seconds) {
    const auto value = static_cast<time_t>(clamped(seconds));
    tm parts = {};
    gmtime_r(&value, &parts);
    char text[32];
    const int length = snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02dZ", parts.tm_year + 1900,
                                parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
    return {text, static_cast<std::size_t>(length)};
}

std::string isoTimeMilliseconds(std::int64_t milliseconds) {
    const std::int64_t rest = (milliseconds % 1000 + 1000) % 1000;
    std::string text = isoTime(milliseconds / 1000 - (milliseconds < 0 && rest != 0 ? 1 : 0));
    char fraction[8];
    snprintf(fraction, sizeof fraction, ".%03d", static_cast<int>(rest));
    return text.insert(text.size() - 1, fraction);
}

std::string hexText(std::span<const unsigned char> bytes) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(2 * bytes.size());
    for (const unsigned char byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

std::string plainText(const Json &value) {
    if (value.is_string()) {
        return visible(value.get_ref<const std::string &>());
    }
    if (value.is_null()) {
        return "none";
    }
    if (value.is_boolean()) {
        return value.get<bool>() ? "yes" : "no";
    }
    if (isCoded(value)) {
        return plainText(value["code"]) + " " + plainText(value["name"]);
    }
    return value.is_structured() ? joined(value) : dump(value, -1);
}

void print(const Context &context, const Json &document) {
    if (context.json) {
        documentPrinted = true;
        writeOut(dump(document, 2) + '\n');
    } else {
        printText(document);
    }
}

void print(const Context &context, const Json &document, const std::string &text) {
    if (context.json) {
        print(context, document);
    } else if (!text.empty()) {
        writeLine(text);
    }
}

void printChanged(const Context &context, const std::string &what) {
    print(context, {{"done", true}, {"what", what}}, "");
}

void printRecord(const Context &context, const Json &record, const std::string &text, Look look) {
    documentPrinted = true;
    if (context.json) {
        writeOut(dump(record, -1) + '\n');
    } else {
        writeLine(text, look);
    }
}

void writeOut(std::string_view bytes) {
    if (const int error = writeAll(STDOUT_FILENO, bytes); error != 0) {
        cannotWrite(error);
    }
}

void writeLine(std::string_view text, Look look) {
    writeOut(paint(text, look) + '\n');
}

void writeLines(std::string_view text) {
    writeOut(visibleLines(text));
}

void requireReader() {
    pollfd reader = {STDOUT_FILENO, 0, 0};
    if (poll(&reader, 1, 0) > 0 && (reader.revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) {
        cannotWrite(EPIPE);
    }
}

void tell(std::string_view text) {
    static_cast<void>(writeAll(STDERR_FILENO, visibleLines(text) + '\n'));
}

void printFailure(const Context &context, const CommandError &error) {
    const std::string hint = error.hint();
    tell("ozuctl: " + visible(error.what()) + (hint.empty() ? "" : "\n" + hint));
    if (!context.json || documentPrinted) {
        return;
    }
    const Json document = {{"done", false},
                           {"exit", coded(error.code, wordsFor(exitCodes(), error.code).value_or(""))},
                           {"message", error.what()},
                           {"hint", hint.empty() ? Json(nullptr) : Json(hint)}};
    static_cast<void>(writeAll(STDOUT_FILENO, dump(document, 2) + '\n'));
}

} // namespace ozuctl
