// Runs the tables of probes, one after the other.

#include "engine/probes/probes.h"

#include <algorithm>
#include <array>

#include "engine/probes/bench.h"
#include "platform/calling_convention.h"

namespace brenik::probes {
namespace {

constexpr std::string_view kConvention = "convention";
constexpr std::string_view kConventionExpected =
    "Functions remove their arguments from the stack, as those of Windows do.";

std::array<std::span<const Probe>, 5> tables() {
    return {opening_probes(), position_probes(), locking_probes(), order_probes(), value_probes()};
}

using Words = std::vector<std::uintptr_t>;

std::uintptr_t word(const void* pointer) { return reinterpret_cast<std::uintptr_t>(pointer); }

// Calls one function each with 1, 3, 6 and 9 arguments, in a way that survives either convention.
// The handles are invalid, so the calls do nothing.
Answer convention(const ClientLibrary& client) {
    constexpr std::uintptr_t kNoHandle = 0x7FFFFFF0;
    const char text[] = "X";
    std::array<unsigned char, 64> place{};
    const auto function = [&](const char* name) { return client.file().find(name); };
    struct Call {
        platform::DynamicLibrary::Function function;
        Words words;
    };
    const Call calls[] = {
        {function("AdsShowDeleted"), {1}},
        {function("AdsGetRecordCount"), {kNoHandle, 2, word(place.data())}},
        {function("AdsSeek"), {kNoHandle, word(text), 1, 2, 1, word(place.data())}},
        {function("AdsOpenTable"),
         {kNoHandle, word(text), word(text), 2, 1, 0, 1, 4, word(place.data())}},
    };
    bool as_expected = true;
    std::string seen = "bytes of arguments removed:";
    for (const Call& call : calls) {
        const std::size_t given = call.words.size() * sizeof(std::uintptr_t);
        const auto removed = platform::bytes_removed(call.function, call.words);
        if (!removed) return told(true, "a process of this system has only one convention");
        as_expected = as_expected && *removed == given;
        seen += " " + std::to_string(*removed) + " of " + std::to_string(given) + ",";
    }
    seen.pop_back();
    return told(as_expected, seen);
}

bool answers(const ClientLibrary& library, const std::string& folder, U16 server_type) {
    Handle connection = 0;
    if (library.AdsSetServerType(server_type) != 0) return false;
    if (library.AdsConnect60(folder.c_str(), server_type, nullptr, nullptr, 0, &connection) != 0) {
        return false;
    }
    library.AdsDisconnect(connection);
    return true;
}

// Makes the bench with the first probe, and again with the next if its connections are refused.
Answer run_one(std::unique_ptr<Bench>& bench, const std::function<std::unique_ptr<Bench>()>& make,
               const Probe& probe) {
    try {
        if (!bench) bench = make();
        bench->begin(probe.records, probe.text);
        return probe.run(*bench);
    } catch (const Stopped& reason) {
        return unknown(reason.what());
    }
}

void run_all(const ClientLibrary& library, const std::string& folder, U16 server_type,
             const Report& report) {
    std::unique_ptr<Bench> bench;
    const auto make = [&] { return std::make_unique<Bench>(library, folder, server_type); };
    for (const auto table : tables()) {
        for (const Probe& probe : table) {
            const Answer answer = run_one(bench, make, probe);
            report({server_type, probe.name, probe.expected, answer.verdict, answer.seen});
        }
    }
}

}  // namespace

bool can_be_called(const ClientLibrary& library) {
    return convention(library).verdict != Verdict::kRefuted;
}

bool run(const ClientLibrary& library, const std::string& folder, const Report& report) {
    const Answer by = convention(library);
    report({0, kConvention, kConventionExpected, by.verdict, by.seen});
    if (by.verdict == Verdict::kRefuted) return false;
    bool one_answers = false;
    for (const U16 server_type : {advantage::kLocalServer, advantage::kRemoteServer}) {
        if (!answers(library, folder, server_type)) continue;
        one_answers = true;
        run_all(library, folder, server_type, report);
    }
    return one_answers;
}

}  // namespace brenik::probes
