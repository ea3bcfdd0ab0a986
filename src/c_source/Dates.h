// Dates as the practice's screens and reports need them: built with carry, counted from today,
// written in words.
//
// A two-digit year is in the 1900s. A date outside the calendar's years, 1 to 9999, is empty.

#pragma once

#include <cstdint>
#include <string>

#include "session/session.h"
#include "util/date.h"
#include "util/value.h"

namespace brenik {

// The date of a month, day and year of any size. A month outside 1 to 12 carries into the year, a
// day outside the month carries into the neighbouring months: day 0 is the last day of the previous
// month. 1900 is added to a year below 100, before the carry and again after it. With `clamp`, a
// date that left its month moves back by its own day of the month: 30 February becomes the last day
// of February.
Date MAKEDATE(std::int64_t month, std::int64_t day, std::int64_t year, bool clamp = false);

// "Today", "3 days past" or "3 days to go"; one day is in the plural too. Empty text for the empty
// date.
std::string DAYSAWAY(Session& session, Date date);

// The next anniversary; today counts. In common years that of 29 February is 1 March. The empty
// date gives 31 December 2099.
Date NEXTBDAY(Session& session, Date date);

// "November 27, 2003"; "No Date" for the empty date.
std::string DTOW(Date date);

// Completed years since `date`, which CASTANY converts to a date; 0 for the empty date. In common
// years an age from 29 February rises on 1 March. Without an argument, the days since 1 January.
std::int64_t AGE(Session& session, const Value& date = {});

}  // namespace brenik
