// Read-only services: the firm's description, identifiers by key, display names.

#pragma once

#include <optional>
#include <string>

#include "session/session.h"

namespace brenik {

// `firm` receives 23 items of the firm's own contact record, each followed by "|"; empty text when
// LAWSYS.INI names no such record. The current work area, and order and position of "Names", are
// as before afterwards. Always kSuccess.
int GetMyFirm(Session& session, std::string& firm);

// `identifier` receives the U_ID of a contact (table 1) by its ID, or of a matter (table 3) by its
// case number, whatever the key's case; it is unchanged when nothing is found. The table and the
// order sought in stay current.
int GetU_ID(Session& session, int table, const std::string& key, std::string& identifier);

// "Last, First" of the current record, in exactly `width` characters; of "Names" when no work area
// is given.
std::string LASTFIRST(Session& session, std::size_t width = 55, std::optional<int> area = {});

}  // namespace brenik
