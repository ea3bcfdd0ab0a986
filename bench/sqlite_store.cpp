// Statements of the store in SQLite.

#include "sqlite_store.h"

#include "practice/catalogue.h"
#include "practice/identifiers.h"
#include "practice/journal_entry.h"
#include "tables.h"
#include "util/runtime.h"

namespace brenik::bench {
namespace {

constexpr int kBusyTimeout_ms = 5000;
constexpr int kContacts = 1;

// The sample's orders, in its words for SQLite.
constexpr const char* kIndexes =
    "CREATE INDEX c_u_id ON contacts(u_id);"
    "CREATE INDEX c_id ON contacts(upper(id));"
    "CREATE INDEX c_name ON contacts(upper(last || first));"
    "CREATE INDEX c_city ON contacts(upper(city)) WHERE deleted = 0;"
    "CREATE INDEX c_balance ON contacts(balance);"
    "CREATE INDEX c_entry ON contacts(entry DESC);";
constexpr const char* kOtherTables =
    "CREATE TABLE counters(prefix TEXT, contacts INTEGER);"
    "CREATE TABLE journal(kind TEXT, code TEXT, u_id TEXT, stamp BLOB, data BLOB);"
    "CREATE INDEX j_entry ON journal(code || u_id || kind);"
    "CREATE INDEX j_added ON journal(stamp, code, u_id) WHERE kind = 'A';"
    "CREATE INDEX j_edited ON journal(stamp, code, u_id) WHERE kind = 'E';"
    "CREATE INDEX j_removed ON journal(stamp, code, u_id) WHERE kind = 'D';";

void check(int code, sqlite3* database) {
    if (code == SQLITE_OK) return;
    give_up("SQLite: " + std::string(sqlite3_errmsg(database)));
}

void execute(sqlite3* database, const std::string& text) {
    check(sqlite3_exec(database, text.c_str(), nullptr, nullptr, nullptr), database);
}

std::string quoted(const std::string& name) { return '"' + name + '"'; }

const char* column_type(ValueKind kind) {
    if (kind == ValueKind::kNumber) return " REAL";
    return kind == ValueKind::kLogical ? " INTEGER" : " TEXT";
}

std::string insertion(const std::vector<std::string>& columns) {
    std::string names, places;
    for (const std::string& column : columns) {
        names += (names.empty() ? "" : ",") + column;
        places += places.empty() ? "?" : ",?";
    }
    return "INSERT INTO contacts(" + names + ") VALUES(" + places + ")";
}

std::string insertion_of_added() {
    const auto& columns = SqliteStore::kAddedColumns;
    return insertion({std::begin(columns), std::end(columns)});
}

// Blank text as NULL, and trailing blanks left out.
void bind_value(Statement& statement, int parameter, const Value& value) {
    switch (value.kind()) {
        case ValueKind::kNil:
            statement.bind_null(parameter);
            break;
        case ValueKind::kLogical:
            statement.bind(parameter, std::int64_t{value.logical()});
            break;
        case ValueKind::kNumber:
            statement.bind(parameter, value.number());
            break;
        case ValueKind::kDate:
            statement.bind(parameter, value.date().to_ymd());
            break;
        default: {
            const std::string_view text = trim_right(value.text());
            text.empty() ? statement.bind_null(parameter) : statement.bind(parameter, text);
        }
    }
}

void copy_contacts(Table& contacts, sqlite3* database) {
    std::string definition = "CREATE TABLE contacts(";
    std::vector<std::string> columns;
    for (const FieldDescription& field : contacts.fields()) {
        columns.push_back(quoted(field.name));
        definition += columns.back() + column_type(field.value) + ",";
    }
    columns.emplace_back("deleted");
    execute(database, definition + "deleted INTEGER DEFAULT 0)");
    Statement insert(database, insertion(columns));
    control(contacts, "");
    for (contacts.go_top(); !contacts.end_of_file(); contacts.skip(1)) {
        const auto last = static_cast<int>(contacts.fields().size());
        for (int i = 1; i <= last; ++i) {
            bind_value(insert, i, contacts.field_get(static_cast<std::size_t>(i)));
        }
        insert.bind(last + 1, std::int64_t{contacts.deleted()});
        insert.run();
    }
}

}  // namespace

Statement::Statement(sqlite3* database, const std::string& text) {
    sqlite3_stmt* statement = nullptr;
    check(sqlite3_prepare_v3(database, text.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &statement,
                             nullptr),
          database);
    statement_.reset(statement);
}

Statement& Statement::bind(int parameter, std::string_view text) {
    sqlite3_bind_text(statement_.get(), parameter, text.data(), static_cast<int>(text.size()),
                      SQLITE_TRANSIENT);
    return *this;
}

Statement& Statement::bind(int parameter, double number) {
    sqlite3_bind_double(statement_.get(), parameter, number);
    return *this;
}

Statement& Statement::bind(int parameter, std::int64_t number) {
    sqlite3_bind_int64(statement_.get(), parameter, number);
    return *this;
}

Statement& Statement::bind_null(int parameter) {
    sqlite3_bind_null(statement_.get(), parameter);
    return *this;
}

std::vector<std::string> Statement::names(int first, int end) const {
    std::vector<std::string> names;
    for (int column = first; column < end; ++column) {
        names.push_back(quoted(sqlite3_column_name(statement_.get(), column)));
    }
    return names;
}

bool Statement::step() {
    const int code = sqlite3_step(statement_.get());
    if (code == SQLITE_ROW || code == SQLITE_DONE) return code == SQLITE_ROW;
    sqlite3_reset(statement_.get());
    if (code == SQLITE_BUSY) throw StoreBusy{};
    check(code, sqlite3_db_handle(statement_.get()));
    return false;
}

bool Statement::run() {
    const bool row = step();
    reset();
    return row;
}

std::string_view Statement::text(int column) const {
    const unsigned char* bytes = sqlite3_column_text(statement_.get(), column);
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column));
    return bytes == nullptr ? std::string_view() : std::string_view(as_text({bytes, size}));
}

