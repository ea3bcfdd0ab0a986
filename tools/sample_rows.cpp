// Invents the sample's rows from short lists and a hash of table and row index.

#include "sample_rows.h"

#include <cstdio>
#include <iterator>

#include "practice/identifiers.h"
#include "util/runtime.h"

namespace brenik::tools {
namespace {

// Two names are in code page 1252, so that text beyond ASCII passes through every layer.
constexpr std::string_view kLastNames[] = {
    "Abernathy", "Alvarado",  "Ashworth",   "Bellamy",    "B\xE9ranger", "Blackwood",  "Brannigan",
    "Calloway",  "Castellan", "Cromwell",   "Dalrymple",  "Delacroix",   "Ellsworth",  "Fairchild",
    "Fitzroy",   "Gallagher", "Greenfield", "Halloran",   "Hawthorne",   "Iverson",    "Jessop",
    "Kaminski",  "Kowalczyk", "Lancaster",  "Lindqvist",  "MacAllister", "Marchetti",  "Nakamura",
    "Nu\361ez",  "Okonkwo",   "Pemberton",  "Quigley",    "Rasmussen",   "Rutherford", "Santangelo",
    "Sinclair",  "Thackeray", "Underhill",  "Vanderberg", "Weatherby",   "Yamashita",  "Zielinski"};
constexpr std::string_view kFirstNames[] = {
    "Agnes",    "Albert",  "Beatrix", "Bernard",  "Camille", "Clement",   "Daphne",  "Desmond",
    "Edith",    "Edmund",  "Flora",   "Gideon",   "Harriet", "Hugo",      "Imogen",  "Jasper",
    "Judith",   "Kenneth", "Lavinia", "Leopold",  "Mabel",   "Nathaniel", "Olive",   "Percival",
    "Rosalind", "Rupert",  "Sybil",   "Theodore", "Ursula",  "Victor",    "Winifred"};
constexpr std::string_view kStreets[] = {"Alder Lane",   "Canal Street",  "Chestnut Avenue",
                                         "Foundry Road", "Harbor View",   "Juniper Court",
                                         "Lantern Hill", "Market Square", "Orchard Way",
                                         "Quarry Road",  "Signal Street", "Willow Crescent"};

struct Town {
    std::string_view city, state;
    int zip;
};
constexpr Town kTowns[] = {{"Ashford Mills", "CT", 6278}, {"Bexley Harbor", "ME", 4015},
                           {"Cedar Falls", "OR", 97016},  {"Dunmore", "PA", 18512},
                           {"Eastbrook", "NH", 3824},     {"Fairhaven", "MA", 2719},
                           {"Granite Bay", "CA", 95746},  {"Hollis Point", "WA", 98332},
                           {"Kingsbridge", "NY", 10463},  {"Larkspur", "CO", 80118}};

constexpr std::string_view kAttorneys[] = {"HAR", "FIN", "WRE", "OKO", "LIN"};
constexpr std::string_view kContactClasses[] = {"CLIENT",   "OPPONENT", "WITNESS",
                                                "ATTORNEY", "EXPERT",   "VENDOR"};
constexpr std::string_view kMatterClasses[] = {"Estate", "Family", "Litigation", "Property", "Tax"};
constexpr std::string_view kCourts[] = {"County Court", "District Court", "Probate Court",
                                        "Superior Court"};
constexpr std::string_view kEventTypes[] = {"APPT", "CALL", "DEADLINE", "HEARING", "MEETING"};
constexpr std::string_view kActivities[] = {"Conference", "Drafting",  "Research",
                                            "Review",     "Telephone", "Travel"};
constexpr std::string_view kTopics[] = {"Conflict check", "Engagement letter", "First interview",
                                        "Retainer", "Telephone call"};
constexpr std::string_view kSentences[] = {
    "Left word with the receptionist.",
    "The originals are in the safe; copies went out by post.",
    "Prefers to be called before ten in the morning.",
    "Asked for a written estimate before anything is filed.",
    "Will bring the deed and the survey to the next meeting.",
    "The other side offered to settle; the offer stands until the end of the month.",
    "Referred to the county clerk for a certified copy."};

struct CodeList {
    std::string_view type;
    const std::string_view* codes;
    std::uint32_t count;
};
template <std::size_t N>
constexpr CodeList code_list(std::string_view type, const std::string_view (&codes)[N]) {
    return {type, codes, N};
}
constexpr CodeList kCodeLists[] = {code_list("ACTIVITY", kActivities),
                                   code_list("CLASS", kContactClasses), code_list("COURT", kCourts),
                                   code_list("EVENT", kEventTypes),
                                   code_list("MATTER", kMatterClasses)};

constexpr int kYearsOfPractice = 12;
constexpr std::uint32_t kDeletedEvery = 50;

enum class Subject : std::uint64_t { kContact = 1, kMatter, kEvent, kNote, kCode };

// A stream of numbers that depends only on the subject and the row's index.
class Dice {
  public:
    Dice(Subject subject, std::uint32_t index)
        : state_(static_cast<std::uint64_t>(subject) << 32 | index) {}

