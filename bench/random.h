// Random choices that are the same in every run.

#pragma once

#include <random>
#include <string>
#include <utility>
#include <vector>

namespace brenik::bench {

class Random {
  public:
    std::size_t below(std::size_t end) { return engine_() % end; }
    std::string digits() { return std::to_string(engine_()); }
    std::string letters(std::size_t count) {
        std::string text(count, 'A');
        for (char& letter : text) letter = static_cast<char>('A' + engine_() % 26);
        return text;
    }

    void shuffle(std::vector<std::string>& texts) {
        for (std::size_t i = texts.size(); i > 1; --i) std::swap(texts[i - 1], texts[below(i)]);
    }

  private:
    std::mt19937 engine_{2026};
};

}  // namespace brenik::bench
