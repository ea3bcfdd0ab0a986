// The practice's contacts, counter and journal in SQLite, as a host would keep them there.
//
// The same columns as the table's, with an index on the same expression for each of its orders;
// write-ahead log, no syncing, prepared statements, one transaction per change. Text is stored
// without trailing blanks, and blank fields of new records are NULL.

#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "contact_examples.h"

namespace brenik::bench {

class Statement {
  public:
    Statement(sqlite3* database, const std::string& text);

    Statement& bind(int parameter, std::string_view text);
    Statement& bind(int parameter, double number);
    Statement& bind(int parameter, std::int64_t number);
    Statement& bind_null(int parameter);
    // True for a row, false at the end. Throws StoreBusy if another connection writes for longer
    // than this one waits.
    bool step();
    // Steps once and resets; true if there was a row.
    bool run();
    void reset() { sqlite3_reset(statement_.get()); }
    std::string_view text(int column) const;
    std::int64_t number(int column) const { return sqlite3_column_int64(statement_.get(), column); }
    // The quoted names of the columns from `first` to before `end`.
    std::vector<std::string> names(int first, int end) const;
    int columns() const { return sqlite3_column_count(statement_.get()); }

  private:
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };
    std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

struct StoreBusy {};

class SqliteStore {
  public:
    // Makes the database from the practice's tables.
    static void make(const std::filesystem::path& practice, const std::filesystem::path& database);

    explicit SqliteStore(const std::filesystem::path& database);

    // Adds a contact with values for kAddedColumns.
    static constexpr const char* kAddedColumns[] = {"u_id", "id", "last", "first", "city"};
    void add(const std::vector<std::string>& values);
    // The same, with the counter's next identifier in place of the first value, and an entry in the
    // journal.
    void add_whole(const std::vector<std::string>& values);
    // Likewise with a value for every column.
    void add_complete(const Contact& contact);

    // Reads every column of a contact and returns its row; 0 if there is none.
    std::int64_t read_contact(std::string_view u_id);
    // Changes an indexed column, or two plain ones.
    enum class Column { kLast, kPlain };
    void edit(std::int64_t row, Column column, std::string_view value);
    // The same, with an entry in the journal.
    void edit_whole(std::int64_t row, std::string_view u_id, Column column, std::string_view value);

    // Each reads one column of the contact that it finds.
    void seek_u_id(std::string_view u_id);
    void seek_name(std::string_view prefix);
    void seek_id(std::string_view id);
    // A step in the order of names, or in file order; begins again at the end. A walk that has
    // begun keeps the log from being emptied, so changes come first.
    void step_by_name() { step(by_name_); }
    void step_in_file() { step(in_file_); }

    void rebuild_indexes();
    std::int64_t count();
    std::vector<std::string> texts_of(const char* column);

  private:
    struct Close {
        void operator()(sqlite3* database) const { sqlite3_close_v2(database); }
    };
    using Connection = std::unique_ptr<sqlite3, Close>;

    static Connection connect(const std::filesystem::path& database);
    template <typename Change>
    void in_transaction(Change change);
    template <typename Insert>
    void add_noted(Insert insert);
    void note(std::string_view kind, std::string_view u_id, std::string_view data);
    static void step(Statement& walk);

    Connection connection_;
    Statement begin_, commit_;
    Statement counter_, raise_, read_, insert_, insert_all_, note_, noted_, note_again_;
    Statement edit_last_, edit_plain_, seek_u_id_, seek_name_, seek_id_, by_name_, in_file_;
    std::size_t fields_;
    int changes_ = 0;
};

}  // namespace brenik::bench
