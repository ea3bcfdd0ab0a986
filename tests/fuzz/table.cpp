// A table file of any content: opened, read through, changed and added to.

#include "fuzz.h"
#include "unit/tables.h"

using namespace brenik;

namespace {

constexpr RecordNumber kMostRecords = 300;

// Reads every field. One that is put back as it is read must read the same again.
void read(Table& table, bool put_back = false) {
    table.refresh_record();
    for (std::size_t field = 1; field <= table.fields().size(); ++field) {
        fuzz::allow_faults([&] {
            const Value value = table.field_get(field);
            if (!put_back) return;
            table.field_put(field, value);
            fuzz::require(table.field_get(field).exactly_equals(value) ||
                          value.kind() == ValueKind::kNumber || !value.is_text());
        });
    }
}

void use(const std::string& path) {
    local::LocalEngine engine;
    const auto table = fake::open(engine, path);
    if (!table) return;
    const RecordNumber count = std::min(table->record_count(), kMostRecords);
    for (RecordNumber record = 1; record <= count; ++record) {
        table->go_to(record);
        read(*table);
    }
    for (const RecordNumber record : {RecordNumber{1}, count}) {
        fuzz::allow_faults([&] {
            table->go_to(record);
            if (table->end_of_file() || !table->lock_record(record)) return;
            read(*table, true);
            table->unlock_all();
        });
    }
    if (table->append_blank(true)) {
        read(*table);
        table->mark_deleted();
        table->unlock_all();
    }
    table->commit();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string path = fuzz::write_file("T.DBF", {bytes, size});
    const std::uint8_t memo[1024] = {0, 0, 0, 16, 0, 0, 0, 64};
    fuzz::write_file("T.FPT", memo);
    fuzz::write_file("T.DBT", memo);
    fuzz::allow_faults([&] { use(path); });
    return 0;
}
