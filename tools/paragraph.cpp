// Breaks texts into words and lines.

#include "paragraph.h"

#include <algorithm>

namespace brenik::tools {

std::vector<std::string> words_of(std::string_view text) {
    std::vector<std::string> words;
    for (std::size_t begin = text.find_first_not_of(' '); begin != std::string_view::npos;) {
        const std::size_t end = std::min(text.find(' ', begin), text.size());
        words.emplace_back(text.substr(begin, end - begin));
        begin = text.find_first_not_of(' ', end);
    }
    return words;
}

std::string wrapped(const std::vector<std::string>& words, std::size_t indent, std::size_t width) {
    std::string lines;
    std::size_t column = indent;
    bool is_first = true;  // of its line
    for (const std::string& word : words) {
        if (!is_first && column + 1 + word.size() > width) {
            lines += "\n" + std::string(indent, ' ');
            column = indent;
        } else if (!is_first) {
            lines += " ";
            ++column;
        }
        lines += word;
        column += word.size();
        is_first = false;
    }
    return lines + "\n";
}

}  // namespace brenik::tools
