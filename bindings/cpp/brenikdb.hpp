// BrenikDB from C++17: add and change records in a practice's shared database.
//
//     brenikdb::Session session("/srv/practice");
//     session.add_start(brenikdb::kNames);
//     session.set_field(brenikdb::kNames, 0, "LAST", "Okafor");
//     std::cout << session.add_end(brenikdb::kNames);
//
// Session is what programs use. It loads the library at run time, converts texts between UTF-8 and
// the practice's code page, and throws BrenikError for every code except success. Below it lies
// Library, the twelve functions themselves. This header needs brenikdb.h, the standard library and
// the system: dlopen and iconv, or Windows.

#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "brenikdb.h"

#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#else
#include <dlfcn.h>
#include <iconv.h>
#include <pwd.h>
#include <unistd.h>
#endif

namespace brenikdb {

// What the functions return.
enum Code : BrenikCode {
    kSuccess = BRENIK_SUCCESS,
    kDataFilesMissing = BRENIK_DATA_FILES_MISSING,
    kIndexFilesMissing = BRENIK_INDEX_FILES_MISSING,
    kSystemTableNotOpened = BRENIK_SYSTEM_TABLE_NOT_OPENED,
    kTableNotOpened = BRENIK_TABLE_NOT_OPENED,
    kBadTable = BRENIK_BAD_TABLE,
    kBadRecord = BRENIK_BAD_RECORD,
    kUnknownField = BRENIK_UNKNOWN_FIELD,
    kAdditionNotStamped = BRENIK_ADDITION_NOT_STAMPED,
    kEditNotStamped = BRENIK_EDIT_NOT_STAMPED,
    kDeletionNotStamped = BRENIK_DELETION_NOT_STAMPED,
    kNotRegistered = BRENIK_NOT_REGISTERED,
    kLockRefused = BRENIK_LOCK_REFUSED,
    kNotCurrent = BRENIK_NOT_CURRENT,
    kFault = BRENIK_FAULT,
    kAlreadyShutDown = BRENIK_ALREADY_SHUT_DOWN,
    kIdentifierNotFound = BRENIK_IDENTIFIER_NOT_FOUND,
    kAppendFailed = BRENIK_APPEND_FAILED,
    kDuplicateCode = BRENIK_DUPLICATE_CODE,
    kKeyNotFound = BRENIK_KEY_NOT_FOUND
};

// The tables that a host selects.
enum Table : int {
    kNames = 1,
    kEvents = 2,
    kMatters = 3,
    kNotes = 4,
    kCodes = 7,
    kCrossReferences = 9,
    kJournal = 20
};

// Bytes. The library writes a NUL one byte past the text that GetU_ID and GetMyFirm give back.
inline constexpr std::size_t kIdentifierLength = 7;
inline constexpr std::size_t kAddEndBuffer = 8;
inline constexpr std::size_t kGetU_IDBuffer = 9;
inline constexpr std::size_t kFirmLength = 1000;
inline constexpr std::size_t kFirmBuffer = 1002;

// What a code means and what to do about it.
inline std::string text_of(BrenikCode code) {
    static constexpr std::pair<Code, const char*> kTexts[] = {
        {kSuccess, "Done."},
        {kDataFilesMissing, "LAWSYS.DBF or LAW1.DBF is not in the data folder: check the path."},
        {kIndexFilesMissing, "LAW1.CDX or LAW2.CDX is missing: rebuild the practice's indexes."},
        {kSystemTableNotOpened,
         "The system table cannot be opened. One of its files is missing, not permitted, held by "
         "another program or damaged; the fault file says which and why (\"brenik faults\" prints "
         "it)."},
        {kTableNotOpened,
         "Another table cannot be opened, for one of the same reasons. From BrenikAddEnd: the "
         "matter was added, without its link."},
        {kBadTable, "The table number is out of range or its table is not open: correct the call."},
        {kBadRecord,
         "No such record, not the current one, not deleted, or no Start before: correct the call."},
        {kUnknownField, "The table has no field of that name; the other fields are unaffected."},
        {kAdditionNotStamped,
         "The addition could not be noted in the change journal: report it again later."},
        {kEditNotStamped, "The edit could not be written or noted: try BrenikEditEnd again."},
        {kDeletionNotStamped,
         "The deletion could not be noted in the change journal: report it again later."},
        {kNotRegistered, "This build of the library lacks the operation: replace the library."},
        {kLockRefused, "Another workstation holds the record: try BrenikEditEnd again later."},
        {kNotCurrent,
         "The table is not the one that the Start selected: start the transaction again."},
        {kFault,
         "A fault such as a damaged file or a full disk stopped the call; the fault file has one "
         "line with the reason. The session stays usable and holds no lock. Start the transaction "
         "again once the cause is removed. The child of a fork gets this code from every call "
         "until BrenikInitialize starts a session there."},
        {kAlreadyShutDown, "The session is already shut down: nothing to do."},
        {kIdentifierNotFound,
         "No record has that identifier. From BrenikAddEnd: the matter was added, without its "
         "link."},
        {kAppendFailed,
         "The record could not be appended, because another workstation kept a lock: try again; "
         "for a matter, pass the contact's identifier again. If a matter's identifier is "
         "returned, the matter was added and only its link is missing."},
        {kDuplicateCode, "The code already exists; its identifier is returned."},
        {kKeyNotFound, "No record has that key, or the key is blank."}};
    for (const auto& each : kTexts) {
        if (each.first == code) return each.second;
    }
    return "This code is unknown: use the binding of the same release.";
}

// A function of the library returned another code than success.
class BrenikError : public std::runtime_error {
  public:
    BrenikError(const char* function, BrenikCode code, std::string identifier, std::string reason)
        : std::runtime_error(std::string(function) + ": " + std::to_string(code) + ": " +
                             text_of(code) + (reason.empty() ? "" : " (" + reason + ")")),
          function_(function),
          code_(code),
          identifier_(std::move(identifier)),
          reason_(std::move(reason)) {}

