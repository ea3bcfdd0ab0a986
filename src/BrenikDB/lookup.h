// Read-only services: the firm's description, identifiers by key, display names.

#pragma once

#include <optional>
#include <string>

#include "data/record_object.h"
#include "session/session.h"

namespace brenik {

// `firm` receives 23 items of the firm's own contact record, each followed by "|", those of missing
// fields empty; empty text when LAWSYS.INI names no such record or it cannot be read. The current
// work area, and order and position of "Names", are as before afterwards. Always kSuccess.
int GetMyFirm(Session& session, std::string& firm);

// `identifier` receives the U_ID of a contact (table 1) by its ID, or of a matter (table 3) by its
// case number, whatever the key's case; it is unchanged when nothing is found. The table and the
// order sought in stay current.
int GetU_ID(Session& session, int table, const std::string& key, std::string& identifier);

inline constexpr std::size_t kNameWidth = 55;

// "Last, First" in exactly `width` characters: of the current record of a work area, "Names" when
// none is given, or of a record object, for which the end of file gives blanks.
std::string LASTFIRST(Session& session, std::size_t width = kNameWidth,
                      std::optional<int> area = {});
std::string LASTFIRST(const RecordObject& record, std::size_t width = kNameWidth);

}  // namespace brenik
