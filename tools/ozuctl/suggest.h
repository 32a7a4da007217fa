// The known word that somebody probably meant.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace ozuctl {

// The nearest of the known words; empty when none is near.
std::string nearest(std::string_view word, const std::vector<std::string> &known);

// "; did you mean 'status'?", or nothing.
std::string didYouMean(std::string_view word, const std::vector<std::string> &known);

// "full, partial1 or partial2".
std::string listed(const std::vector<std::string> &words);

} // namespace ozuctl