    // The function's name, such as "BrenikAddEnd".
    [[nodiscard]] const char* function() const { return function_; }

    // One of Code; compare it with these.
    [[nodiscard]] BrenikCode code() const { return code_; }

    // From add_end: the identifier of the existing code after kDuplicateCode; after
    // kTableNotOpened, kIdentifierNotFound and kAppendFailed that of the matter that was added
    // without its link. Else empty.
    [[nodiscard]] const std::string& identifier() const { return identifier_; }

    // The library's reason from the fault file; may be empty.
    [[nodiscard]] const std::string& reason() const { return reason_; }

  private:
    const char* function_;
    BrenikCode code_;
    std::string identifier_;
    std::string reason_;
};

// The parts that differ between systems, and the conversion of texts. Hosts do not use them.
namespace detail {

#ifdef _WIN32
inline constexpr const char* kLibraryName = "BrenikDB.dll";

inline std::wstring wide(UINT page, DWORD flags, std::string_view text) {
    const int size = static_cast<int>(text.size());
    const int needed = MultiByteToWideChar(page, flags, text.data(), size, nullptr, 0);
    std::wstring made(static_cast<std::size_t>(needed), L'\0');
    MultiByteToWideChar(page, flags, text.data(), size, made.data(), needed);
    return made;
}

inline std::string narrow(UINT page, DWORD flags, std::wstring_view text) {
    const int size = static_cast<int>(text.size());
    const int needed =
        WideCharToMultiByte(page, flags, text.data(), size, nullptr, 0, nullptr, nullptr);
    std::string made(static_cast<std::size_t>(needed), '\0');
    WideCharToMultiByte(page, flags, text.data(), size, made.data(), needed, nullptr, nullptr);
    return made;
}

inline std::filesystem::path native_path(const std::string& utf8) { return wide(CP_UTF8, 0, utf8); }

inline std::filesystem::path variable(const wchar_t* name) {
    const DWORD size = GetEnvironmentVariableW(name, nullptr, 0);
    std::wstring value(size, L'\0');
    value.resize(GetEnvironmentVariableW(name, value.data(), size));
    return value;
}

inline std::filesystem::path fault_file() {
    const std::filesystem::path chosen = variable(L"BRENIK_FAULTS");
    return !chosen.empty() ? chosen : variable(L"LOCALAPPDATA") / L"BrenikDB" / L"Faults.log";
}

inline std::string text_of_fault_file(const std::string& text) {
    return narrow(CP_UTF8, 0, wide(CP_ACP, 0, text));
}

// The library takes its path in the process's ANSI code page.
inline std::string library_path_text(const std::string& utf8) {
    const std::wstring path = wide(CP_UTF8, MB_ERR_INVALID_CHARS, utf8);
    const DWORD exactly = GetACP() == CP_UTF8 ? 0 : WC_NO_BEST_FIT_CHARS;
    std::string made = narrow(CP_ACP, exactly, path);
    if (wide(CP_ACP, 0, made) != path || path.empty() != utf8.empty()) {
        throw std::invalid_argument(
            "data_path: the ANSI code page of this process lacks a "
            "character of " +
            utf8 + ": rename the folder, or map a drive to it");
    }
    return made;
}

inline unsigned long this_process() { return GetCurrentProcessId(); }

// Converts single characters between a code page and UTF-8.
class Converter {
  public:
    explicit Converter(unsigned page) : page_(page) {}

