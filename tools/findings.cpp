// Words and counts findings.

#include "findings.h"

#include <iostream>
#include <nlohmann/json.hpp>

#include "colours.h"
#include "display.h"

namespace brenik::tools {
namespace {

using Json = nlohmann::ordered_json;
using maintenance::Finding;
using maintenance::Remedy;
using maintenance::Severity;

constexpr std::size_t kMostOfAKind = 100;

const char* severity_word(Severity severity) {
    switch (severity) {
        case Severity::kFault:
            return "fault";
        case Severity::kNote:
            return "note";
        case Severity::kUnchecked:
            return "not checked";
    }
    return "";
}

// persistent: programs read these words.
const char* remedy_word(Remedy remedy) {
    switch (remedy) {
        case Remedy::kNothing:
            return "nothing";
        case Remedy::kRepair:
            return "repair";
        case Remedy::kReindex:
            return "reindex";
        case Remedy::kRestore:
            return "restore";
        case Remedy::kByHand:
            return "by hand";
        case Remedy::kTryAgain:
            return "try again";
        case Remedy::kPermit:
            return "permit";
        case Remedy::kTell:
            return "tell";
    }
    return "";
}

std::string advice(Remedy remedy) {
    switch (remedy) {
        case Remedy::kNothing:
            return "";
        case Remedy::kRepair:
            return "; run \"brenik repair\"";
        case Remedy::kReindex:
            return "; run \"brenik reindex\"";
        case Remedy::kRestore:
            return "; restore the file from a backup";
        case Remedy::kByHand:
            return "; this needs a decision by hand";
        case Remedy::kTryAgain:
            return "; check again later";
        case Remedy::kPermit:
            return "; check again as a user who may read it";
        case Remedy::kTell:
            return "; have the program that added it call BrenikAddedRecord";
    }
    return "";
}

std::string text_line(const Finding& finding, const TableText& text) {
    const bool is_fault = finding.severity == Severity::kFault;
    const std::string file = to_line(base_name(finding.file)) + ":";
    std::string line =
        is_fault ? coloured(Colour::kFault, file)
                 : coloured(Colour::kNote, severity_word(finding.severity) + std::string(":")) +
                       " " + file;
    line += " ";
    std::string place;
    const auto add = [&](const std::string& part) { place += (place.empty() ? "" : ", ") + part; };
    if (!finding.tag.empty()) add("tag " + one_line(text.shown(finding.tag)));
    if (finding.record) add("record " + std::to_string(*finding.record));
    if (!finding.field.empty()) add("field " + one_line(text.shown(finding.field)));
    if (finding.page) add("page at " + std::to_string(*finding.page));
    if (!place.empty()) line += place + ": ";
    return line + to_line(finding.what) + advice(finding.remedy);
}

Json json_line(const Finding& finding, const TableText& text) {
    Json line = {{"severity", severity_word(finding.severity)},
                 {"kind", finding.kind},
                 {"file", to_utf8(finding.file)}};
    line["tag"] = finding.tag.empty() ? Json() : Json(text.shown(finding.tag));
    line["record"] = finding.record ? Json(*finding.record) : Json();
    line["field"] = finding.field.empty() ? Json() : Json(text.shown(finding.field));
    line["page"] = finding.page ? Json(*finding.page) : Json();
    line["what"] = to_utf8(finding.what);
    line["remedy"] = remedy_word(finding.remedy);
    return line;
}

}  // namespace

std::string base_name(const std::string& path) {
    const std::size_t separator = path.find_last_of("\\/");
    return separator == std::string::npos ? path : path.substr(separator + 1);
}

void FindingPrinter::count(const Finding& finding) {
    switch (finding.severity) {
        case Severity::kFault:
            ++faults_;
            break;
        case Severity::kNote:
            ++notes_;
            break;
        case Severity::kUnchecked:
            ++unchecked_;
            cannot_open_ = cannot_open_ || finding.kind == "cannot-open";
            break;
    }
}

const TableText& FindingPrinter::text_of(std::uint8_t mark) {
    return texts_.try_emplace(mark, mark, encoding_).first->second;
}

void FindingPrinter::print(const Finding& finding) {
    count(finding);
    const TableText& text = text_of(finding.code_page);
    if (json_) {
        std::cout << dump(json_line(finding, text)) << "\n";
    } else if (++shown_[{finding.file, finding.kind}] <= kMostOfAKind) {
        std::cout << text_line(finding, text) << "\n";
    }
}

void FindingPrinter::finish_file() {
    for (const auto& [place, count] : shown_) {
        if (count <= kMostOfAKind) continue;
        std::cout << to_line(base_name(place.first)) << ": and " << count - kMostOfAKind
                  << " more like the last (" << place.second << "); --json lists them all\n";
    }
    shown_.clear();
}

ExitCode FindingPrinter::exit_code() const {
    if (faults_ > 0) return ExitCode::kProblem;
    if (cannot_open_) return ExitCode::kCannotOpen;
    return unchecked_ > 0 ? ExitCode::kLocked : ExitCode::kOk;
}

}  // namespace brenik::tools
