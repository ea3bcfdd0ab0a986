// The peer's operations, under the names of the library's that do the same.

#include <memory>
#include <utility>

#include "contact_examples.h"
#include "practice/catalogue.h"
#include "random.h"
#include "sqlite_store.h"
#include "tables.h"
#include "workload.h"

namespace brenik::bench {
namespace {

using Column = SqliteStore::Column;

class SqliteWorkload : public Workload {
  public:
    SqliteWorkload(const std::filesystem::path& database, ContactExamples examples)
        : store_(database),
          examples_(std::move(examples)),
          ids_(store_.texts_of("id")),
          u_ids_(store_.texts_of("u_id")) {
        rows_ = u_ids_.size();
        random_.shuffle(u_ids_);
    }

    std::vector<Operation> operations() override {
        return {{"seek-id", [this] { store_.seek_id(any(ids_)); }},
                {"edit-start", [this] { static_cast<void>(store_.read_contact(any(u_ids_))); }},
                {"edit-end", [this] { edit(Column::kPlain); }},
                {"edit-key", [this] { edit(Column::kLast); }},
                {"add-end", [this] { store_.add_whole(contact()); }},
                {"append", [this] { store_.add(contact()); }},
                {"append-whole", [this] { store_.add_complete(examples_.next(random_)); }},
                {"put", [this] { put(Column::kPlain); }},
                {"put-key", [this] { put(Column::kLast); }},
                {"seek-uid", [this] { store_.seek_u_id(any(u_ids_)); }},
                {"seek-name", [this] { store_.seek_name(random_.letters(2)); }},
                {"walk", [this] { steps([this] { store_.step_by_name(); }); }, kSteps},
                {"scan", [this] { steps([this] { store_.step_in_file(); }); }, kSteps}};
    }

  private:
    const std::string& any(const std::vector<std::string>& texts) {
        return texts[random_.below(texts.size())];
    }

    // In turn, as the library's workload does.
    void edit(Column column) {
        const std::string& u_id = u_ids_[edits_++ % u_ids_.size()];
        store_.edit_whole(store_.read_contact(u_id), u_id, column, random_.letters(8));
    }

    void put(Column column) {
        store_.edit(static_cast<std::int64_t>(random_.below(rows_) + 1), column,
                    random_.letters(8));
    }

    std::vector<std::string> contact() {
        std::vector<std::string> values(std::size(SqliteStore::kAddedColumns));
        for (std::string& value : values) value = random_.letters(7);
        return values;
    }

    template <typename Step>
    static void steps(Step step) {
        for (std::size_t i = 0; i < kSteps; ++i) step();
    }

    SqliteStore store_;
    ContactExamples examples_;
    std::vector<std::string> ids_;
    std::vector<std::string> u_ids_;  // shuffled
    std::size_t rows_ = 0;            // at the start
    std::size_t edits_ = 0;
    Random random_;
};

}  // namespace

std::unique_ptr<Workload> sqlite_workload(const std::filesystem::path& database,
                                          const std::filesystem::path& practice) {
    const auto engine = new_engine();
    const auto contacts = open_table(*engine, practice / practice::kNames.file);
    return std::make_unique<SqliteWorkload>(database, ContactExamples(*contacts));
}

}  // namespace brenik::bench
