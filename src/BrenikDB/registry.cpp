// The table of operations, and the adapter from its common signature to each operation's
// parameters.

#include "BrenikDB/registry.h"

#include <algorithm>
#include <limits>
#include <tuple>
#include <type_traits>
#include <utility>

#include "BrenikDB/add.h"
#include "BrenikDB/edit.h"
#include "BrenikDB/lookup.h"
#include "BrenikDB/notify.h"
#include "BrenikDB/start_up.h"
#include "util/runtime.h"

namespace brenik {

namespace {

using Arguments = std::span<Value>;

// Clamps a number to the parameter's range. A number outside it names no table or record, and
// neither does the limit that replaces it.
template <class Content>
Content content(const Value& value) {
    if constexpr (std::is_same_v<Content, Value>) {
        return value;
    } else if constexpr (std::is_same_v<Content, std::string>) {
        return value.text();
    } else if constexpr (std::is_same_v<Content, bool>) {
        return value.logical();
    } else {
        using Limits = std::numeric_limits<Content>;
        return static_cast<Content>(
            std::clamp<std::int64_t>(value.whole(), Limits::min(), Limits::max()));
    }
}

Value argument(Arguments arguments, std::size_t index) {
    return index < arguments.size() ? arguments[index] : Value();
}

template <class Parameter, class Content>
void hand_back(Arguments arguments, std::size_t index, Content& content) {
    if constexpr (std::is_same_v<Parameter, std::string&>) {
        if (index < arguments.size()) arguments[index] = std::move(content);
    }
}

// Runs an operation on its arguments. A text parameter by reference replaces its argument.
template <class... Parameters, std::size_t... index>
Value run(int (*operation)(Session&, Parameters...), Session& session,
          [[maybe_unused]] Arguments arguments, std::index_sequence<index...>) {
    [[maybe_unused]] std::tuple<std::remove_cvref_t<Parameters>...> contents{
        content<std::remove_cvref_t<Parameters>>(argument(arguments, index))...};
    const WorkAreas::HostCall call(session.areas);
    const int code = operation(session, std::get<index>(contents)...);
    (hand_back<Parameters>(arguments, index, std::get<index>(contents)), ...);
    return code;
}

template <class... Parameters>
constexpr auto places_of(int (*)(Session&, Parameters...)) {
    return std::index_sequence_for<Parameters...>();
}

template <auto operation>
Value run(Session& session, Arguments arguments) {
    return run(operation, session, arguments, places_of(operation));
}

// Answers for user-interface facilities of the practice program that this library does not offer.
Value no_facility(Session&, Arguments) { return {}; }

// The exports' operations come first, because a look-up searches the table from the top.
constexpr NamedOperation kOperations[] = {
    {"StartUp", "data folder, trace", run<StartUp>},
    {"ShutDown", "", run<ShutDown>},
    {"AddedRec", "table, record number", run<AddedRec>},
    {"DeletedRec", "table, record number", run<DeletedRec>},
    {"AddStart", "table, number", run<AddStart>},
    {"AddEnd", "table, identifier (ref)", run<AddEnd>},
    {"EditStart", "table, identifier, number", run<EditStart>},
    {"EditBegin", "table, record number, number", run<EditBegin>},
    {"SetField", "table, record number, field name, text", run<SetField>},
    {"EditEnd", "table, record number", run<EditEnd>},
    {"GetMyFirm", "text (ref)", run<GetMyFirm>},
    {"GetU_ID", "table, key, identifier (ref)", run<GetU_ID>},
    {"TMENU", "", no_facility},
    {"TMENUITEM", "", no_facility},
    {"TBAR", "", no_facility},
    {"TCOMBOBOX", "", no_facility},
    {"TMULTIGET", "", no_facility},
    {"TMDIFRAME", "", no_facility},
    {"TMDICHILD", "", no_facility},
    {"TRADIO", "", no_facility},
    {"TRADMENU", "", no_facility},
    {"TMETAFILE", "", no_facility},
    {"BATISRUNNING", "", no_facility},
    {"RUNTHEBAT", "", no_facility},
    {"RPREVIEW", "", no_facility},
};

}  // namespace

std::span<const NamedOperation> operations() { return kOperations; }

Operation find_operation(std::string_view name) {
    const auto* found = std::ranges::find_if(kOperations, [&](const NamedOperation& each) {
        return equal_ignoring_case(each.name, name);
    });
    return found != std::end(kOperations) ? found->run : nullptr;
}

}  // namespace brenik
