// Takes examples from the practice's contacts and gives them new keys.

#include "contact_examples.h"

#include "tables.h"

namespace brenik::bench {

namespace {

constexpr std::size_t kExamples = 64;
constexpr std::size_t kDays = 4000;  // in which contacts were entered
const Date kFirstDay = Date::from_civil(2012, 1, 2);

}  // namespace

ContactExamples::ContactExamples(Table& contacts)
    : balance_(position_of(contacts, "BALANCE")), entry_(position_of(contacts, "ENTRY")) {
    for (const char* name : {"ID", "LAST", "FIRST", "CITY"}) {
        names_.push_back(position_of(contacts, name));
    }
    control(contacts, "");
    for (contacts.go_top(); !contacts.end_of_file() && contacts_.size() < kExamples;
         contacts.skip(1)) {
        Contact contact;
        for (std::size_t field = 1; field <= contacts.fields().size(); ++field) {
            const bool memo = contacts.fields()[field - 1].type == 'M';
            contact.push_back(memo ? Value() : contacts.field_get(field));
        }
        contacts_.push_back(contact);
    }
}

Contact ContactExamples::next(Random& random) const {
    Contact contact = contacts_[random.below(contacts_.size())];
    for (const std::size_t field : names_) contact[field - 1] = random.letters(7);
    contact[balance_ - 1] = Number{static_cast<double>(random.below(1000000)) / 100, 12, 2};
    const auto day = static_cast<std::int32_t>(random.below(kDays));
    contact[entry_ - 1] = Date(kFirstDay.julian_day() + day);
    return contact;
}

}  // namespace brenik::bench
