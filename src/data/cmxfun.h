// Index orders and their scopes in the current work area.
//
// `order` is an order's name or number, or nil for the controlling one. `index_file` limits the
// search to the orders of one file. If no order matches, the key count is 0.

#pragma once

#include <optional>
#include <string>

#include "session/session.h"

namespace brenik {

// The automatic settings: which order becomes controlling when indexes are opened, and how tables
// are shared. An argument becomes the new setting. Both return the previous one.
int CMXAUTOORDER(Session& session, std::optional<int> order = {});
int CMXAUTOSHARE(Session& session, std::optional<int> share = {});

void CMXCLRSCOPE(Session& session, ScopeEnd end);

// The number of open orders: all of them, or those of one index file.
std::size_t CMXCOUNT(Session& session, const std::optional<std::string>& index_file = {});

// One row per open order: name, key expression, condition, and whether it is unique, descending,
// custom.
ArrayReference CMXINDEXINFO(Session& session);

// The number of an order's keys, and the position of the current record's key among them (0 if it
// has none), regardless of scopes and filters.
std::size_t CMXKEYCOUNT(Session& session, const Value& order = {},
                        const std::string& index_file = {});
std::size_t CMXKEYNO(Session& session, const Value& order = {}, const std::string& index_file = {});

// Goes to the top, then skips position - 1 records. A far skip is cheap while nothing hides
// records. A position below 1 stays at the top.
void CMXKEYGOTO(Session& session, std::int64_t position);

// Seeks the last record with a key; true if there is one.
bool CMXSEEKLAST(Session& session, const Value& key, SeekMode mode = SeekMode::kHard);

// Relates `target` to the current work area and limits it to the records whose key equals the value
// of the expression `text`. SAVEDBF saves `text` as the relation's expression.
void CMXSETRELATION(Session& session, int target, const std::string& text);

// Returns a scope of the controlling order and replaces it if `value` is given; nil means no limit.
Value CMXSETSCOPE(Session& session, ScopeEnd end, const std::optional<Value>& value = {});

// Returns the table's shared flag and replaces it if `shared` is given.
bool CMXSHARED(Session& session, std::optional<bool> shared = {});

// Clears the filter and removes the related query of the work area.
void CLEARFILTER(Session& session);

}  // namespace brenik