SqliteStore::Connection SqliteStore::connect(const std::filesystem::path& database) {
    sqlite3* opened = nullptr;
    const int code = sqlite3_open(database.c_str(), &opened);
    Connection connection(opened);
    check(code, opened);
    sqlite3_busy_timeout(opened, kBusyTimeout_ms);
    execute(opened, "PRAGMA journal_mode = WAL; PRAGMA synchronous = OFF");
    return connection;
}

void SqliteStore::make(const std::filesystem::path& practice,
                       const std::filesystem::path& database) {
    const Connection connection = connect(database);
    const auto engine = new_engine();
    const auto contacts = open_table(*engine, practice / practice::kNames.file);
    const auto system = open_table(*engine, practice / practice::kSystem.file);
    execute(connection.get(), "BEGIN");
    copy_contacts(*contacts, connection.get());
    execute(connection.get(), kIndexes);
    execute(connection.get(), kOtherTables);
    const std::string counter = practice::counter_field(kContacts);
    Statement(connection.get(), "INSERT INTO counters VALUES(?, ?)")
        .bind(1, system->field_get(position_of(*system, practice::kPrefixField)).text())
        .bind(2, system->field_get(position_of(*system, counter)).number())
        .run();
    execute(connection.get(), "COMMIT; PRAGMA wal_checkpoint(TRUNCATE)");
}

SqliteStore::SqliteStore(const std::filesystem::path& database)
    : connection_(connect(database)),
      begin_(connection_.get(), "BEGIN IMMEDIATE"),
      commit_(connection_.get(), "COMMIT"),
      counter_(connection_.get(), "SELECT prefix, contacts + 1 FROM counters"),
      raise_(connection_.get(), "UPDATE counters SET contacts = contacts + 1"),
      read_(connection_.get(), "SELECT rowid, * FROM contacts WHERE u_id = ?"),
      insert_(connection_.get(), insertion_of_added()),
      insert_all_(connection_.get(), insertion(read_.names(1, read_.columns() - 1))),
      note_(connection_.get(), "INSERT INTO journal VALUES(?, ?, ?, ?, ?)"),
      noted_(connection_.get(), "SELECT rowid FROM journal WHERE code || u_id || kind = ?"),
      note_again_(connection_.get(), "UPDATE journal SET stamp = ?, data = ? WHERE rowid = ?"),
      edit_last_(connection_.get(), "UPDATE contacts SET last = ? WHERE rowid = ?"),
      edit_plain_(connection_.get(),
                  "UPDATE contacts SET dear = ?1, dayphone = ?1 WHERE rowid = ?2"),
      seek_u_id_(connection_.get(), "SELECT last FROM contacts WHERE u_id = ?"),
      seek_name_(connection_.get(),
                 "SELECT last FROM contacts WHERE upper(last || first) >= ? "
                 "ORDER BY upper(last || first) LIMIT 1"),
      seek_id_(connection_.get(), "SELECT u_id FROM contacts WHERE upper(id) = ?"),
      by_name_(connection_.get(), "SELECT last FROM contacts ORDER BY upper(last || first)"),
      in_file_(connection_.get(), "SELECT last FROM contacts"),
      fields_(static_cast<std::size_t>(read_.columns()) - 2) {}  // without rowid and deleted

