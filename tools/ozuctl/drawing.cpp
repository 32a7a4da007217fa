#include "drawing.h"

#include "text.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <optional>

namespace ozuctl {

namespace {

constexpr int kGutter = 240; // names of the lanes
constexpr int kDrawn = 1000; // width of the time
constexpr int kWidth = kGutter + kDrawn + 20;
constexpr int kLaneHeight = 22;
constexpr int kTop = 64;
constexpr std::size_t kMaxLanes = 100;      // of each kind
constexpr std::size_t kMaxName = 34;        // characters of a lane's name
constexpr std::size_t kMaxTold = 5;         // happenings that a mark for many tells of
constexpr std::size_t kMaxToldText = 300;   // bytes of each
constexpr std::size_t kPixelsPerLetter = 7; // of a bar's text, roughly

constexpr const char *kStyle = R"(
:root{color-scheme:light dark}
svg{--ground:#ffffff;--ink:#1b1f24;--faint:#d5d9df;--quiet:#57606a;--bus:#0b57d0;--bar:#cfe3d4;--other:#e9dcc3;
--life:#e6e9ee;--log:#6e7781;--warning:#b35900;--error:#c4162a;--event:#7a3ec8}
@media (prefers-color-scheme:dark){svg{--ground:#14171c;--ink:#e6e9ee;--faint:#333a44;--quiet:#9aa4b0;--bus:#79aefc;
--bar:#28503a;--other:#5a4a26;--life:#2a3039;--log:#9aa4b0;--warning:#f0a14b;--error:#ff7b86;--event:#c39bff}}
svg{background:var(--ground);font:12px system-ui,sans-serif}
text{fill:var(--ink)} .quiet{fill:var(--quiet)} .head{font-weight:bold}
.ground{fill:var(--ground)} line{stroke:var(--faint)}
.bus{fill:var(--bus)} .event{fill:var(--event)} .log{fill:var(--log)} .warning{fill:var(--warning)} .error{fill:var(--error)}
.bar{fill:var(--bar);stroke:var(--ground)} .other{fill:var(--other);stroke:var(--ground)} .life{fill:var(--life)}
)";

enum class LaneKind { bus, state, process, event };
constexpr LaneKind kLaneKinds[] = {LaneKind::bus, LaneKind::state, LaneKind::process, LaneKind::event};

const char *titleOf(LaneKind kind) {
    switch (kind) {
    case LaneKind::bus:
        return "Bus, by topic";
    case LaneKind::state:
        return "State, by field";
    case LaneKind::process:
        return "Processes and their log";
    case LaneKind::event:
        return "System events, by category";
    }
    return "";
}

struct Mark {
    std::int64_t timeMs;
    const char *look; // class of the style
    std::string told;
};

struct Bar {
    std::int64_t fromMs;
    std::int64_t toMs;
    std::string value;
};

struct Lane {
    std::vector<Mark> marks;
    std::vector<Bar> bars;
    std::optional<std::int64_t> openMs; // a bar that has not ended
    std::string value;                  // of that bar
};

using Lanes = std::map<std::string, Lane>;

// A member of a record as one line; a recording may come from anywhere.
std::string member(const Json &record, const char *key) {
    return record.contains(key) && !record[key].is_null() ? plainText(record[key]) : "";
}

std::int64_t levelIn(const Json &record) {
    if (!record.contains("level") || !record["level"].is_object()) {
        return 0;
    }
    const Json &level = record["level"];
    return level.contains("code") && level["code"].is_number_integer() ? level["code"].get<std::int64_t>()
                                                                       : 0;
}

// What the picture shows, sorted into its lanes.
class Sheet {
  public:
    explicit Sheet(const std::vector<Recorded> &recording)
        : fromMs_(recording.front().timeMs), toMs_(std::max(recording.back().timeMs, fromMs_ + 1)) {
        for (const Recorded &one : recording) {
            take(one);
        }
        for (auto &[kind, lanes] : lanes_) {
            for (auto &[name, lane] : lanes) {
                endBar(lane, toMs_);
            }
        }
    }

    [[nodiscard]] const Lanes &lanesOf(LaneKind kind) const {
        static const Lanes none;
        const auto found = lanes_.find(kind);
        return found == lanes_.end() ? none : found->second;
    }
    [[nodiscard]] std::int64_t from() const { return fromMs_; }
    [[nodiscard]] std::int64_t to() const { return toMs_; }
    [[nodiscard]] std::size_t leftOut() const { return leftOut_.size(); }
    [[nodiscard]] std::size_t happenings() const { return happenings_; }

  private:
    Lane *lane(LaneKind kind, const std::string &name) {
        Lanes &lanes = lanes_[kind];
        const auto found = lanes.find(name);
        if (found != lanes.end()) {
            return &found->second;
        }
        if (lanes.size() >= kMaxLanes) {
            leftOut_[{kind, name}] = true;
            return nullptr;
        }
        return &lanes[name];
    }

    void mark(LaneKind kind, const std::string &name, Mark mark) {
        if (Lane *const found = lane(kind, name)) {
            ++happenings_;
            mark.told = mark.told.substr(0, kMaxToldText);
            found->marks.push_back(std::move(mark));
        }
    }

    static void endBar(Lane &lane, std::int64_t timeMs) {
        if (lane.openMs) {
            lane.bars.push_back({*lane.openMs, timeMs, lane.value});
            lane.openMs.reset();
        }
    }

    void changed(std::int64_t timeMs, const std::string &field, const std::string &before,
                 const std::string &after) {
        Lane *const found = lane(LaneKind::state, field);
        if (found == nullptr) {
            return;
        }
        ++happenings_;
        if (!found->openMs) {
            found->openMs = fromMs_;
            found->value = before;
        }
        endBar(*found, timeMs);
        found->openMs = timeMs;
        found->value = after;
    }

    void takeProcess(std::int64_t timeMs, const Json &record) {
        const std::string name = member(record, "process");
        if (Lane *const found = lane(LaneKind::process, name)) {
            ++happenings_;
            const bool starts = member(record, "what") == "started";
            if (!starts && !found->openMs && found->bars.empty()) {
                found->openMs = fromMs_;
            }
            endBar(*found, timeMs);
            if (starts) {
                found->openMs = timeMs;
            }
        }
    }

    void takeSnapshot(std::int64_t timeMs, const Json &record) {
        if (!record.contains("processes") || !record["processes"].is_array()) {
            return;
        }
        for (const Json &process : record["processes"]) {
            Lane *const found =
                process.is_object() ? lane(LaneKind::process, member(process, "process")) : nullptr;
            if (found != nullptr && !found->openMs) {
                found->openMs = timeMs;
            }
        }
    }

    void takeMessage(std::int64_t timeMs, const Json &record) {
        std::string told;
        for (const char *key : {"label", "class", "command", "payload", "meaning"}) {
            const std::string value = member(record, key);
            told += value.empty() ? "" : (told.empty() ? "" : " ") + std::string(key) + "=" + value;
        }
        mark(LaneKind::bus, member(record, "topic"), {timeMs, "bus", told});
    }

    void takeLine(std::int64_t timeMs, const Json &record) {
        constexpr std::int64_t kWarning = 50000;
        constexpr std::int64_t kError = 70000;
        const std::int64_t level = levelIn(record);
        mark(LaneKind::process, member(record, "process"),
             {timeMs,
              level >= kError     ? "error"
              : level >= kWarning ? "warning"
                                  : "log",
              member(record, "level") + " " + member(record, "text")});
    }

    void take(const Recorded &one) {
        const Json &record = one.record;
        const std::string kind = member(record, "kind");
        if (kind == "bus") {
            takeMessage(one.timeMs, record);
        } else if (kind == "broker" || kind == "trouble") {
            mark(LaneKind::bus, kind,
                 {one.timeMs, "error",
                  kind == "trouble"                      ? member(record, "text")
                  : member(record, "connected") == "yes" ? "connected"
                                                         : "gone"});
        } else if (kind == "state" && record.contains("field")) {
            changed(one.timeMs, member(record, "field"), member(record, "old"), member(record, "new"));
        } else if (kind == "log") {
            takeLine(one.timeMs, record);
        } else if (kind == "event") {
            mark(LaneKind::event, member(record, "category"),
                 {one.timeMs, "event", member(record, "process") + ": " + member(record, "text")});
        } else if (kind == "process") {
            takeProcess(one.timeMs, record);
        } else if (kind == "snapshot") {
            takeSnapshot(one.timeMs, record);
        }
    }

    std::int64_t fromMs_;
    std::int64_t toMs_;
    std::map<LaneKind, Lanes> lanes_;
    std::map<std::pair<LaneKind, std::string>, bool> leftOut_;
    std::size_t happenings_ = 0;
};

// Whole characters only.
std::string shortened(const std::string &text, std::size_t most) {
    std::size_t characters = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool begins = (static_cast<unsigned char>(text[i]) & 0xC0U) != 0x80U;
        if (begins && ++characters > most) {
            return text.substr(0, i) + "\u2026";
        }
    }
    return text;
}

// "250 ms", "1.5 s", "12 min": what a step of the axis is counted in.
std::string durationText(std::int64_t ms) {
    struct Unit {
        std::int64_t ms;
        const char *name;
    };
    constexpr Unit kUnits[] = {{86400000, "d"}, {3600000, "h"}, {60000, "min"}, {1000, "s"}};
    for (const Unit &unit : kUnits) {
        if (ms >= 2 * unit.ms || (unit.ms == 1000 && ms >= 1000)) {
            char text[48];
            snprintf(text, sizeof text, "%.4g %s", static_cast<double>(ms) / static_cast<double>(unit.ms),
                     unit.name);
            return text;
        }
    }
    return std::to_string(ms) + " ms";
}

// A round step, so that an axis has ten of them at most.
std::int64_t stepFor(std::int64_t lengthMs) {
    constexpr std::int64_t kSteps[] = {
        1,     2,     5,     10,     20,     50,     100,     200,     500,     1000,     2000,     5000,
        10000, 30000, 60000, 120000, 300000, 600000, 1800000, 3600000, 7200000, 21600000, 43200000, 86400000};
    for (const std::int64_t step : kSteps) {
        if (lengthMs / step <= 10) {
            return step;
        }
    }
    std::int64_t step = 86400000;
    while (lengthMs / step > 10) {
        step *= 2;
    }
    return step;
}

class Pen {
  public:
    explicit Pen(const Sheet &sheet) : sheet_(sheet) {}

    Drawing draw() {
        std::string lanes;
        int y = kTop;
        for (const LaneKind kind : kLaneKinds) {
            const Lanes &all = sheet_.lanesOf(kind);
            if (all.empty()) {
                continue;
            }
            y += kLaneHeight;
            lanes += at("text", 8, y - 7, "class=\"head\"") + titleOf(kind) + "</text>\n";
            for (const auto &[name, lane] : all) {
                drawLane(lanes, name, lane, y);
                y += kLaneHeight;
                ++drawing_.lanes;
            }
        }
        drawing_.lanesLeftOut = sheet_.leftOut();
        drawing_.happenings = sheet_.happenings();
        if (drawing_.lanesLeftOut != 0) {
            y += kLaneHeight;
            lanes += at("text", 8, y - 7, "class=\"quiet\"") + std::to_string(drawing_.lanesLeftOut) +
                     " lanes are left out</text>\n";
        }
        drawing_.svg = head(y + 12) + axis(y) + lanes + "</svg>\n";
        return std::move(drawing_);
    }

  private:
    static std::string at(const char *element, int x, int y, const std::string &more) {
        return std::string("<") + element + " x=\"" + std::to_string(x) + "\" y=\"" + std::to_string(y) +
               "\" " + more + ">";
    }

    [[nodiscard]] int xOf(std::int64_t timeMs) const {
        const double part =
            static_cast<double>(timeMs - sheet_.from()) / static_cast<double>(sheet_.to() - sheet_.from());
        return kGutter + static_cast<int>(std::clamp(part, 0.0, 1.0) * kDrawn);
    }

    [[nodiscard]] std::string head(int height) const {
        const std::string title =
            "Panel from " + isoTimeMilliseconds(sheet_.from()) + " to " + isoTimeMilliseconds(sheet_.to());
        const std::string size = std::to_string(kWidth) + "\" height=\"" + std::to_string(height);
        return "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + size + "\" viewBox=\"0 0 " +
               std::to_string(kWidth) + " " + std::to_string(height) + "\" role=\"img\">\n<title>" + title +
               "</title>\n<style>" + kStyle + "</style>\n<rect class=\"ground\" width=\"" + size + "\"/>\n" +
               at("text", 8, 22, "class=\"head\"") + title + "</text>\n";
    }

    [[nodiscard]] std::string axis(int bottom) const {
        std::string text;
        const std::int64_t length = sheet_.to() - sheet_.from();
        const std::int64_t step = stepFor(length);
        for (std::int64_t ms = 0; ms <= length; ms += step) {
            const std::string x = std::to_string(xOf(sheet_.from() + ms));
            text.append("<line x1=\"").append(x).append("\" x2=\"").append(x);
            text.append("\" y1=\"").append(std::to_string(kTop - 12));
            text.append("\" y2=\"").append(std::to_string(bottom)).append("\"/>\n");
            text.append("<text class=\"quiet\" text-anchor=\"middle\" x=\"").append(x);
            text.append("\" y=\"").append(std::to_string(kTop - 18)).append("\">");
            text.append(durationText(ms)).append("</text>\n");
        }
        return text;
    }

    void drawLane(std::string &out, const std::string &name, const Lane &lane, int y) {
        out += at("text", 16, y + 15, "") + "<title>" + xmlText(name) + "</title>" +
               xmlText(shortened(name, kMaxName)) + "</text>\n";
        drawBars(out, lane, y);
        drawMarks(out, lane, y);
    }

    // Bars that share a pixel become one, so that a picture has an end.
    void drawBars(std::string &out, const Lane &lane, int y) {
        bool other = false;
        for (std::size_t i = 0; i < lane.bars.size(); ++i) {
            const Bar &bar = lane.bars[i];
            const int from = xOf(bar.fromMs);
            const int to = xOf(bar.toMs);
            other = !other;
            if (to == from && i + 1 < lane.bars.size()) {
                continue;
            }
            const std::string value = bar.value;
            const int width = std::max(to - from, 1);
            out += at("rect", from, y + 3,
                      "width=\"" + std::to_string(width) + "\" height=\"16\" class=\"" +
                          (value.empty() ? "life"
                           : other       ? "bar"
                                         : "other") +
                          "\"") +
                   "<title>" + xmlText(span(bar)) + "</title></rect>\n";
            const auto letters = static_cast<std::size_t>(width) / kPixelsPerLetter;
            if (!value.empty() && letters >= 2) {
                out += at("text", from + 4, y + 15, "pointer-events=\"none\"") +
                       xmlText(shortened(value, letters - 1)) + "</text>\n";
            }
        }
    }

    static std::string span(const Bar &bar) {
        return (bar.value.empty() ? "runs" : bar.value.substr(0, kMaxToldText)) + " from " +
               isoTimeMilliseconds(bar.fromMs) + " to " + isoTimeMilliseconds(bar.toMs);
    }

    // One mark for all that falls on a pixel; it looks like the gravest of them.
    void drawMarks(std::string &out, const Lane &lane, int y) {
        for (auto first = lane.marks.begin(); first != lane.marks.end();) {
            const int x = xOf(first->timeMs);
            const auto last =
                std::find_if(first, lane.marks.end(), [&](const Mark &one) { return xOf(one.timeMs) != x; });
            const auto grave = std::max_element(
                first, last, [](const Mark &a, const Mark &b) { return gravity(a) < gravity(b); });
            out += at("rect", x - 1, y + 5,
                      std::string("width=\"3\" height=\"12\" rx=\"1\" class=\"") + grave->look + "\"") +
                   "<title>" + toldOf(first, last) + "</title></rect>\n";
            first = last;
        }
    }

    static int gravity(const Mark &mark) {
        return std::string_view(mark.look) == "error" ? 2 : std::string_view(mark.look) == "warning" ? 1 : 0;
    }

    static std::string toldOf(std::vector<Mark>::const_iterator first,
                              std::vector<Mark>::const_iterator last) {
        std::string text;
        std::size_t told = 0;
        for (auto one = first; one != last && told < kMaxTold; ++one, ++told) {
            text += (told == 0 ? "" : "\n") + isoTimeMilliseconds(one->timeMs) + " " + xmlText(one->told);
        }
        const auto more = static_cast<std::size_t>(last - first) - told;
        return more == 0 ? text : text + "\nand " + std::to_string(more) + " more";
    }

    const Sheet &sheet_;
    Drawing drawing_;
};

} // namespace

std::string xmlText(std::string_view text) {
    std::string escaped;
    for (const char c : visible(text)) {
        switch (c) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        case '\'':
            escaped += "&#39;";
            break;
        default:
            escaped += c;
        }
    }
    return escaped;
}

Drawing drawingOf(const std::vector<Recorded> &recording) {
    const Sheet sheet(recording);
    return Pen(sheet).draw();
}

std::string pageOf(const Drawing &drawing) {
    return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
           "<meta name=\"color-scheme\" content=\"light dark\">\n"
           "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src "
           "'unsafe-inline'\">\n"
           "<title>Panel timeline</title>\n"
           "<style>body{margin:0;overflow:auto}@media "
           "(prefers-color-scheme:dark){body{background:#14171c}}</style>\n"
           "</head>\n<body>\n" +
           drawing.svg + "</body>\n</html>\n";
}

} // namespace ozuctl
