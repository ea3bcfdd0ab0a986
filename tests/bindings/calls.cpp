// Calls every function through the C++ binding and prints what each gives, as calls.py does.

#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>

#include "brenikdb.hpp"

using namespace brenikdb;

static void show(const std::function<std::string()>& work) {
    try {
        std::cout << work() << '\n';
    } catch (const BrenikError& error) {
        std::cout << error.function() << ' ' << error.code() << ' ' << error.identifier()
                  << error.reason() << '\n';
    } catch (const std::exception&) {
        std::cout << "refused\n";
    }
}

int main(int, char** argv) {
    Session session(argv[1], true, argv[2], static_cast<unsigned>(std::stoi(argv[3])));
    const auto call = [](const auto& work) { show([&] { return work(), "done"; }); };
    const auto firm = [&] {
        const auto items = session.get_my_firm();
        return std::to_string(items.size()) + " items, " + items[14] + ", " + items[17];
    };
    const auto move = [&](const char* city) {
        session.edit_start(kNames, session.get_u_id(kNames, "firm"));
        session.set_field(kNames, 0, "CITY", city);
        session.edit_end(kNames);
        return firm();
    };
    const auto add_code = [&] {
        session.add_start(kCodes);
        session.set_field(kCodes, 0, "CODE", "Mediation");
        return session.add_end(kCodes);
    };

    std::ofstream(std::getenv("BRENIK_FAULTS"), std::ios::app) << "time\tcall\tan older reason\n";
    call([&] { Session(argv[1], false, argv[2]); });
    show([&] { return move("Dunmöre"); });
    show([&] { return move("東京"); });
    show(add_code);
    show(add_code);
    show([&] { return session.add_end(kMatters, "A1"); });
    show([&] { return session.get_u_id(kMatters, "nowhere"); });
    call([&] { session.edit_begin(kEvents, 17); });
    call([&] { session.set_field(kEvents, 17, "DETAIL", std::string("a\0b", 3)); });
    call([&] { session.set_field(kEvents, 17, "DETAIL", "a\x80"); });  // no UTF-8
    call([&] { session.set_field(kEvents, 17, "DETAILS", "Moved"); });
    call([&] { session.edit_end(kEvents, 17); });
    call([&] { session.added_record(kNames, 2); });
    call([&] { session.deleted_record(kNames, 1); });
    call([&] { session.shut_down(); });
    show(firm);
    call([&] { session.shut_down(); });
}
