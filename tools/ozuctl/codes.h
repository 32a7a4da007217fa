// Words for the codes of the library and of the platform, and for ozuctl's own exit status.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace ozuctl {

struct CodeWords {
    int code;
    std::string words;
};

// Codes that several families of the library share; a function's own description may say more.
const std::vector<CodeWords> &libraryCodes();
// Codes of the reference platform; empty in a build with other platform libraries.
const std::vector<CodeWords> &platformCodes();
// ozuctl's exit status: one table for the tool and for panel boxes.
const std::vector<CodeWords> &exitCodes();

std::optional<std::string> wordsFor(const std::vector<CodeWords> &codes, int code);

// "code 21: the broker does not answer"; "code 99" where there are no words for it.
std::string libraryCode(int code);
std::string platformCode(int code);

} // namespace ozuctl
