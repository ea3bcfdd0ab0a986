// The tables of a practice: each one's work area, alias and file.
//
// The number of a table's work area is also its number for hosts, its code in the journal, and the
// n of its identifier counter, field U_ID<n> of the system table.

#pragma once

#include <array>
#include <string>

namespace brenik::practice {

struct TableEntry {
    int area;
    const char* alias;
    const char* file;  // without its extension
};

// persistent: hosts and the journal use these numbers, other programs these files.
inline constexpr TableEntry kNames{1, "Names", "LAW1"};
inline constexpr TableEntry kEvents{2, "Events", "LAW2"};
inline constexpr TableEntry kMatters{3, "Matters", "LAW3"};
inline constexpr TableEntry kNewerNotes{4, "NAMENOTE", "LAW1Note"};
inline constexpr TableEntry kNotes{4, "NAMENOTE", "LAWNotes"};
inline constexpr TableEntry kSystem{5, "LAWSYS", "LAWSYS"};
inline constexpr TableEntry kCodes{7, "LAWCODES", "LAWCodes"};
inline constexpr TableEntry kCrossReferences{9, "XREF", "LAW9"};
inline constexpr TableEntry kJournal{20, "TRANS", "LawTrans"};

// A second work area for the notes. It shares the counter of the first.
inline constexpr int kSecondNotesArea = 16;

// All tables. Area 4 has two possible files: the library opens the one that V14 selects, the tool
// the first that exists.
inline constexpr std::array kTables{kNames,  kEvents, kMatters,         kNewerNotes, kNotes,
                                    kSystem, kCodes,  kCrossReferences, kJournal};

// persistent: fields of these tables that the library and the tool both name.
inline constexpr const char* kIdentifierField = "U_ID";  // of every table but the system table
inline constexpr const char* kPrefixField = "MYUDN";     // these four: of the system table
inline constexpr const char* kTracksField = "TRACKSYNC";
inline constexpr const char* kNewerNotesField = "V14";  // its type says which notes are in use
inline constexpr const char* kLastStampField = "TLASTDELTA";

// persistent: the settings of a practice, and keys of its section Main that the library and the
// tool both read.
inline constexpr const char* kSettingsFile = "LAWSYS.INI";
inline constexpr const char* kMainSection = "Main";
inline constexpr const char* kEngineSetting = "Engine";
inline constexpr const char* kServerTypeSetting = "nServerType";
inline constexpr const char* kLockTypeSetting = "LockType";

inline std::string counter_field(int area) { return kIdentifierField + std::to_string(area); }

}  // namespace brenik::practice