    [[nodiscard]] bool knows_page() const { return IsValidCodePage(page_) != 0; }

    [[nodiscard]] std::string decode(std::string_view bytes) const {
        const bool is_lead = IsDBCSLeadByteEx(page_, static_cast<BYTE>(bytes[0])) != 0;
        if (is_lead != (bytes.size() == 2)) return {};
        return narrow(CP_UTF8, 0, wide(page_, MB_ERR_INVALID_CHARS, bytes));
    }

    [[nodiscard]] std::string encode(std::string_view character) const {
        return narrow(page_, WC_NO_BEST_FIT_CHARS, wide(CP_UTF8, MB_ERR_INVALID_CHARS, character));
    }

  private:
    UINT page_;
};

// A library that is loaded, and stays so.
class Handle {
  public:
    explicit Handle(const std::string& path) : handle_(LoadLibraryW(native_path(path).c_str())) {
        if (handle_ != nullptr) return;
        throw std::runtime_error(path + ": cannot be loaded (Windows error " +
                                 std::to_string(GetLastError()) + "): check the path");
    }

    using Function = void (*)();
    [[nodiscard]] Function find(const char* name) const {
        return reinterpret_cast<Function>(GetProcAddress(handle_, name));
    }

  private:
    HMODULE handle_;
};

// The full path of a library that Windows would load: beside the program, or where it searches.
// Otherwise the path as it is.
inline std::string found_library(const std::string& path) {
    std::wstring found(32768, L'\0');
    found.resize(
        SearchPathW(nullptr, native_path(path).c_str(), nullptr, 32768, found.data(), nullptr));
    return found.empty() ? path : narrow(CP_UTF8, 0, found);
}
#else
inline constexpr const char* kLibraryName = "libBrenikDB.so.0";

inline std::filesystem::path native_path(const std::string& utf8) { return utf8; }

inline std::filesystem::path fault_file() {
    const char* chosen = std::getenv("BRENIK_FAULTS");
    if (chosen != nullptr && *chosen != '\0') return chosen;
    const char* home = std::getenv("HOME");
    if (home == nullptr || *home == '\0') {
        const passwd* account = getpwuid(geteuid());
        home = account != nullptr ? account->pw_dir : "";
    }
    return std::filesystem::path(home) / ".brenik" / "Faults.log";
}

inline std::string text_of_fault_file(const std::string& text) { return text; }

inline std::string library_path_text(const std::string& path) { return path; }

inline unsigned long this_process() { return static_cast<unsigned long>(getpid()); }

// Converts single characters between a code page and UTF-8.
class Converter {
  public:
    explicit Converter(unsigned page)
        : decoder_(iconv_open("UTF-8", name_of(page).c_str())),
          encoder_(iconv_open(name_of(page).c_str(), "UTF-8")) {}
    ~Converter() {
        if (decoder_ != none()) iconv_close(decoder_);
        if (encoder_ != none()) iconv_close(encoder_);
    }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    [[nodiscard]] bool knows_page() const { return decoder_ != none() && encoder_ != none(); }
    [[nodiscard]] std::string decode(std::string_view bytes) const {
        return converted(decoder_, bytes);
    }
    [[nodiscard]] std::string encode(std::string_view character) const {
        return converted(encoder_, character);
    }

  private:
    static iconv_t none() { return reinterpret_cast<iconv_t>(-1); }

    static std::string name_of(unsigned page) {
        switch (page) {
            case 10000:
                return "MACINTOSH";
            case 10006:
                return "MACGREEK";
            case 10007:
                return "MACCYRILLIC";
            case 10029:
                return "MAC-CENTRALEUROPE";
            default:
                return "CP" + std::to_string(page);
        }
    }

