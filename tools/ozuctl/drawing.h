// A picture of a recording: one lane for each topic, field, process and event category, time from left to
// right. It stands alone: no script, no font, nothing from a network.
#pragma once

#include "recording.h"

#include <cstddef>
#include <string>
#include <vector>

namespace ozuctl {

struct Drawing {
    std::string svg;
    std::size_t lanes = 0;
    std::size_t lanesLeftOut = 0; // a picture has so many of a kind and no more
    std::size_t happenings = 0;   // that are in it
};

Drawing drawingOf(const std::vector<Recorded> &recording);

// The drawing in a page of its own.
std::string pageOf(const Drawing &drawing);

// A text as the content of an element or attribute: one line, nothing hidden, no markup.
std::string xmlText(std::string_view text);

} // namespace ozuctl
