#include "colours.h"

#include "text.h"

#include <ozulog.h>
#include <unistd.h>

#include <cstdlib>

namespace ozuctl {

namespace {

bool coloursOn = false;

bool isSet(const char *variable) {
    const char *const value = getenv(variable);
    return value != nullptr && *value != '\0';
}

bool terminalKnowsColours() {
    return isatty(STDOUT_FILENO) != 0 && !isSet("NO_COLOR") && isSet("TERM") &&
           std::string_view(getenv("TERM")) != "dumb";
}

const char *sequenceOf(Look look) {
    switch (look) {
    case Look::name:
        return "\x1b[1m";
    case Look::warning:
        return "\x1b[33m";
    case Look::error:
        return "\x1b[31m";
    case Look::plain:
        break;
    }
    return "";
}

} // namespace

void chooseColours(std::string_view mode) {
    coloursOn = mode == "always" || (mode == "auto" && terminalKnowsColours());
}

std::string paint(std::string_view text, Look look) {
    const std::string shown = visible(text);
    return !coloursOn || look == Look::plain || shown.empty() ? shown : sequenceOf(look) + shown + "\x1b[0m";
}

Look lookOf(const Json &record) {
    const auto kind = record.find("kind");
    if (kind != record.end() && *kind == "trouble") {
        return Look::error;
    }
    const auto level = record.find("level");
    if (level == record.end() || !level->is_object()) {
        return Look::plain;
    }
    const auto code = level->find("code");
    const std::int64_t number =
        code != level->end() && code->is_number_integer() ? code->get<std::int64_t>() : 0;
    return number >= OZULOG_ERROR ? Look::error : number >= OZULOG_WARNING ? Look::warning : Look::plain;
}

} // namespace ozuctl