    // Empty if the text has no form on the other side.
    static std::string converted(iconv_t converter, std::string_view text) {
        std::string from(text);
        std::array<char, 16> to{};
        char* next = from.data();
        char* end = to.data();
        std::size_t left = from.size();
        std::size_t room = to.size();
        iconv(converter, nullptr, nullptr, nullptr, nullptr);
        const bool exact = iconv(converter, &next, &left, &end, &room) == 0;
        iconv(converter, nullptr, nullptr, &end, &room);  // gives out what it has kept back
        return exact ? std::string(to.data(), end) : std::string();
    }

    iconv_t decoder_;
    iconv_t encoder_;
};

// A library that is loaded, and stays so.
class Handle {
  public:
    explicit Handle(const std::string& path)
        : handle_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
        if (handle_ == nullptr) throw std::runtime_error(dlerror());
    }

    using Function = void (*)();
    [[nodiscard]] Function find(const char* name) const {
        return reinterpret_cast<Function>(dlsym(handle_, name));
    }

  private:
    void* handle_;
};

inline std::string found_library(const std::string& path) { return path; }
#endif

// Throws if the file is no library of this system, or its bits are not the process's. Loading says
// why a file cannot be opened.
inline void compare_bits(const std::string& path) {
    std::array<unsigned char, 4096> head{};
    std::ifstream file(native_path(path), std::ios::binary);
    if (!file) return;
    file.read(reinterpret_cast<char*>(head.data()), head.size());
    int bits = 0;
#ifdef _WIN32
    const std::size_t header = head[0x3C] | static_cast<std::size_t>(head[0x3D]) << 8;
    if (head[0] == 'M' && head[1] == 'Z' && header + 6 <= head.size() && head[header] == 'P') {
        const int machine = head[header + 4] | head[header + 5] << 8;
        bits = machine == 0x014C ? 32 : machine == 0x8664 || machine == 0xAA64 ? 64 : 0;
    }
#else
    if (head[0] == 0x7F && head[1] == 'E' && head[2] == 'L' && head[3] == 'F') {
        bits = head[4] == 1 ? 32 : head[4] == 2 ? 64 : 0;
    }
#endif
    constexpr int kOwn = static_cast<int>(sizeof(void*)) * 8;
    if (bits == 0) {
        throw std::runtime_error(path + ": is no library for this system: name " + kLibraryName);
    }
    if (bits != kOwn) {
        const std::string own = std::to_string(kOwn);
        throw std::runtime_error(path + ": the library has " + std::to_string(bits) +
                                 " bits, this program has " + own + ": use the " + own +
                                 "-bit library or a " + std::to_string(bits) + "-bit program");
    }
}

// The number of the code page that each mark in a table's header stands for.
struct MarkedPage {
    std::uint8_t mark;
    unsigned page;
};
inline constexpr MarkedPage kCodePages[] = {
    {0x01, 437},  {0x02, 850},  {0x03, 1252},  {0x04, 10000}, {0x64, 852},
    {0x65, 866},  {0x66, 865},  {0x67, 861},   {0x6A, 737},   {0x6B, 857},
    {0x78, 950},  {0x79, 949},  {0x7A, 936},   {0x7B, 932},   {0x7C, 874},
    {0x7D, 1255}, {0x7E, 1256}, {0x96, 10007}, {0x97, 10029}, {0x98, 10006},
    {0xC8, 1250}, {0xC9, 1251}, {0xCA, 1254},  {0xCB, 1253},  {0xCC, 1257}};
inline constexpr unsigned kUnmarkedPage = 1252;
inline constexpr std::size_t kPlaceOfMark = 29;

inline bool is_law1(const std::filesystem::path& name_of_file) {
    std::string name;
    for (const auto c : name_of_file.native()) {
        const bool is_small = c >= 'a' && c <= 'z';
        name += c > 0 && c <= 'z' ? static_cast<char>(is_small ? c - 'a' + 'A' : c) : '?';
    }
    return name == "LAW1.DBF";
}

inline std::string without_last_blanks(std::string text) {
    return text.erase(text.find_last_not_of(' ') + 1);
}

inline std::string hexadecimal(std::uint8_t byte) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    return {kDigits[byte >> 4], kDigits[byte & 15]};
}

inline unsigned page_of_mark(std::uint8_t mark) {
    if (mark == 0) return kUnmarkedPage;
    for (const MarkedPage& each : kCodePages) {
        if (each.mark == mark) return each.page;
    }
    throw std::invalid_argument("the code page mark 0x" + hexadecimal(mark) +
                                " of LAW1.DBF stands for no known page: pass code_page");
}

