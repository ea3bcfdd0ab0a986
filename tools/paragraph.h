// Words and lines of a text for people.

#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace brenik::tools {

// The words between the blanks.
std::vector<std::string> words_of(std::string_view text);

// The text in lines of at most `width` characters, each ended by a line feed. All lines but the
// first begin with `indent` blanks; the caller has written what precedes the first. A word that is
// longer than a line has a line of its own.
std::string wrapped(const std::vector<std::string>& words, std::size_t indent, std::size_t width);

}  // namespace brenik::tools
