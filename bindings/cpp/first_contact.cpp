// Adds a contact with a matter, looks the contact up, and prints what the change journal says.
//
//     first_contact PRACTICE [LIBRARY [BRENIK]]
//
// LIBRARY is the path of the library, BRENIK that of the companion tool. Without them the system
// searches for both.

#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>

#include "brenikdb.hpp"

using brenikdb::kMatters;
using brenikdb::kNames;

namespace {

constexpr int kNewRecord = 0;  // in set_field: the record that is being added

std::string add_contact(brenikdb::Session& session) {
    session.add_start(kNames);
    session.set_field(kNames, kNewRecord, "ID", "MULLER");
    session.set_field(kNames, kNewRecord, "LAST", "Müller");
    session.set_field(kNames, kNewRecord, "FIRST", "Zoë");
    return session.add_end(kNames);
}

std::string add_matter(brenikdb::Session& session, const std::string& contact) {
    session.add_start(kMatters);
    session.set_field(kMatters, kNewRecord, "CASENUM", "2026-MULLER-1");
    session.set_field(kMatters, kNewRecord, "MATTER", "Müller v. Okafor");
    return session.add_end(kMatters, contact);  // links the matter to the contact
}

void work(const std::string& practice, const std::string& library) {
    brenikdb::Session session(practice, false, library);
    const std::string contact = add_contact(session);
    std::cout << "contact " << contact << '\n';
    std::cout << "matter " << add_matter(session, contact) << '\n';
    std::cout << "found " << session.get_u_id(kNames, "muller") << std::endl;
}

#ifdef _WIN32
// The tool beside the program.
std::string usual_tool(const std::string& program) {
    return program.substr(0, program.find_last_of("\\/") + 1) + "brenik.exe";
}
#else
std::string usual_tool(const std::string& /*program*/) { return "brenik"; }
#endif

bool print_journal(const std::string& tool, const std::string& practice) {
    std::string command = "\"" + tool + "\" journal \"" + practice + "\" --limit 3";
#ifdef _WIN32
    command = '"' + command + '"';  // the command interpreter drops the first and the last quote
#endif
    return std::system(command.c_str()) == 0;
}

}  // namespace

// On Windows the arguments must be ASCII here: the session takes UTF-8, and main() gets ANSI text.
int main(int argc, char** argv) {
    if (argc < 2 || argc > 4) {
        std::cerr << "usage: first_contact PRACTICE [LIBRARY [BRENIK]]\n";
        return 2;
    }
    const std::string practice = argv[1];
    try {
        work(practice, argc > 2 ? argv[2] : "");
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
    return print_journal(argc > 3 ? argv[3] : usual_tool(argv[0]), practice) ? 0 : 1;
}