// The number of the code page that the practice's contacts are marked with; nothing if they cannot
// be read.
inline std::optional<unsigned> marked_page(const std::string& data_path) {
    std::string folder = without_last_blanks(data_path);  // as the library reads the path
    folder.erase(0, folder.find_first_not_of(' '));
    std::error_code failed;
    std::filesystem::directory_iterator entry(native_path(folder.empty() ? "." : folder), failed);
    for (; !failed && entry != std::filesystem::directory_iterator(); entry.increment(failed)) {
        if (!is_law1(entry->path().filename())) continue;
        std::ifstream table(entry->path(), std::ios::binary);
        std::array<char, kPlaceOfMark + 1> header{};
        if (!table.read(header.data(), header.size())) return std::nullopt;
        return page_of_mark(static_cast<std::uint8_t>(header[kPlaceOfMark]));
    }
    return std::nullopt;
}

// Converts texts between UTF-8 and a code page.
class CodePage {
  public:
    explicit CodePage(unsigned page) : page_(page), converter_(page) {
        if (!converter_.knows_page()) {
            throw std::invalid_argument("code_page: this system does not know code page " +
                                        std::to_string(page) + ": pass another one");
        }
    }

    // Throws if the text has a NUL or a character that the page lacks; `what` names the text.
    [[nodiscard]] std::string encoded(std::string_view text, std::string_view what) const {
        if (text.find('\0') != std::string_view::npos) {
            throw std::invalid_argument(std::string(what) +
                                        ": the text has a NUL, at which the "
                                        "library would cut it: remove it");
        }
        std::string made;
        while (!text.empty()) {
            const std::string_view character = text.substr(0, length_of_character(text));
            const std::string bytes =
                is_ascii(text[0]) ? text[0] + std::string() : converter_.encode(character);
            // Reading it back rules out a similar character in place of a missing one.
            if (bytes.empty() || (!is_ascii(text[0]) && decoded(bytes) != character)) {
                throw std::invalid_argument(
                    std::string(what) + ": code page " + std::to_string(page_) +
                    " of the practice lacks the character '" + std::string(character) +
                    "', or the text is not UTF-8: replace it");
            }
            made += bytes;
            text.remove_prefix(character.size());
        }
        return made;
    }

    // A byte that the page leaves undefined becomes \xHH.
    [[nodiscard]] std::string decoded(std::string_view bytes) const {
        std::string made;
        while (!bytes.empty()) {
            std::size_t used = 1;
            std::string character(bytes.substr(0, 1));
            if (!is_ascii(bytes[0])) character = converter_.decode(character);
            if (character.empty() && bytes.size() > 1) {
                character = converter_.decode(bytes.substr(0, 2));
                used = character.empty() ? 1 : 2;
            }
            made += is_defined(character)
                        ? character
                        : "\\x" + hexadecimal(static_cast<std::uint8_t>(bytes[0]));
            bytes.remove_prefix(is_defined(character) ? used : 1);
        }
        return made;
    }

  private:
    static bool is_ascii(char c) { return static_cast<unsigned char>(c) < 0x80; }

    // In UTF-8, at most four bytes; those after the first begin with the bits 10.
    static std::size_t length_of_character(std::string_view text) {
        if (is_ascii(text[0])) return 1;
        std::size_t length = 1;
        while (length < std::min<std::size_t>(4, text.size()) &&
               (static_cast<unsigned char>(text[length]) >> 6) == 2) {
            ++length;
        }
        return length;
    }

    // Some systems turn undefined bytes into control characters (U+0080 to U+009F) or into the
    // private use area (U+E000 to U+F8FF).
    static bool is_defined(const std::string& character) {
        if (character.empty()) return false;
        const auto first = static_cast<unsigned char>(character[0]);
        const auto second = static_cast<unsigned char>(character.size() > 1 ? character[1] : 0);
        const bool is_control = first == 0xC2 && second < 0xA0;
        const bool is_private = first == 0xEE || (first == 0xEF && second < 0xA4);
        return !is_control && !is_private;
    }

    unsigned page_;
    Converter converter_;
};

// Reads the reasons that the library writes to the user's fault file. Nothing here can fail a call.
class Reasons {
  public:
    Reasons() : path_(fault_file()) { begin_call(); }

    // Older lines belong to other calls.
    void begin_call() { before_call_ = size(); }

