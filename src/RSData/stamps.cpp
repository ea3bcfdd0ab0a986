// The stamp of the current moment, and routines on texts.

#include "RSData/stamps.h"

#include <algorithm>

#include "RSData/system_record.h"
#include "c_source/Time.h"
#include "util/runtime.h"

namespace brenik {

std::string RSNOW(Session& session) {
    const SystemRecord settings(session);
    const double last_delta = session.areas.field(kSystemArea, practice::kLastStampField).number();
    return RSDT(session.today(), std::max(session.clock.seconds(), last_delta));
}

// Rounding would come after the minutes are computed, so it never shows.
std::string CDT2STR(std::string_view stamp, const Value&, const Value&, bool) {
    const practice::StampedMoment moment = practice::read_stamp(stamp);
    const int minutes = moment.seconds / 60;
    const std::string time = MIN2AMPM({static_cast<double>(minutes)});
    return moment.date == practice::kBaseDate ? time : moment.date.to_mdy() + " " + time;
}

std::string MYSTUFF(std::string_view text, std::size_t start, std::size_t count,
                    std::string_view insert) {
    const std::size_t before = start == 0 ? 0 : start - 1;
    std::string result(text.substr(0, before));
    result.append(insert);
    if (before < text.size() && count < text.size() - before) {
        result.append(text.substr(before + count));
    }
    return result;
}

std::string XTOC(const Value& value) {
    switch (value.kind()) {
        case ValueKind::kCharacter:
        case ValueKind::kMemo:
            return std::string(trim_right(value.text()));
        case ValueKind::kNumber:
            return trimmed_number(value.number_form());
        case ValueKind::kDate:
            return value.date().to_ymd();
        case ValueKind::kLogical:
            return value.logical() ? "Y" : "N";
        case ValueKind::kArray:
            return "{ ... }";
        case ValueKind::kNil:
            return "NIL";
    }
    return {};
}

}  // namespace brenik
