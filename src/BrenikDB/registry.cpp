// The table of operations, and the way from its one shape to each operation's own arguments.

#include "BrenikDB/registry.h"

#include <algorithm>
#include <array>
#include <limits>

#include "BrenikDB/add.h"
#include "BrenikDB/edit.h"
#include "BrenikDB/lookup.h"
#include "BrenikDB/notify.h"
#include "BrenikDB/start_up.h"
#include "util/runtime.h"

namespace brenik {

namespace {

using Arguments = std::span<Value>;

Value argument(Arguments arguments, std::size_t index) {
    return index < arguments.size() ? arguments[index] : Value();
}

std::string text(Arguments arguments, std::size_t index) {
    return argument(arguments, index).text();
}

// Numbers beyond an int name no table either.
int table_number(Arguments arguments) {
    using Limits = std::numeric_limits<int>;
    return static_cast<int>(
        std::clamp<std::int64_t>(argument(arguments, 0).whole(), Limits::min(), Limits::max()));
}

std::int64_t record_number(Arguments arguments) { return argument(arguments, 1).whole(); }

// Runs `call` on a text that it may replace, and puts the text back into the argument.
template <class Call>
int with_text_by_reference(Arguments arguments, std::size_t index, Call call) {
    std::string content = text(arguments, index);
    const int code = call(content);
    if (index < arguments.size()) arguments[index] = content;
    return code;
}

Value call_AddEnd(Session& session, Arguments a) {
    return with_text_by_reference(a, 1, [&](std::string& identifier) {
        return AddEnd(session, table_number(a), identifier);
    });
}

Value call_AddStart(Session& session, Arguments a) { return AddStart(session, table_number(a)); }

Value call_AddedRec(Session& session, Arguments a) {
    return AddedRec(session, table_number(a), record_number(a));
}

Value call_DeletedRec(Session& session, Arguments a) {
    return DeletedRec(session, table_number(a), record_number(a));
}

Value call_EditBegin(Session& session, Arguments a) {
    return EditBegin(session, table_number(a), record_number(a));
}

Value call_EditEnd(Session& session, Arguments a) {
    return EditEnd(session, table_number(a), record_number(a));
}

Value call_EditStart(Session& session, Arguments a) {
    return EditStart(session, table_number(a), argument(a, 1));
}

Value call_GetMyFirm(Session& session, Arguments a) {
    return with_text_by_reference(a, 0,
                                  [&](std::string& firm) { return GetMyFirm(session, firm); });
}

Value call_GetU_ID(Session& session, Arguments a) {
    return with_text_by_reference(a, 2, [&](std::string& identifier) {
        return GetU_ID(session, table_number(a), text(a, 1), identifier);
    });
}

Value call_SetField(Session& session, Arguments a) {
    return SetField(session, table_number(a), record_number(a), text(a, 2), text(a, 3));
}

Value call_ShutDown(Session& session, Arguments) { return ShutDown(session); }

Value call_StartUp(Session& session, Arguments a) {
    return StartUp(session, text(a, 0), argument(a, 1).logical());
}

// Stands in for user-interface facilities of the practice program that this library does not offer.
Value no_facility(Session&, Arguments) { return {}; }

struct Entry {
    std::string_view name;  // upper case
    Operation operation;
};

constexpr std::array kOperations{
    Entry{"ADDEDREC", call_AddedRec},     Entry{"ADDEND", call_AddEnd},
    Entry{"ADDSTART", call_AddStart},     Entry{"BATISRUNNING", no_facility},
    Entry{"DELETEDREC", call_DeletedRec}, Entry{"EDITBEGIN", call_EditBegin},
    Entry{"EDITEND", call_EditEnd},       Entry{"EDITSTART", call_EditStart},
    Entry{"GETMYFIRM", call_GetMyFirm},   Entry{"GETU_ID", call_GetU_ID},
    Entry{"RPREVIEW", no_facility},       Entry{"RUNTHEBAT", no_facility},
    Entry{"SETFIELD", call_SetField},     Entry{"SHUTDOWN", call_ShutDown},
    Entry{"STARTUP", call_StartUp},       Entry{"TBAR", no_facility},
    Entry{"TCOMBOBOX", no_facility},      Entry{"TMDICHILD", no_facility},
    Entry{"TMDIFRAME", no_facility},      Entry{"TMENU", no_facility},
    Entry{"TMENUITEM", no_facility},      Entry{"TMETAFILE", no_facility},
    Entry{"TMULTIGET", no_facility},      Entry{"TRADIO", no_facility},
    Entry{"TRADMENU", no_facility},
};

static_assert(std::ranges::is_sorted(kOperations, {}, &Entry::name));

}  // namespace

Operation find_operation(std::string_view name) {
    const std::string wanted = upper(name);
    const auto found = std::ranges::lower_bound(kOperations, wanted, {}, &Entry::name);
    return found != kOperations.end() && found->name == wanted ? found->operation : nullptr;
}

}  // namespace brenik
