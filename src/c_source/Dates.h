// Dates as the practice's screens and reports need them: built with carry, counted from today,
// written out.
//
// A two-digit year is in the 1900s. Beyond the calendar's years, 1 to 9999, a date is empty.

#pragma once

#include <cstdint>
#include <string>

#include "session/session.h"
#include "util/date.h"
#include "util/value.h"

namespace brenik {

// The date of a month, day and year, whatever their size: a month outside 1 to 12 carries into the
// year, a day outside the month into its neighbours, so that day 0 is the last day of the month
// before. A year below 100 has 1900 added, before the carry and again after it. With `clamp` a
// date that left its month goes back by its own day of month, so that 30 February becomes the last
// of February.
Date MAKEDATE(std::int64_t month, std::int64_t day, std::int64_t year, bool clamp = false);

// "Today", "3 days past" or "3 days to go", in the plural for one day too; empty text for the empty
// date.
std::string DAYSAWAY(Session& session, Date date);

// The next anniversary, today included: of 29 February in common years 1 March, of the empty date
// 31 December 2099.
Date NEXTBDAY(Session& session, Date date);

// "November 27, 2003"; "No Date" for the empty date.
std::string DTOW(Date date);

// Completed years since a date, or since what CASTANY makes a date; 0 for the empty date. Somebody
// born on 29 February grows older on 1 March in common years. Without an argument the days since
// 1 January.
std::int64_t AGE(Session& session, const Value& date = {});

}  // namespace brenik