    std::uint32_t below(std::uint32_t bound) { return static_cast<std::uint32_t>(next() % bound); }
    bool one_in(std::uint32_t count) { return below(count) == 0; }
    template <typename T, std::size_t N>
    const T& pick(const T (&list)[N]) {
        return list[below(N)];
    }

  private:
    std::uint64_t next() {  // splitmix64
        std::uint64_t z = state_ += 0x9E3779B97F4A7C15;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
        return z ^ (z >> 31);
    }
    std::uint64_t state_;
};

template <typename... Arguments>
std::string format(const char* pattern, Arguments... arguments) {
    char text[80];
    std::snprintf(text, sizeof text, pattern, arguments...);
    return text;
}

std::string uid(std::uint32_t index) {
    return practice::identifier_of(kWorkstation, std::int64_t{index} + 1);
}

// The date of a row's entry: rows are spread evenly over the practice's years, in their order.
Date entry_date(std::uint32_t index, std::uint32_t count) {
    const std::uint64_t days = 365ULL * kYearsOfPractice * (count - 1 - index) / count;
    return Date(sample_today().julian_day() - static_cast<std::int32_t>(days));
}

Row make_row(std::uint32_t index, std::uint32_t count) {
    return {uid(index), entry_date(index, count)};
}

std::string ascii_letters(std::string_view text, std::size_t count) {
    std::string letters;
    for (const char c : upper(text)) {
        if (c >= 'A' && c <= 'Z' && letters.size() < count) letters += c;
    }
    return letters;
}

std::string phone_number(Dice& dice) {
    return format("(%03u) 555-%04u", 200 + dice.below(700), dice.below(10000));
}

std::string remarks(Dice& dice) {
    std::string text(dice.pick(kSentences));
    while (dice.one_in(2)) text.append("\r\n").append(dice.pick(kSentences));
    return text;
}

bool is_deleted_contact(std::uint32_t index) {
    return index % kDeletedEvery == kDeletedEvery / 2 - 1;
}

Contact make_firm(const SampleSizes& sizes) {
    Contact firm;
    static_cast<Row&>(firm) = make_row(0, sizes.contacts);
    firm.id = kFirmId;
    firm.last = kFirmName;
    firm.street = "1 Customs House Quay";
    firm.city = "Bexley Harbor";
    firm.state = "ME";
    firm.zip = "04015";
    firm.phone = "(207) 555-0100";
    firm.email = "office@harbourfinchwren.example";
    firm.contact_class = "FIRM";
    firm.attorney = kAttorneys[0];
    return firm;
}

}  // namespace

Date sample_today() { return Date::from_civil(2024, 3, 15); }

Contact make_contact(const SampleSizes& sizes, std::uint32_t index) {
    if (index == 0) return make_firm(sizes);
    Dice dice(Subject::kContact, index);
    Contact contact;
    static_cast<Row&>(contact) = make_row(index, sizes.contacts);
    contact.deleted = is_deleted_contact(index);
    contact.last = dice.pick(kLastNames);
    contact.first = dice.pick(kFirstNames);
    const std::string letters = ascii_letters(contact.last, 4);
    contact.id = letters + format("%06u", index);
    contact.street = format("%u ", 1 + dice.below(250)) + std::string(dice.pick(kStreets));
    const Town& town = dice.pick(kTowns);
    contact.city = town.city;
    contact.state = town.state;
    contact.zip = format("%05d", town.zip);
    contact.phone = phone_number(dice);
    if (dice.one_in(2)) contact.mobile = phone_number(dice);
    contact.email = format("%s%u@mail.example", letters.c_str(), index);
    contact.contact_class = dice.pick(kContactClasses);
    contact.attorney = dice.pick(kAttorneys);
    if (dice.one_in(5)) contact.referred_by = dice.pick(kLastNames);
    if (dice.one_in(8)) contact.remarks = remarks(dice);
    contact.balance = dice.one_in(3) ? dice.below(1'000'000) / 100.0 : 0;
    contact.active = !dice.one_in(10);
    return contact;
}

Matter make_matter(const SampleSizes& sizes, std::uint32_t index) {
    Dice dice(Subject::kMatter, index);
    Matter matter;
    static_cast<Row&>(matter) = make_row(index, sizes.matters);
    matter.contact = dice.below(sizes.contacts);
    if (is_deleted_contact(matter.contact)) --matter.contact;
    const std::string client = make_contact(sizes, matter.contact).last;
    matter.matter_class = dice.pick(kMatterClasses);
    matter.number = format("%04d-%06u-", matter.entry.civil().year, index + 1) +
                    matter.matter_class.substr(0, 3);
    matter.name = matter.matter_class == "Estate" || matter.matter_class == "Tax"
                      ? client + ", " + matter.matter_class
                      : client + " v. " + std::string(dice.pick(kLastNames));
    matter.attorney = dice.pick(kAttorneys);
    matter.court = dice.pick(kCourts);
    if (dice.one_in(4)) matter.closed = Date(matter.entry.julian_day() + 30);
    if (dice.one_in(4)) matter.remarks = remarks(dice);
    matter.rate = 150 + 12.5 * dice.below(20);
    matter.budget = dice.below(5'000'000) / 100.0;
    matter.priority = static_cast<int>(dice.below(9)) - 4;
    return matter;
}

Event make_event(const SampleSizes& sizes, std::uint32_t index) {
    Dice dice(Subject::kEvent, index);
    Event event;
    static_cast<Row&>(event) = make_row(index, sizes.events);
    event.number = index + 1;
    event.date = Date(event.entry.julian_day() + static_cast<std::int32_t>(dice.below(60)));
    event.start =
        event.date.to_ymd() + format("%02u%02u00000", 8 + dice.below(10), 15 * dice.below(4));
    event.type = dice.pick(kEventTypes);
    event.detail = dice.pick(kSentences);
    if (sizes.matters > 0) {
        event.case_number = make_matter(sizes, dice.below(sizes.matters)).number;
    }
    event.attorney = dice.pick(kAttorneys);
    if (dice.one_in(6)) event.remarks = remarks(dice);
    event.minutes = 15 * static_cast<int>(1 + dice.below(12));
    event.done = event.date < sample_today();
    return event;
}

Note make_note(const SampleSizes& sizes, std::uint32_t index) {
    Dice dice(Subject::kNote, index);
    Note note;
    static_cast<Row&>(note) = make_row(index, sizes.notes);
    note.contact_uid = uid(dice.below(sizes.contacts));
    note.topic = dice.pick(kTopics);
    note.text = remarks(dice);
    return note;
}

Code make_code(const SampleSizes&, std::uint32_t index) {
    Code code;
    static_cast<Row&>(code) = make_row(index, code_count());
    std::uint32_t place = index;
    const CodeList* list = kCodeLists;
    while (place >= list->count) place -= (list++)->count;
    code.type = list->type;
    code.code = list->codes[place];
    code.detail = code.code + " (" + code.type + ")";
    code.rate = 25.0 * (place + 1);
    return code;
}

std::uint32_t code_count() {
    std::uint32_t count = 0;
    for (const CodeList& list : kCodeLists) count += list.count;
    return count;
}

CrossReference make_cross_reference(const SampleSizes& sizes, std::uint32_t index) {
    CrossReference reference;
    static_cast<Row&>(reference) = make_row(index, sizes.matters);
    reference.matter = make_matter(sizes, index);
    reference.contact = make_contact(sizes, reference.matter.contact);
    return reference;
}

}  // namespace brenik::tools
