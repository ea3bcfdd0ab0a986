// Completes and counts findings.

#include "engine/maintenance/reporter.h"

#include <utility>

namespace brenik::maintenance {

void Reporter::add(Finding finding) const {
    finding.file = file_;
    finding.code_page = counts_.code_page;
    switch (finding.severity) {
        case Severity::kFault:
            ++counts_.faults;
            break;
        case Severity::kNote:
            ++counts_.notes;
            break;
        case Severity::kUnchecked:
            ++counts_.unchecked;
            break;
    }
    report_(finding);
}

void Reporter::fault(const char* kind, Remedy remedy, Finding place,
                     const std::string& what) const {
    place.severity = Severity::kFault;
    place.kind = kind;
    place.remedy = remedy;
    place.what = what;
    add(std::move(place));
}

void Reporter::note(const char* kind, Remedy remedy, Finding place, const std::string& what) const {
    place.severity = Severity::kNote;
    place.kind = kind;
    place.remedy = remedy;
    place.what = what;
    add(std::move(place));
}

void Reporter::unchecked(const char* kind, Finding place, const std::string& what) const {
    place.severity = Severity::kUnchecked;
    place.kind = kind;
    place.remedy = Remedy::kTryAgain;
    place.what = what;
    add(std::move(place));
}

void Reporter::not_open(const platform::File& file) const {
    if (file.failure() == platform::OpenFailure::kSharing) {
        return unchecked("in-use", {}, "in exclusive use by another program");
    }
    const bool denied = file.failure() == platform::OpenFailure::kDenied;
    Finding finding;
    finding.severity = Severity::kUnchecked;
    finding.kind = "cannot-open";
    finding.remedy = denied ? Remedy::kPermit : Remedy::kTryAgain;
    finding.what = file.why_not_open();
    add(std::move(finding));
}

Finding at_record(RecordNumber record, std::string field) {
    Finding place;
    place.record = record;
    place.field = std::move(field);
    return place;
}

Finding at_tag(std::string tag, RecordNumber record) {
    Finding place;
    place.tag = std::move(tag);
    place.record = record;
    return place;
}

Finding at_page(std::string tag, std::uint64_t page) {
    Finding place;
    place.tag = std::move(tag);
    place.page = page;
    return place;
}

}  // namespace brenik::maintenance