// Only the begin waits for other writers. After it no step can be refused.
template <typename Change>
void SqliteStore::in_transaction(Change change) {
    begin_.run();
    change();
    commit_.run();
}

void SqliteStore::add(const std::vector<std::string>& values) {
    int column = 0;
    for (const std::string& value : values) insert_.bind(++column, value);
    insert_.run();
}

// Calls `insert` with the new identifier.
template <typename Insert>
void SqliteStore::add_noted(Insert insert) {
    in_transaction([&] {
        expect(counter_.step(), "the store has no counter");
        const std::string u_id =
            practice::identifier_of(std::string(counter_.text(0)), counter_.number(1));
        counter_.reset();
        raise_.run();
        insert(u_id);
        note(practice::kAddition, u_id, {});
    });
}

void SqliteStore::add_whole(const std::vector<std::string>& values) {
    add_noted([&](const std::string& u_id) {
        std::vector<std::string> identified = values;
        identified.front() = u_id;
        add(identified);
    });
}

void SqliteStore::add_complete(const Contact& contact) {
    add_noted([&](const std::string& u_id) {
        int column = 0;
        for (const Value& value : contact) bind_value(insert_all_, ++column, value);
        insert_all_.bind(1, u_id);  // as in the table, the identifier comes first
        insert_all_.run();
    });
}

std::int64_t SqliteStore::read_contact(std::string_view u_id) {
    std::int64_t row = 0;
    if (read_.bind(1, u_id).step()) {
        row = read_.number(0);
        for (int column = 1; column < read_.columns(); ++column) {
            static_cast<void>(read_.text(column));
        }
    }
    read_.reset();
    return row;
}

void SqliteStore::edit(std::int64_t row, Column column, std::string_view value) {
    Statement& statement = column == Column::kLast ? edit_last_ : edit_plain_;
    statement.bind(1, value).bind(2, row).run();
}

void SqliteStore::edit_whole(std::int64_t row, std::string_view u_id, Column column,
                             std::string_view value) {
    in_transaction([&] {
        edit(row, column, value);
        note(practice::kEdit, u_id, std::string(fields_ * practice::kSlotSize, '\0'));
    });
}

// Changes the entry of the same kind for the same contact, or adds one. An addition has none yet.
void SqliteStore::note(std::string_view kind, std::string_view u_id, std::string_view data) {
    constexpr double kSecondsBetween = 0.01;
    const std::string code = practice::table_code_of(kContacts);
    const std::string stamp =
        practice::RSDT(Date::from_civil(2026, 1, 2), kSecondsBetween * ++changes_);
    const std::string key = code + std::string(u_id) + std::string(kind);
    if (kind != practice::kAddition && noted_.bind(1, key).step()) {
        const std::int64_t row = noted_.number(0);
        noted_.reset();
        note_again_.bind(1, stamp).bind(2, data).bind(3, row).run();
        return;
    }
    noted_.reset();
    note_.bind(1, kind).bind(2, code).bind(3, u_id).bind(4, stamp).bind(5, data).run();
}

void SqliteStore::seek_u_id(std::string_view u_id) {
    if (seek_u_id_.bind(1, u_id).step()) static_cast<void>(seek_u_id_.text(0));
    seek_u_id_.reset();
}

void SqliteStore::seek_name(std::string_view prefix) {
    if (seek_name_.bind(1, prefix).step()) static_cast<void>(seek_name_.text(0));
    seek_name_.reset();
}

void SqliteStore::seek_id(std::string_view id) {
    expect(seek_id_.bind(1, id).step(), "a contact is missing in the store");
    static_cast<void>(seek_id_.text(0));
    seek_id_.reset();
}

void SqliteStore::step(Statement& walk) {
    if (walk.step()) {
        static_cast<void>(walk.text(0));
    } else {
        walk.reset();
    }
}

void SqliteStore::rebuild_indexes() { execute(connection_.get(), "REINDEX contacts"); }

std::int64_t SqliteStore::count() {
    Statement all(connection_.get(), "SELECT count(*) FROM contacts");
    expect(all.step(), "the store cannot count");
    return all.number(0);
}

std::vector<std::string> SqliteStore::texts_of(const char* column) {
    std::vector<std::string> texts;
    Statement all(connection_.get(),
                  "SELECT " + std::string(column) + " FROM contacts WHERE deleted = 0");
    while (all.step()) texts.emplace_back(all.text(0));
    return texts;
}

}  // namespace brenik::bench
