// The tool's parsers of what others wrote: fields and values of the record, messages of the bus, what is
// typed, log lines, recordings; and what makes their texts fit to be shown.

#include "targets.h"

#include "archive.h"
#include "bounded_json.h"
#include "bus_message.h"
#include "colours.h"
#include "context.h"
#include "drawing.h"
#include "log_line.h"
#include "named_numbers.h"
#include "numbers.h"
#include "recording.h"
#include "secrets.h"
#include "sources.h"
#include "state_fields.h"
#include "suggest.h"
#include "text.h"
#include "topics.h"

#include "bus_text.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <memory>
#include <utility>

namespace ozu::fuzz {

namespace {

using namespace ozuctl;

// One line that a terminal shows as it is: UTF-8 without control characters.
bool isShowable(std::string_view line) {
    return visible(line) == line && std::none_of(line.begin(), line.end(), [](char c) {
               return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
           });
}

// As --json prints it: a document that a terminal shows as it is.
bool isPrintable(const Json &document) {
    const std::string shown = visibleJson(document.dump(-1, ' ', false, Json::error_handler_t::replace));
    return isShowable(shown) && Json::accept(shown);
}

// Refusals are how these parsers end: with an exit code of their own, and a line that can be shown.
template <class Parse>
bool accepts(Parse &&parse) {
    constexpr std::size_t kMaxRefusal = 2000;
    try {
        parse();
        return true;
    } catch (const CommandError &error) {
        require(error.code == kUsage || error.code == kNo || error.code == kLibraryFailed);
        const std::string_view message = error.what();
        require(isShowable(message) && message.size() < kMaxRefusal);
        require(visibleLines(error.hint()) == error.hint());
        return false;
    }
}

void fields(Input &input) {
    static_cast<void>(ownDataFolder()); // which names a device has depends on the product
    const std::string path(input.text());
    const std::string value(input.rest());
    std::vector<Field> found;
    if (!accepts([&] { found = requireFields(path); })) {
        return;
    }
    require(!found.empty());
    require(accepts([&] { static_cast<void>(requireField(path)); }) == (found.size() == 1));
    if (found.size() != 1) {
        return;
    }
    const Field &field = found.front();
    require(fieldsBelow(field.path()).size() == 1 && fieldsBelow(field.path())[0].offset() == field.offset());
    require(field.offset() + field.row->size <= sizeof(PanelSharedState));
    const auto state = std::make_unique<PanelSharedState>();
    const auto untouched = std::make_unique<PanelSharedState>();
    const bool written = accepts([&] { field.write(*state, value); });
    require(written || memcmp(state.get(), untouched.get(), sizeof(PanelSharedState)) == 0);
    const Json read = field.read(*state);
    require(isShowable(plainText(read)) && isPrintable(read));
}

// A message as the broker hands it over, with properties of its sender.
void messages(Input &input) {
    static constexpr std::array kTopics{"Process/MDL", "Process/RF_MANAGER", "Process/POWER_MANAGER",
                                        "Process/ALL", "Multicast/TBB_EVENT"};
    const std::size_t which = input.byte();
    std::string topic(input.text());
    if (which < kTopics.size()) {
        topic = kTopics.at(which);
    }
    mosquitto_property *properties = nullptr;
    for (const char *name : {"label", "class", "command"}) {
        const std::string value(input.text());
        mosquitto_property_add_string_pair(&properties, MQTT_PROP_USER_PROPERTY, name, value.c_str());
    }
    const std::string sent(input.text());
    mosquitto_property_add_binary(&properties, MQTT_PROP_CORRELATION_DATA, sent.data(),
                                  static_cast<std::uint16_t>(std::min<std::size_t>(sent.size(), 65535)));
    std::string payload(input.rest());
    mosquitto_message message{};
    message.topic = topic.data();
    message.payload = payload.data();
    message.payloadlen = static_cast<int>(payload.size());
    message.retain = which % 2 == 1;
    const Happening happening = messageHappening(message, properties);
    mosquitto_property_free_all(&properties);
    require(isShowable(happening.text) && isPrintable(happening.record));
    require(happening.text.size() < 10 * (topic.size() + payload.size() + 200000));
    require(happening.record["length"] == payload.size());
}

void numbers(const std::string &word) {
    accepts([&] {
        const auto bytes = requireBytes("BYTES", word);
        require(bytes.size() * 2 == word.size() && requireBytes("BYTES", hexText(bytes)) == bytes);
    });
    accepts([&] {
        const double seconds = requireSeconds("SECONDS", word);
        require(seconds > 0 && seconds <= 366.0 * 24 * 3600);
    });
    accepts([&] {
        const auto number = requireNumber("NUMBER", word, -5, 300);
        require(number >= -5 && number <= 300 && wholeNumber(word) == number);
    });
    if (const auto number = wholeNumber(word)) {
        require(wholeNumber(std::to_string(*number)) == number);
    }
    if (const auto time = millisecondsOf(word)) {
        require(millisecondsOf(isoTimeMilliseconds(*time)) == time);
    }
    accepts([&] {
        const auto type = requireNamed("TYPE", word, 0, 255, deviceTypes());
        require(type >= 0 && type <= 255);
    });
}

// What is typed: numbers, times, bytes, topics, names.
void words(Input &input) {
    const std::string word(input.rest());
    numbers(word);
    // What the tool lets through, the bus takes.
    require(!accepts([&] { requireTopic(word); }) || ozu::platform::isPublishable(word));
    require(!accepts([&] { requireFilter(word); }) || ozu::platform::isSubscribable(word));
    require(didYouMean(word, {"status", "state", "publish"}).size() < 40);
}

void logLinesOf(Input &input) {
    const std::string_view text = input.rest();
    std::vector<std::string> lines;
    LineSplitter whole([&lines](std::string_view line) { lines.emplace_back(line); });
    whole.add(text);
    whole.end();
    for (const std::string &line : lines) {
        require(line.find('\n') == std::string::npos);
        const Happening happening = logHappening("file", line);
        require(isShowable(happening.text) && isPrintable(happening.record));
        require(happening.text.size() < 10 * line.size() + 100);
        if (const auto parts = splitLogLine(line)) {
            require(parts->pid >= 0 && parts->line >= 0 && parts->level >= 0 && !parts->process.empty());
        }
    }
    // However they arrive.
    std::size_t again = 0;
    LineSplitter pieces([&](std::string_view line) { require(line == lines.at(again++)); });
    for (std::size_t at = 0; at < text.size(); at += 3) {
        pieces.add(text.substr(at, 3));
    }
    pieces.end();
    require(again == lines.size());
}

void texts(Input &input) {
    const std::string_view text = input.rest();
    const std::string line = visible(text);
    require(isShowable(line) && line.size() <= 4 * text.size());
    require(!isShowable(text) || line == text);
    const std::string lines = visibleLines(text);
    require(isUtf8(lines) && visibleLines(lines) == lines);
    require(isShowable(inQuotes(text)) && inQuotes(text).size() < 500);
    const std::string markup = xmlText(text);
    require(isShowable(markup) && markup.find_first_of("<>\"'") == std::string::npos);
    chooseColours("never");
    require(paint(text, Look::error) == line);
    const std::string name = safeName(text);
    require(!name.empty() && name.size() < 100 && name.front() != '.' && name.find('/') == std::string::npos);
    // Whatever stands before them, secrets go.
    for (const std::string_view secret : {"s3cr3t", "0123456789abcdef0123456789ABCDEF"}) {
        const std::string report = std::string(text) + "\napiKey=" + std::string(secret) + "\n";
        require(withoutSecrets(report).find(secret) == std::string::npos || text.find(secret) != text.npos);
    }
}

// A recording that somebody sent: refused, or drawn.
void recordings(Input &input) {
    const MemoryFile file(input.rest());
    std::vector<Recorded> recording;
    if (!accepts([&] { recording = readRecording(file.path()); })) {
        return;
    }
    require(!recording.empty());
    require(std::is_sorted(recording.begin(), recording.end(),
                           [](const Recorded &a, const Recorded &b) { return a.timeMs < b.timeMs; }));
    const Drawing drawing = drawingOf(recording);
    require(isUtf8(drawing.svg) && visibleLines(drawing.svg) == drawing.svg);
    require(drawing.svg.ends_with("</svg>\n") && drawing.svg.find("<script") == std::string::npos);
    require(drawing.happenings <= recording.size());
    require(pageOf(drawing).size() < drawing.svg.size() + 10000);
}

constexpr std::array kAll{
    Target{"tool_fields", fields, 20}, Target{"tool_messages", messages, 20},
    Target{"tool_words", words, 10},   Target{"tool_log_lines", logLinesOf, 10},
    Target{"tool_texts", texts, 10},   Target{"tool_recordings", recordings, 50},
};

} // namespace

const std::span<const Target> kTargets{kAll};

} // namespace ozu::fuzz
