// An archive in the plain form that every tar reads (ustar), made in memory: a handful of small files need no
// library and no program for it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace ozuctl {

class Archive {
  public:
    explicit Archive(std::int64_t timeMs) : timeMs_(timeMs) {}

    // Names are safeName()s, with '/' between them; at most 99 characters.
    void add(const std::string &name, std::string_view content);

    // The whole archive.
    [[nodiscard]] std::string finished() const;

  private:
    std::int64_t timeMs_;
    std::string bytes_;
};

// A file name that does no harm wherever it is unpacked: letters, digits, '.', '_' and '-', none of them
// first but a letter or digit; everything else becomes '_'.
std::string safeName(std::string_view name);

} // namespace ozuctl