    // The last reason that was added during the call.
    [[nodiscard]] std::string of_call(BrenikCode code) const {
        if (!has_reason(code)) return {};
        const std::uintmax_t end = size();
        const std::uintmax_t begin = before_call_ <= end ? before_call_ : 0;  // or it began anew
        // The type of std::min is named because windows.h may have defined a macro min().
        std::string added(
            static_cast<std::size_t>(std::min<std::uintmax_t>(end - begin, kMostBytes)), '\0');
        std::ifstream file(path_, std::ios::binary);
        file.seekg(static_cast<std::streamoff>(end - added.size()));
        file.read(added.data(), static_cast<std::streamsize>(added.size()));
        std::istringstream lines(added);
        std::string line;
        std::string last;
        while (std::getline(lines, line)) {
            const std::size_t tab = line.find('\t');
            const std::size_t second = tab == std::string::npos ? tab : line.find('\t', tab + 1);
            if (second != std::string::npos) last = line.substr(second + 1);
        }
        if (!last.empty() && last.back() == '\r') last.pop_back();
        return text_of_fault_file(last);
    }

  private:
    static bool has_reason(BrenikCode code) {
        return (code >= kDataFilesMissing && code <= kTableNotOpened) ||
               (code >= kAdditionNotStamped && code <= kDeletionNotStamped) || code == kFault;
    }

    // Far more than the reason of one call needs, whatever the file may be.
    static constexpr std::uintmax_t kMostBytes = 64 * 1024;

    [[nodiscard]] std::uintmax_t size() const {
        std::error_code failed;
        const std::uintmax_t bytes = std::filesystem::file_size(path_, failed);
        return failed ? 0 : bytes;
    }

    std::filesystem::path path_;
    std::uintmax_t before_call_ = 0;
};

}  // namespace detail

// The twelve functions, loaded from a library. Their types are those of brenikdb.h.
//   path  the path of the library in UTF-8; empty: BrenikDB.dll beside the program, else where the
//         system searches; on Linux libBrenikDB.so.0 where the system searches
// Throws std::runtime_error if the library is missing, is no library of this system, has another
// number of bits than the program, or lacks a function. The bits are compared before it is loaded,
// if its place is known. It stays loaded.
class Library {
  public:
    explicit Library(const std::string& path) : path_(checked(path)), handle_(path_) {}

  private:
    // Converts to a pointer of the type that the declaration asks for.
    struct Symbol {
        detail::Handle::Function address;
        template <class Function>
        operator Function() const {
            return reinterpret_cast<Function>(address);
        }
    };

    static std::string checked(const std::string& path) {
        std::string found = detail::found_library(path.empty() ? detail::kLibraryName : path);
        if (found.find_first_of("/\\") != std::string::npos) detail::compare_bits(found);
        return found;
    }

    [[nodiscard]] Symbol symbol(const char* name) const {
        const detail::Handle::Function address = handle_.find(name);
        if (address != nullptr) return {address};
        throw std::runtime_error(path_ + ": has no function " + name +
                                 ": name the library BrenikDB");
    }

    std::string path_;
    detail::Handle handle_;

  public:
    decltype(&::BrenikInitialize) BrenikInitialize = symbol("BrenikInitialize");
    decltype(&::BrenikShutDown) BrenikShutDown = symbol("BrenikShutDown");
    decltype(&::BrenikAddedRecord) BrenikAddedRecord = symbol("BrenikAddedRecord");
    decltype(&::BrenikDeletedRecord) BrenikDeletedRecord = symbol("BrenikDeletedRecord");
    decltype(&::BrenikAddStart) BrenikAddStart = symbol("BrenikAddStart");
    decltype(&::BrenikAddEnd) BrenikAddEnd = symbol("BrenikAddEnd");
    decltype(&::BrenikEditStart) BrenikEditStart = symbol("BrenikEditStart");
    decltype(&::BrenikEditBegin) BrenikEditBegin = symbol("BrenikEditBegin");
    decltype(&::BrenikSetField) BrenikSetField = symbol("BrenikSetField");
    decltype(&::BrenikEditEnd) BrenikEditEnd = symbol("BrenikEditEnd");
    decltype(&::BrenikGetMyFirm) BrenikGetMyFirm = symbol("BrenikGetMyFirm");
    decltype(&::BrenikGetU_ID) BrenikGetU_ID = symbol("BrenikGetU_ID");
};

