// Finds the word that somebody meant who mistyped one, by counting the edits between two words. A
// word is suggested only if no more edits are needed than a third of the typed letters, or one for
// a short word; a wilder guess helps nobody.
#include "text/suggestion.hpp"

#include <algorithm>
#include <numeric>
#include <vector>

namespace cli
{
namespace
{

// Insertions, deletions and replacements of a letter, and swaps of two neighbours, each count one
// (Damerau 1964, in the restricted form that changes no letter twice).
std::size_t edit_distance(std::string_view a, std::string_view b)
{
    std::vector<std::size_t> before_last;
    std::vector<std::size_t> last(b.size() + 1);
    std::iota(last.begin(), last.end(), std::size_t{0});
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::vector<std::size_t> row(b.size() + 1, i);
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t replaced = last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, replaced});
            const bool swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
            if (swapped) {
                row[j] = std::min(row[j], before_last[j - 2] + 1);
            }
        }
        before_last = std::move(last);
        last = std::move(row);
    }
    return last.back();
}

} // namespace

std::string_view nearest_word(std::string_view typed, std::span<const std::string_view> words)
{
    std::string_view best;
    std::size_t best_distance = std::max<std::size_t>(typed.size() / 3, 1) + 1;
    for (const std::string_view word : words) {
        // Each letter that one of them has more is an edit.
        const std::size_t shorter = std::min(typed.size(), word.size());
        if (typed.size() + word.size() - 2 * shorter >= best_distance) {
            continue;
        }
        const std::size_t distance = edit_distance(typed, word);
        if (distance < best_distance) {
            best = word;
            best_distance = distance;
        }
    }
    return best;
}

} // namespace cli
