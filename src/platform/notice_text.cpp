#include "platform/notice_text.h"

namespace brenik::platform {

std::string readable(const std::string& text, const std::string& title) {
    std::string lines = (title.empty() ? std::string("Error") : title) + ": ";
    for (const char c : text) {
        if (c == '\r') continue;
        const auto code = static_cast<unsigned char>(c);
        const bool shown = c == '\n' || c == '\t' || (code >= 0x20 && code != 0x7F);
        lines += shown ? c : '.';
    }
    lines.resize(lines.find_last_not_of("\n ") + 1);
    return lines + "\n";
}

}  // namespace brenik::platform