// A practice that is open. The destructor shuts it down.
//
// All texts are UTF-8. A text with a NUL, or with a character that the practice's code page lacks,
// throws std::invalid_argument, and nothing is called. In texts that come back, a byte that the
// page leaves undefined becomes \xHH.
//
// Every function can also throw BrenikError with kFault and kNotRegistered. After shut_down() every
// function throws kAlreadyShutDown. The library serves one session, and one thread, at a time.
class Session {
  public:
    // Opens the practice.
    //   data_path  its folder; blank for the current one. On Windows it must fit the ANSI code page
    //   trace      writes every call to Trace.Log in the folder
    //   library    see Library
    //   code_page  the number of the practice's code page, such as 850; 0: the page that LAW1.DBF
    //              is marked with, or 1252 if it has no mark
    // kDataFilesMissing, kIndexFilesMissing, kSystemTableNotOpened, kTableNotOpened. Also throws
    // std::runtime_error if the library cannot be loaded or the mark cannot be read,
    // std::invalid_argument if a path or page does not suit, and std::logic_error if the process
    // has an open session.
    explicit Session(const std::string& data_path, bool trace = false,
                     const std::string& library = {}, unsigned code_page = 0)
        : library_(when_none_is_open(library)),
          marked_page_(code_page != 0 ? code_page : detail::marked_page(data_path)),
          page_(marked_page_.value_or(detail::kUnmarkedPage)) {
        if (data_path.find('\0') != std::string::npos) {
            throw std::invalid_argument("data_path: the path has a NUL: remove it");
        }
        const std::string path = detail::library_path_text(data_path);
        const BrenikCode code = library_.BrenikInitialize(path.c_str(), trace ? 1 : 0, 0);
        if (code != kSuccess) {
            const std::string reason = reasons_.of_call(code);
            library_.BrenikShutDown();
            throw BrenikError("BrenikInitialize", code, {}, reason);
        }
        if (!marked_page_) {
            library_.BrenikShutDown();
            throw std::runtime_error(data_path +
                                     ": the code page cannot be read from LAW1.DBF: "
                                     "spell the folder as the system does, or pass code_page");
        }
        is_open_ = true;
        process_ = detail::this_process();
    }

