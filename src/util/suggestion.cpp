// Compares names by the number of typing errors between them.

#include "util/suggestion.h"

#include <algorithm>
#include <numeric>

#include "util/runtime.h"

namespace brenik {
namespace {

constexpr std::size_t kShortestStart = 2;  // a single letter begins too many names

// The least number of typing errors that turn one text into the other: a letter too many, a letter
// too few, a wrong letter, or two letters exchanged.
std::size_t typing_errors(std::string_view one, std::string_view other) {
    std::vector<std::size_t> before_last, last(other.size() + 1), row(other.size() + 1);
    std::iota(last.begin(), last.end(), std::size_t{0});
    for (std::size_t i = 1; i <= one.size(); ++i) {
        row[0] = i;
        for (std::size_t j = 1; j <= other.size(); ++j) {
            const std::size_t wrong = one[i - 1] == other[j - 1] ? 0 : 1;
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + wrong});
            const bool exchanged =
                i > 1 && j > 1 && one[i - 1] == other[j - 2] && one[i - 2] == other[j - 1];
            if (exchanged) row[j] = std::min(row[j], before_last[j - 2] + 1);
        }
        before_last = last;
        last = row;
    }
    return last.back();
}

}  // namespace

std::string did_you_mean(std::string_view given, const std::vector<std::string>& names) {
    const std::string wanted = upper(given);
    std::size_t fewest = wanted.size() / 3 + 2;  // one more than a close name may have
    const std::string* closest = nullptr;
    for (const std::string& name : names) {
        if (wanted.size() >= 2 * name.size()) continue;  // not close, and slow to compare
        const bool begins = wanted.size() >= kShortestStart && upper(name).starts_with(wanted);
        const std::size_t errors = begins ? 1 : typing_errors(wanted, upper(name));
        if (errors >= fewest || errors >= name.size()) continue;
        fewest = errors;
        closest = &name;
    }
    return closest ? "; did you mean \"" + *closest + "\"?" : "";
}

}  // namespace brenik
