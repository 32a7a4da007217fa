#include "bounded_json.h"

#include <cstddef>

namespace ozuctl {

namespace {

constexpr std::size_t kMaxJsonBytes = std::size_t{16} * 1024;
constexpr int kMaxJsonLevels = 16;

// Brackets outside of texts never stand deeper than allowed.
bool isShallow(std::span<const unsigned char> bytes) {
    int depth = 0;
    bool inText = false;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const unsigned char byte = bytes[i];
        if (inText) {
            i += byte == '\\' ? 1 : 0;
            inText = byte != '"';
        } else if (byte == '"') {
            inText = true;
        } else if (byte == '[' || byte == '{') {
            if (++depth > kMaxJsonLevels) {
                return false;
            }
        } else if (byte == ']' || byte == '}') {
            --depth;
        }
    }
    return true;
}

} // namespace

std::optional<Json> boundedJson(std::span<const unsigned char> bytes) {
    if (bytes.size() > kMaxJsonBytes || !isShallow(bytes)) {
        return std::nullopt;
    }
    Json document = Json::parse(bytes.begin(), bytes.end(), nullptr, false);
    return document.is_discarded() ? std::nullopt : std::optional(std::move(document));
}

} // namespace ozuctl