    ~Session() {
        if (is_open_) close();
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Closes every table and releases every lock. kAlreadyShutDown.
    void shut_down() { require("BrenikShutDown", is_open_ ? close() : kAlreadyShutDown); }

    // Notes in the change journal that the host itself has appended a record, and makes that record
    // current. kBadTable, kBadRecord (no such record), kAdditionNotStamped (it has no identifier,
    // or the journal is locked).
    void added_record(int table, int record) {
        require("BrenikAddedRecord", call(library_.BrenikAddedRecord, table, record));
    }

    // Notes in the change journal that the host itself has marked a record deleted, and makes that
    // record current. kBadTable, kBadRecord (no such record, or it is not deleted),
    // kDeletionNotStamped.
    void deleted_record(int table, int record) {
        require("BrenikDeletedRecord", call(library_.BrenikDeletedRecord, table, record));
    }

    // Starts a new record with empty fields. A second Start replaces the first. kBadTable.
    void add_start(int table) {
        int number = 0;
        require("BrenikAddStart", call(library_.BrenikAddStart, table, &number));
    }

    // Appends the new record and returns its identifier.
    //   contact  for a matter: the identifier of the contact to link it to; empty for none
    // kNotCurrent, kAppendFailed, kDuplicateCode (table 7), and for a matter kIdentifierNotFound
    // and kTableNotOpened. BrenikError::identifier() tells which record exists in spite of the
    // error: do not add a matter again that is named there.
    std::string add_end(int table, const std::string& contact = {}) {
        const std::string given = page_.encoded(contact, "contact");
        if (!given.empty() && given.size() != kIdentifierLength) {
            throw std::invalid_argument("contact: '" + contact +
                                        "' is no identifier: pass the 7 characters that add_end() "
                                        "or get_u_id() returned, or none");
        }
        std::array<char, kAddEndBuffer> buffer{};
        given.copy(buffer.data(), kIdentifierLength);
        const BrenikCode code = call(library_.BrenikAddEnd, table, buffer.data());
        std::string identifier = detail::without_last_blanks(page_.decoded(buffer.data()));
        const bool exists = code == kDuplicateCode || code == kTableNotOpened ||
                            code == kIdentifierNotFound || code == kAppendFailed;
        require("BrenikAddEnd", code, exists ? identifier : "");
        return identifier;
    }

    // Starts an edit of the record with an identifier, or of the first one whose identifier begins
    // with the text. The record's number is not known then: pass record 0 to set_field() and
    // edit_end(), and call nothing else in between. kBadTable, kIdentifierNotFound.
    void edit_start(int table, const std::string& identifier) {
        int number = 0;
        const std::string given = page_.encoded(identifier, "identifier");
        require("BrenikEditStart", call(library_.BrenikEditStart, table, given.c_str(), &number));
    }

    // Starts an edit of a record by its number; the record may be deleted. kBadTable, kBadRecord.
    void edit_begin(int table, int record) {
        int number = 0;
        require("BrenikEditBegin", call(library_.BrenikEditBegin, table, record, &number));
    }

    // Sets one field of the transaction; the library converts the text to the field's type.
    //   record  the record of the transaction; 0 for the current one, and for a new record
    //   text    a number with a decimal point, a date as MM/DD/YYYY or YYYYMMDD, "Y", "T" or "1"
    //           for true. Text that does not convert becomes 0, the empty date or false, without an
    //           error
    // kNotCurrent, kBadRecord, kUnknownField.
    void set_field(int table, int record, const std::string& field, const std::string& text) {
        const std::string name = page_.encoded(field, "field");
        const std::string value = page_.encoded(text, field);
        require("BrenikSetField",
                call(library_.BrenikSetField, table, record, name.c_str(), value.c_str()));
    }

    // Writes the edited record under a lock, and notes in the change journal which fields changed.
    // The whole record is written, as it was at the Start and with the fields that were set.
    // kNotCurrent, kBadRecord, kLockRefused, kEditNotStamped. Keeps the transaction, so that the
    // call can be repeated.
    void edit_end(int table, int record = 0) {
        require("BrenikEditEnd", call(library_.BrenikEditEnd, table, record));
    }

    // The 23 items that describe the practice's own contact; empty if the practice names none.
    std::vector<std::string> get_my_firm() {
        std::array<char, kFirmBuffer> buffer{};
        std::fill_n(buffer.begin(), kFirmLength, ' ');
        require("BrenikGetMyFirm", call(library_.BrenikGetMyFirm, buffer.data()));
        // Each item ends with a bar. After the last one comes a byte that the buffer held before.
        const std::string text = page_.decoded(buffer.data());
        std::vector<std::string> items;
        std::size_t begin = 0;
        for (std::size_t end; (end = text.find('|', begin)) != std::string::npos; begin = end + 1) {
            items.push_back(text.substr(begin, end - begin));
        }
        return items;
    }

    // The identifier of the contact with an ID (table 1) or of the matter with a case number (table
    // 3). The key may be in any letter case. Makes the record current. kBadTable, kKeyNotFound.
    std::string get_u_id(int table, const std::string& key) {
        const std::string given = page_.encoded(key, "key");
        std::array<char, kGetU_IDBuffer> buffer{};
        std::fill_n(buffer.begin(), kIdentifierLength, ' ');
        require("BrenikGetU_ID", call(library_.BrenikGetU_ID, table, given.c_str(), buffer.data()));
        return detail::without_last_blanks(page_.decoded(buffer.data()));
    }

  private:
    static const std::string& when_none_is_open(const std::string& library) {
        if (process_ != detail::this_process()) return library;
        throw std::logic_error(
            "a session is open in this process: shut it down before you begin "
            "another");
    }

    template <class Function, class... Arguments>
    BrenikCode call(Function function, Arguments... arguments) {
        reasons_.begin_call();
        return is_open_ ? function(arguments...) : BrenikCode{kAlreadyShutDown};
    }

    BrenikCode close() {
        is_open_ = false;
        process_ = 0;
        reasons_.begin_call();
        return library_.BrenikShutDown();
    }

    void require(const char* function, BrenikCode code, const std::string& identifier = {}) {
        if (code == kSuccess) return;
        throw BrenikError(function, code, identifier, reasons_.of_call(code));
    }

    // The process that has an open session, or 0. The child of a fork can begin its own.
    static inline unsigned long process_ = 0;

    Library library_;
    std::optional<unsigned> marked_page_;
    detail::CodePage page_;
    detail::Reasons reasons_;
    bool is_open_ = false;
};

}  // namespace brenikdb
