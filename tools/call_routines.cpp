// The library's routines by name. Operations behind the exports come from the library's own
// registry and are not repeated here. "SECOND name" is the older variant of a routine.

#include <algorithm>
#include <array>

#include "BrenikDB/lookup.h"
#include "RSData/journal.h"
#include "RSData/stamps.h"
#include "c_source/Dates.h"
#include "c_source/Misc.h"
#include "c_source/MiscFW.h"
#include "c_source/Strings.h"
#include "c_source/Time.h"
#include "c_source/retries.h"
#include "call_table.h"
#include "data/add_rec.h"
#include "data/ads.h"
#include "data/append_blank.h"
#include "data/close_all.h"
#include "data/cmfun.h"
#include "data/cmxfun.h"
#include "data/exclusive.h"
#include "data/identifiers.h"
#include "data/net_use.h"
#include "data/savedbf.h"
#include "data/scatgat.h"

namespace brenik::tools {
namespace {

using Arguments = CallArguments;

// A target is a single letter; any longer text is unknown.
char type_letter(const std::string& text) { return text.size() == 1 ? text[0] : '?'; }

// Number of digits of a counter in text form.
int digits(const Arguments& a) { return static_cast<int>(a.width(1, 2)); }

SeekMode seek_mode(const Arguments& a, std::size_t index) {
    return a.logical(index, false) ? SeekMode::kSoft : SeekMode::kHard;
}

NetUse net_use_options(const Arguments& a) {
    return {.exclusive = a.logical(1, false),
            .seconds = a.number(2, NetUse{}.seconds),
            .alias = a.optional_text(3),
            .where = a.logical(4, false) ? OpenIn::kNewArea : OpenIn::kCurrentArea,
            .attach_index = a.logical(5, false)};
}

constexpr auto call_ADD_REC = [](Session& session, Arguments& a) {
    return ADD_REC(session, {.object = a.record(0),
                             .assign_identifier = a.optional_logical(1),
                             .commit = a.logical(2, true),
                             .seconds = a.number(3, kDefaultRetrySeconds)});
};

constexpr auto call_LASTFIRST = [](Session& session, Arguments& a) {
    const std::size_t width = a.width(0, kNameWidth);
    if (!a.given(1) && a.record(1) != nullptr) return LASTFIRST(*a.record(1), width);
    return LASTFIRST(session, width, a.optional_small(1));
};

constexpr auto call_NEXTUID = [](Session& session, Arguments& a) {
    std::string identifier = a.text(0, "");
    const bool issued = NEXTUID(session, identifier,
                                {.record_locked = a.logical(1, false),
                                 .counter_locked = a.logical(2, false),
                                 .object = a.record(3),
                                 .table = a.optional_small(4)});
    if (issued) a.give_back(0, identifier);
    return issued;
};

constexpr auto call_RSADD = [](Session& session, Arguments& a) {
    return RSADD(session, {.area = a.optional_small(2),
                           .commit = a.logical(4, true),
                           .stamp = a.optional_text(3),
                           .identifier = a.optional_text(0),
                           .table_code = a.optional_text(1)});
};

constexpr auto call_RSDEL = [](Session& session, Arguments& a) {
    return RSDEL(session, {.area = a.optional_small(1),
                           .stamp = a.optional_text(5),
                           .identifier = a.optional_text(0),
                           .remove = a.logical(3, false),
                           .workstation = a.optional_text(6),
                           .code_area = a.optional_small(2),
                           .table_code = a.optional_text(4),
                           .quiet = a.logical(7, false)});
};

constexpr auto call_RSSET = [](Session& session, Arguments& a) {
    FieldChanges changes{.value = a.value(1),
                         .area = a.optional_small(5),
                         .stamp = a.optional_text(2),
                         .identifier = a.optional_text(3),
                         .workstation = a.optional_text(7),
                         .force = a.logical(8, false),
                         .code_area = a.optional_small(6)};
    if (a.given(0)) changes.field_number = a.size(0);
    if (a.given(4)) changes.values = a.array(4);
    if (!a.given(0) && !a.given(4)) throw CallError("argument 1 or argument 5 must be given");
    return RSSET(session, changes);
};

constexpr auto call_RSDTOF = [](Session& session, Arguments& a) {
    const std::string before = a.text(3, "");
    std::string changer = before;
    std::string stamp = RSDTOF(session, a.text(0), a.text(1), a.size(2), &changer);
    if (changer != before) a.give_back(3, changer);
    return stamp;
};

constexpr auto call_CDT2STR = [](Session&, Arguments& a) {
    return CDT2STR(a.text(0), a.value(1), a.value(2), a.logical(3, false));
};

// Here an expression and its text are the same.
constexpr auto call_CMXSETRELATION = [](Session& session, Arguments& a) {
    if (a.given(1) && a.given(2) && a.text(1) != a.text(2)) {
        throw CallError("arguments 2 and 3 are two different expressions; give only one");
    }
    CMXSETRELATION(session, a.small(0), a.text(a.given(2) ? 2 : 1));
};

constexpr auto call_CMXSETSCOPE = [](Session& session, Arguments& a) {
    // A second argument, even nil, sets the scope.
    return CMXSETSCOPE(session, scope_end(a),
                       a.count() > 1 ? std::optional(a.value(1)) : std::nullopt);
};

constexpr auto call_SCATGAT = [](Session& session, Arguments& a) {
    return a.given(0) ? SCATGAT(session, a.array(0), a.logical(1, false)) : SCATGAT(session);
};

constexpr std::array kRoutines{
    Routine{"A2STR", "array", [](Arguments& a) { return A2STR(a.value(0)); }},
    Routine{"ADD_REC", "[record object], [assign identifier], [commit], [seconds]", call_ADD_REC},
    Routine{"ADSCLOSEALLTABLES", "", [](Session& s) { return ADSCLOSEALLTABLES(s); }},
    Routine{"ADSISSERVERLOADED", "folder",
            [](Session& s, Arguments& a) { return ADSISSERVERLOADED(s, a.text(0)); }},
    Routine{"ADSLOCKING", "proprietary",
            [](Session& s, Arguments& a) { return ADSLOCKING(s, a.logical(0)); }},
    Routine{"ADSREFRESHRECORD", "", [](Session& s) { return ADSREFRESHRECORD(s); }},
    Routine{"ADSSETSERVERTYPE", "[server type]",
            [](Session& s, Arguments& a) { return ADSSETSERVERTYPE(s, a.optional_small(0)); }},
    Routine{"ADSWRITEALLRECORDS", "", [](Session& s) { return ADSWRITEALLRECORDS(s); }},
    Routine{"AGE", "[date]", [](Session& s, Arguments& a) { return AGE(s, a.value(0)); }},
    Routine{"AMPM", "24-hour text", [](Arguments& a) { return AMPM(a.text(0)); }},
    Routine{"AMPMTO24", "12-hour text", [](Arguments& a) { return AMPMTO24(a.text(0)); }},
    Routine{"AP2EVETIME", "12-hour text", [](Arguments& a) { return AP2EVETIME(a.text(0)); }},
    Routine{"APPENDBLANK", "", [](Session& s) { return APPENDBLANK(s); }},
    Routine{"CAST", "value, [memo mode], [blank date]",
            [](Arguments& a) { return CAST(a.value(0), a.optional_text(1), a.logical(2, false)); }},
    Routine{"CASTANY", "value, type letter, [strict date]",
            [](Session& s, Arguments& a) {
                return CASTANY(s.ui, a.value(0), type_letter(a.text(1, "")), a.logical(2, false));
            }},
    Routine{"CDT2STR", "stamp, [ignored], [ignored], [round]", call_CDT2STR},
    Routine{"CHECKSERVER", "server type",
            [](Session& s, Arguments& a) { return CHECKSERVER(s, a.small(0)); }},
    Routine{"CLEARFILTER", "", [](Session& s) { CLEARFILTER(s); }},
    Routine{"CLOSEALL", "", [](Session& s) { CLOSEALL(s); }},
    Routine{"CLOSEMOST", "[exclusive], [quiet]",
            [](Session& s, Arguments& a) {
                return CLOSEMOST(s, a.logical(0, true), a.logical(1, false));
            }},
    Routine{"CMCLRFILTER", "", [](Session& s) { CMCLRFILTER(s); }},
    Routine{"CMFILTER", "filter text",
            [](Session& s, Arguments& a) { CMFILTER(s, a.text(0, "")); }},
    Routine{"CMKEYCOUNT", "[order], [index file]",
            [](Session& s, Arguments& a) { return CMKEYCOUNT(s, a.value(0), a.text(1, "")); }},
    Routine{"CMKEYNO", "[order], [index file]",
            [](Session& s, Arguments& a) { return CMKEYNO(s, a.value(0), a.text(1, "")); }},
    Routine{"CMXAUTOORDER", "[order]",
            [](Session& s, Arguments& a) { return CMXAUTOORDER(s, a.optional_small(0)); }},
    Routine{"CMXAUTOSHARE", "[setting]",
            [](Session& s, Arguments& a) { return CMXAUTOSHARE(s, a.optional_small(0)); }},
    Routine{"CMXCLRSCOPE", "0 top or 1 bottom",
            [](Session& s, Arguments& a) { CMXCLRSCOPE(s, scope_end(a)); }},
    Routine{"CMXCOUNT", "[index file]",
            [](Session& s, Arguments& a) { return CMXCOUNT(s, a.optional_text(0)); }},
    Routine{"CMXINDEXINFO", "", [](Session& s) { return CMXINDEXINFO(s); }},
    Routine{"CMXKEYCOUNT", "[order], [index file]",
            [](Session& s, Arguments& a) { return CMXKEYCOUNT(s, a.value(0), a.text(1, "")); }},
    Routine{"CMXKEYGOTO", "key position",
            [](Session& s, Arguments& a) { CMXKEYGOTO(s, a.whole(0)); }},
    Routine{"CMXKEYNO", "[order], [index file]",
            [](Session& s, Arguments& a) { return CMXKEYNO(s, a.value(0), a.text(1, "")); }},
    Routine{"CMXSEEKLAST", "key, [soft]",
            [](Session& s, Arguments& a) { return CMXSEEKLAST(s, a.value(0), seek_mode(a, 1)); }},
    Routine{"CMXSETRELATION", "target work area, expression, [expression text]",
            call_CMXSETRELATION},
    Routine{"CMXSETSCOPE", "0 top or 1 bottom, [value]", call_CMXSETSCOPE},
    Routine{"CMXSHARED", "[shared]",
            [](Session& s, Arguments& a) { return CMXSHARED(s, a.optional_logical(0)); }},
    Routine{"DAYSAWAY", "date", [](Session& s, Arguments& a) { return DAYSAWAY(s, a.date(0)); }},
    Routine{"DBSKIPPER", "count",
            [](Session& s, Arguments& a) { return DBSKIPPER(s, a.whole(0)); }},
    Routine{"DTOW", "date", [](Arguments& a) { return DTOW(a.date(0)); }},
    Routine{"ERRBEEP", "[message], [title], [beep]",
            [](Session& s, Arguments& a) {
                return ERRBEEP(s.ui, a.text(0, ""), a.text(1, ""), a.logical(2, true));
            }},
    Routine{"EVETIME2AP", "minutes text", [](Arguments& a) { return EVETIME2AP(a.text(0)); }},
    Routine{
        "FIL_LOCK", "[seconds]",
        [](Session& s, Arguments& a) { return FIL_LOCK(s, a.number(0, kDefaultRetrySeconds)); }},
    Routine{"GETSERVERTYPE", "folder",
            [](Session& s, Arguments& a) { return GETSERVERTYPE(s, a.text(0)); }},
    Routine{"GET_EXCLUSIVE", "", [](Session& s) { return GET_EXCLUSIVE(s); }},
    Routine{"HOURSTEXT", "[hours]",
            [](Session& s, Arguments& a) {
                return HOURSTEXT(s, a.given(0) ? std::optional(a.number_form(0)) : std::nullopt);
            }},
    Routine{"LASTFIRST", "[width], [work area or record object]", call_LASTFIRST},
    Routine{"MAKEDATE", "month, day, year, [clamp]",
            [](Arguments& a) {
                return MAKEDATE(a.whole(0), a.whole(1), a.whole(2), a.logical(3, false));
            }},
    Routine{"MIN2AMPM", "minutes", [](Arguments& a) { return MIN2AMPM(a.number_form(0)); }},
    Routine{"MYSTUFF", "text, start, count, insert",
            [](Arguments& a) { return MYSTUFF(a.text(0), a.size(1), a.size(2), a.text(3)); }},
    Routine{"NET_USE", "file, [exclusive], [seconds], [alias], [new work area], [attach index]",
            [](Session& s, Arguments& a) { return NET_USE(s, a.text(0), net_use_options(a)); }},
    Routine{"NEXTBDAY", "date", [](Session& s, Arguments& a) { return NEXTBDAY(s, a.date(0)); }},
    Routine{"NEXTUID",
            "identifier (ref), [record locked], [counter locked], [record object], [work area]",
            call_NEXTUID},
    Routine{"RDDINIT", "", [](Session& s) { RDDINIT(s); }},
    Routine{
        "REC_LOCK", "[seconds]",
        [](Session& s, Arguments& a) { return REC_LOCK(s, a.number(0, kDefaultRetrySeconds)); }},
    Routine{"REC_UNLOCK", "", [](Session& s) { REC_UNLOCK(s); }},
    Routine{"RESTDBF", "saved state, [ignored]",
            [](Session& s, Arguments& a) { return RESTDBF(s, a.value(0), a.logical(1, false)); }},
    Routine{"RLOPTLEVEL", "", [](Session& s) { return RLOPTLEVEL(s); }},
    Routine{"RSADD", "[identifier], [table code], [work area], [stamp], [commit]", call_RSADD},
    Routine{"RSADS2N", "base-62 text", [](Arguments& a) { return RSADS2N(a.text(0)); }},
    Routine{"RSALPHA2N", "base-26 text", [](Arguments& a) { return RSALPHA2N(a.text(0)); }},
    Routine{"RSDEL",
            "[identifier], [work area], [code area], [remove], [table code], [stamp], "
            "[workstation], [quiet]",
            call_RSDEL},
    Routine{"RSDT", "date, [seconds]",
            [](Session&, Arguments& a) { return RSDT(a.date(0), a.optional_number(1)); }},
    Routine{"RSDTOF", "table code, identifier, field number, [changer (ref)]", call_RSDTOF},
    Routine{"RSLOCK", "", [](Session& s) { return RSLOCK(s); }},
    Routine{"RSN2ADS", "number, [digits]",
            [](Arguments& a) { return RSN2ADS(a.whole(0), digits(a)); }},
    Routine{"RSN2ALPHA", "number, [digits]",
            [](Arguments& a) { return RSN2ALPHA(a.whole(0), digits(a)); }},
    Routine{"RSNOW", "", [](Session& s) { return RSNOW(s); }},
    Routine{"RSSET",
            "[field number], [value], [stamp], [identifier], [values], [work area], [code area], "
            "[workstation], [force]",
            call_RSSET},
    Routine{"RSSETBASEDATE", "", [](Session& s) { RSSETBASEDATE(s); }},
    Routine{"RSUNLOCK", "", [](Session& s) { return RSUNLOCK(s); }},
    Routine{"SAMELAXSYS", "", [](Session& s) { return SAMELAXSYS(s); }},
    Routine{"SAVEDBF", "", [](Session& s) { return SAVEDBF(s); }},
    Routine{"SCATGAT", "[buffer], [stamp]", call_SCATGAT},
    Routine{"SECOND ADD_REC", "[seconds]",
            [](Session& s, Arguments& a) {
                return second_variant::ADD_REC(s, a.number(0, kDefaultRetrySeconds));
            }},
    Routine{"SECOND CLEARFILTER", "", [](Session& s) { second_variant::CLEARFILTER(s); }},
    Routine{"SECOND NET_USE",
            "file, [exclusive], [seconds], [alias], [new work area], [attach index]",
            [](Session& s, Arguments& a) {
                return second_variant::NET_USE(s, a.text(0), net_use_options(a));
            }},
    Routine{"SETFILTER", "filter text",
            [](Session& s, Arguments& a) { SETFILTER(s, a.text(0, "")); }},
    Routine{"SLEEP", "[seconds]",
            [](Session& s, Arguments& a) { SLEEP(s.clock, a.number(0, kDefaultSleepSeconds)); }},
    Routine{"STR2A", "text", [](Session& s, Arguments& a) { return STR2A(s.ui, a.text(0, "")); }},
    Routine{"TIME2MIN", "12-hour text", [](Arguments& a) { return TIME2MIN(a.text(0)); }},
    Routine{"XTOC", "value", [](Arguments& a) { return XTOC(a.value(0)); }},
};

static_assert(std::ranges::is_sorted(kRoutines, {}, &Routine::name));

}  // namespace

std::span<const Routine> library_routines() { return kRoutines; }

}  // namespace brenik::tools
