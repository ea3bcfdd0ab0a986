// The invented people, matters and events of a sample practice.
//
// Every row depends only on the practice's sizes and its own index. So rows need no memory, a row
// can be computed twice, and the same sizes always give the same practice, byte for byte.

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "util/date.h"

namespace brenik::tools {

inline constexpr std::string_view kWorkstation = "A1";
inline constexpr std::string_view kOperator = "KLM";
inline constexpr std::string_view kFirmId = "FIRM";
inline constexpr std::string_view kFirmName = "Harbour, Finch & Wren LLP";

struct SampleSizes {
    std::uint32_t contacts;
    std::uint32_t matters;
    std::uint32_t events;
    std::uint32_t notes;
};

struct Row {
    std::string uid;
    Date entry;
    bool deleted = false;
};

struct Contact : Row {
    std::string id, last, first, street, city, state, zip, phone, mobile, email;
    std::string contact_class, attorney, referred_by, remarks;
    double balance = 0;
    bool active = true;
};

struct Matter : Row {
    std::uint32_t contact = 0;  // index
    std::string number, name, matter_class, attorney, court, remarks;
    Date closed;
    double rate = 0, budget = 0;
    int priority = 0;
};

struct Event : Row {
    std::uint32_t number = 0;
    Date date;
    std::string start;  // 17 digits
    std::string type, detail, case_number, attorney, remarks;
    int minutes = 0;
    bool done = false;
};

struct Note : Row {
    std::string contact_uid, topic, text;
};

struct Code : Row {
    std::string type, code, detail;
    double rate = 0;
};

struct CrossReference : Row {
    Contact contact;
    Matter matter;
};

// The sample's last day.
Date sample_today();

Contact make_contact(const SampleSizes& sizes, std::uint32_t index);
Matter make_matter(const SampleSizes& sizes, std::uint32_t index);
Event make_event(const SampleSizes& sizes, std::uint32_t index);
Note make_note(const SampleSizes& sizes, std::uint32_t index);
Code make_code(const SampleSizes& sizes, std::uint32_t index);
std::uint32_t code_count();
// One per matter.
CrossReference make_cross_reference(const SampleSizes& sizes, std::uint32_t index);

}  // namespace brenik::tools
