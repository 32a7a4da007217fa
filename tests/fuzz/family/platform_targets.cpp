// The reference platform's parsers: what comes from its files, from the bus and from callers.

#include "targets.h"

#include "bus_text.h"
#include "data_folder.h"
#include "database_file.h"
#include "errors.h"
#include "log_line.h"
#include "schema.h"
#include "settings.h"
#include "severity.h"
#include "shared_segment.h"

#include <mqttc.h>
#include <ozudb.h>
#include <ozulog.h>

#include <sys/mman.h>
#include <unistd.h>

#include <fstream>

namespace ozu::fuzz {

namespace {

using namespace ozu::platform;

void put(const std::string &path, std::string_view content) {
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(content.data(), static_cast<std::streamsize>(content.size()));
}

// Whatever is thrown is one of ours.
template <class Body>
void guardedRun(Body &&body) {
    try {
        body();
    } catch (const Error &) {
        return;
    }
}

bool isClean(std::string_view line) {
    return std::none_of(line.begin(), line.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x20 || byte == 0x7F;
    });
}

void logLines(Input &input) {
    const std::size_t most = input.number() % 5000;
    const std::string_view text = input.rest();
    const std::string shown = escaped(text, most);
    require(shown.size() <= most && isClean(shown));
    // What is shown is text that is shown as it is.
    std::string plain = shown;
    plain.erase(std::remove(plain.begin(), plain.end(), '\\'), plain.end());
    require(escaped(plain, plain.size()) == plain);
    const Text function(text.substr(0, 300));
    const std::string line =
        lineBody(static_cast<int>(most), std::string(text.substr(0, 200)), 1, {function, function, 1}, text);
    require(line.size() + 32 <= kMaxLine && isClean(line));
}

void busTexts(Input &input) {
    const std::string text(input.rest());
    for (const auto check : {isPublishable, isSubscribable, isLabel}) {
        if (check(text)) {
            require(isClean(text) && text.size() <= 65535);
        }
    }
    // Without a session nothing else is checked: what the bus would refuse is refused, the rest waits for
    // one.
    const Text topic(text);
    const int sent = ozumqttc_messagePublish(topic, 0, "", 0, 0, nullptr);
    require(sent == (isPublishable(text.c_str()) ? int{kNotConnected} : int{kInvalidArgument}));
    const int asked = ozumqttc_topicSubscribe(topic);
    require(asked == (isSubscribable(text.c_str()) ? int{kNotConnected} : int{kInvalidArgument}));
}

void names(Input &input) {
    const Text name(input.rest());
    if (usableProcessName(name)) {
        require(strlen(name) <= 64 && strchr(name, '/') == nullptr && *name != '.');
    }
    static_cast<void>(levelOfSeverity(std::string(name)));
}

void identities(Input &input) {
    put(ownDataFolder() + "/identity", input.rest());
    guardedRun([] {
        const std::string found = existingIdentity(ownDataFolder());
        require(found.empty() || (found.size() == kIdentityDigits &&
                                  found.find_first_not_of("0123456789abcdef") == std::string::npos));
    });
}

void segments(Input &input) {
    const std::string identity(kIdentityDigits, 'f');
    put(ownDataFolder() + "/identity", identity);
    const std::string path = segmentPath(identity);
    const std::string_view content = input.rest();
    put(path, content);
    const std::size_t size = content.size() % 2 == 0 ? sizeof(Segment) : content.size();
    require(truncate(path.c_str(), static_cast<off_t>(size)) == 0);
    std::string why;
    const Segment *segment = mapReadOnly(why);
    require(segment == nullptr ? !why.empty() : segment->header.magic == kSegmentMagic);
    if (segment != nullptr) {
        munmap(const_cast<Segment *>(segment), sizeof(*segment));
    }
    guardedRun([] { static_cast<void>(identityInUse(ownDataFolder(), {})); });
    unlink(path.c_str());
}

// A database with what the input says at the place that it says: it is repaired, or refused.
void databases(Input &input) {
    static const std::string whole = [] {
        put(ownDataFolder() + "/identity", "");
        unlink((ownDataFolder() + "/ozu.db").c_str());
        storeSetting("product.code", "5");
        appendEvent(1, "event");
        storeBypass({{1, 1, 2}});
        forgetSettings();
        std::ifstream file(ownDataFolder() + "/ozu.db", std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }();
    std::string changed = whole;
    for (int place = 1 + input.byte() % 8; place > 0; --place) {
        const std::size_t at = input.number() % changed.size();
        const std::string_view bytes = input.text();
        changed.replace(at, std::min(bytes.size(), changed.size() - at),
                        bytes.substr(0, changed.size() - at));
    }
    changed.resize(input.byte() % 4 == 0 ? input.number() % changed.size() : changed.size());
    forgetSettings();
    for (const char *suffix : {"-wal", "-shm"}) {
        unlink((ownDataFolder() + "/ozu.db" + suffix).c_str());
    }
    put(ownDataFolder() + "/ozu.db", changed);
    guardedRun([] {
        static_cast<void>(readLastingState());
        static_cast<void>(configuredSeverity("alarmd"));
        static_cast<void>(eventsAfter(0, 10));
        storeSetting("a", "b");
        require(setting("a") == "b");
    });
    forgetSettings();
}

constexpr std::array kAll{
    Target{"log_lines", logLines},    Target{"bus_texts", busTexts},
    Target{"process_names", names},   Target{"identities", identities, 20},
    Target{"segments", segments, 20}, Target{"databases", databases, 500},
};

[[gnu::constructor]] void keepQuiet() {
    static_cast<void>(ownDataFolder());
#ifndef OZU_LIBFUZZER // which says there what it finds; -close_fd_mask=2 keeps the rest out of it
    static_cast<void>(!freopen("/dev/null", "w", stderr));
#endif
}

} // namespace

const std::span<const Target> kTargets{kAll};

} // namespace ozu::fuzz
