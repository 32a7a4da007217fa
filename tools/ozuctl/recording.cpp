#include "recording.h"

#include "files.h"
#include "log_line.h"
#include "text.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

namespace ozuctl {

namespace {

constexpr std::uint64_t kMaxFileBytes = std::uint64_t{512} * 1024 * 1024;
constexpr std::size_t kMaxLine = std::size_t{1024} * 1024;
constexpr int kDeepest = 12; // nesting of what monitor writes

std::optional<Json> lineAsJson(std::string_view line) {
    if (line.size() > kMaxLine) {
        return std::nullopt;
    }
    bool deep = false;
    Json record = Json::parse(
        line,
        [&deep](int depth, Json::parse_event_t, Json &) {
            deep = deep || depth > kDeepest;
            return !deep;
        },
        false);
    return deep || !record.is_object() ? std::nullopt : std::optional(std::move(record));
}

bool hasText(const Json &record, const char *key) {
    return record.contains(key) && record[key].is_string();
}

std::optional<Recorded> recordedOf(std::string_view line) {
    auto record = lineAsJson(line);
    if (!record || !hasText(*record, "time") || !hasText(*record, "kind")) {
        return std::nullopt;
    }
    const auto time = millisecondsOf(record->at("time").get_ref<const std::string &>());
    return time ? std::optional(Recorded{*time, std::move(*record)}) : std::nullopt;
}

} // namespace

RecordingFile::RecordingFile(std::string path)
    : path_(std::move(path)),
      descriptor_(open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)) {
    if (descriptor_ < 0) {
        throw CommandError(kLibraryFailed, "cannot write " + inQuotes(path_) + ": " + strerror(errno));
    }
}

RecordingFile::~RecordingFile() {
    close(descriptor_);
}

void RecordingFile::add(const Json &record) {
    const std::string line = record.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
    std::string_view rest = line;
    while (!rest.empty()) {
        const ssize_t count = write(descriptor_, rest.data(), rest.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            throw CommandError(kLibraryFailed, "cannot write " + inQuotes(path_) + ": " + strerror(errno));
        }
        rest.remove_prefix(static_cast<std::size_t>(count));
    }
}

std::vector<Recorded> readRecording(const std::string &path) {
    requireReadable(path);
    const std::string content = contentOf(path, kMaxFileBytes);
    std::vector<Recorded> recording;
    std::string_view rest = content;
    for (std::size_t number = 1; !rest.empty(); ++number) {
        const std::size_t end = rest.find('\n');
        auto one = recordedOf(rest.substr(0, end));
        if (!one && (end != std::string_view::npos || recording.empty())) {
            throw CommandError(kLibraryFailed, inQuotes(path) +
                                                   " is not a recording of 'monitor --record': line " +
                                                   std::to_string(number) + " cannot be read");
        }
        if (one) {
            recording.push_back(std::move(*one));
        }
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    }
    if (recording.empty()) {
        throw CommandError(kLibraryFailed,
                           inQuotes(path) + " is not a recording of 'monitor --record': it is empty");
    }
    std::ranges::stable_sort(recording, {}, &Recorded::timeMs);
    return recording;
}

} // namespace ozuctl
