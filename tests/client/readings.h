// The readings of the client library's documentation: every point that it leaves open, one row
// each.
//
// A row has a name, its values with the default first, and the question that it answers. A test
// chooses a value by name; the code asks for one with reads("name=value"), which does not compile
// if the table has no such name or value.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace brenik::stand_in {

struct Reading {
    std::string_view name;
    std::string_view values;  // separated by blanks
    std::string_view question;
};

inline constexpr Reading kReadings[] = {
    {"alias_duplicate", "refused accepted", "May two tables have one alias?"},
    {"already_open", "fills empty", "Does opening an open index file give its handles?"},
    {"aof", "taken refused", "Does the library take a filter expression?"},
    {"aof_level", "full part none", "How much of a filter do the indexes answer?"},
    {"append_lock", "stays goes goes_anyway",
     "Does writing an appended record unlock it? Even after an explicit lock?"},
    {"bof", "parks stays", "Does a skip before the first record lead to record 0?"},
    {"candidate", "plain unique", "Does a candidate index count as unique?"},
    {"cancel_append", "deleted blank", "Does a cancelled append leave a deleted record?"},
    {"date_format", "any separated", "May a date format have no separators?"},
    {"deleted_polarity", "shown hidden", "What does 1 mean in the answer of AdsGetDeleted?"},
    {"empty_date", "blank separators", "What is the text of the empty date?"},
    {"empty_logical", "blank false", "What is an emptied logical?"},
    {"empty_number", "blank zero", "What is an emptied number?"},
    {"empty_seek", "next top none", "Where does a seek of an empty key lead?"},
    {"empty_top", "both eof", "Is BOF set, too, when nothing is visible?"},
    {"fail_after", "0 1", "Does a call that is made to fail do its work first?"},
    {"goto_outside", "error eof", "What does a go-to past the last record do?"},
    {"goto_same", "cached fetched", "Does a go-to of the current record read it again?"},
    {"handle_width", "pointer four", "How many bytes does a function write as a handle?"},
    {"held_status", "7008 7040", "The status for a table that others hold."},
    {"index_filename", "full base", "Does AdsGetIndexFilename give a path?"},
    {"key_num_not_in_order", "zero error", "The key number of a record without a key."},
    {"last_error", "kept cleared", "Does a success clear the last error?"},
    {"lock_failed", "5035 7009", "The status of a refused lock."},
    {"lock_refresh", "none fetches", "Does a lock read the current record again?"},
    {"lock_wait", "none turn", "Does a refused lock wait some milliseconds?"},
    {"long_text", "refused cut", "What becomes of text that is wider than its field?"},
    {"memo_binary", "accepted refused", "May a text memo be read and written as binary data?"},
    {"memo_zero", "kept cut", "Does a zero byte end a memo's text?"},
    {"missing_status", "7041 5004", "The status for a table that does not exist."},
    {"number_text", "right trimmed", "Is a number's text padded to its width?"},
    {"numbers", "listed others", "Are the statuses that nobody confirmed as recalled?"},
    {"oem_fields", "converted raw", "Is the text of OEM tables converted?"},
    {"oem_raw_key", "raw converted", "Are raw keys of OEM tables converted?"},
    {"open_position", "top none", "Has a table that was just opened a current record?"},
    {"refresh_locked", "nothing fetches", "Does a refresh of a locked record read it?"},
    {"seek_last_empty", "last none", "Where does a backward seek of an empty key lead?"},
    {"server_loaded", "yes_no types fails", "What does AdsIsServerLoaded answer?"},
    {"set_record", "accepted refused", "May a whole record be set?"},
    {"skip_zero", "flush refresh", "Does a skip by 0 read the record again?"},
    {"soft_past_end", "eof last", "Where does a soft seek past every key lead?"},
    {"table_lock_refused", "drops keeps", "Does a refused table lock cost the record locks?"},
    {"table_type", "checked ignored", "Must the type named at an open be the file's?"},
    {"top_bof", "clear set", "Does AdsGotoTop set BOF?"},
    {"write_sends", "fields record", "Is a changed record written field by field or whole?"},
};
inline constexpr std::size_t kReadingCount = std::size(kReadings);

// The value with this number, from 0; empty when there are fewer.
constexpr std::string_view value_of(const Reading& reading, std::size_t number) {
    std::string_view rest = reading.values;
    for (; number > 0 && !rest.empty(); --number) {
        const std::size_t blank = rest.find(' ');
        rest = blank == std::string_view::npos ? std::string_view() : rest.substr(blank + 1);
    }
    return rest.substr(0, rest.find(' '));
}

// A row of the table and one of its values, by their numbers; not known if the table has no such.
struct Choice {
    std::size_t reading = kReadingCount;
    std::size_t value = 0;
    constexpr bool known() const { return reading < kReadingCount; }
};

// The choice that "name=value" names.
constexpr Choice find_choice(std::string_view text) {
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos) return {};
    for (std::size_t row = 0; row < kReadingCount; ++row) {
        if (kReadings[row].name != text.substr(0, equals)) continue;
        for (std::size_t value = 0; !value_of(kReadings[row], value).empty(); ++value) {
            if (value_of(kReadings[row], value) == text.substr(equals + 1)) return {row, value};
        }
    }
    return {};
}

// The number of the value that was chosen for each reading.
extern std::array<std::size_t, kReadingCount> chosen_values;

struct KnownChoice {
    consteval KnownChoice(const char* text) : choice(find_choice(text)) {
        if (!choice.known()) throw "no such reading or value";
    }
    const Choice choice;
};
inline bool reads(KnownChoice one) { return chosen_values[one.choice.reading] == one.choice.value; }

// The chosen value of a reading whose values are numbers.
std::uint32_t status_read(std::string_view name);

}  // namespace brenik::stand_in
