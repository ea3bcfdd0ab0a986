// A table file of any content: opened, read through, changed and added to.

#include "engine/local/local_engine.h"
#include "fuzz.h"

using namespace brenik;

namespace {

constexpr RecordNumber kMostRecords = 300;

void read(Table& table) {
    table.refresh_record();
    for (std::size_t field = 1; field <= table.fields().size(); ++field) {
        fuzz::allow_faults([&] { table.field_get(field); });
    }
}

// Every field put back as it is read must leave the other fields' bytes alone; what comes back must
// be what was there.
void put_back(Table& table, RecordNumber record) {
    table.go_to(record);
    if (table.end_of_file() || !table.lock_record(record)) return;
    for (std::size_t field = 1; field <= table.fields().size(); ++field) {
        fuzz::allow_faults([&] {
            const Value value = table.field_get(field);
            table.field_put(field, value);
            fuzz::require(table.field_get(field).exactly_equals(value) ||
                          value.kind() == ValueKind::kNumber || !value.is_text());
        });
    }
    table.unlock_all();
}

void use(const std::string& path) {
    local::LocalEngine engine;
    OpenAnswer answer = engine.open(path, TableSharing::kShared);
    if (std::holds_alternative<Refusal>(answer)) return;
    const auto& table = std::get<std::unique_ptr<Table>>(answer);
    const RecordNumber count = std::min(table->record_count(), kMostRecords);
    for (RecordNumber record = 1; record <= count; ++record) {
        table->go_to(record);
        read(*table);
    }
    fuzz::allow_faults([&] { put_back(*table, 1); });
    fuzz::allow_faults([&] { put_back(*table, count); });
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
