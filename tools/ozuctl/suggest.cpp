#include "suggest.h"

#include <algorithm>
#include <cctype>
#include <limits>

namespace ozuctl {

namespace {

constexpr std::size_t kMaxWord = 64; // nobody meant a known word with more

std::string folded(std::string_view word) {
    std::string text;
    for (const char letter : word) {
        text += letter == '-' || letter == ' '
                    ? '_'
                    : static_cast<char>(toupper(static_cast<unsigned char>(letter)));
    }
    return text;
}

// Letters to insert, leave out, replace or swap with their neighbour.
std::size_t distance(const std::string &a, const std::string &b) {
    std::vector<std::size_t> beforeLast(b.size() + 1);
    std::vector<std::size_t> last(b.size() + 1);
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) {
        last[j] = j;
    }
    for (std::size_t i = 1; i <= a.size(); ++i) {
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t replaced = last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, replaced});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                row[j] = std::min(row[j], beforeLast[j - 2] + 1);
            }
        }
        std::swap(beforeLast, last);
        std::swap(last, row);
    }
    return last[b.size()];
}

// Twice the distance, or more than twice the most that counts; a known word that begins or ends with the one
// typed is nearer than that says.
std::size_t cost(const std::string &typed, const std::string &known, std::size_t most) {
    if (typed == known) {
        return 0;
    }
    if (typed.size() >= 3 && (known.starts_with(typed) || known.ends_with(typed))) {
        return known.starts_with(typed) ? 1 : 2;
    }
    // So many letters to insert or to leave out at least.
    const std::size_t apart = std::max(typed.size(), known.size()) - std::min(typed.size(), known.size());
    return 2 * (apart > most ? apart : distance(typed, known));
}

} // namespace

std::string nearest(std::string_view word, const std::vector<std::string> &known) {
    if (word.empty() || word.size() > kMaxWord) {
        return {};
    }
    const std::string typed = folded(word);
    const std::size_t most = std::max<std::size_t>(1, (typed.size() + 1) / 3);
    std::size_t best = std::numeric_limits<std::size_t>::max();
    std::string found;
    for (const std::string &one : known) {
        if (const std::size_t now = cost(typed, folded(one), most); now < best) {
            best = now;
            found = one;
        }
    }
    return best <= 2 * most ? found : std::string();
}

std::string didYouMean(std::string_view word, const std::vector<std::string> &known) {
    const std::string found = nearest(word, known);
    return found.empty() ? std::string() : "; did you mean '" + found + "'?";
}

std::string listed(const std::vector<std::string> &words) {
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) {
        text += (i == 0 ? "" : i + 1 == words.size() ? " or " : ", ") + words[i];
    }
    return text;
}

} // namespace ozuctl
