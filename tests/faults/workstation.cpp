// The vocabulary of the fault and soak tests.

#include "workstation.h"

namespace brenik::faults {

Workstation::Workstation(std::string folder) : folder_(std::move(folder)) {
    expect_success(bridge_.initialize(folder_.c_str(), 0));
}

void Workstation::expect_success(Bridge::Code code) {
    if (code != 0) throw Refused{static_cast<int>(code)};
}

std::string Workstation::add(int table, const Values& values, const std::string& contact) {
    int ignored = 0;
    expect_success(bridge_.add_start(table, &ignored));
    for (const auto& [field, text] : values) {
        expect_success(bridge_.set_field(table, 0, field.c_str(), text.c_str()));
    }
    char identifier[8] = {};
    contact.copy(identifier, 7);
    expect_success(bridge_.add_end(table, identifier));
    return identifier;
}

void Workstation::edit(int table, const std::string& identifier, const Values& values) {
    int ignored = 0;
    expect_success(bridge_.edit_start(table, identifier.c_str(), &ignored));
    for (const auto& [field, text] : values) {
        expect_success(bridge_.set_field(table, 0, field.c_str(), text.c_str()));
    }
    expect_success(bridge_.edit_end(table, 0));
}

void Workstation::report_deleted(int table, RecordNumber record) {
    expect_success(bridge_.deleted_record(table, static_cast<int>(record)));
}

Table& Workstation::open(int area, const std::string& name) {
    WorkAreas& areas = session().areas;
    areas.select(area);
    if (!areas.used()) areas.open(folder_ + "/" + name, std::nullopt, TableSharing::kShared);
    return table(area);
}

}  // namespace brenik::faults
