// Filters and browsing in the current work area.

#pragma once

#include <string>

#include "session/session.h"

namespace brenik {

// Sets the filter to an expression; an empty text clears it. If the expression does not compile,
// throws EngineFault and keeps the old filter. Both names do the same.
void SETFILTER(Session& session, const std::string& expression);
void CMFILTER(Session& session, const std::string& expression);

// Calls CLEARFILTER if there is a filter, and again if an order is controlling. So with an order it
// removes the related query even without a filter.
void CMCLRFILTER(Session& session);

// The number of an order's keys that scopes and filter leave visible, and the position of the
// current record's key among them (0 if it has none). Orders are named as in cmxfun.h.
std::size_t CMKEYCOUNT(Session& session, const Value& order = {},
                       const std::string& index_file = {});
std::size_t CMKEYNO(Session& session, const Value& order = {}, const std::string& index_file = {});

// How much of the filter indexes answer: 0 nothing, 1 some of it, 2 all.
int RLOPTLEVEL(Session& session);

// Moves by `count` records, backwards if it is negative, like a browser: it stops at the first and
// the last record. Returns how far it moved. 0 reads the record again. From the end of file it
// moves only backwards.
std::int64_t DBSKIPPER(Session& session, std::int64_t count);

namespace second_variant {

// Clears the filter but keeps the related query. The library itself calls only the one in cmxfun.h.
void CLEARFILTER(Session& session);

}  // namespace second_variant

}  // namespace brenik
