// One vocabulary for filters and browsing, over the current work area.

#pragma once

#include <string>

#include "session/session.h"

namespace brenik {

// Sets the filter to an expression text; an empty text clears it. One that does not compile is an
// EngineFault, and the old filter stays. Two names for the same thing.
void SETFILTER(Session& session, const std::string& expression);
void CMFILTER(Session& session, const std::string& expression);

// Clears the filter, if any, with CLEARFILTER, and once more where an order is controlling: so the
// related query is forgotten without a filter too.
void CMCLRFILTER(Session& session);

// Keys of an order, and the position of the current record's key among them (0 when it has none),
// as scopes and filter let them be seen. Orders are named as in cmxfun.h.
std::size_t CMKEYCOUNT(Session& session, const Value& order = {},
                       const std::string& index_file = {});
std::size_t CMKEYNO(Session& session, const Value& order = {}, const std::string& index_file = {});

// How much of the filter is answered from indexes: 0 nothing, 1 some of it, 2 all.
int RLOPTLEVEL(Session& session);

// Moves by `count` records, back where it is negative, as a browser does: it never leaves the first
// or the last record, and answers how far it came. 0 reads the record again. From the end of file
// it moves only backwards.
std::int64_t DBSKIPPER(Session& session, std::int64_t count);

namespace second_variant {

// Clears the filter and nothing else; every caller in the library means the one in cmxfun.h.
void CLEARFILTER(Session& session);

}  // namespace second_variant

}  // namespace brenik
