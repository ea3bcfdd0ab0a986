// One vocabulary for index orders and their scopes, over the current work area.
//
// `order` names an order by its name or number, nil the controlling one; `index_file` limits the
// look to the orders of one file. What names no order counts no keys.

#pragma once

#include <optional>
#include <string>

#include "session/session.h"

namespace brenik {

// The engine's automatic settings: which order becomes controlling when indexes are opened, and how
// tables are shared. A value given becomes the new setting; the previous one is answered.
int CMXAUTOORDER(Session& session, std::optional<int> order = {});
int CMXAUTOSHARE(Session& session, std::optional<int> share = {});

void CMXCLRSCOPE(Session& session, ScopeEnd end);

// Number of open orders, all of them or those of one index file.
std::size_t CMXCOUNT(Session& session, const std::optional<std::string>& index_file = {});

// A row for each open order: name, key expression, condition, and whether it is unique, descending
// and custom.
ArrayReference CMXINDEXINFO(Session& session);

// Keys of an order, and the position of the current record's key among them (0 when it has none),
// regardless of scopes and filters.
std::size_t CMXKEYCOUNT(Session& session, const Value& order = {},
                        const std::string& index_file = {});
std::size_t CMXKEYNO(Session& session, const Value& order = {}, const std::string& index_file = {});

// Goes to the top, then skips position - 1 records: far moves cost little while nothing hides
// records. Positions below 1 stay at the top.
void CMXKEYGOTO(Session& session, std::int64_t position);

// Lands on the last record with a key; whether there is one.
bool CMXSEEKLAST(Session& session, const Value& key, SeekMode mode = SeekMode::kHard);

// Relates a target to the current work area and limits it to the records whose key equals the
// expression's value. `text` is what SAVEDBF reads back as the expression; the two are one here.
void CMXSETRELATION(Session& session, int target, const std::string& text);

// Answers a scope of the controlling order, and sets it where a value is given; nil is no limit.
Value CMXSETSCOPE(Session& session, ScopeEnd end, const std::optional<Value>& value = {});

// The table's shared flag before it is set, where a value is given.
bool CMXSHARED(Session& session, std::optional<bool> shared = {});

// Clears the filter and forgets the related query of the work area.
void CLEARFILTER(Session& session);

}  // namespace brenik
