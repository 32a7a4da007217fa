// Files of a test: a directory of its own, whole-file reads and writes, the output of a command.
#pragma once

#include "process_folder.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace ozu::test {

// A fresh directory, removed with everything in it.
class TemporaryDirectory {
  public:
    TemporaryDirectory() : path_(makeFolder("files")) {}
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory &) = delete;
    TemporaryDirectory &operator=(const TemporaryDirectory &) = delete;

    [[nodiscard]] const std::string &path() const { return path_; }
    [[nodiscard]] std::string file(const std::string &name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

inline void writeFile(const std::string &path, const std::string &content) {
    // A new file: some file systems write one that was truncated to the disk at once.
    std::filesystem::remove(path);
    std::ofstream out(path, std::ios::binary);
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
    out.close();
    ASSERT_TRUE(out) << path;
}

inline std::string readFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    EXPECT_TRUE(in) << path;
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// What a shell command prints; the test fails when the command does.
inline std::string outputOf(const std::string &command) {
    std::string output;
    FILE *pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        ADD_FAILURE() << "cannot run: " << command;
        return output;
    }
    std::array<char, 65536> piece{};
    while (const std::size_t got = fread(piece.data(), 1, piece.size(), pipe)) {
        output.append(piece.data(), got);
    }
    EXPECT_EQ(pclose(pipe), 0) << command;
    return output;
}

// Bytes that repeat nowhere near; the same for the same seed on every machine.
inline std::string noise(std::size_t size, unsigned seed = 1) {
    std::string bytes(size, '\0');
    unsigned state = seed * 2654435761U + 1U;
    for (char &byte : bytes) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        byte = static_cast<char>(state >> 11);
    }
    return bytes;
}

inline std::string hexadecimal(const std::string &bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

inline std::string bytesOf(const std::string &hex) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

} // namespace ozu::test
